#include "model/entities/BLTaxRule.h"

#include <array>
#include <fstream>
#include <sstream>

#include "core/Localization.h"
#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTaxGroup.h"

namespace brassline {

namespace {

// One slot of a rule: its mode, name and percentage.
struct Slot {
    int16_t mode;
    std::optional<std::string> name;
    std::optional<Decimal> value;
};

std::array<Slot, 3> slotsOf(const BLTaxRule& rule) {
    return {Slot{rule.tax1modeValue(), rule.tax1name(), rule.tax1value()},
            Slot{rule.tax2modeValue(), rule.tax2name(), rule.tax2value()},
            Slot{rule.tax3modeValue(), rule.tax3name(), rule.tax3value()}};
}

// How many slots count: a slot is read only while the one before it is on.
int activeSlots(const std::array<Slot, 3>& slots) {
    int count = 0;
    while (count < 3 && slots[count].mode > 0) {
        ++count;
    }
    return count;
}

// The percentage as the calculation reads it: absent is not-a-number, which taxes nothing.
Decimal percentageOf(const Slot& slot) {
    return slot.value.value_or(Decimal::notANumber());
}

using PercentageStep = Decimal (*)(const Decimal& amount, const Decimal& percentage, BLTaxDetails* details,
                                   const BLSendable* document);

Decimal netStep(const Decimal& amount, const Decimal& percentage, BLTaxDetails* details, const BLSendable*) {
    return decimalNumberCalculatePercentage(amount, percentage, details);
}

// The slot logic shared by the net and the gross calculation; only the percentage step
// differs. Slot 2 with a mode other than 1 or 2 taxes nothing but keeps slot 3 readable.
Decimal calculate(const BLTaxRule& rule, const Decimal& base, std::vector<BLTaxDetails>* details,
                  const BLSendable* document, PercentageStep step) {
    const std::array<Slot, 3> slots = slotsOf(rule);
    if (slots[0].mode <= 0) {
        return Decimal();
    }
    const std::string shortName =
        rule.taxGroup() != nullptr ? BLBase::fixedAttribute(rule.taxGroup()->shortName()) : std::string();
    auto apply = [&](const Slot& slot, const Decimal& amount) {
        BLTaxDetails record;
        record.name = BLBase::fixedAttribute(slot.name);
        record.shortName = shortName;
        record.document = document;
        Decimal tax = step(amount, percentageOf(slot), details != nullptr ? &record : nullptr, document);
        if (details != nullptr) {
            details->push_back(std::move(record));
        }
        return tax;
    };
    const Decimal t1 = apply(slots[0], base);
    const Decimal afterSlot1 = base + t1;
    Decimal t2;
    Decimal t3;
    if (slots[1].mode > 0) {
        if (slots[1].mode == 1) {
            t2 = apply(slots[1], base);
        } else if (slots[1].mode == 2) {
            t2 = apply(slots[1], base + t1);
        }
        if (slots[2].mode == 1) {
            t3 = apply(slots[2], base);
        } else if (slots[2].mode == 2) {
            t3 = apply(slots[2], base + t1 + t2);
        } else if (slots[2].mode == 3) {
            t3 = apply(slots[2], afterSlot1);
        }
    }
    return t1 + t2 + t3;
}

// The short form of a percentage in the matrix: at most two fraction digits.
std::string shortNumber(const std::optional<Decimal>& value) {
    return value.value_or(Decimal()).validNumber().rounded(2).toString();
}

}  // namespace

Decimal decimalNumberCalculatePercentage(const Decimal& amount, const Decimal& percentage, BLTaxDetails* details) {
    if (details != nullptr) {
        details->amount = amount;
        details->percentage = percentage;
    }
    if (percentage.isNaN()) {
        return Decimal();
    }
    Decimal tax = amount.decimalNumberCalculatePercentage(percentage, details);
    if (details != nullptr) {
        details->tax = tax;
    }
    return tax;
}

Decimal decimalNumberCalculateIncludedPercentage(const Decimal& amount, const Decimal& percentage,
                                                 BLTaxDetails* details, const BLSendable* document) {
    if (details != nullptr) {
        details->amount = amount;
        details->percentage = percentage;
    }
    if (percentage.isNaN()) {
        return Decimal();
    }
    const bool negative = percentage.isNegative();
    const Decimal positive = negative ? percentage.invert() : percentage;
    Decimal tax = amount / (positive + Decimal::hundred()) * positive;
    const BLCurrency* currency = document != nullptr ? document->currency() : nullptr;
    tax = currency != nullptr ? currency->roundCost(tax, amount) : tax.fixedValue();
    if (negative) {
        tax = tax.invert();
    }
    if (details != nullptr) {
        details->tax = tax;
    }
    return tax;
}

Decimal decimalNumberByDeductingPercentage(const Decimal& value, const Decimal& percentage,
                                           const BLSendable* document) {
    BLTaxDetails blank;
    blank.document = document;
    return value - decimalNumberCalculatePercentage(value, percentage, &blank);
}

Decimal decimalNumberByAddingPercentage(const Decimal& value, const Decimal& percentage, const BLSendable* document) {
    BLTaxDetails blank;
    blank.document = document;
    return value + decimalNumberCalculatePercentage(value, percentage, &blank);
}

void BLTaxRule::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("taxExemptions", [](const ManagedObject&) -> Value {
        std::optional<std::vector<Value::Dictionary>> exemptions = taxExemptions();
        if (!exemptions) {
            return Value();
        }
        Value::Array list;
        for (Value::Dictionary& exemption : *exemptions) {
            list.emplace_back(std::move(exemption));
        }
        return Value(std::move(list));
    });
    entity.registerDerivedProperty("taxNames", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLTaxRule&>(object).taxNames());
    });
    entity.registerDerivedProperty("taxRates", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLTaxRule&>(object).taxRates());
    });
    entity.registerDerivedProperty("tableInfo", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLTaxRule&>(object).tableInfo());
    });
    entity.registerDerivedProperty("taxCategoryCode", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLTaxRule&>(object).taxCategoryCode());
    });
    entity.registerDerivedProperty("canEditTax", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLTaxRule&>(object).canEditTax());
    });
    entity.registerDerivedProperty("showTaxExemptions", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLTaxRule&>(object).showTaxExemptions());
    });
}

