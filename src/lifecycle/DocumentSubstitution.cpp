#include <map>

#include "core/Localization.h"
#include "core/ValueTransformers.h"
#include "lifecycle/Conditions.h"
#include "lifecycle/DocumentTexts.h"
#include "lifecycle/Substitution.h"
#include "lifecycle/SubstitutionFormats.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLCustomField.h"
#include "model/entities/BLCustomValue.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLLanguage.h"
#include "model/entities/BLMetaValue.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLProfile.h"
#include "model/entities/BLProject.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTeamMember.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

namespace {

using Dict = SubstitutionDictionary;

void putText(Dict& d, const std::string& key, const std::optional<std::string>& text) {
    d.insert_or_assign(key, Value(BLBase::fixedAttribute(text)));
}

std::string dateText(const std::optional<Date>& date, const ValueTransformer* transformer) {
    if (!date || transformer == nullptr) {
        return kMissingValueSign;
    }
    Value text = transformer->transformedValue(Value(*date));
    return text.string() ? *text.string() : std::string(kMissingValueSign);
}

// Two fraction digits with a point, whatever the locale: payment codes need one form.
std::string fixedTwoDigits(const Decimal& value) {
    std::string text = value.rounded(2).toString();
    size_t point = text.find('.');
    if (point == std::string::npos) {
        return text + ".00";
    }
    text.resize(std::min(text.size(), point + 3), '0');
    while (text.size() < point + 3) {
        text += '0';
    }
    return text;
}

std::string withMark(std::string text, char from, char to) {
    for (char& c : text) {
        if (c == from) {
            c = to;
        }
    }
    return text;
}

std::string hookText(const std::function<std::string(BLSendable&)>& hook, BLSendable& document) {
    return hook ? hook(document) : std::string();
}

// Empty texts under every key a contact answers, so that a document without a team
// member still replaces the tags of one.
Dict dummyDictionary() {
    Dict dummy;
    for (const std::string& key : contactSubstitutionKeys()) {
        dummy.emplace(key, Value(""));
    }
    return dummy;
}

// Custom fields by "custom.<field>" and meta values by their name.
Dict customFieldEntries(const BLDocument& document) {
    Dict d;
    for (BLCustomValue* value : document.customValues()) {
        BLCustomField* field = value->field();
        if (field == nullptr || !field->name()) {
            continue;
        }
        d.insert_or_assign(std::string(kCustomFieldPrefix) + keyPathString(*field->name()),
                           Value(BLBase::fixedAttribute(value->name())));
    }
    return d;
}

Dict metaValueEntries(const BLDocument& document) {
    Dict d;
    for (BLMetaValue* meta : document.metaValues()) {
        if (meta->name()) {
            d.insert_or_assign("meta." + *meta->name(), Value(meta->payload().toString()));
        }
    }
    return d;
}

std::optional<Decimal> orNilIfZero(const Decimal& value) {
    return value.isZeroAsFloat() ? std::nullopt : std::optional<Decimal>(value);
}

void addItemGroupSums(Dict& d, BLSendable& document, const SubstitutionFormats& formats) {
    ManagedObjectContext* context = document.managedObjectContext();
    if (context == nullptr) {
        return;
    }
    std::optional<std::vector<ManagedObject*>> groups = context->executeFetchRequest(FetchRequest("ItemGroup"));
    if (!groups || groups->empty()) {
        return;
    }
    struct Sums {
        Decimal net;
        Decimal gross;
        Decimal taxes;
    };
    std::map<std::string, Sums, std::less<>> byGroup;
    Sums total;
    for (BLContainer* child : document.childs()) {
        auto* item = dynamic_cast<BLItem*>(child);
        if (item == nullptr) {
            continue;
        }
        Sums line{item->net(), item->gross(), item->lineTaxes()};
        total.net += line.net;
        total.gross += line.gross;
        total.taxes += line.taxes;
        auto* cost = dynamic_cast<BLCost*>(item);
        if (cost != nullptr && cost->itemGroup() != nullptr && cost->itemGroup()->uid()) {
            Sums& sums = byGroup[*cost->itemGroup()->uid()];
            sums.net += line.net;
            sums.gross += line.gross;
            sums.taxes += line.taxes;
        }
    }
    for (ManagedObject* object : *groups) {
        auto* group = static_cast<BLItemGroup*>(object);
        std::string key = keyPathString(BLBase::fixedAttribute(group->name()));
        if (key.empty()) {
            continue;
        }
        Sums sums;
        if (auto found = byGroup.find(BLBase::fixedAttribute(group->uid())); found != byGroup.end()) {
            sums = found->second;
        }
        const std::string prefix = "itemgroup." + key;
        setNumber(d, orNilIfZero(sums.net), formats.currency, prefix + ".net");
        setNumber(d, orNilIfZero(sums.taxes), formats.currency, prefix + ".taxes");
        setNumber(d, orNilIfZero(sums.gross), formats.currency, prefix + ".gross");
        setNumber(d, orNilIfZero(total.net - sums.net), formats.currency, "-" + prefix + ".net");
        setNumber(d, orNilIfZero(total.taxes - sums.taxes), formats.currency, "-" + prefix + ".taxes");
        setNumber(d, orNilIfZero(total.gross - sums.gross), formats.currency, "-" + prefix + ".gross");
    }
}

void addOriginalKeys(Dict& d, BLSendable& document, const SubstitutionFormats& formats) {
    auto* original = dynamic_cast<BLSendable*>(document.parentDocument());
    const std::optional<Date> sent = original != nullptr ? original->dateSent() : std::nullopt;
    const std::optional<Date> due = original != nullptr ? original->dateDue() : std::nullopt;
    const std::string lead = original != nullptr ? BLBase::fixedAttribute(original->lead()) : std::string();
    const std::string number = original != nullptr ? BLBase::fixedAttribute(original->name()) : std::string();
    for (const char* prefix : {"original", "parent"}) {
        const std::string base(prefix);
        d[base + ".sent"] = dateText(sent, formats.date);
        d[base + ".due"] = dateText(due, formats.date);
        d[base + ".lead"] = lead;
        d[base + ".number"] = number;
    }
    const auto& originalConditions = substitutionHooks().originalConditionsString;
    d["parent.conditions"] = originalConditions ? originalConditions(document) : originalConditionsString(document);
}

std::optional<Decimal> sumOfQuantities(const std::vector<BLItem*>& items, bool timeUnitsOnly) {
    std::optional<Decimal> total;
    for (BLItem* item : items) {
        auto* cost = dynamic_cast<BLCost*>(item);
        if (cost != nullptr && (!timeUnitsOnly || cost->hasTimeUnit())) {
            total = total.value_or(Decimal()) + cost->lineQuantity();
        }
    }
    return total;
}

}  // namespace

