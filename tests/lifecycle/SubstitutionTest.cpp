#include <random>
#include <string>

#include <gtest/gtest.h>

#include "../money/ItemTestSupport.h"
#include "core/Localization.h"
#include "core/Log.h"
#include "core/ValueTransformers.h"
#include "lifecycle/DocumentTexts.h"
#include "lifecycle/Substitution.h"
#include "lifecycle/SubstitutionCache.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCustomField.h"
#include "model/entities/BLCustomFieldSet.h"
#include "model/entities/BLFollowUp.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLProfile.h"
#include "model/entities/BLTaxDetails.h"
#include "model/entities/BLTeamMember.h"
#include "model/entities/BLTitle.h"
#include "model/entities/ModelStrings.h"
#include "store/BLUserDefaults.h"

namespace brassline {
namespace {

constexpr const char* kQ = "\u2753";

struct KeyRow {
    const char* key;
    const char* expected;
};

class SubstitutionTest : public ItemFixture {
protected:
    void SetUp() override {
        ItemFixture::SetUp();
        TimeZone::setCurrent("Europe/Berlin");
        setCurrentLanguage("en");
        setCurrentFormattingLocale("en_US");
        BLSubstitutionCache::resetForTesting();
        resetSubstitutionHooks();
    }
    void TearDown() override {
        BLSubstitutionCache::resetForTesting();
        resetSubstitutionHooks();
        setCurrentFormattingLocale("");
        setCurrentLanguage("");
        TimeZone::setCurrent("");
        ItemFixture::TearDown();
    }

    static Date day(int year, int month, int dayOfMonth) { return Date::dateWithYear(year, month, dayOfMonth); }