bool BLTaxRule::isArchived() const {
    return (clientGroup() != nullptr && clientGroup()->archivedValue()) ||
           (taxGroup() != nullptr && taxGroup()->archivedValue());
}

Decimal BLTaxRule::calculateTaxForAmount(const Decimal& amount, std::vector<BLTaxDetails>* details,
                                         const BLSendable* document) const {
    return calculate(*this, amount, details, document, netStep);
}

Decimal BLTaxRule::calculateIncludedTaxForAmount(const Decimal& amount, std::vector<BLTaxDetails>* details,
                                                 const BLSendable* document) const {
    return calculate(*this, amount, details, document, decimalNumberCalculateIncludedPercentage);
}

Decimal BLTaxRule::totalPercentageForDocument(const BLSendable* document) const {
    return calculateTaxForAmount(Decimal::hundred(), nullptr, document);
}

Decimal BLTaxRule::amountAfterDiscount(const Decimal& amount, const BLSendable* document) {
    if (document == nullptr) {
        return amount;
    }
    Decimal result = amount;
    if (std::optional<Decimal> discount = document->discount()) {
        result = decimalNumberByDeductingPercentage(amount, *discount, document);
    }
    if (const BLCurrency* currency = document->currency()) {
        result = currency->roundCost(result);
    }
    return result;
}

Decimal BLTaxRule::taxForAmount(const Decimal& amount, const BLSendable* document,
                                std::vector<BLTaxDetails>* details) const {
    const Decimal base = amountAfterDiscount(amount, document);
    // Taxes of a document are always in cents, which the slot records bring about; a
    // caller without interest in them still gets the rounded figure.
    std::vector<BLTaxDetails> scratch;
    std::vector<BLTaxDetails>* records = details != nullptr ? details : &scratch;
    if (document != nullptr && document->useGrossPricesValue()) {
        return calculateIncludedTaxForAmount(base, records, document);
    }
    return calculateTaxForAmount(base, records, document);
}

std::string BLTaxRule::taxNames() const {
    const std::array<Slot, 3> slots = slotsOf(*this);
    std::string result;
    for (int index = 0; index < activeSlots(slots); ++index) {
        if (!result.empty()) {
            result += ", ";
        }
        result += fixedAttribute(slots[index].name);
    }
    return result;
}

std::string BLTaxRule::taxRates() const {
    const std::array<Slot, 3> slots = slotsOf(*this);
    std::string result;
    for (int index = 0; index < activeSlots(slots); ++index) {
        if (!result.empty()) {
            result += "+";
        }
        result += slots[index].value.value_or(Decimal()).toString();
    }
    return result.empty() ? "0" : result;
}

std::string BLTaxRule::tableInfo() const {
    const std::array<Slot, 3> slots = slotsOf(*this);
    const int active = activeSlots(slots);
    if (active == 0) {
        return localizedString("not taxable");
    }
    std::string result = shortNumber(slots[0].value) + "%";
    for (int index = 1; index < active; ++index) {
        result += " + " + shortNumber(slots[index].value) + "%";
    }
    return result;
}