SubstitutionDictionary internalSubstitutionDictionary(BLSendable& document) {
    SubstitutionFormats formats = SubstitutionFormats::forDocument(&document);
    Dict d;
    d["dateRange"] = "";
    if (document.useCustomRangeValue() && document.customRangeStart() && document.customRangeEnd()) {
        d["dateRange"] = dateText(document.customRangeStart(), formats.date) + " - " +
                         dateText(document.customRangeEnd(), formats.date);
    }
    std::optional<std::string> name = document.name();
    d["number"] = name ? *name : std::string(document.dateSent() ? "" : kMissingValueSign);
    std::optional<int16_t> days = document.payInterval();
    d["termDays"] = days ? std::to_string(*days) : std::string();
    d["sent"] = dateText(document.dateSent(), formats.date);
    d["due"] = document.dateSent() ? dateText(document.dateDue(), formats.date) : std::string(kMissingValueSign);
    if (document.dateSent() && document.dateDue()) {
        d["ddmmyyyy"] = dateText(document.dateDue(), formats.dueDate);
    }
    putText(d, "reference", document.reference());
    BLProject* project = document.project();
    std::string projectName = project != nullptr ? BLBase::fixedAttribute(project->name())
                                                 : BLBase::fixedAttribute(document.legacyProjectName());
    d["project"] = projectName;
    putText(d, "subject", document.subject());
    d["projectNumber"] = project != nullptr ? BLBase::fixedAttribute(project->number()) : std::string();
    std::string subject = BLBase::fixedAttribute(document.subject());
    d["projectOrSubject"] = projectName.empty() ? subject : projectName;
    d["numberOrReference"] = name ? *name : BLBase::fixedAttribute(document.reference());
    d["label"] = documentLabel(document);
    putText(d, "lead", document.lead());

    const Decimal cost = document.cost();
    const Decimal gross = document.costWithTaxes();
    const Decimal balance = document.balanceForLayout();
    for (const char* key :
         {"cost", "costwithtaxes", "costinnativecurrency", "costwithoutoptions", "costwithoutoptionswithtaxes",
          "balanceinnativecurrency", "taxes", "balance", "grossBalance", "taxBalance", "netBalance", "totalDiscount",
          "weight", "duration", "quantity"}) {
        d[key] = "";
    }
    setNumber(d, cost, formats.currency, "cost");
    setNumber(d, gross, formats.currency, "costwithtaxes");
    setNumber(d, document.costWithoutOptions(), formats.currency, "costwithoutoptions");
    setNumber(d, document.costWithoutOptionsWithTaxes(), formats.currency, "costwithoutoptionswithtaxes");
    setNumber(d, gross - cost, formats.currency, "taxes");
    setNumber(d, balance, formats.currency, "balance");
    setNumber(d, balance, formats.currency, "grossBalance");
    setNumber(d, document.netBalance(), formats.currency, "netBalance");
    setNumber(d, document.taxBalance(), formats.currency, "taxBalance");
    if (BLCurrency* currency = document.currency()) {
        setNumber(d, currency->convertValueToDefaultCurrency(gross), formats.currency, "costinnativecurrency");
        setNumber(d, currency->convertValueToDefaultCurrency(balance), formats.currency, "balanceinnativecurrency");
    } else {
        setNumber(d, gross, formats.currency, "costinnativecurrency");
        setNumber(d, balance, formats.currency, "balanceinnativecurrency");
    }
    Decimal discount = document.totalDiscount();
    if (discount > Decimal()) {
        setNumber(d, discount, formats.currency, "totalDiscount");
    }
    Value sequence = document.valueForKey("sequence");
    d["sequence"] = sequence.isNull() ? std::string() : std::to_string(sequence.toInt64() + 1);
    d["balanceAsNumber"] = Value(balance);

    d["ch_ocr_line"] = kOCRLineReplacementMessage;
    d["ch_ocr_line_new"] = hookText(substitutionHooks().swissOCRLine, document);
    d["ch_refnumber"] = hookText(substitutionHooks().swissReferenceNumber, document);
    d["ogm.be"] = hookText(substitutionHooks().OGMString, document);

    Decimal weight = document.totalWeight();
    if (weight > Decimal()) {
        setNumber(d, weight, formats.mass, "weight");
    }
    std::vector<BLItem*> items = document.itemsForTotal();
    setNumber(d, sumOfQuantities(items, true), formats.duration, "duration");
    setNumber(d, sumOfQuantities(items, false), formats.number, "quantity");

    std::string amount = fixedTwoDigits(balance);
    d["balanceForQRCode"] = withMark(amount, '.', ',');
    d["balanceForSEPAQRCode"] = amount;
    d["balanceForPayPal"] = withMark(amount, ',', '.');
    d["nameForPayPal"] = name ? *name : std::string("UNKNOWN");

    putText(d, "notes", document.notes());
    d["projectNotes"] = project != nullptr ? BLBase::fixedAttribute(project->notes()) : std::string();
    d["conditions"] = "";
    d["costwithtaxesspelled"] = spelledAmount(gross, formats.locale);
    return d;
}