    BLClient* client(const char* first, const char* last) {
        auto* client = insert<BLClient>();
        client->setFirstName(std::string(first));
        client->setLastName(std::string(last));
        return client;
    }
    // An issued invoice RE-0042 of Ada Lovelace: 2 × 100.00 and 1 × 34.50 less 10 %.
    BLInvoice* issuedInvoice() {
        BLInvoice* invoice = invoiceIn("EUR");
        invoice->setParentDocument(client("Ada", "Lovelace"));
        addCost(invoice, "100", "2");
        addCost(invoice, "34.5", "1", "10");
        invoice->setName(std::string("RE-0042"));
        invoice->setDateSent(day(2026, 3, 5));
        invoice->setDateDue(day(2026, 4, 4));
        return invoice;
    }
    void setPreference(const std::string& key, const Value& value) {
        auto* preference =
            static_cast<BLPreference*>(BLBase::insertInManagedObjectContext(context(), "Preference", "BLPref." + key));
        preference->setPayload(value);
    }
    static void expectKeys(const SubstitutionDictionary& dictionary, std::initializer_list<KeyRow> rows) {
        for (const KeyRow& row : rows) {
            SCOPED_TRACE(row.key);
            auto found = dictionary.find(row.key);
            ASSERT_NE(found, dictionary.end());
            EXPECT_EQ(found->second.toString(), row.expected);
        }
    }
};

TEST_F(SubstitutionTest, InvoiceAnswersEveryFamilyOfKeys) {
    BLInvoice* invoice = issuedInvoice();
    auto* sender = insert<BLProfile>();
    sender->setOrganization(std::string("Orvane Works"));
    sender->setIsDefault(true);

    SubstitutionDictionary d = substitutionDictionary(*invoice);
    EXPECT_EQ(d[kSubstitutionObjectKey].object(), invoice);
    // 200.00 + 34.50 - 3.45 = 231.05; no tax rules, so gross equals net.
    expectKeys(d, {
                      {"document.number", "RE-0042"},
                      {"invoice.number", "RE-0042"},
                      {"document.sent", "Mar 5, 2026"},
                      {"document.due", "Apr 4, 2026"},
                      {"document.ddmmyyyy", "04.04.2026"},
                      {"document.cost", "231.05"},
                      {"document.costwithtaxes", "231.05"},
                      {"document.taxes", "0.00"},
                      {"document.balance", "231.05"},
                      {"document.totalDiscount", "3.45"},
                      {"document.label", "Invoice"},
                      {"document.nameForPayPal", "RE-0042"},
                      {"document.ch_ocr_line", "\u267B Please, replace with the new OCRB element in the layout editor"},
                      {"document.ch_refnumber", ""},
                      {"document.costwithtaxesspelled", "two hundred thirty-one point zero five"},
                      {"title", "Invoice RE-0042"},
                      {"cost", "231.05"},
                      {"costwithtaxes", "231.05"},
                      // A document in a row: blanks, and the date where a quantity would be.
                      {"unitPrice", ""},
                      {"index", ""},
                      {"quantity", "Mar 5, 2026"},
                      {"date", "Mar 5, 2026"},
                      {"currency.name", "EUR"},
                      {"currency.shortname", "\u20AC"},
                      {"recipient.firstname", "Ada"},
                      {"recipient.lastName", "Lovelace"},
                      {"receipient.firstname", "Ada"},
                      {"recipient.formattedName", "Ada Lovelace"},
                      {"recipient.conditions", ""},
                      {"sender.organization", "Orvane Works"},
                      // No team member: its keys are there and empty.
                      {"teamMember.firstName", ""},
                      {"teamMember.signature", ""},
                      {"original.number", ""},
                      {"original.sent", kQ},
                  });
}

TEST_F(SubstitutionTest, DraftShowsQuestionMarksWhereDatesAndNumbersAreMissing) {
    struct Row {
        const char* name;
        bool sent;
        const char* number;
        const char* sentText;
        const char* dueText;
        bool hasDDMMYYYY;
    };
    const Row rows[] = {
        {nullptr, false, kQ, kQ, kQ, false},
        {"RE-7", false, "RE-7", kQ, kQ, false},
        // Issued without a number: the number stays blank, no warning sign.
        {nullptr, true, "", "Mar 5, 2026", "Apr 4, 2026", true},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.number);
        BLSubstitutionCache::resetForTesting();
        BLInvoice* invoice = invoiceIn("EUR");
        if (row.name != nullptr) {
            invoice->setName(std::string(row.name));
        }
        invoice->setDateDue(day(2026, 4, 4));
        if (row.sent) {
            invoice->setDateSent(day(2026, 3, 5));
        }
        SubstitutionDictionary d = substitutionDictionary(*invoice);
        EXPECT_EQ(d["document.number"].toString(), row.number);
        EXPECT_EQ(d["document.sent"].toString(), row.sentText);
        EXPECT_EQ(d["document.due"].toString(), row.dueText);
        EXPECT_EQ(d.count("document.ddmmyyyy"), row.hasDDMMYYYY ? 1u : 0u);
    }
}

TEST_F(SubstitutionTest, LocalesFormatAmountsAndDatesButPaymentCodesKeepTheirMark) {
    struct Row {
        const char* locale;
        const char* gross;
        const char* sent;
        const char* spelled;
    };
    const Row rows[] = {
        {"en_US", "1,234.50", "Mar 5, 2026", "one thousand two hundred thirty-four point five"},
        {"de_DE", "1.234,50", "05.03.2026",
         "ein\u00adtausend\u00adzwei\u00adhundert\u00advier\u00adund\u00addreißig Komma fünf"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.locale);
        setCurrentFormattingLocale(row.locale);
        BLSubstitutionCache::resetForTesting();
        BLInvoice* invoice = invoiceIn("EUR");
        addCost(invoice, "1234.5");
        invoice->setDateSent(day(2026, 3, 5));
        SubstitutionDictionary d = substitutionDictionary(*invoice);
        EXPECT_EQ(d["document.costwithtaxes"].toString(), row.gross);
        EXPECT_EQ(d["document.sent"].toString(), row.sent);
        EXPECT_EQ(d["document.balanceForQRCode"].toString(), "1234,50");
        EXPECT_EQ(d["document.balanceForSEPAQRCode"].toString(), "1234.50");
        EXPECT_EQ(d["document.balanceForPayPal"].toString(), "1234.50");
        EXPECT_EQ(d["document.costwithtaxesspelled"].toString(), row.spelled);
    }
}

TEST_F(SubstitutionTest, EstimateAndFollowUpNameThemselvesAndReachTheirOriginal) {
    BLEstimate* estimate = estimateIn("EUR");
    estimate->setName(std::string("AN-3"));
    addCost(estimate, "10");
    SubstitutionDictionary e = substitutionDictionary(*estimate);
    expectKeys(e, {{"title", "Estimate AN-3"}, {"document.label", "Estimate"}, {"invoice.cost", "10.00"}});
    EXPECT_EQ(mailPrefsKey(*estimate), "estimate");

    BLInvoice* invoice = issuedInvoice();
    invoice->setLead(std::string("Thank you."));
    auto* followUp = insert<BLFollowUp>();
    followUp->setParentDocument(invoice);
    followUp->setName(std::string("M-1"));
    SubstitutionDictionary f = substitutionDictionary(*followUp);
    expectKeys(f, {
                      {"parent.number", "RE-0042"},
                      {"original.number", "RE-0042"},
                      {"parent.sent", "Mar 5, 2026"},
                      {"original.due", "Apr 4, 2026"},
                      {"parent.lead", "Thank you."},
                      {"parent.conditions", ""},
                      {"document.number", "M-1"},
                      // The client above the invoice is the follow-up's recipient too.
                      {"recipient.lastname", "Lovelace"},
                  });
}

TEST_F(SubstitutionTest, LinesGroupsAndTitlesFormTheirRowKeys) {
    BLInvoice* invoice = invoiceIn("EUR");
    auto* title = add<BLTitle>(invoice);
    title->setName(std::string("Design"));
    BLCost* hours = addCost(invoice, "80", "3", "10");
    hours->setUnit(std::string("h"));
    hours->setName(std::string("Layout"));
    hours->setEan(std::string("4006381333931"));
    auto* group = add<BLGroup>(invoice);
    group->setName(std::string("Print"));
    addCost(group, "0.5", "100");
    addCost(group, "2", "4");

    // 3 × 80.00 = 240.00, less 10 % = 216.00.
    expectKeys(substitutionDictionary(*hours), {
                                                   {"title", "Layout"},
                                                   {"qty", "3"},
                                                   {"unit", "h"},
                                                   {"unitPrice", "80.00"},
                                                   {"discount", "10%"},
                                                   {"discountAmount", "24.00"},
                                                   {"negativediscountamount", "-24.00"},
                                                   {"undiscountedamount", "240.00"},
                                                   {"cost", "216.00"},
                                                   // First line, under the first title.
                                                   {"index", "1"},
                                                   {"fullindex", "1.1"},
                                                   {"ean_ean13", "4006381333931"},
                                                   {"currency.name", "EUR"},
                                                   {"timeRange", ""},
                                               });
    // 100 × 0.50 + 4 × 2.00 = 58.00 over 104 pieces.
    expectKeys(substitutionDictionary(*group), {{"title", "Print"}, {"cost", "58.00"}, {"quantity", "104"}});
    // The title sums what follows it up to the next title; 3 hours are its duration.
    expectKeys(substitutionDictionary(*title), {{"title", "Design"}, {"duration", "3"}, {"currency.name", "EUR"}});
}

TEST_F(SubstitutionTest, PreferencesBlankZeroCostAndSingleQuantities) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLCost* free = addCost(invoice, "0", "2");
    BLCost* single = addCost(invoice, "15", "1");
    BLCost* hour = addCost(invoice, "90", "1");
    hour->setUnit(std::string("h"));
    EXPECT_EQ(substitutionDictionary(*free)["unitPrice"].toString(), "0.00");
    EXPECT_EQ(substitutionDictionary(*single)["qty"].toString(), "1");

