#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "StoreTestSupport.h"
#include "core/Localization.h"
#include "model/BLSyncHelper.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLContextState.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/gen/BrasslineModel.h"
#include "store/BLDoc.h"
#include "store/BLPreferenceController.h"
#include "store/BLSetupDefaultsController.h"
#include "store/BLUserDefaults.h"

namespace brassline {
namespace {

class SetupFixture : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        BLSyncHelper::setIsSyncing(false);
        UserDefaults::setDirectoryForTesting(m_folder / "config");
        m_context = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
    }
    void TearDown() override {
        RunLoop::resetMainForTesting();
        BLContextState::forgetContext(*m_context);
        m_context.reset();
        resetModelHooks();
        UserDefaults::setDirectoryForTesting("");
        NotificationCenter::resetDefaultCenterForTesting();
    }
    template <typename T>
    T* byUid(const std::string& uid) {
        return dynamic_cast<T*>(m_context->objectWithUid(T::entityDescription(), uid));
    }
    Value preference(const std::string& uid) {
        auto* object = byUid<BLPreference>(uid);
        return object != nullptr ? object->payload() : Value();
    }
    // A fresh context given the first-run contents while `language` is the current one.
    void setUpFreshFileIn(const char* language) {
        TearDown();
        SetUp();
        setCurrentLanguage(language);
        BLSetupDefaultsController::setupWithObject(answers(true, {{"VAT", 19}}), *m_context);
        setCurrentLanguage("");
    }
    static Value::Dictionary answers(bool taxable, std::vector<std::pair<std::string, int>> taxes) {
        Value::Array list;
        for (const auto& [name, percent] : taxes) {
            list.push_back(Value(Value::Dictionary{{"name", Value(name)}, {"value", Value(percent)}}));
        }
        return {{"vatID", Value("DE999")}, {"taxable", Value(taxable)}, {"taxes", Value(std::move(list))}};
    }

    storetest::TemporaryFolder m_folder;
    std::unique_ptr<ManagedObjectContext> m_context;
};

TEST_F(SetupFixture, TaxesMakeGroupsWithDomesticRules) {
    BLSetupDefaultsController::setupWithObject(answers(true, {{"VAT", 19}, {"reduced", 7}}), *m_context);
    auto* noTax = byUid<BLTaxGroup>(kDefaultTaxGroupNoTaxUID);
    auto* first = byUid<BLTaxGroup>("com.orvane.Brassline.defaultTaxGroupTax0");
    auto* second = byUid<BLTaxGroup>("com.orvane.Brassline.defaultTaxGroupTax1");
    ASSERT_TRUE(noTax && first && second);
    EXPECT_EQ(noTax->shortName(), "0");
    EXPECT_EQ(second->shortName(), "2");
    EXPECT_TRUE(first->isDefaultValue());
    EXPECT_FALSE(noTax->isDefaultValue());
    EXPECT_EQ(byUid<BLItemGroup>(kDefaultItemGroupUID)->taxGroup(), first);
    auto* domestic = byUid<BLClientGroup>(kDefaultClientGroupUID);
    ASSERT_TRUE(domestic && domestic->isDefaultValue());
    EXPECT_FALSE(byUid<BLClientGroup>(kDefaultForeignClientGroupUID)->isDefaultValue());

    struct Expected {
        BLTaxGroup* group;
        std::string name;
        std::string value;
    } expected[] = {{first, "VAT", "19"}, {second, "reduced", "7"}};
    for (const Expected& e : expected) {
        SCOPED_TRACE(e.name);
        ASSERT_EQ(e.group->taxRules().size(), 2u);
        for (BLTaxRule* rule : e.group->taxRules().toVector()) {
            if (rule->clientGroup() == domestic) {
                EXPECT_EQ(rule->tax1modeValue(), 1);
                EXPECT_EQ(rule->tax1name(), e.name);
                EXPECT_EQ(rule->tax1value()->toString(), e.value);
            } else {
                EXPECT_EQ(rule->tax1modeValue(), 0);
                EXPECT_FALSE(rule->tax1value());
            }
        }
    }
    EXPECT_EQ(preference("BLPref.invoice.payInterval").toInt64(), 30);
    EXPECT_EQ(preference("BLPref.invoice.overdueInterval").toInt64(), 10);
    EXPECT_EQ(preference("BLPref.group.separator"), Value("\\n"));
    EXPECT_TRUE(preference("BLPref.importer.includeZeroCost").toBool());
    // From the resources: BLPref.plist fills what step 9 did not set.
    EXPECT_EQ(preference("BLPref.finalInvoice.label"), Value("Final invoice"));
    EXPECT_FALSE(preference("BLPref.items.hideZeroCostOption").isNull());
    EXPECT_FALSE(preference("BLPref.default.useGrossPrices").toBool());
}