std::string BLTaxRule::taxCategoryCodeForExemption(const std::optional<std::string>& exemptionCode) {
    const std::string code = fixedAttribute(exemptionCode);
    if (code == "vatex-eu-ae") {
        return "AE";
    }
    if (code == "vatex-eu-o") {
        return "O";
    }
    if (code == "vatex-eu-ic") {
        return "K";
    }
    if (code == "vatex-eu-g") {
        return "G";
    }
    return "E";
}

std::string BLTaxRule::taxCategoryCode() const {
    return tax1modeValue() > 0 ? "S" : taxCategoryCodeForExemption(taxExemptionCode());
}

std::optional<std::vector<Value::Dictionary>> BLTaxRule::taxExemptions() {
    const std::string path = localizationResourcesDirectory() + "/VATEX.json";
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        logMessage("Tax exemptions: cannot read %@", path);
        return std::nullopt;
    }
    std::ostringstream text;
    text << file.rdbuf();
    std::string error;
    std::optional<Value> list = Value::fromJSON(text.str(), &error);
    if (!list || list->array() == nullptr) {
        logMessage("Tax exemptions: %@ is not a list: %@", path, error);
        return std::nullopt;
    }
    std::vector<Value::Dictionary> result;
    for (auto record = list->array()->rbegin(); record != list->array()->rend(); ++record) {
        const std::string code = (*record)["code"].toString();
        const std::string article = (*record)["article"].toString();
        if (code.empty() || article.empty()) {
            continue;
        }
        Value::Dictionary entry;
        entry["name"] = Value(formatMessage("%@ (%@)", localizedString(article), code));
        entry["value"] = Value(code);
        result.push_back(std::move(entry));
    }
    return result;
}

bool BLTaxRule::canEditTax() const {
    for (BLCost* cost : costs()) {
        const BLInvoice* owner = cost->invoice();
        if (owner != nullptr && owner->dateSent()) {
            return false;
        }
    }
    return true;
}

void BLTaxRule::triggerCosts() {
    if (isSyncing()) {
        return;
    }
    // A copy: re-deriving a line's rule may take it out of this rule's costs.
    for (BLCost* cost : costs().toVector()) {
        cost->updateTaxRule();
        // A line that keeps this rule has a new percentage all the same: the sums of a draft
        // above it are read again. An issued document keeps the figures it was issued with.
        const BLSendable* document = cost->sendable();
        if (document == nullptr || !document->dateSent()) {
            cost->resetCaches();
        }
    }
}

void BLTaxRule::setTax1mode(std::optional<int16_t> value) {
    gen::BLTaxRule::setTax1mode(value);
    triggerCosts();
}

void BLTaxRule::setTax2mode(std::optional<int16_t> value) {
    gen::BLTaxRule::setTax2mode(value);
    triggerCosts();
}

void BLTaxRule::setTax3mode(std::optional<int16_t> value) {
    gen::BLTaxRule::setTax3mode(value);
    triggerCosts();
}

void BLTaxRule::setTax1value(std::optional<Decimal> value) {
    gen::BLTaxRule::setTax1value(value);
    triggerCosts();
}

void BLTaxRule::setTax2value(std::optional<Decimal> value) {
    gen::BLTaxRule::setTax2value(value);
    triggerCosts();
}

void BLTaxRule::setTax3value(std::optional<Decimal> value) {
    gen::BLTaxRule::setTax3value(value);
    triggerCosts();
}

BLTaxRule* BLTaxRule::taxRuleForPercentage(const Decimal& percentage, const std::string& code,
                                           ManagedObjectContext& context) {
    FetchRequest request(kEntityName);
    if (request.setPredicateFormat("tax1name LIKE %@ AND tax1value == %@ AND tax1mode == 1",
                                   {Value(code), Value(percentage)})) {
        if (auto found = context.executeFetchRequest(request); found && !found->empty()) {
            return static_cast<BLTaxRule*>(found->front());
        }
    }
    BLTaxRule* rule = insertInManagedObjectContext(context);
    if (rule == nullptr) {
        return nullptr;
    }
    rule->setTax1name(code);
    rule->setTax1value(percentage);
    rule->setTax1mode(int16_t{1});
    return rule;
}

BLTaxRule* BLTaxRule::matrixCell(const BLClientGroup* clientGroup, const BLTaxGroup* taxGroup) {
    if (clientGroup == nullptr || taxGroup == nullptr) {
        return nullptr;
    }
    for (BLTaxRule* rule : clientGroup->taxRules()) {
        if (rule->taxGroup() == taxGroup) {
            return rule;
        }
    }
    return nullptr;
}

}  // namespace brassline