    setPreference("items.hideZeroCostOption", true);
    setPreference("items.hideOneQuantityOption", true);
    expectKeys(substitutionDictionary(*free), {{"unitPrice", ""}, {"cost", ""}, {"qty", ""}, {"currency.symbol", ""}});
    expectKeys(substitutionDictionary(*single), {{"qty", ""}, {"unitPrice", "15.00"}});
    // One hour is a duration worth printing.
    expectKeys(substitutionDictionary(*hour), {{"qty", "1"}});
}

TEST_F(SubstitutionTest, PaymentAndClientAnswerTheirOwnKeys) {
    BLInvoice* invoice = issuedInvoice();
    auto* payment = insert<BLPayment>();
    payment->setAmount(dec("50"));
    payment->setParentDocument(invoice);
    payment->setDateCreation(day(2026, 3, 20));
    expectKeys(substitutionDictionary(*payment), {
                                                     {"amount", "50.00"},
                                                     {"gross", "50.00"},
                                                     {"date", "Mar 20, 2026"},
                                                     {"document.sent", "Mar 5, 2026"},
                                                     {"document.due", "Apr 4, 2026"},
                                                     {"taxes", ""},
                                                 });

    BLClient* client = invoice->client();
    client->setId(std::string("K-100"));
    client->setTaxID(std::string("DE123456789"));
    client->setPayInterval(int16_t{14});
    client->setOrganization(std::string("Analytical Engines"));
    expectKeys(substitutionDictionary(*client), {
                                                    {"clientid", "K-100"},
                                                    {"clientID", "K-100"},
                                                    {"VATID", "DE123456789"},
                                                    {"termDays", "14"},
                                                    {"organizationOrName", "Analytical Engines"},
                                                    {"middlename", ""},
                                                });
    EXPECT_EQ(substitutionFields(*client).front(), "formattedName");
    EXPECT_TRUE(substitutionFields(*invoice).empty());
}

