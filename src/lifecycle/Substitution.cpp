#include "lifecycle/Substitution.h"

#include <cctype>
#include <memory>

#include <unicode/locid.h>
#include <unicode/rbnf.h>
#include <unicode/unistr.h>

#include "core/Localization.h"
#include "core/Log.h"
#include "core/ValueTransformers.h"
#include "lifecycle/SubstitutionCache.h"
#include "lifecycle/SubstitutionFormats.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLContact.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLDynamicCost.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLLanguage.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLNote.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLSubTotal.h"
#include "model/entities/BLTaxDetails.h"
#include "model/entities/BLTeamMember.h"
#include "model/entities/BLTitle.h"

namespace brassline {

SubstitutionHooks& substitutionHooks() {
    static SubstitutionHooks hooks;
    return hooks;
}

void resetSubstitutionHooks() {
    substitutionHooks() = SubstitutionHooks{};
}

void addEntriesFromDictionary(SubstitutionDictionary& target, const SubstitutionDictionary& source,
                              std::string_view prefix) {
    std::string key(prefix);
    key += '.';
    const size_t base = key.size();
    for (const auto& [name, value] : source) {
        key.resize(base);
        key += name;
        target.insert_or_assign(key, value);
    }
}

void setNumber(SubstitutionDictionary& dictionary, const std::optional<Decimal>& number,
               const ValueTransformer* transformer, const std::string& key, std::string_view suffix) {
    if (!number || transformer == nullptr) {
        return;
    }
    Value text = transformer->transformedValue(Value(*number));
    if (!text.string()) {
        return;
    }
    std::string result = *text.string();
    result += suffix;
    dictionary.insert_or_assign(key, Value(std::move(result)));
}

std::string keyPathString(std::string_view name) {
    std::string result;
    bool pendingSeparator = false;
    for (unsigned char c : name) {
        // Bytes of multi-byte UTF-8 letters are kept: tags may carry umlauts.
        if (std::isalnum(c) != 0 || c == '_' || c >= 0x80) {
            if (pendingSeparator && !result.empty()) {
                result += '_';
            }
            pendingSeparator = false;
            result += static_cast<char>(c);
        } else {
            pendingSeparator = true;
        }
    }
    return result;
}

std::string spelledAmount(const Decimal& amount, std::string_view locale) {
    UErrorCode status = U_ZERO_ERROR;
    icu::RuleBasedNumberFormat format(icu::URBNF_SPELLOUT, icu::Locale(std::string(locale).c_str()), status);
    if (U_FAILURE(status)) {
        logMessage("No spell-out rules for locale %@", locale);
        return {};
    }
    // Through the decimal's text, so that cents are spelled as written, not as a binary
    // approximation.
    std::string digits = amount.rounded(2).toString();
    icu::UnicodeString text;
    icu::Formattable number(icu::StringPiece(digits.c_str()), status);
    if (U_FAILURE(status)) {
        return {};
    }
    format.format(number, text, status);
    if (U_FAILURE(status)) {
        return {};
    }
    std::string result;
    text.toUTF8String(result);
    return result;
}

std::vector<std::string> substitutionFields(const ManagedObject& object) {
    if (dynamic_cast<const BLContact*>(&object) == nullptr) {
        return {};
    }
    std::vector<std::string> fields = {"formattedName", "title",       "firstName", "lastName",
                                       "middleName",    "phoneNumber", "email"};
    if (dynamic_cast<const BLTeamMember*>(&object) != nullptr) {
        fields.emplace_back("signature");
    }
    return fields;
}

const std::vector<std::string>& contactSubstitutionKeys() {
    static const std::vector<std::string> keys = {"formattedAddress",
                                                  "formattedCompanyAddress",
                                                  "organizationOrName",
                                                  "formattedName",
                                                  "organization",
                                                  "department",
                                                  "title",
                                                  "firstname",
                                                  "middlename",
                                                  "lastname",
                                                  "firstName",
                                                  "middleName",
                                                  "lastName",
                                                  "salutation",
                                                  "street",
                                                  "state",
                                                  "zip",
                                                  "city",
                                                  "email",
                                                  "phoneNumber",
                                                  "country",
                                                  "VATID",
                                                  "taxNumber",
                                                  "clientid",
                                                  "clientID",
                                                  "IBAN",
                                                  "BIC",
                                                  "SEPACreditorID",
                                                  "SEPAMandateID",
                                                  "countryCode",
                                                  "rate",
                                                  "notes",
                                                  "termDays",
                                                  "paymentType",
                                                  "signature"};
    return keys;
}

namespace {

using Dict = SubstitutionDictionary;

Dict baseDictionary(ManagedObject& object) {
    return Dict{{kSubstitutionObjectKey, Value(static_cast<Object*>(&object))}};
}

void put(Dict& dictionary, const std::string& key, const std::optional<std::string>& text) {
    dictionary.insert_or_assign(key, Value(BLBase::fixedAttribute(text)));
}

void putDate(Dict& dictionary, const std::string& key, const std::optional<Date>& date,
             const ValueTransformer* transformer, const char* missing = "") {
    Value text = date && transformer != nullptr ? transformer->transformedValue(Value(*date)) : Value();
    dictionary.insert_or_assign(key, text.string() ? text : Value(missing));
}

std::string signatureText(const BLTeamMember& member) {
    const Bytes* data = member.signature();
    return data != nullptr ? std::string(data->begin(), data->end()) : std::string();
}

Dict languageDictionary(BLLanguage* language) {
    if (language == nullptr) {
        return {};
    }
    Dict dictionary = baseDictionary(*language);
    put(dictionary, "name", language->name());
    return dictionary;
}

Dict contactDictionary(BLContact& contact, const SubstitutionFormats& formats) {
    Dict d = baseDictionary(contact);
    d["formattedAddress"] = contact.formattedAddress();
    d["formattedCompanyAddress"] = contact.formattedCompanyAddress();
    d["organizationOrName"] = contact.organizationOrName();
    d["formattedName"] = contact.formattedName();
    put(d, "organization", contact.organization());
    put(d, "department", contact.department());
    put(d, "title", contact.title());
    // Old layouts spell the name keys in lower case.
    put(d, "firstname", contact.firstName());
    put(d, "middlename", contact.middleName());
    put(d, "lastname", contact.lastName());
    put(d, "firstName", contact.firstName());
    put(d, "middleName", contact.middleName());
    put(d, "lastName", contact.lastName());
    put(d, "salutation", contact.salutation());
    put(d, "street", contact.address());
    put(d, "state", contact.state());
    put(d, "zip", contact.zip());
    put(d, "city", contact.city());
    put(d, "email", contact.email());
    put(d, "phoneNumber", contact.phoneNumber());
    d["country"] = contact.countryName();
    put(d, "VATID", contact.taxID());
    put(d, "taxNumber", contact.taxNumber());
    std::optional<std::string> clientID = contact.clientID();
    if (auto* client = dynamic_cast<BLClient*>(&contact); client != nullptr && client->id()) {
        clientID = client->id();
    }
    put(d, "clientid", clientID);
    put(d, "clientID", clientID);
    put(d, "IBAN", contact.iban());
    put(d, "BIC", contact.bic());
    put(d, "SEPACreditorID", contact.sepaCreditorID());
    put(d, "SEPAMandateID", contact.sepaMandateID());
    put(d, "countryCode", contact.countryCode());
    d["rate"] = "";
    setNumber(d, contact.effectiveRate(), formats.currency, "rate");
    put(d, "notes", contact.notes());
    std::optional<int16_t> days = contact.payInterval();
    d["termDays"] = days ? std::to_string(*days) : std::string();
    d["paymentType"] = contact.paymentType() != nullptr ? BLBase::fixedAttribute(contact.paymentType()->name()) : "";
    if (auto* member = dynamic_cast<BLTeamMember*>(&contact)) {
        d["signature"] = signatureText(*member);
    }
    return d;
}

Dict currencyDictionary(BLCurrency& currency) {
    Dict d = baseDictionary(currency);
    d["shortname"] = currency.fixedName();
    d["symbol"] = currency.symbolOrName();
    d["name"] = currency.shortName();
    return d;
}

Dict layoutDictionary(BLLayout& layout) {
    Dict d = baseDictionary(layout);
    put(d, "name", layout.name());
    put(d, "uid", layout.uid());
    return d;
}

// The sum of the quantities of lines counted in time units.
std::optional<Decimal> durationOf(const std::vector<BLItem*>& items) {
    std::optional<Decimal> total;
    for (BLItem* item : items) {
        auto* cost = dynamic_cast<BLCost*>(item);
        if (cost != nullptr && cost->hasTimeUnit()) {
            total = total.value_or(Decimal()) + cost->lineQuantity();
        }
    }
    return total;
}

std::optional<Date> metaDate(const BLDocument& document, std::string_view key) {
    Value value = document.metaValueForKey(key);
    return value.date() ? std::optional<Date>(*value.date()) : std::nullopt;
}

void addCurrencyKeys(Dict& d, const BLCurrency* currency) {
    if (currency == nullptr) {
        d["currency.name"] = "";
        d["currency.shortname"] = "";
        d["currency.symbol"] = "";
        return;
    }
    d["currency.name"] = currency->shortName();
    d["currency.shortname"] = currency->fixedName();
    d["currency.symbol"] = currency->symbolOrName();
}

bool preferenceIsOn(ManagedObject& object, std::string_view key) {
    ManagedObjectContext* context = object.managedObjectContext();
    return context != nullptr && BLPreference::preferenceValue(*context, key).toBool();
}

// The keys a line and a group share; `unitPrice`, `quantity` and `discount` are the
// line's own or the group's aggregates.
void addRowKeys(Dict& d, BLItem& item, BLSendable* document, const SubstitutionFormats& formats,
                const std::optional<Decimal>& quantity, const std::optional<Decimal>& unitPrice,
                const std::optional<Decimal>& discount, const Decimal& undiscounted, const std::string& unit) {
    const BLContainer* reference = document != nullptr ? static_cast<const BLContainer*>(document) : item.sendable();
    d["fullindex"] = item.fullIndexForDocument(reference);
    int64_t index = item.indexForDocument(reference);
    d["index"] = index > 0 ? std::to_string(index) : std::string();
    put(d, "title", item.name());
    put(d, "description", item.notes());
    d["unit"] = unit;
    for (const char* key : {"qty", "quantity", "shortquantity", "unitPrice", "rate", "discount",
                            "negativediscountamount", "discountAmount", "discountamount", "undiscountedamount",
                            "preDiscountAmount", "cost", "weight", "taxnames", "taxpercentage"}) {
        d[key] = "";
    }
    setNumber(d, quantity, formats.number, "qty");
    setNumber(d, quantity, formats.number, "quantity");
    setNumber(d, quantity, formats.shortNumber, "shortquantity");
    setNumber(d, unitPrice, formats.currency, "unitPrice");
    setNumber(d, unitPrice, formats.currency, "rate");
    if (discount && !discount->isZeroAsFloat()) {
        setNumber(d, discount, formats.shortNumber, "discount", "%");
        Decimal amount = item.discountAmount();
        setNumber(d, amount, formats.currency, "discountAmount");
        setNumber(d, amount, formats.currency, "discountamount");
        setNumber(d, amount, formats.currency, "negativediscountamount");
        std::string negative(1, '-');
        negative += d["negativediscountamount"].toString();
        d["negativediscountamount"] = std::move(negative);
    }
    setNumber(d, undiscounted, formats.currency, "undiscountedamount");
    setNumber(d, undiscounted, formats.currency, "preDiscountAmount");
    setNumber(d, item.cost(), formats.currency, "cost");
    Decimal weight = item.totalWeight();
    if (!weight.isZeroAsFloat()) {
        setNumber(d, weight, formats.mass, "weight");
    }
    addCurrencyKeys(d, item.documentCurrency());
    putDate(d, "date", item.dateCreation(), formats.date);
}

void addTaxKeys(Dict& d, BLCost& cost) {
    Value names = cost.valueForKey("taxNames");
    Value rates = cost.valueForKey("taxRates");
    d["taxnames"] = names.isNull() ? Value("") : Value(names.toString());
    d["taxpercentage"] = rates.isNull() ? Value("") : Value(rates.toString() + "%");
}

void addTimeKeys(Dict& d, BLDocument& item, const SubstitutionFormats& formats) {
    std::optional<Date> start = metaDate(item, "startDate");
    std::optional<Date> end = metaDate(item, "endDate");
    putDate(d, "startDate", start, formats.dateAndTime);
    putDate(d, "endDate", end, formats.dateAndTime);
    d["timeRange"] = start && end ? d["startDate"].toString() + " - " + d["endDate"].toString() : std::string();
    Dict days;
    putDate(days, "start", start, formats.date);
    putDate(days, "end", end, formats.date);
    d["dateRange"] = start && end ? days["start"].toString() + " - " + days["end"].toString() : std::string();
}

// Zero-cost rows and rows of one piece may hide texts the reader does not need.
void blankByPreferences(Dict& d, BLCost& cost, const Decimal& quantity) {
    if (preferenceIsOn(cost, "items.hideZeroCostOption") && cost.cost().isZeroAsFloat()) {
        for (const char* key : {"unitPrice", "rate", "cost", "currency.name", "currency.shortname", "currency.symbol",
                                "qty", "quantity", "shortquantity", "unit"}) {
            d[key] = "";
        }
    }
    bool hideZero = preferenceIsOn(cost, "items.hideZeroQuantityOption") && quantity.isZeroAsFloat();
    bool hideOne =
        preferenceIsOn(cost, "items.hideOneQuantityOption") && quantity == Decimal::one() && !cost.hasTimeUnit();
    if (hideZero || hideOne) {
        for (const char* key : {"qty", "quantity", "shortquantity"}) {
            d[key] = "";
        }
    }
}

Dict costDictionary(BLCost& cost, BLSendable* document) {
    SubstitutionFormats formats = SubstitutionFormats::forDocument(document != nullptr ? document : cost.sendable());
    Dict d = baseDictionary(cost);
    addEntriesFromDictionary(d, languageDictionary(cost.language()), "language");
    put(d, "layout", cost.layout() != nullptr ? cost.layout()->name() : std::nullopt);
    addRowKeys(d, cost, document, formats, cost.quantity(), cost.unitPrice(), cost.discount(),
               cost.undiscountedAmount(), BLBase::fixedAttribute(cost.unit()));
    addTaxKeys(d, cost);
    addTimeKeys(d, cost, formats);
    put(d, "itemNumber", cost.itemNumber());
    put(d, "ean", cost.ean());
    // The EAN-13 barcode font draws the plain digits.
    put(d, "ean_ean13", cost.ean());
    blankByPreferences(d, cost, cost.lineQuantity());
    return d;
}

Dict groupDictionary(BLGroup& group, BLSendable* document) {
    SubstitutionFormats formats = SubstitutionFormats::forDocument(document != nullptr ? document : group.sendable());
    Dict d = baseDictionary(group);
    // A group's row shows what its lines add up to ("@sum.quantity").
    std::vector<BLCost*> costs = group.costs();
    std::optional<Decimal> quantity;
    for (BLCost* cost : costs) {
        quantity = quantity.value_or(Decimal()) + cost->lineQuantity();
    }
    addRowKeys(d, group, document, formats, quantity, group.lineUnitPrice(), group.lineDiscount(),
               group.undiscountedAmount(), group.unitText());
    if (!costs.empty()) {
        addTaxKeys(d, *costs.front());
    }
    std::optional<Date> first = group.minimumDate();
    std::optional<Date> last = group.maximumDate();
    Dict range;
    putDate(range, "start", first, formats.date);
    putDate(range, "end", last, formats.date);
    d["dateRange"] = first && last ? range["start"].toString() + " - " + range["end"].toString() : std::string();
    d["startDate"] = range["start"];
    d["endDate"] = range["end"];
    d["timeRange"] = d["dateRange"];
    for (const char* key : {"itemNumber", "ean", "ean_ean13"}) {
        d[key] = "";
    }
    return d;
}

Dict titleDictionary(BLItem& item, BLSendable* document, bool isSubTotal) {
    SubstitutionFormats formats = SubstitutionFormats::forDocument(document != nullptr ? document : item.sendable());
    Dict d = baseDictionary(item);
    put(d, "title", item.name());
    d["cost"] = "";
    setNumber(d, item.sum(), formats.currency, "cost");
    std::vector<BLItem*> affected = item.affectedItems();
    d["duration"] = "";
    setNumber(d, durationOf(affected), formats.duration, "duration");
    const BLContainer* reference = document != nullptr ? static_cast<const BLContainer*>(document) : item.sendable();
    d["fullIndex"] = item.fullIndexForDocument(reference);
    if (isSubTotal) {
        std::optional<Decimal> quantity;
        for (BLItem* child : affected) {
            if (dynamic_cast<BLCost*>(child) != nullptr) {
                quantity = quantity.value_or(Decimal()) + child->lineQuantity();
            }
        }
        d["quantity"] = "";
        setNumber(d, quantity, formats.number, "quantity");
    } else {
        int64_t index = item.indexForDocument(reference);
        d["index"] = index > 0 ? std::to_string(index) : std::string();
    }
    Dict currency;
    if (const BLCurrency* owner = item.documentCurrency()) {
        currency = currencyDictionary(const_cast<BLCurrency&>(*owner));
    }
    addEntriesFromDictionary(d, currency, "currency");
    return d;
}

Dict dynamicCostDictionary(BLDynamicCost& cost, BLSendable* document) {
    Dict d = costDictionary(cost, document);
    // The script's result as stored on the line; fields its plug-in hides stay out.
    Value stored = cost.metaValueForKey("dictionary");
    Value hidden = cost.metaValueForKey("infoDictionary.hiddenFields");
    if (const Value::Dictionary* entries = stored.dictionary()) {
        for (const auto& [key, value] : *entries) {
            bool isHidden = false;
            if (const Value::Array* names = hidden.array()) {
                for (const Value& name : *names) {
                    isHidden = isHidden || name.toString() == key;
                }
            }
            if (!isHidden) {
                d.insert_or_assign(key, Value(value.toString()));
            }
        }
    }
    return d;
}

Dict paymentDictionary(BLPayment& payment) {
    auto* invoice = dynamic_cast<BLSendable*>(payment.parentDocument());
    SubstitutionFormats formats = SubstitutionFormats::forDocument(invoice);
    Dict d = baseDictionary(payment);
    addEntriesFromDictionary(
        d, languageDictionary(payment.contact() != nullptr ? payment.contact()->language() : nullptr), "language");
    for (const char* key :
         {"amount", "gross", "net", "cost", "unitPrice", "taxes", "taxPercentage", "taxnames", "rate", "unit",
          "discount", "slip", "shortquantity", "quantity", "qty", "index", "fullindex", "weight"}) {
        d[key] = "";
    }
    std::optional<Decimal> amount = payment.amount();
    for (const char* key : {"amount", "gross", "net", "cost", "unitPrice"}) {
        setNumber(d, amount, formats.currency, key);
    }
    d["title"] = payment.name() ? *payment.name() : localizedString("payment");
    d["paymentType"] = payment.paymentType() != nullptr ? BLBase::fixedAttribute(payment.paymentType()->name()) : "";
    put(d, "notes", payment.notes());
    put(d, "description", payment.notes());
    putDate(d, "date", payment.dateCreation(), formats.date);
    addTimeKeys(d, payment, formats);
    putDate(d, "document.sent", invoice != nullptr ? invoice->dateSent() : std::nullopt, formats.date,
            kMissingValueSign);
    putDate(d, "document.due", invoice != nullptr ? invoice->dateDue() : std::nullopt, formats.date, kMissingValueSign);
    return d;
}

}  // namespace

SubstitutionDictionary substitutionDictionary(const BLTaxDetails& details) {
    SubstitutionFormats formats = SubstitutionFormats::forDocument(const_cast<BLSendable*>(details.document));
    Dict d;
    for (const char* key : {"net", "cost", "taxes", "subtotal", "subtotal_it", "percentage"}) {
        d[key] = "";
    }
    setNumber(d, details.amount, formats.currency, "net");
    setNumber(d, details.amount, formats.currency, "cost");
    setNumber(d, details.tax, formats.currency, "taxes");
    setNumber(d, details.amount + details.tax, formats.currency, "subtotal");
    // Italian invoices print the taxable base of the slot as its subtotal.
    setNumber(d, details.amount, formats.currency, "subtotal_it");
    setNumber(d, details.percentage, formats.shortNumber, "percentage", "%");
    d["name"] = details.name;
    d["shortname"] = details.shortName;
    return d;
}

SubstitutionDictionary substitutionDictionaryForDocument(ManagedObject& object, BLSendable* document) {
    if (auto* sendable = dynamic_cast<BLSendable*>(&object)) {
        if (std::optional<SubstitutionDictionary> cached =
                BLSubstitutionCache::sharedCache().substitionsForDocument(*sendable)) {
            return *cached;
        }
        SubstitutionDictionary built = buildDocumentSubstitutionDictionary(*sendable);
        BLSubstitutionCache::sharedCache().setSubstitions(built, *sendable);
        return built;
    }
    if (auto* contact = dynamic_cast<BLContact*>(&object)) {
        auto* ownerDocument = dynamic_cast<BLSendable*>(contact->parentDocument());
        return contactDictionary(*contact,
                                 SubstitutionFormats::forDocument(document != nullptr ? document : ownerDocument));
    }
    if (auto* currency = dynamic_cast<BLCurrency*>(&object)) {
        return currencyDictionary(*currency);
    }
    if (auto* layout = dynamic_cast<BLLayout*>(&object)) {
        return layoutDictionary(*layout);
    }
    if (auto* payment = dynamic_cast<BLPayment*>(&object)) {
        return paymentDictionary(*payment);
    }
    if (auto* dynamicCost = dynamic_cast<BLDynamicCost*>(&object)) {
        return dynamicCostDictionary(*dynamicCost, document);
    }
    if (auto* cost = dynamic_cast<BLCost*>(&object)) {
        return costDictionary(*cost, document);
    }
    if (auto* group = dynamic_cast<BLGroup*>(&object)) {
        return groupDictionary(*group, document);
    }
    if (auto* title = dynamic_cast<BLTitle*>(&object)) {
        return titleDictionary(*title, document, false);
    }
    if (auto* subTotal = dynamic_cast<BLSubTotal*>(&object)) {
        return titleDictionary(*subTotal, document, true);
    }
    if (auto* note = dynamic_cast<BLNote*>(&object)) {
        Dict d = baseDictionary(*note);
        put(d, "notes", note->notes());
        return d;
    }
    if (auto* language = dynamic_cast<BLLanguage*>(&object)) {
        return languageDictionary(language);
    }
    return baseDictionary(object);
}

SubstitutionDictionary substitutionDictionary(ManagedObject& object) {
    return substitutionDictionaryForDocument(object, nullptr);
}

}  // namespace brassline
