#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../money/TaxTestSupport.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLProfile.h"
#include "money/ItemHooks.h"
#include "plugins/InterchangeRecords.h"

namespace brassline {
namespace {

// A plain value of the record at a key path ("recipient.city"), null when absent.
Value at(const InterchangeRecord& record, const std::string& path) {
    const InterchangeRecord* current = &record;
    size_t start = 0;
    while (true) {
        const size_t dot = path.find('.', start);
        const RecordValue* value = current->find(path.substr(start, dot - start));
        if (value == nullptr) {
            return Value();
        }
        if (dot == std::string::npos) {
            return value->value() != nullptr ? *value->value() : Value("<nested>");
        }
        current = value->record();
        if (current == nullptr) {
            return Value();
        }
        start = dot + 1;
    }
}

size_t listSize(const InterchangeRecord& record, const std::string& key) {
    const RecordValue* value = record.find(key);
    return value != nullptr && value->list() != nullptr ? value->list()->size() : 0;
}

class InterchangeRecordsTest : public TaxFixture {
protected:
    void SetUp() override {
        TaxFixture::SetUp();
        installItemHooks();
    }
    // 10 h at 12.50 under 19 %, a book at 100 under 0 %, and a free line: net 225, tax
    // 23.75 (19 % of 125), gross 248.75.
    BLInvoice* invoiceWithThreeLines() {
        BLInvoice* made = invoice("EUR");
        made->setName(std::string("RE-7"));
        made->setSubject(std::string("Roof"));
        BLTaxRule* standard = rule(1, "19");
        standard->setTax1name(std::string("VAT"));
        BLTaxRule* zero = rule(1, "0");
        BLCost* hours = line(made, nullptr, "12.50");
        hours->setQuantity(dec("10"));
        hours->setUnit(std::string("h"));
        hours->setName(std::string("Work"));
        hours->setTaxRule(standard);
        BLCost* book = line(made, nullptr, "100");
        book->setName(std::string("Book"));
        book->setTaxRule(zero);
        BLCost* free = line(made, nullptr, "0");
        free->setName(std::string("Free advice"));
        free->setTaxRule(standard);
        return made;
    }
};

TEST_F(InterchangeRecordsTest, InvoiceKeysComeInTheirFixedOrder) {
    BLInvoice* document = invoiceWithThreeLines();
    const InterchangeRecord record = interchangeRecord(*document);
    // Without a contact, payments, a file or a service port, those keys are
    // absent; the rest stand in the order in which the record is built.
    const std::vector<std::string> expected = {"UNCL1001",
                                               "entityName",
                                               "name",
                                               "currency",
                                               "gross",
                                               "grossAsString",
                                               "discount",
                                               "discountAsString",
                                               "balanceAsString",
                                               "prepaidAmountAsString",
                                               "label",
                                               "deliveryType",
                                               "status",
                                               "net",
                                               "netAsString",
                                               "hasPartialInvoices",
                                               "isPartialInvoice",
                                               "balance",
                                               "uid",
                                               "isGross",
                                               "subject",
                                               "period",
                                               "payments",
                                               "sender",
                                               "externalFiles",
                                               "metaValues",
                                               "customFields",
                                               "allItems",
                                               "partialRatioAsString",
                                               "tax",
                                               "taxAsString",
                                               "items",
                                               "taxes",
                                               "taxedNetAsString",
                                               "document",
                                               "useSEPADirectDebit"};
    EXPECT_EQ(record.keys(), expected);
}

TEST_F(InterchangeRecordsTest, InvoiceMoneyInFixedAndTextForms) {
    BLInvoice* document = invoiceWithThreeLines();
    const InterchangeRecord record = interchangeRecord(*document);
    struct Row {
        const char* path;
        Value expected;
    };
    const Row rows[] = {
        {"UNCL1001", Value("380")},
        {"gross", Value(dec("248.75"))},
        {"grossAsString", Value("248.75")},
        {"net", Value(dec("225"))},
        {"netAsString", Value("225")},
        {"tax", Value(dec("23.75"))},
        {"taxAsString", Value("23.75")},
        // Only the 19 % rule's base counts: the book's 100 at 0 % stays out.
        {"taxedNetAsString", Value("125")},
        {"balanceAsString", Value("248.75")},
        {"prepaidAmountAsString", Value("0")},
        {"discountAsString", Value("0")},
        {"currency", Value("€")},
        {"status", Value("draft")},
        {"isGross", Value(false)},
        {"useSEPADirectDebit", Value(int64_t{0})},
        {"document.entityName", Value("Invoice")},
        {"name", Value("RE-7")},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.path);
        EXPECT_EQ(at(record, row.path), row.expected) << at(record, row.path).description();
    }
    // The free line stands among all items, not among the costly ones; the zero rate
    // stands in the tax table.
    EXPECT_EQ(listSize(record, "allItems"), 3u);
    EXPECT_EQ(listSize(record, "items"), 2u);
    EXPECT_EQ(listSize(record, "taxes"), 2u);
    EXPECT_EQ(record.find("subtotals"), nullptr);
    EXPECT_EQ(record.find("recipient"), nullptr);
    EXPECT_EQ(record.find("clientName"), nullptr);
    EXPECT_EQ(record.find("clientABUID"), nullptr);
}

TEST_F(InterchangeRecordsTest, LineRecordsCarryRateQuantityAndTax) {
    BLInvoice* document = invoiceWithThreeLines();
    const InterchangeRecord record = interchangeRecord(*document);
    const RecordValue::List& lines = *record.find("allItems")->list();
    const InterchangeRecord& hours = *lines[0].record();
    struct Row {
        const char* key;
        Value expected;
    };
    const Row rows[] = {
        {"entityName", Value("Cost")},
        {"name", Value("Work")},
        {"rate", Value(dec("12.5"))},
        {"rateAsString", Value("12.5")},
        {"quantity", Value(dec("10"))},
        {"quantityAsString", Value("10")},
        {"finalQuantityAsString", Value("10")},
        {"unit", Value("h")},
        {"cost", Value(dec("125"))},
        {"costAsString", Value("125")},
        {"tax", Value(dec("23.75"))},
        {"taxAsString", Value("23.75")},
        {"quantityUnitCode", Value("HUR")},
        {"taxPercentageAsString", Value("19")},
        {"hasTimeUnit", Value(true)},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.key);
        EXPECT_EQ(at(hours, row.key), row.expected) << at(hours, row.key).description();
    }
    EXPECT_EQ(at(hours, "taxrule.tax1name"), Value("VAT"));
    const std::vector<std::string> keys = hours.keys();
    const std::vector<std::string> firstKeys(keys.begin(), keys.begin() + 8);
    EXPECT_EQ(firstKeys, (std::vector<std::string>{"items", "entityName", "name", "uid", "rate", "rateAsString",
                                                   "quantityUnitCode", "quantity"}));
}