TEST_F(SubstitutionTest, ItemGroupSumsUseKeyPathNamesAndLeaveZeroSumsOut) {
    auto* web = insert<BLItemGroup>();
    web->setName(std::string("Web Design"));
    auto* empty = insert<BLItemGroup>();
    empty->setName(std::string("Hosting"));
    BLInvoice* invoice = invoiceIn("EUR");
    addCost(invoice, "100")->setItemGroup(web);
    addCost(invoice, "50")->setItemGroup(web);
    addCost(invoice, "30");

    SubstitutionDictionary d = substitutionDictionary(*invoice);
    expectKeys(d, {
                      {"itemgroup.Web_Design.net", "150.00"},
                      {"itemgroup.Web_Design.gross", "150.00"},
                      {"-itemgroup.Web_Design.net", "30.00"},
                      {"-itemgroup.Hosting.gross", "180.00"},
                  });
    EXPECT_EQ(d.count("itemgroup.Hosting.net"), 0u);
    EXPECT_EQ(d.count("itemgroup.Web_Design.taxes"), 0u);
    EXPECT_EQ(keyPathString(" a.b  c "), "a_b_c");
}

TEST_F(SubstitutionTest, CustomFieldsAndMetaValuesAppearBareAndUnderDocument) {
    auto* set = insert<BLCustomFieldSet>();
    set->setUid(formatMessage(kCustomFieldSetUIDFormat, "Invoice"));
    auto* field = insert<BLCustomField>();
    field->setName(std::string("Order No"));
    field->setSet(set);
    BLInvoice* invoice = invoiceIn("EUR");
    invoice->setValueForCustomField(Value("PO-77"), "Order No");
    invoice->setMetaValue(Value("XR-1"), "routing");

    SubstitutionDictionary d = substitutionDictionary(*invoice);
    expectKeys(d, {
                      {"custom.Order_No", "PO-77"},
                      {"document.custom.Order_No", "PO-77"},
                      {"meta.routing", "XR-1"},
                      {"document.meta.routing", "XR-1"},
                  });
}

TEST_F(SubstitutionTest, HooksAddPluginKeysAndConditionsSeeTheDictionarySoFar) {
    substitutionHooks().clientConditionString = [](BLSendable&, const SubstitutionDictionary& sofar) {
        return "Payable to " + sofar.at("currency.name").toString();
    };
    substitutionHooks().runPlugins = [](BLSendable&, SubstitutionDictionary& d) { d["plugin.stamp"] = "ok"; };
    substitutionHooks().OGMString = [](BLSendable&) { return std::string("+++090/9337/55493+++"); };
    SubstitutionDictionary d = substitutionDictionary(*issuedInvoice());
    expectKeys(d, {{"recipient.conditions", "Payable to EUR"},
                   {"plugin.stamp", "ok"},
                   {"document.ogm.be", "+++090/9337/55493+++"}});
}

TEST_F(SubstitutionTest, CacheSharesWithinFiftyMillisecondsAndRebuildsAfter) {
    BLInvoice* invoice = issuedInvoice();
    EXPECT_EQ(substitutionDictionary(*invoice)["document.number"].toString(), "RE-0042");
    invoice->setName(std::string("RE-0043"));
    RunLoop::main().runForInterval(0.01);
    EXPECT_EQ(substitutionDictionary(*invoice)["document.number"].toString(), "RE-0042");
    RunLoop::main().runForInterval(0.06);
    EXPECT_EQ(substitutionDictionary(*invoice)["document.number"].toString(), "RE-0043");

    // Without a uid nothing is cached.
    invoice->setUid(std::nullopt);
    substitutionDictionary(*invoice);
    invoice->setName(std::string("RE-0044"));
    EXPECT_EQ(substitutionDictionary(*invoice)["document.number"].toString(), "RE-0044");
}