TEST_F(SetupFixture, WithoutTaxesTheItemGroupFollowsTaxable) {
    struct Case {
        bool taxable;
        bool itemGroupHasNoTax;
        bool noTaxIsDefault;
    } cases[] = {{false, true, true}, {true, false, false}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.taxable);
        TearDown();
        SetUp();
        BLSetupDefaultsController::setupWithObject(answers(c.taxable, {}), *m_context);
        auto* noTax = byUid<BLTaxGroup>(kDefaultTaxGroupNoTaxUID);
        auto* itemGroup = byUid<BLItemGroup>(kDefaultItemGroupUID);
        ASSERT_TRUE(noTax && itemGroup);
        EXPECT_EQ(itemGroup->taxGroup() == noTax, c.itemGroupHasNoTax);
        EXPECT_EQ(itemGroup->taxGroup() == nullptr, !c.itemGroupHasNoTax);
        EXPECT_EQ(noTax->isDefaultValue(), c.noTaxIsDefault);
    }
}

TEST_F(SetupFixture, PreferencesFromResourcesKeepWhatIsThere) {
    BLPreference* kept = BLPreference::insertInManagedObjectContext(*m_context);
    kept->setUid(std::string("BLPref.invoice.payInterval"));
    kept->setPayload(Value(14));
    BLSetupDefaultsController::setupPreferencesForManagedObjectContext(*m_context);
    EXPECT_EQ(preference("BLPref.invoice.payInterval").toInt64(), 14);
    EXPECT_EQ(preference("BLPref.estimate.validity").toInt64(), 30);
}

// The literal and token texts of a stored pattern, tokens as "{field:option}".
std::string patternText(const Value& stored) {
    const Bytes* bytes = stored.bytes();
    if (bytes == nullptr) {
        return "(none)";
    }
    std::optional<Value> list = Value::fromPropertyList(*bytes);
    if (!list || list->array() == nullptr) {
        return "(unreadable)";
    }
    std::string text;
    for (const Value& element : *list->array()) {
        if (element.dictionary() == nullptr) {
            text += element.toString();
            continue;
        }
        EXPECT_FALSE(element["uid"].toString().empty());
        text += "{" + element["field"].toString() + ":" + element["option"].toString() + "}";
    }
    return text;
}

Bytes archivedTokensForTest(Value::Array list) {
    return Value(std::move(list)).toBinaryPropertyList();
}