SubstitutionDictionary buildDocumentSubstitutionDictionary(BLSendable& document) {
    SubstitutionFormats formats = SubstitutionFormats::forDocument(&document);
    Dict d{{kSubstitutionObjectKey, Value(static_cast<Object*>(&document))}};

    if (BLProfile* sender = document.sender()) {
        addEntriesFromDictionary(d, substitutionDictionaryForDocument(*sender, &document), "sender");
    }
    if (BLCurrency* currency = document.currency()) {
        addEntriesFromDictionary(d, substitutionDictionary(*currency), "currency");
    }

    BLContact* recipient = document.contact();
    if (recipient == nullptr) {
        recipient = document.client();
    }
    Dict recipientKeys = recipient != nullptr ? substitutionDictionaryForDocument(*recipient, &document) : Dict{};
    BLLanguage* language = recipient != nullptr ? recipient->language() : nullptr;

    // Team member keys exist even without one, so that its tags vanish.
    Dict teamKeys = dummyDictionary();
    if (BLTeamMember* member = document.teamMember()) {
        for (auto& [key, value] : substitutionDictionaryForDocument(*member, &document)) {
            teamKeys.insert_or_assign(key, value);
        }
    }
    addEntriesFromDictionary(d, teamKeys, "teamMember");

    for (const Dict& entries : {customFieldEntries(document), metaValueEntries(document)}) {
        for (const auto& [key, value] : entries) {
            d.insert_or_assign(key, value);
        }
        addEntriesFromDictionary(d, entries, "document");
    }

    const auto& conditionsHook = substitutionHooks().clientConditionString;
    const std::string conditions =
        conditionsHook ? conditionsHook(document, d) : conditionStringWithDictionary(document, d);
    recipientKeys["conditions"] = conditions;

    if (language != nullptr) {
        addEntriesFromDictionary(d, substitutionDictionary(*language), "language");
    }
    addEntriesFromDictionary(d, recipientKeys, "recipient");
    // Layouts made before the spelling was fixed still ask for this prefix.
    addEntriesFromDictionary(d, recipientKeys, "receipient");

    Dict internal = internalSubstitutionDictionary(document);
    internal["conditions"] = conditions;
    addEntriesFromDictionary(d, internal, "document");
    addEntriesFromDictionary(d, internal, "invoice");

    addItemGroupSums(d, document, formats);
    addOriginalKeys(d, document, formats);

    d["title"] = internal["label"].toString() + " " + internal["number"].toString();

    for (const char* key :
         {"rate", "unitPrice", "unit", "taxnames", "taxpercentage", "discount", "negativediscountamount",
          "discountamount", "undiscountedamount", "preDiscountAmount", "discountAmount", "description", "index",
          "fullindex", "startDate", "timeRange", "dateRange", "weight"}) {
        d[key] = "";
    }
    std::string sent = document.dateSent() ? dateText(document.dateSent(), formats.date) : std::string();
    for (const char* key : {"quantity", "shortquantity", "qty", "date"}) {
        d[key] = sent;
    }

    d["costwithtaxes"] = internal["costwithoutoptionswithtaxes"];
    d["cost"] = internal["costwithoutoptionswithtaxes"];
    setNumber(d, document.effectiveRate(), formats.currency, "rate");
    if (BLPaymentType* paymentType = document.paymentType()) {
        if (paymentType->iban()) {
            d["sender.IBAN"] = *paymentType->iban();
        }
        if (paymentType->bic()) {
            d["sender.BIC"] = *paymentType->bic();
        }
    }

    if (substitutionHooks().runPlugins) {
        substitutionHooks().runPlugins(document, d);
    }
    return d;
}

}  // namespace brassline