TEST_F(InterchangeRecordsTest, ContactAndPaymentRecords) {
    BLInvoice* document = invoiceWithThreeLines();
    auto* client = insert<BLClient>();
    client->setOrganization(std::string("Acme GmbH"));
    client->setCity(std::string("Bern"));
    client->setAddress(std::string("Main Street 1"));
    client->setTaxID(std::string("CHE-123"));
    client->setClientID(std::string("K-1"));
    client->setCountryCode(std::string("CH"));
    document->setContact(client);
    auto* payment = insert<BLPayment>();
    payment->setAmount(dec("100"));
    payment->setParentDocument(document);

    const InterchangeRecord record = interchangeRecord(*document);
    EXPECT_EQ(at(record, "clientName"), Value("Acme GmbH"));
    EXPECT_EQ(at(record, "recipient.city"), Value("Bern"));
    EXPECT_EQ(at(record, "recipient.street"), Value("Main Street 1"));
    EXPECT_EQ(at(record, "recipient.VATID"), Value("CHE-123"));
    EXPECT_EQ(at(record, "recipient.VATSchemeCode"), Value("VAT"));
    EXPECT_EQ(at(record, "recipient.clientNumber"), Value("K-1"));
    EXPECT_EQ(at(record, "clientABUID"), Value(*client->uid()));
    // 248.75 less the payment of 100.
    EXPECT_EQ(at(record, "balanceAsString"), Value("148.75"));
    EXPECT_EQ(at(record, "prepaidAmountAsString"), Value("100"));
    ASSERT_EQ(listSize(record, "payments"), 1u);
    const InterchangeRecord& paid = *record.find("payments")->list()->front().record();
    EXPECT_EQ(at(paid, "amountAsString"), Value("100"));
    EXPECT_EQ(at(paid, "currency"), Value("€"));
    EXPECT_EQ(at(paid, "entityName"), Value("Payment"));

    const InterchangeRecord contact = interchangeRecord(*client);
    const std::vector<std::string> keys = contact.keys();
    const std::vector<std::string> firstKeys(keys.begin(), keys.begin() + 7);
    EXPECT_EQ(firstKeys, (std::vector<std::string>{"formattedAddress", "formattedCompanyAddress", "countryCode",
                                                   "VATID", "uid", "VATSchemeCode", "organization"}));
}

TEST_F(InterchangeRecordsTest, TaxRuleRecordAndJSONKeepOrder) {
    BLTaxRule* made = rule(1, "7.7");
    made->setTax1name(std::string("MWST"));
    made->setUid(std::string("rule-1"));
    const InterchangeRecord record = interchangeRecord(*made);
    EXPECT_EQ(record.toJSON(),
              "{\"tax1mode\":1,\"tax2mode\":0,\"tax3mode\":0,\"tax1name\":\"MWST\",\"tax2name\":\"tax2\","
              "\"tax3name\":\"tax3\",\"tax1value\":7.7,\"taxCategoryCode\":\"S\",\"uid\":\"rule-1\"}");
}

TEST_F(InterchangeRecordsTest, ARecordGivesBackOnlyItsLineKeys) {
    InterchangeRecord line;
    line.set("entityName", Value("Cost"));
    line.set("name", Value("Work"));
    line.set("description", Value("On the roof"));
    line.set("rateAsString", Value("0.1"));
    line.set("quantityAsString", Value("3"));
    line.set("discountAsString", Value("10"));
    line.set("unit", Value("h"));
    line.set("uid", Value("not-taken"));
    auto* cost = dynamic_cast<BLCost*>(objectFromInterchangeRecord(line, context()));
    ASSERT_NE(cost, nullptr);
    EXPECT_EQ(cost->name(), "Work");
    EXPECT_EQ(cost->notes(), "On the roof");
    EXPECT_EQ(cost->unitPrice(), dec("0.1"));
    EXPECT_EQ(cost->quantity(), dec("3"));
    EXPECT_EQ(cost->discount(), dec("10"));
    EXPECT_NE(cost->uid(), "not-taken");

    InterchangeRecord unknown;
    unknown.set("entityName", Value("NoSuchThing"));
    EXPECT_EQ(objectFromInterchangeRecord(unknown, context()), nullptr);
    EXPECT_EQ(objectFromInterchangeRecord(InterchangeRecord(), context()), nullptr);
}

}  // namespace
}  // namespace brassline