TEST_F(SetupFixture, NewFileNumbersInItsLanguageAndTakesGivenPatterns) {
    struct Case {
        const char* language;
        const char* invoice;
        const char* estimate;
    } cases[] = {
        {"en", "INV-{year:ZPYear}-{increment:ZPIncrement3}", "EST-{year:ZPYear}-{increment:ZPEstimateIncrement3}"},
        {"de", "RE-{year:ZPYear}-{increment:ZPIncrement3}", "AN-{year:ZPYear}-{increment:ZPEstimateIncrement3}"},
        // A language without patterns of its own numbers in English.
        {"fi", "INV-{year:ZPYear}-{increment:ZPIncrement3}", "EST-{year:ZPYear}-{increment:ZPEstimateIncrement3}"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.language);
        setUpFreshFileIn(c.language);
        EXPECT_EQ(patternText(preference("BLPref.invoice.numbering")), c.invoice);
        EXPECT_EQ(patternText(preference("BLPref.estimate.numbering")), c.estimate);
        EXPECT_EQ(patternText(preference("BLPref.client.numbering")), "{increment:ZPClientIncrement}");
        EXPECT_EQ(preference("BLPref.invoice.numberResetMode"), Value("year"));
        EXPECT_EQ(preference("BLPref.estimate.numberResetMode"), Value("year"));
        EXPECT_EQ(patternText(preference("BLPref.documents.filename")), "{label:} {number:} {client:ZPClientName}");
        EXPECT_EQ(patternText(preference("BLPref.documents.directory")), "{year:ZPYear}/{label:}");
        EXPECT_EQ(preference("BLPref.invoice.number").toInt64(), 1);
    }

    // Patterns given at set-up take the place of the defaults; a running number without a
    // year keeps the counter running.
    TearDown();
    SetUp();
    Value::Dictionary setup = answers(true, {});
    Value::Array invoice{Value("R"),
                         Value(Value::Dictionary{{"field", Value("increment")}, {"option", Value("ZPIncrement5")}})};
    setup["patterns"] = Value(Value::Dictionary{{"invoice", Value(invoice)}});
    BLSetupDefaultsController::setupWithObject(setup, *m_context);
    EXPECT_EQ(patternText(preference("BLPref.invoice.numbering")), "R{increment:ZPIncrement5}");
    EXPECT_EQ(preference("BLPref.invoice.numberResetMode").toInt64(), 0);
    EXPECT_EQ(patternText(preference("BLPref.estimate.numbering")),
              "EST-{year:ZPYear}-{increment:ZPEstimateIncrement3}");
}

TEST_F(SetupFixture, DefaultPaymentTypesCarryTermsInTheCompanysLanguage) {
    struct Case {
        const char* language;
        const char* invoice;
        const char* estimate;
    } cases[] = {
        {"en", "Payable within {termDays:} days, by {due:ZPCashDiscountDate}, without deduction.",
         "This estimate is valid until {due:ZPCashDiscountDate}."},
        {"de", "Zahlbar innerhalb von {termDays:} Tagen bis zum {due:ZPCashDiscountDate} ohne Abzug.",
         "Dieses Angebot gilt bis zum {due:ZPCashDiscountDate}."},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.language);
        setUpFreshFileIn(c.language);
        auto* bank = BLContainer::defaultItemForContext<BLPaymentType>(*m_context);
        ASSERT_NE(bank, nullptr);
        EXPECT_FALSE(bank->type().has_value()) << "the plain type stays the default for invoices";
        ASSERT_NE(bank->conditions(), nullptr);
        EXPECT_EQ(patternText(Value(*bank->conditions())), c.invoice);
        FetchRequest request("PaymentType");
        request.setPredicateFormat("type == 'BLEstimate'");
        std::vector<ManagedObject*> validity =
            m_context->executeFetchRequest(request).value_or(std::vector<ManagedObject*>{});
        ASSERT_EQ(validity.size(), 1u);
        auto* estimate = static_cast<BLPaymentType*>(validity.front());
        EXPECT_TRUE(estimate->isDefaultValue());
        ASSERT_NE(estimate->conditions(), nullptr);
        EXPECT_EQ(patternText(Value(*estimate->conditions())), c.estimate);
    }
    // Terms the user wrote stay, and a second run makes no second validity type.
    auto* bank = BLContainer::defaultItemForContext<BLPaymentType>(*m_context);
    bank->setConditions(archivedTokensForTest({Value("Cash only.")}));
    BLSetupDefaultsController::setupPaymentTermsForManagedObjectContext(*m_context);
    EXPECT_EQ(patternText(Value(*bank->conditions())), "Cash only.");
    EXPECT_EQ(
        m_context->executeFetchRequest(FetchRequest("PaymentType")).value_or(std::vector<ManagedObject*>{}).size(), 2u);
}

