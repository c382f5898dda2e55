#include <limits>

#include <gtest/gtest.h>

#include "EntityFixture.h"
#include "core/Date.h"
#include "core/Localization.h"
#include "model/FetchRequest.h"
#include "model/Predicate.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLDocumentLabel.h"
#include "model/entities/BLExternalFile.h"
#include "model/entities/BLImportRule.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLLanguage.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLPartialInvoice.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLProfile.h"
#include "model/entities/BLSummaryCost.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/ModelStrings.h"

namespace brassline {
namespace {

using BaseObjectTest = EntityFixture;

bool isURLSafeUid(const std::string& uid) {
    if (uid.size() != 22) {
        return false;
    }
    for (char c : uid) {
        if (!std::isalnum(static_cast<unsigned char>(c)) && c != '-' && c != '_') {
            return false;
        }
    }
    return true;
}

TEST_F(BaseObjectTest, NewObjectsGetDistinctUrlSafeUids) {
    BLInvoice* first = insert<BLInvoice>();
    BLCurrency* second = insert<BLCurrency>();
    ASSERT_TRUE(first->uid() && second->uid());
    EXPECT_TRUE(isURLSafeUid(*first->uid())) << *first->uid();
    EXPECT_TRUE(isURLSafeUid(*second->uid())) << *second->uid();
    EXPECT_NE(*first->uid(), *second->uid());
}

TEST_F(BaseObjectTest, InsertWithUidAnswersTheExistingObject) {
    BLBase* first = BLBase::insertInManagedObjectContext(context(), "Currency", "currency.CHF");
    BLBase* again = BLBase::insertInManagedObjectContext(context(), "Currency", "currency.CHF");
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(first, again);
    EXPECT_EQ(first->uid().value_or(""), "currency.CHF");
    EXPECT_EQ(countInContext<BLCurrency>(context()), 1);
}

TEST_F(BaseObjectTest, CountInContextIncludesSubentitiesAndIsZeroForUnknownClasses) {
    insert<BLInvoice>();
    insert<BLInvoice>();
    insert<BLPartialInvoice>();
    EXPECT_EQ(countInContext<BLInvoice>(context()), 3);
    EXPECT_EQ(countInContext<BLPartialInvoice>(context()), 1);
    EXPECT_EQ(BLBase::countInContext(context(), "BLNoSuchThing"), 0);
}

// Defaults.

TEST_F(BaseObjectTest, NoDefaultBeforeTheDocumentIsReady) {
    BLContextState::setReadyForDefaultValues(context(), false);
    EXPECT_EQ(BLContainer::defaultItemForContext<BLCurrency>(context()), nullptr);
    EXPECT_EQ(countInContext<BLCurrency>(context()), 0);

    BLContextState::setReadyForDefaultValues(context(), true);
    BLCurrency* currency = BLContainer::defaultItemForContext<BLCurrency>(context());
    ASSERT_NE(currency, nullptr);
    EXPECT_TRUE(currency->isDefaultValue());
    EXPECT_EQ(countInContext<BLCurrency>(context()), 1);
}

TEST_F(BaseObjectTest, AReadinessHookOverridesTheFlag) {
    modelHooks().readyForDefaultValues = [](const ManagedObjectContext&) { return false; };
    EXPECT_EQ(BLContainer::defaultItemForContext<BLItemGroup>(context()), nullptr);
    EXPECT_EQ(countInContext<BLItemGroup>(context()), 0);
}

TEST_F(BaseObjectTest, AMadeDefaultIsPostedCachedAndNotUndoable) {
    int added = 0;
    NotificationCenter::defaultCenter().addObserver(kAddedDefaultItemNotification, nullptr,
                                                    [&](const Notification&) { ++added; });
    BLCurrency* group = BLContainer::defaultItemForContext<BLCurrency>(context());
    ASSERT_NE(group, nullptr);
    EXPECT_EQ(added, 1);
    EXPECT_EQ(group->rate(), Decimal(1)) << "set up as a default";
    EXPECT_EQ(BLContainer::defaultItemForContext<BLCurrency>(context()), group);
    EXPECT_EQ(added, 1);
    EXPECT_EQ(countInContext<BLCurrency>(context()), 1);
    ASSERT_NE(context().undoManager(), nullptr);
    EXPECT_TRUE(context().undoManager()->isUndoRegistrationEnabled());
    context().undoManager()->undo();
    EXPECT_FALSE(group->isDeleted());
}

TEST_F(BaseObjectTest, DefaultProfileIsFoundByItsFixedUid) {
    BLBase* stored = BLBase::insertInManagedObjectContext(context(), "Profile", kDefaultProfileUID);
    EXPECT_EQ(BLContainer::defaultItemForContext<BLProfile>(context()), stored);
    EXPECT_EQ(countInContext<BLProfile>(context()), 1);
}

TEST_F(BaseObjectTest, AMadeProfileGetsTheFixedUid) {
    BLProfile* profile = BLContainer::defaultItemForContext<BLProfile>(context());
    ASSERT_NE(profile, nullptr);
    EXPECT_EQ(profile->uid().value_or(""), kDefaultProfileUID);
}

TEST_F(BaseObjectTest, PlainPaymentTypeWinsOverTypedDefaults) {
    BLPaymentType* typed = insert<BLPaymentType>();
    typed->setType(std::string("directDebit"));
    typed->setDefault(true);
    BLPaymentType* plain = insert<BLPaymentType>();
    plain->setDefault(true);
    EXPECT_EQ(BLContainer::defaultItemForContext<BLPaymentType>(context()), plain);
}

TEST_F(BaseObjectTest, SettingADefaultClearsOnlySiblingsOfTheSameType) {
    BLPaymentType* plain = insert<BLPaymentType>();
    BLPaymentType* sepa = insert<BLPaymentType>();
    sepa->setType(std::string("sepa"));
    BLPaymentType* otherSepa = insert<BLPaymentType>();
    otherSepa->setType(std::string("sepa"));
    std::vector<std::string> posted;
    NotificationCenter::defaultCenter().addObserver("", nullptr,
                                                    [&](const Notification& note) { posted.push_back(note.name); });

    plain->setIsDefault(true);
    sepa->setIsDefault(true);
    EXPECT_TRUE(plain->isDefaultValue());
    EXPECT_TRUE(sepa->isDefaultValue());
    otherSepa->setIsDefault(true);
    EXPECT_TRUE(plain->isDefaultValue());
    EXPECT_FALSE(sepa->isDefaultValue());
    EXPECT_TRUE(otherSepa->isDefaultValue());
    EXPECT_EQ(std::count(posted.begin(), posted.end(), "ChangedDefaultPaymentType"), 3);
}

TEST_F(BaseObjectTest, ANewDefaultCurrencyTakesRateOneAndReloadsTheConverter) {
    int reloads = 0;
    modelHooks().reloadCurrencyConverter = [&](ManagedObjectContext&) { ++reloads; };
    BLCurrency* euro = insert<BLCurrency>();
    euro->setIsDefault(true);
    BLCurrency* franc = insert<BLCurrency>();
    franc->setRate(Decimal::parse("1.07").value());
    franc->setIsDefault(true);
    EXPECT_FALSE(euro->isDefaultValue());
    EXPECT_EQ(franc->rate(), Decimal(1));
    EXPECT_EQ(reloads, 2);
}

// Set-up.

TEST_F(BaseObjectTest, SetUpFillsWhatIsAbsent) {
    Clock::setNow(Date(1000.0));
    BLCost* cost = insert<BLCost>();
    cost->setup();
    EXPECT_EQ(cost->quantity(), Decimal(1));
    ASSERT_NE(cost->itemGroup(), nullptr);
    EXPECT_TRUE(cost->itemGroup()->isDefaultValue());
    EXPECT_NE(cost->itemGroup()->taxGroup(), nullptr) << "a default item group takes the default tax group";

    BLPayment* payment = insert<BLPayment>();
    EXPECT_EQ(payment->dateCreation(), Date(1000.0));

    BLImportRule* rule = insert<BLImportRule>();
    rule->setup();
    EXPECT_EQ(rule->field().value_or(""), "category");
    EXPECT_EQ(rule->operator_().value_or(""), "filter_contains");

    BLSummaryCost* summary = insert<BLSummaryCost>();
    EXPECT_TRUE(summary->subtotalValue());
    EXPECT_EQ(summary->displayTypeValue(), 1);
    Clock::setNow(std::nullopt);
}

TEST_F(BaseObjectTest, NewInvoicesRecurMonthlyUnlessSyncing) {
    BLInvoice* invoice = insert<BLInvoice>();
    EXPECT_EQ(invoice->recurringIntervalValue(), 1);
    EXPECT_EQ(invoice->recurringModeValue(), 3);
    SyncingScope syncing;
    BLInvoice* synced = insert<BLInvoice>();
    EXPECT_FALSE(synced->recurringInterval().has_value());
    EXPECT_FALSE(synced->recurringMode().has_value());
}

TEST_F(BaseObjectTest, ClientSetUpReadsPreferencesProfileAndNumbering) {
    auto* interval = static_cast<BLPreference*>(
        BLBase::insertInManagedObjectContext(context(), "Preference", "BLPref.invoice.payInterval"));
    interval->setPayload(Value(14));
    auto* gross = static_cast<BLPreference*>(
        BLBase::insertInManagedObjectContext(context(), "Preference", "BLPref.default.useGrossPrices"));
    gross->setPayload(Value(true));
    BLProfile* profile = BLContainer::defaultItemForContext<BLProfile>(context());
    profile->setCountryCode(std::string("CH"));
    int numbers = 0;
    modelHooks().createClientNumber = [&](BLClient& client) -> std::optional<std::string> {
        client.setClientID(std::string("K-" + std::to_string(++numbers)));
        return client.clientID();
    };

    BLClient* client = insert<BLClient>();
    client->setPayInterval(int16_t{30});
    client->setup();
    EXPECT_EQ(client->payIntervalValue(), 14) << "the preference overwrites";
    EXPECT_TRUE(client->useGrossPricesValue());
    EXPECT_EQ(client->countryCode().value_or(""), "CH");
    EXPECT_EQ(client->clientID().value_or(""), "K-1");
    EXPECT_NE(client->currency(), nullptr);
    EXPECT_NE(client->clientGroup(), nullptr);
    EXPECT_NE(client->paymentType(), nullptr);
    EXPECT_NE(client->language(), nullptr);
    EXPECT_TRUE(client->dateCreation().has_value());
}

TEST_F(BaseObjectTest, GroupsGetATaxRuleForEveryOppositeGroup) {
    BLTaxGroup* reduced = insert<BLTaxGroup>();
    BLTaxGroup* standard = insert<BLTaxGroup>();
    BLClientGroup* domestic = insert<BLClientGroup>();
    domestic->setup();
    EXPECT_EQ(domestic->taxRules().size(), 2u);
    EXPECT_EQ(reduced->taxRules().size(), 1u);
    EXPECT_EQ(standard->taxRules().size(), 1u);
    EXPECT_EQ(domestic->name().value_or(""), localizedString("untitled"));
}

TEST_F(BaseObjectTest, ExternalFilesAreMailedWhenMostOthersAre) {
    struct Row {
        int mailed;
        int plain;
        bool expected;
    };
    // More than half of the others: 2 of 3 yes, 1 of 2 (exactly half) no, none at all no.
    const Row rows[] = {{2, 1, true}, {1, 1, false}, {0, 0, false}, {1, 0, true}};
    for (const Row& row : rows) {
        SCOPED_TRACE(std::to_string(row.mailed) + " of " + std::to_string(row.mailed + row.plain));
        for (BLExternalFile* existing : [&] {
                 std::vector<BLExternalFile*> all;
                 FetchRequest request("ExternalFile");
                 std::optional<std::vector<ManagedObject*>> objects = context().executeFetchRequest(request);
                 for (ManagedObject* object : objects.value_or(std::vector<ManagedObject*>{})) {
                     all.push_back(static_cast<BLExternalFile*>(object));
                 }
                 return all;
             }()) {
            context().deleteObject(existing);
        }
        for (int i = 0; i < row.mailed + row.plain; ++i) {
            insert<BLExternalFile>()->setMailWithParentDocument(i < row.mailed);
        }
        BLExternalFile* file = insert<BLExternalFile>();
        file->setup();
        EXPECT_EQ(file->mailWithParentDocumentValue(), row.expected);
    }
}

// Derivates.

TEST_F(BaseObjectTest, DeletingTheMiddleOfAChainSplicesItOut) {
    BLCost* first = insert<BLCost>();
    BLCost* middle = insert<BLCost>();
    BLCost* last = insert<BLCost>();
    middle->setSource(first);
    last->setSource(middle);
    middle->deleteObject();
    EXPECT_EQ(last->source(), first);
    EXPECT_EQ(last->firstSource(), first);
}

TEST_F(BaseObjectTest, ASourceThatWouldLoopIsCutAtTheClosingLink) {
    BLCost* a = insert<BLCost>();
    BLCost* b = insert<BLCost>();
    BLCost* c = insert<BLCost>();
    a->setSource(b);
    b->setSource(c);
    c->setSource(a);  // Closes a -> b -> c -> a.
    EXPECT_EQ(c->source(), nullptr);
    EXPECT_EQ(a->source(), b);
    EXPECT_EQ(b->source(), c);
    EXPECT_EQ(a->firstSource(), c);

    BLCost* self = insert<BLCost>();
    self->setSource(self);
    EXPECT_EQ(self->source(), nullptr);
}

TEST_F(BaseObjectTest, AllDerivatesListsTheDeepestFirst) {
    BLCost* root = insert<BLCost>();
    BLCost* b = insert<BLCost>();
    BLCost* c = insert<BLCost>();
    BLCost* d = insert<BLCost>();
    b->setSource(root);
    d->setSource(b);
    c->setSource(root);
    std::vector<BLBase*> expected = {d, b, c};
    EXPECT_EQ(root->allDerivates(), expected);
    EXPECT_EQ(root->derivatesCount(), 2u);
    EXPECT_EQ(d->firstSourceWithEntityName("Cost"), b);
    EXPECT_EQ(d->firstSourceWithEntityName("CatalogItem"), nullptr);
}

// Usage and deletion.

TEST_F(BaseObjectTest, CanDeleteFollowsUsage) {
    BLCurrency* defaultCurrency = insert<BLCurrency>();
    defaultCurrency->setDefault(true);
    BLCurrency* usedCurrency = insert<BLCurrency>();
    BLCurrency* freeCurrency = insert<BLCurrency>();
    BLInvoice* draft = insert<BLInvoice>();
    draft->setCurrency(usedCurrency);
    BLInvoice* issued = insert<BLInvoice>();
    issued->setDateSent(Date(10.0));
    BLClient* client = insert<BLClient>();
    BLClient* emptyClient = insert<BLClient>();
    BLPayment* payment = insert<BLPayment>();
    payment->setParentDocument(client);
    BLLayout* layout = insert<BLLayout>();
    BLLayout* usedLayout = insert<BLLayout>();
    client->setStatementLayout(usedLayout);
    BLDocumentLabel* label = insert<BLDocumentLabel>();
    BLCost* line = insert<BLCost>();
    line->setParent(draft);
    BLCost* issuedLine = insert<BLCost>();
    issuedLine->setParent(issued);

    struct Row {
        const char* what;
        BLBase* object;
        bool canDelete;
    };
    const Row rows[] = {
        {"default currency", defaultCurrency, false},
        {"used currency", usedCurrency, false},
        {"free currency", freeCurrency, true},
        {"draft", draft, true},
        {"issued invoice", issued, false},
        {"client with a payment", client, false},
        {"empty client", emptyClient, true},
        {"payment", payment, true},
        {"unused layout", layout, true},
        {"layout of a statement", usedLayout, false},
        {"label (base rule)", label, false},
        {"line of a draft", line, true},
        {"line of an issued invoice", issuedLine, false},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(row.object->canDelete(), row.canDelete);
    }
}

TEST_F(BaseObjectTest, UsageObjectsAndTheirFilter) {
    BLClientGroup* group = insert<BLClientGroup>();
    BLClient* client = insert<BLClient>();
    client->setClientGroup(group);
    BLTaxRule* rule = insert<BLTaxRule>();
    rule->setClientGroup(group);
    BLCost* cost = insert<BLCost>();
    cost->setTaxRule(rule);
    BLCost* other = insert<BLCost>();

    std::vector<ManagedObject*> expected = {client, cost};
    EXPECT_EQ(group->usageObjects(), expected);
    std::optional<Predicate> filter = group->usageFilterPredicate();
    ASSERT_TRUE(filter.has_value());
    EXPECT_TRUE(filter->evaluate(Value(static_cast<Object*>(cost))));
    EXPECT_FALSE(filter->evaluate(Value(static_cast<Object*>(other))));
}

// Merge.

TEST_F(BaseObjectTest, MergeTakesAbsentValuesAndMembersAndDeletesTheOther) {
    BLClient* kept = insert<BLClient>();
    kept->setName(std::string("Kept"));
    BLClient* merged = insert<BLClient>();
    merged->setName(std::string("Merged"));
    merged->setEmail(std::string("billing@example.org"));
    BLInvoice* first = insert<BLInvoice>();
    BLInvoice* second = insert<BLInvoice>();
    first->setParentDocument(merged);
    second->setParentDocument(merged);
    BLDocumentLabel* label = insert<BLDocumentLabel>();
    merged->addDocumentLabelsObject(label);

    EXPECT_FALSE(kept->merge(kept));
    EXPECT_FALSE(kept->merge(insert<BLProfile>()));
    ASSERT_TRUE(kept->merge(merged));
    EXPECT_EQ(kept->name().value_or(""), "Kept");
    EXPECT_EQ(kept->email().value_or(""), "billing@example.org");
    EXPECT_EQ(kept->documents().size(), 2u);
    EXPECT_EQ(first->parentDocument(), kept);
    EXPECT_TRUE(kept->documentLabels().contains(label));
    EXPECT_FALSE(label->documents().contains(merged));
    EXPECT_TRUE(merged->isDeleted());
}

// Caches.

TEST_F(BaseObjectTest, ResetCachesAnnouncesOncePerTurn) {
    BLInvoice* invoice = insert<BLInvoice>();
    int displayNameNotices = 0;
    int balanceNotices = 0;
    invoice->addObserverForKey("displayName", [&](ManagedObject&, std::string_view) { ++displayNameNotices; });
    invoice->addObserverForKey("balance", [&](ManagedObject&, std::string_view) { ++balanceNotices; });
    invoice->resetCaches();
    invoice->resetCaches();
    EXPECT_EQ(displayNameNotices, 0) << "the notices wait for the run loop";
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(displayNameNotices, 1);
    EXPECT_EQ(balanceNotices, 1);

    invoice->resetCaches();
    invoice->deleteObject();
    RunLoop::main().runUntilIdle();
    EXPECT_EQ(displayNameNotices, 1) << "a deleted object announces nothing";
}

}  // namespace
}  // namespace brassline