TEST_F(SubstitutionTest, CacheAnswersOnlyInTheContextItWasMadeIn) {
    BLInvoice* invoice = issuedInvoice();
    EXPECT_EQ(substitutionDictionary(*invoice)["document.number"].toString(), "RE-0042");
    // A copy of the company file open beside this one: its invoice has the same uid. Both
    // dictionaries are asked for within the cache's 50 ms.
    for (const char* number : {"RE-0099", "RE-0100"}) {
        SCOPED_TRACE(number);
        auto copy = std::make_unique<ManagedObjectContext>(gen::brasslineModel());
        auto* twin = BLInvoice::insertInManagedObjectContext(*copy);
        twin->setUid(invoice->uid());
        twin->setName(std::string(number));
        SubstitutionDictionary dictionary = substitutionDictionary(*twin);
        EXPECT_EQ(dictionary["document.number"].toString(), number);
        EXPECT_EQ(dictionary[kSubstitutionObjectKey].object(), twin) << "the other file's objects, not this one's";
        // The copy closes within the 50 ms; the next copy may take its address.
        BLContextState::forgetContext(*copy);
        copy.reset();
    }
    SubstitutionDictionary again = substitutionDictionary(*invoice);
    EXPECT_EQ(again["document.number"].toString(), "RE-0042");
    EXPECT_EQ(again[kSubstitutionObjectKey].object(), invoice);
}

TEST_F(SubstitutionTest, TaxDetailsFormatTheirSlot) {
    BLInvoice* invoice = invoiceIn("EUR");
    BLTaxDetails details{"VAT", "V", dec("200"), dec("38"), dec("19"), invoice};
    expectKeys(substitutionDictionary(details), {{"net", "200.00"},
                                                 {"taxes", "38.00"},
                                                 {"subtotal", "238.00"},
                                                 {"percentage", "19%"},
                                                 {"name", "VAT"},
                                                 {"shortname", "V"}});
}

TEST_F(SubstitutionTest, MailTextsComeFromPreferencesAndAreFilled) {
    BLInvoice* invoice = issuedInvoice();
    setPreference("invoice.mailSubject", Value("Invoice <document.number/> for <recipient.lastname/>"));
    setPreference("creditnote.mailSubject", Value("Credit note <document.number/>"));
    EXPECT_EQ(mailSubject(*invoice), "Invoice RE-0042 for Lovelace");

    BLInvoice* credit = invoiceIn("EUR");
    addCost(credit, "-20");
    credit->setName(std::string("GS-1"));
    EXPECT_EQ(mailPrefsKey(*credit), "creditnote");
    EXPECT_EQ(mailSubject(*credit), "Credit note GS-1");

    // Without a stored preference the application's default text is filled.
    UserDefaults::standard().registerApplicationDefaults();
    BLEstimate* estimate = estimateIn("EUR");
    estimate->setName(std::string("AN-3"));
    EXPECT_EQ(mailSubject(*estimate), "Estimate AN-3");
}

TEST(FillTagsTest, ReplacesWellFormedTagsAndLeavesEverythingElse) {
    Object* object = reinterpret_cast<Object*>(0x10);
    const SubstitutionDictionary d = {
        {"a", Value("1")}, {"b.c", Value("<x/>")}, {"empty", Value("")}, {kSubstitutionObjectKey, Value(object)}};
    const KeyRow rows[] = {
        {"<a/>", "1"},
        {"x<a/>y<a/>z", "x1y1z"},
        {"<b.c/>", "<x/>"},  // Values are not filled again.
        {"<missing/>", ""},
        {"<empty/>", ""},
        {"<ZPBrasslineObject/>", "<ZPBrasslineObject/>"},
        {"<a>", "<a>"},
        {"<a/", "<a/"},
        {"<a", "<a"},
        {"<", "<"},
        {"</>", "</>"},
        {"<a b/>", "<a b/>"},
        {"<<a/>", "<1"},
        {"<a/ >", "<a/ >"},
        {"", ""},
        {"\xC3\xA4<a/>\xC3\xA4",
         "\xC3\xA4"
         "1\xC3\xA4"},
    };
    for (const KeyRow& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(fillTags(row.key, d), row.expected);
    }
}

TEST(FillTagsTest, RandomTextsNeverCrashAndTextWithoutTagsIsUnchanged) {
    const SubstitutionDictionary d = {{"a", Value("1")}, {"ab", Value("22")}};
    std::mt19937 random(11);
    const std::string alphabet = "<>/ab \n\xC3";
    for (int round = 0; round < 20000; ++round) {
        std::string text(random() % 24, ' ');
        for (char& c : text) {
            c = alphabet[random() % alphabet.size()];
        }
        std::string filled = fillTags(text, d);
        if (text.find("/>") == std::string::npos) {
            ASSERT_EQ(filled, text);
        }
        // A tag of "a" grows by nothing, one of "ab" shrinks: the text never grows.
        ASSERT_LE(filled.size(), text.size());
    }
}

}  // namespace
}  // namespace brassline