TEST_F(SetupFixture, RepairAddsMissingPatternsOnceAndKeepsTheUsers) {
    // An older file: the user set an invoice pattern and a monthly estimate reset, and
    // cleared the client pattern on purpose.
    auto set = [this](const std::string& uid, const Value& value) {
        BLPreference* preference = BLPreference::insertInManagedObjectContext(*m_context);
        preference->setUid(uid);
        preference->setPayload(value);
    };
    Value mine(Value(Value::Array{Value("Mine-"), Value(Value::Dictionary{{"field", Value("increment")},
                                                                          {"option", Value("ZPIncrement")},
                                                                          {"uid", Value("u1")}})})
                   .toBinaryPropertyList());
    set("BLPref.invoice.numbering", mine);
    set("BLPref.invoice.numberResetMode", Value("never"));
    set("BLPref.estimate.numberResetMode", Value("month"));
    set("BLPref.client.numbering", Value());
    std::vector<std::string> added = BLSetupDefaultsController::setupNumberPatternsForManagedObjectContext(*m_context);
    EXPECT_EQ(added, (std::vector<std::string>{"documents.directory", "documents.filename", "estimate", "project"}));
    EXPECT_EQ(preference("BLPref.invoice.numbering"), mine);
    EXPECT_EQ(preference("BLPref.invoice.numberResetMode"), Value("never"));
    EXPECT_TRUE(preference("BLPref.client.numbering").isNull());
    EXPECT_EQ(preference("BLPref.estimate.numberResetMode"), Value("month"));
    EXPECT_EQ(patternText(preference("BLPref.estimate.numbering")),
              "EST-{year:ZPYear}-{increment:ZPEstimateIncrement3}");
    // A second repair finds everything in place.
    EXPECT_TRUE(BLSetupDefaultsController::setupNumberPatternsForManagedObjectContext(*m_context).empty());
}

TEST_F(SetupFixture, GrossPricesAndProfile) {
    Value::Dictionary setup = answers(false, {});
    setup["useGrossPrices"] = Value(true);
    BLSetupDefaultsController::setupWithObject(setup, *m_context);
    EXPECT_TRUE(preference("BLPref.default.useGrossPrices").toBool());
    ManagedObject* profile = m_context->objectWithUid(*m_context->entityNamed("Profile"), "default.profile");
    ASSERT_NE(profile, nullptr);
    EXPECT_EQ(profile->valueForKey("taxID"), Value("DE999"));
    EXPECT_EQ(profile->valueForKeyPath("layout.uid"), Value(kDefaultLayoutUID));
    EXPECT_EQ(profile->valueForKeyPath("statementLayout.uid"), Value(kDefaultLayoutUID));
}

TEST_F(SetupFixture, PreferenceControllerMapsKeyPathsCreatesDefaultsAndRefreshes) {
    EXPECT_EQ(BLPreferenceController::uidForKeyPath("invoice.payInterval"), "BLPref.invoice.payInterval");
    EXPECT_EQ(BLPreferenceController::uidForKeyPath("y", "x"), "BLPref.x.y");
    BLPreferenceController controller(*m_context);
    EXPECT_TRUE(controller.valueForKeyPath("invoice.payInterval").isNull());
    controller.setValueForKeyPath(Value(21), "invoice.payInterval");
    controller.setValueForKeyPath(Value("Bill"), "invoice.label");
    EXPECT_EQ(preference("BLPref.invoice.payInterval").toInt64(), 21);

    // Built-in defaults are made on first read; useInMail follows the backdrop.
    EXPECT_EQ(controller.valueForKeyPath("partialInvoice.label"), Value("Partial invoice"));
    EXPECT_NE(byUid<BLPreference>("BLPref.partialInvoice.label"), nullptr);
    EXPECT_FALSE(controller.valueForKeyPath("stationary.useInMail").toBool());
    EXPECT_EQ(byUid<BLPreference>("BLPref.some.unknownKey"), nullptr);
    EXPECT_TRUE(controller.valueForKeyPath("some.unknownKey").isNull());

    // A change behind the controller's back shows only after refresh.
    byUid<BLPreference>("BLPref.invoice.payInterval")->setPayload(Value(45));
    EXPECT_EQ(controller.valueForKeyPath("invoice.payInterval").toInt64(), 21);
    std::vector<std::string> notices;
    controller.addObserver([&notices](const std::string& key) { notices.push_back(key); });
    controller.refresh();
    std::sort(notices.begin(), notices.end());
    EXPECT_EQ(notices, (std::vector<std::string>{"invoice", "invoice", "partialInvoice", "stationary"}));
    EXPECT_EQ(controller.valueForKeyPath("invoice.payInterval").toInt64(), 45);
}

