#include "plugins/InterchangeRecords.h"

#include <algorithm>
#include <cstdio>

#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLContact.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLCustomField.h"
#include "model/entities/BLCustomValue.h"
#include "model/entities/BLExternalFile.h"
#include "model/entities/BLExternalFileGroup.h"
#include "model/entities/BLFollowUp.h"
#include "model/entities/BLFollowUpType.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLItem.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLMetaValue.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLProfile.h"
#include "model/entities/BLProject.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/BLTranscript.h"
#include "model/entities/ModelHooks.h"
#include "money/BLTaxCalculator.h"
#include "store/BLDoc.h"

namespace brassline {

namespace {

// "fixed" money: the amount rounded to cents; "AsString": its plain text, unrounded.
Value fixed(const Decimal& amount) {
    return Value(amount.validNumber().fixedValue());
}
Value text(const Decimal& amount) {
    return Value(amount.validNumber().toString());
}
template <typename T>
Value optionalValue(const std::optional<T>& value) {
    return value ? Value(*value) : Value();
}
Value optionalDecimalText(const std::optional<Decimal>& value) {
    return value ? text(*value) : Value();
}

RecordValue recordOf(ManagedObject* object) {
    return object != nullptr ? RecordValue(interchangeRecord(*object)) : RecordValue();
}

template <typename Range>
RecordValue::List recordsOf(const Range& objects) {
    RecordValue::List list;
    for (auto* object : objects) {
        list.emplace_back(interchangeRecord(*object));
    }
    return list;
}

InterchangeRecord metaValuesOf(const BLDocument& document) {
    InterchangeRecord values;
    for (BLMetaValue* meta : document.metaValues()) {
        if (std::optional<std::string> key = meta->name()) {
            values.set(*key, RecordValue::fromValue(meta->payload()));
        }
    }
    return values;
}

InterchangeRecord customFieldsOf(const BLDocument& document) {
    InterchangeRecord values;
    for (BLCustomValue* value : document.customValues()) {
        BLCustomField* field = value->field();
        if (field != nullptr && field->name()) {
            values.set(*field->name(), optionalValue(value->name()));
        }
    }
    return values;
}

// The items of a document in reading order: each line, then the lines inside it.
void collectItems(const BLContainer& container, std::vector<BLItem*>& items) {
    for (BLContainer* child : container.childs()) {
        if (auto* item = dynamic_cast<BLItem*>(child)) {
            items.push_back(item);
            collectItems(*item, items);
        }
    }
}

std::vector<BLItem*> sortedItems(const BLSendable& document) {
    std::vector<BLItem*> items;
    collectItems(document, items);
    return items;
}

std::vector<BLPayment*> sortedPayments(const BLSendable& document) {
    std::vector<BLPayment*> payments = document.payments();
    std::stable_sort(payments.begin(), payments.end(), [](const BLPayment* a, const BLPayment* b) {
        return a->dateCreation().value_or(Date()).timeIntervalSinceReferenceDate() <
               b->dateCreation().value_or(Date()).timeIntervalSinceReferenceDate();
    });
    return payments;
}

// The tax of one line as a one-row tax table, in the form of the document's table.
RecordValue::List lineTaxes(BLCost& cost) {
    RecordValue::List list;
    if (BLTaxRule* rule = cost.taxRule()) {
        BLTaxCalculator calculator = BLTaxCalculator::taxCalculatorWithRule(rule, nullptr);
        calculator.amount = cost.cost();
        list.emplace_back(InterchangeRecord::fromDictionary(calculator.interchangeDictionary()));
    }
    return list;
}

// The percentage of a line's rule as its document reads it.
std::optional<Decimal> taxPercentageOf(const BLCost& cost) {
    BLTaxRule* rule = cost.taxRule();
    if (rule == nullptr) {
        return std::nullopt;
    }
    return rule->totalPercentageForDocument(dynamic_cast<const BLSendable*>(cost.topmostParentDocument()));
}

void addTaxPercentage(InterchangeRecord& record, const BLCost* cost) {
    if (cost == nullptr) {
        return;
    }
    const std::optional<Decimal> percentage = taxPercentageOf(*cost);
    record.set("taxPercentage", optionalValue(percentage));
    record.set("taxPercentageAsString", optionalDecimalText(percentage));
    BLItemGroup* group = cost->itemGroup();
    BLTaxGroup* taxGroup = group != nullptr ? group->taxGroup() : nullptr;
    record.set("taxGroup", taxGroup != nullptr ? optionalValue(taxGroup->name()) : Value());
}

void addItem(InterchangeRecord& record, BLItem& item) {
    record.set("items", recordsOf(item.childsArray()));
    record.set("entityName", Value(item.entityName()));
    record.set("name", optionalValue(item.name()));
    record.set("description", optionalValue(item.notes()));
    record.set("uid", optionalValue(item.uid()));
    const Decimal rate = item.finalRate();
    record.set("rate", Value(rate.validNumber()));
    record.set("rateAsString", text(rate));
    auto* cost = dynamic_cast<BLCost*>(&item);
    if (cost != nullptr) {
        record.set("quantityUnitCode", Value(cost->quantityUnitCode()));
        record.set("quantity", optionalValue(cost->quantity()));
        record.set("quantityAsString", optionalDecimalText(cost->quantity()));
    }
    const Decimal quantity = item.lineQuantity();
    record.set("finalQuantityAsString", text(quantity));
    // The unit price after the line's discount, and the line's net after it.
    const Decimal discount = item.lineDiscount();
    const Decimal rateWithDiscount = rate - rate.decimalNumberCalculatePercentage(discount);
    record.set("finalRateWithDiscount", Value(rateWithDiscount.validNumber()));
    record.set("finalRateWithDiscountAsString", text(rateWithDiscount));
    const Decimal lineCost = item.cost();
    record.set("finalNetWithDiscount", fixed(lineCost));
    record.set("finalNetWithDiscountAsString", text(lineCost));
    if (cost != nullptr) {
        record.set("discount", optionalValue(cost->discount()));
        record.set("discountAsString", optionalDecimalText(cost->discount()));
        record.set("unit", optionalValue(cost->unit()));
    }
    record.set("cost", fixed(lineCost));
    record.set("costAsString", text(lineCost));
    record.set("netAsString", text(item.netAmountForMetrics()));
    record.set("grossAsString", text(item.gross()));
    if (cost != nullptr) {
        record.set("taxes", lineTaxes(*cost));
    }
    const Decimal tax = item.lineTaxes();
    record.set("tax", fixed(tax));
    record.set("taxAsString", text(tax));
    if (cost != nullptr) {
        BLItemGroup* group = cost->itemGroup();
        record.set("category", group != nullptr ? optionalValue(group->name()) : Value());
        record.set("itemgroup", recordOf(group));
        record.set("taxrule", recordOf(cost->taxRule()));
        record.set("hasTimeUnit", Value(cost->hasTimeUnit()));
        record.set("date", optionalValue(cost->dateCreation()));
        addTaxPercentage(record, cost);
        record.set("hasHourUnit", Value(cost->hasTimeUnit()));
        record.set("itemNumber", optionalValue(cost->itemNumber()));
        record.set("ean", optionalValue(cost->ean()));
    } else if (auto* group = dynamic_cast<BLGroup*>(&item)) {
        record.set("netAsString", text(group->net()));
        record.set("grossAsString", text(group->gross()));
        // A group reads the rule of its first line, as its tax is collected under it.
        std::vector<BLCost*> costs = group->costs();
        addTaxPercentage(record, costs.empty() ? nullptr : costs.front());
    }
}

void addContact(InterchangeRecord& record, BLContact& contact) {
    record.set("formattedAddress", Value(contact.formattedAddress()));
    record.set("formattedCompanyAddress", Value(contact.formattedCompanyAddress()));
    record.set("name", optionalValue(contact.name()));
    record.set("countryCode", optionalValue(contact.countryCode()));
    record.set("VATID", optionalValue(contact.taxID()));
    record.set("uid", optionalValue(contact.uid()));
    // The scheme of the identifier above in e-invoices: a VAT number.
    record.set("VATSchemeCode", contact.taxID() ? Value("VAT") : Value());
    if (auto* client = dynamic_cast<BLClient*>(&contact)) {
        record.set("taxGroup", recordOf(client->clientGroup()));
    }
    record.set("organization", optionalValue(contact.organization()));
    record.set("department", optionalValue(contact.department()));
    record.set("title", optionalValue(contact.title()));
    record.set("firstName", optionalValue(contact.firstName()));
    record.set("middleName", optionalValue(contact.middleName()));
    record.set("lastName", optionalValue(contact.lastName()));
    record.set("street", optionalValue(contact.address()));
    record.set("email", optionalValue(contact.email()));
    record.set("emailaddress", optionalValue(contact.email()));
    record.set("state", optionalValue(contact.state()));
    record.set("zip", optionalValue(contact.zip()));
    record.set("city", optionalValue(contact.city()));
    record.set("clientNumber", optionalValue(contact.clientID()));
    record.set("BIC", optionalValue(contact.bic()));
    record.set("IBAN", optionalValue(contact.iban()));
    record.set("taxNumber", optionalValue(contact.taxNumber()));
    record.set("phoneNumber", optionalValue(contact.phoneNumber()));
    record.set("creditorID", optionalValue(contact.sepaCreditorID()));
    record.set("mandateDate", optionalValue(contact.sepaMandateDate()));
    record.set("mandateID", optionalValue(contact.sepaMandateID()));
    record.set("SEPA", Value(contact.valueForKey("useSEPADirectDebit").toBool() ||
                             (contact.iban() && contact.sepaMandateID() && contact.sepaMandateDate())));
    record.set("customFields", customFieldsOf(contact));
    record.set("metaValues", metaValuesOf(contact));
}

void addPayment(InterchangeRecord& record, BLPayment& payment) {
    record.set("date", optionalValue(payment.dateCreation()));
    record.set("notes", optionalValue(payment.notes()));
    record.set("entityName", Value(payment.entityName()));
    record.set("client", recordOf(payment.client()));
    record.set("type", recordOf(payment.paymentType()));
    const Decimal amount = payment.amount().value_or(Decimal());
    record.set("amount", optionalValue(payment.amount()));
    record.set("amountAsString", text(amount));
    record.set("uid", optionalValue(payment.uid()));
    auto* invoice = dynamic_cast<BLSendable*>(payment.parentDocument());
    if (invoice != nullptr && invoice->currency() != nullptr) {
        record.set("currency", Value(invoice->currency()->fixedName()));
    }
    // The payment's share of its invoice's tax, rule by rule.
    const Decimal tax = invoice != nullptr ? invoice->taxOfPayment(payment) : Decimal();
    record.set("gross", fixed(amount));
    record.set("grossAsString", text(amount));
    record.set("net", fixed(amount - tax));
    record.set("netAsString", text(amount - tax));
    record.set("tax", fixed(tax));
    record.set("taxAsString", text(tax));
    if (invoice != nullptr) {
        const Decimal total = invoice->costWithTaxes();
        RecordValue::List taxes;
        if (!total.isZeroAsFloat()) {
            for (BLTaxCalculator& calculator : taxDictionary(*invoice)) {
                BLTaxCalculator share = calculator.taxCalculatorWithRatio(amount / total);
                taxes.emplace_back(InterchangeRecord::fromDictionary(share.interchangeDictionary()));
            }
        }
        record.set("taxes", std::move(taxes));
    }
}

// The start and end of the period a document covers: its own range, else the dates of
// its lines (a group's lines count with theirs).
void addPeriod(InterchangeRecord& record, BLSendable& document) {
    std::optional<Date> start;
    std::optional<Date> end;
    if (document.useCustomRangeValue()) {
        start = document.customRangeStart();
        end = document.customRangeEnd();
    } else {
        auto widen = [&](std::optional<Date> low, std::optional<Date> high) {
            if (low && (!start || low->timeIntervalSinceReferenceDate() < start->timeIntervalSinceReferenceDate())) {
                start = low;
            }
            if (high && (!end || high->timeIntervalSinceReferenceDate() > end->timeIntervalSinceReferenceDate())) {
                end = high;
            }
        };
        for (BLContainer* child : document.childs()) {
            if (auto* group = dynamic_cast<BLGroup*>(child)) {
                widen(group->minimumDate(), group->maximumDate());
            } else if (auto* item = dynamic_cast<BLItem*>(child)) {
                widen(item->dateCreation(), item->dateCreation());
            }
        }
    }
    InterchangeRecord period;
    period.set("start", optionalValue(start));
    period.set("end", optionalValue(end));
    record.set("period", std::move(period));
}

// The code of the document's kind in UN/CEFACT list 1001.
Value unCode(const BLSendable& document) {
    if (document.isPartialInvoice()) {
        return Value("326");
    }
    if (document.isInvoice()) {
        return Value("380");
    }
    if (document.isKindOfEntity("Estimate")) {
        return Value("310");
    }
    return Value();
}

void addSendable(InterchangeRecord& record, BLSendable& document) {
    record.set("UNCL1001", unCode(document));
    record.set("dateSent", optionalValue(document.dateSent()));
    record.set("dateDue", optionalValue(document.dateDue()));
    record.set("datePaid", document.valueForKey("datePaid"));
    BLContact* contact = document.contact();
    if (contact != nullptr) {
        record.set("clientName", Value(contact->organizationOrName()));
    }
    record.set("entityName", Value(document.entityName()));
    record.set("name", optionalValue(document.name()));
    if (BLCurrency* currency = document.currency()) {
        record.set("currency", Value(currency->fixedName()));
    }
    const Decimal gross = document.costWithTaxes();
    record.set("gross", fixed(gross));
    record.set("grossAsString", text(gross));
    const Decimal discount = document.discount().value_or(Decimal());
    record.set("discount", fixed(discount));
    record.set("discountAsString", text(discount));
    const Decimal balance = document.balance();
    record.set("balanceAsString", text(balance));
    record.set("prepaidAmountAsString", text(document.prepaidAmount()));
    record.set("label", Value(document.label()));
    record.set("deliveryType", Value(int64_t{document.deliveryTypeValue()}));
    record.set("status", Value(document.status()));
    const Decimal net = document.cost();
    record.set("net", fixed(net));
    record.set("netAsString", text(net));
    record.set("hasPartialInvoices", Value(document.hasPartialInvoices()));
    record.set("isPartialInvoice", Value(document.isPartialInvoice()));
    if (modelHooks().documentServicePort && document.uid()) {
        if (std::optional<int64_t> port = modelHooks().documentServicePort()) {
            record.set("url", Value("http://localhost:" + std::to_string(*port) + "/document/" + *document.uid()));
        }
    }
    if (contact != nullptr) {
        record.set("clientABUID", optionalValue(contact->uid()));
    }
    record.set("balance", Value(balance.validNumber()));
    record.set("uid", optionalValue(document.uid()));
    record.set("isGross", Value(document.useGrossPricesValue()));
    BLProject* project = document.project();
    record.set("project",
               project != nullptr ? optionalValue(project->name()) : optionalValue(document.legacyProjectName()));
    record.set("subject", optionalValue(document.subject()));
    record.set("reference", optionalValue(document.reference()));
    record.set("notes", optionalValue(document.notes()));
    record.set("lead", optionalValue(document.lead()));
    record.set("conditions", document.valueForKey("conditions"));
    addPeriod(record, document);
    record.set("recipient", recordOf(contact));
    record.set("payments", recordsOf(sortedPayments(document)));
    if (ManagedObjectContext* context = document.managedObjectContext()) {
        if (BLProfile* profile = BLContainer::defaultItemForContext<BLProfile>(*context)) {
            InterchangeRecord sender = interchangeRecord(*profile);
            // The document's own bank account, where its payment type names one, stands for
            // the sender's.
            if (BLPaymentType* type = document.paymentType()) {
                if (type->iban()) {
                    sender.set("IBAN", Value(*type->iban()));
                    sender.set("BIC", optionalValue(type->bic()));
                }
            }
            record.set("sender", std::move(sender));
        }
    }
    record.set("externalFiles", recordsOf(document.collectExternalFiles()));
    record.set("metaValues", metaValuesOf(document));
    record.set("customFields", customFieldsOf(document));
    const std::vector<BLItem*> items = sortedItems(document);
    RecordValue::List allItems;
    RecordValue::List costly;
    RecordValue::List subtotals;
    allItems.reserve(items.size());
    for (BLItem* item : items) {
        InterchangeRecord itemRecord = interchangeRecord(*item);
        if (!item->cost().isZeroAsFloat()) {
            costly.emplace_back(itemRecord);
        }
        if (item->isKindOfEntity("SubTotal")) {
            subtotals.emplace_back(itemRecord);
        }
        allItems.emplace_back(std::move(itemRecord));
    }
    record.set("allItems", std::move(allItems));
    record.set("partialRatioAsString", text(document.ratioForMetrics()));
    std::vector<BLTaxCalculator> calculators = taxDictionary(document);
    const Decimal tax = totalTax(calculators);
    record.set("tax", fixed(tax));
    record.set("taxAsString", text(tax));
    record.set("items", std::move(costly));
    RecordValue::List taxes;
    Decimal taxedNet;
    for (BLTaxCalculator& calculator : calculators) {
        Value::Dictionary row = calculator.interchangeDictionary();
        if (!row["rate"].toDecimal().isZeroAsFloat()) {
            taxedNet += row["net"].toDecimal();
        }
        taxes.emplace_back(InterchangeRecord::fromDictionary(row));
    }
    record.set("taxes", std::move(taxes));
    record.set("taxedNetAsString", text(taxedNet));
    if (!subtotals.empty()) {
        record.set("subtotals", std::move(subtotals));
    }
    record.set("document", internalInterchangeRecord(document));
    if (ManagedObjectContext* context = document.managedObjectContext()) {
        ManagedObjectContext* main = context;
        while (main->parentContext() != nullptr) {
            main = main->parentContext();
        }
        if (BLDoc* file = BLDoc::documentForContext(*main)) {
            InterchangeRecord fileRecord;
            fileRecord.set("identifier", Value(file->documentIdentifier()));
            fileRecord.set("path", Value(file->fileURL()));
            record.set("file", std::move(fileRecord));
        }
    }
    const bool directDebit = document.valueForKey("useSEPADirectDebit").toBool() && contact != nullptr &&
                             contact->iban() && contact->sepaMandateID() && contact->sepaMandateDate();
    record.set("useSEPADirectDebit", Value(int64_t{directDebit ? 1 : 0}));
}

std::string mimeTypeForName(const std::string& name) {
    const size_t dot = name.rfind('.');
    std::string extension = dot == std::string::npos ? std::string() : name.substr(dot + 1);
    std::transform(extension.begin(), extension.end(), extension.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    static const std::pair<const char*, const char*> kTypes[] = {
        {"pdf", "application/pdf"}, {"xml", "application/xml"}, {"png", "image/png"}, {"jpg", "image/jpeg"},
        {"jpeg", "image/jpeg"},     {"txt", "text/plain"},      {"csv", "text/csv"},  {"json", "application/json"},
        {"zip", "application/zip"}, {"html", "text/html"},      {"gif", "image/gif"}, {"tif", "image/tiff"},
    };
    for (const auto& [known, type] : kTypes) {
        if (extension == known) {
            return type;
        }
    }
    return "application/octet-stream";
}

void addExternalFile(InterchangeRecord& record, BLDocument& file) {
    record.set("date", optionalValue(file.dateCreation()));
    record.set("name", optionalValue(file.name()));
    record.set("fileName", optionalValue(file.name()));
    record.set("uid", optionalValue(file.uid()));
    if (file.name()) {
        record.set("mimeType", Value(mimeTypeForName(*file.name())));
    }
    record.set("metaValues", metaValuesOf(file));
}

void addTranscript(InterchangeRecord& record, BLTranscript& transcript) {
    if (const Bytes* data = transcript.recordData()) {
        if (std::optional<Value> archived = Value::fromPropertyList(*data)) {
            record.set("record", RecordValue::fromValue(*archived));
        }
    }
    record.set("operation", optionalValue(transcript.operation()));
    record.set("type", optionalValue(transcript.type()));
    record.set("date", optionalValue(transcript.date()));
}

void addTaxRule(InterchangeRecord& record, BLTaxRule& rule) {
    record.set("tax1mode", optionalValue(rule.tax1mode()));
    record.set("tax2mode", optionalValue(rule.tax2mode()));
    record.set("tax3mode", optionalValue(rule.tax3mode()));
    record.set("tax1name", optionalValue(rule.tax1name()));
    record.set("tax2name", optionalValue(rule.tax2name()));
    record.set("tax3name", optionalValue(rule.tax3name()));
    record.set("tax1value", optionalValue(rule.tax1value()));
    record.set("tax2value", optionalValue(rule.tax2value()));
    record.set("tax3value", optionalValue(rule.tax3value()));
    record.set("taxCategoryCode", Value(rule.taxCategoryCode()));
    record.set("taxExemptionCode", optionalValue(rule.taxExemptionCode()));
    record.set("uid", optionalValue(rule.uid()));
}

}  // namespace

InterchangeRecord interchangeRecord(ManagedObject& object) {
    InterchangeRecord record;
    if (auto* sendable = dynamic_cast<BLSendable*>(&object)) {
        addSendable(record, *sendable);
    } else if (auto* contact = dynamic_cast<BLContact*>(&object)) {
        addContact(record, *contact);
    } else if (auto* payment = dynamic_cast<BLPayment*>(&object)) {
        addPayment(record, *payment);
    } else if (auto* item = dynamic_cast<BLItem*>(&object)) {
        addItem(record, *item);
    } else if (auto* rule = dynamic_cast<BLTaxRule*>(&object)) {
        addTaxRule(record, *rule);
    } else if (auto* itemGroup = dynamic_cast<BLItemGroup*>(&object)) {
        record.set("name", optionalValue(itemGroup->name()));
        record.set("entityName", Value(itemGroup->entityName()));
        record.set("uid", optionalValue(itemGroup->uid()));
        record.set("revenueAccount", optionalValue(itemGroup->revenueAccount()));
    } else if (object.isKindOfEntity("PaymentType") || object.isKindOfEntity("ClientGroup")) {
        auto& base = static_cast<BLBase&>(object);
        record.set("name", optionalValue(base.name()));
        record.set("uid", optionalValue(base.uid()));
    } else if (object.isKindOfEntity("ExternalFile") || object.isKindOfEntity("ExternalFileGroup")) {
        addExternalFile(record, static_cast<BLDocument&>(object));
    } else if (auto* transcript = dynamic_cast<BLTranscript*>(&object)) {
        addTranscript(record, *transcript);
    }
    return record;
}

InterchangeRecord internalInterchangeRecord(BLSendable& document) {
    InterchangeRecord record;
    record.set("entityName", Value(document.entityName()));
    BLLayout* layout = document.layout();
    record.set("layoutName", layout != nullptr ? optionalValue(layout->name()) : Value());
    if (auto* followUp = dynamic_cast<BLFollowUp*>(&document)) {
        BLFollowUpType* type = followUp->followUpType();
        record.set("followUpName", type != nullptr ? optionalValue(type->name()) : Value());
    }
    return record;
}

BLBase* objectFromInterchangeRecord(const InterchangeRecord& record, ManagedObjectContext& context) {
    const RecordValue* entityName = record.find("entityName");
    if (entityName == nullptr || entityName->value() == nullptr || !entityName->value()->string()) {
        return nullptr;
    }
    auto* object = dynamic_cast<BLBase*>(context.insertNewObjectForEntityForName(*entityName->value()->string()));
    if (object == nullptr) {
        return nullptr;
    }
    object->setup();
    // The text under a key, null when absent or not text.
    auto plain = [&record](std::string_view key) -> const std::string* {
        const RecordValue* value = record.find(key);
        return value != nullptr && value->value() != nullptr ? value->value()->string() : nullptr;
    };
    if (auto* item = dynamic_cast<BLItem*>(object)) {
        if (const std::string* name = plain("name")) {
            item->setName(*name);
        }
        if (const std::string* notes = plain("description")) {
            item->setNotes(*notes);
        }
    }
    if (auto* cost = dynamic_cast<BLCost*>(object)) {
        auto decimal = [&plain](std::string_view key) -> std::optional<Decimal> {
            const std::string* value = plain(key);
            return value != nullptr ? Decimal::parse(*value) : std::nullopt;
        };
        if (std::optional<Decimal> price = decimal("rateAsString")) {
            cost->setUnitPrice(*price);
        }
        if (std::optional<Decimal> discount = decimal("discountAsString")) {
            cost->setDiscount(*discount);
        }
        if (std::optional<Decimal> quantity = decimal("quantityAsString")) {
            cost->setQuantity(*quantity);
        }
        if (const std::string* unit = plain("unit")) {
            cost->setUnit(*unit);
        }
    }
    return object;
}

}  // namespace brassline