TEST_F(SetupFixture, UserDefaultsProxyKeepsSettingsPerDocument) {
    UserDefaults::standard().registerDefaults({{"IgnoredFonts", Value(Value::Array{Value("Helvetica")})}});
    BLUserDefaultsProxy a("DocA");
    BLUserDefaultsProxy b("DocB");
    a.setObject(Value("wide"), "windowMode");
    b.setObject(Value(3), "windowMode");
    EXPECT_EQ(a.objectForKey("windowMode"), Value("wide"));
    EXPECT_EQ(b.objectForKey("windowMode").toInt64(), 3);
    EXPECT_EQ(a.objectForKey("IgnoredFonts")[0], Value("Helvetica"));  // The application's default.

    // The file is the store: a fresh read from the folder sees the same.
    UserDefaults::setDirectoryForTesting(m_folder / "config");
    EXPECT_EQ(BLUserDefaultsProxy("DocA").dictionary(), (Value::Dictionary{{"windowMode", Value("wide")}}));
    BLUserDefaultsProxy c("DocC");
    c.copySettingsFrom("DocA");
    EXPECT_EQ(c.objectForKey("windowMode"), Value("wide"));
    a.removeObject("windowMode");
    EXPECT_TRUE(a.dictionary().empty());
    EXPECT_EQ(c.objectForKey("windowMode"), Value("wide"));
}

TEST_F(SetupFixture, DocumentCreatesOpensRepairsAndAnswersHooks) {
    std::string path = m_folder / "Doc.brassline";
    std::string error;
    {
        std::unique_ptr<BLDoc> created = BLDoc::create(path, answers(true, {{"VAT", 19}}), &error);
        ASSERT_TRUE(created) << error;
        BLCurrency* euro = BLCurrency::insertInManagedObjectContext(created->managedObjectContext());
        euro->setName(std::string("€"));
        euro->setUid(std::string("euro"));
        ASSERT_TRUE(created->save(&error)) << error;
    }
    std::unique_ptr<BLDoc> document = BLDoc::open(path, &error);
    ASSERT_TRUE(document) << error;
    ManagedObjectContext& context = document->managedObjectContext();
    auto* euro = dynamic_cast<BLCurrency*>(context.objectWithUid(BLCurrency::entityDescription(), "euro"));
    ASSERT_NE(euro, nullptr);
    EXPECT_EQ(euro->name(), "EUR");
    EXPECT_EQ(euro->symbol(), "€");
    EXPECT_TRUE(document->readyForDefaultValues());
    EXPECT_EQ(BLDoc::documentForContext(context), document.get());
    // Preferences read through the entity layer go through the document's controller.
    document->prefsController().setValueForKeyPath(Value(12), "invoice.payInterval");
    EXPECT_EQ(BLPreference::preferenceValue(context, "invoice.payInterval").toInt64(), 12);
    EXPECT_TRUE(modelHooks().readyForDefaultValues(*m_context));  // A context without a document.
    EXPECT_EQ(document->userDefaults().identifier(), document->documentIdentifier());

    EXPECT_FALSE(BLDoc::open(m_folder / "missing.brassline", &error));
    EXPECT_NE(error.find("missing.brassline"), std::string::npos);
}

}  // namespace
}  // namespace brassline
