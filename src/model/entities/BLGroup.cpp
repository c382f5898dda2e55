#include "model/entities/BLGroup.h"

#include <algorithm>

#include "model/entities/BLCost.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLTaxRule.h"

namespace brassline {

namespace {

// The values in first-seen order without repeats.
std::vector<Decimal> distinctValues(const std::vector<Decimal>& values) {
    std::vector<Decimal> distinct;
    for (const Decimal& value : values) {
        if (std::find(distinct.begin(), distinct.end(), value) == distinct.end()) {
            distinct.push_back(value);
        }
    }
    return distinct;
}

}  // namespace

void BLGroup::setupClass(EntityDescription& entity) {
    // The one row a group prints: its unit, and the tax rule and item group of its first
    // line, which all its lines share.
    entity.registerDerivedProperty(
        "unit", [](const ManagedObject& o) -> Value { return Value(static_cast<const BLGroup&>(o).unitText()); });
    entity.registerDerivedProperty("taxRule", [](const ManagedObject& o) -> Value {
        std::vector<BLCost*> lines = static_cast<const BLGroup&>(o).costs();
        return Value(static_cast<Object*>(lines.empty() ? nullptr : lines.front()->taxRule()));
    });
    for (const char* key : {"itemGroup", "itemGroupForGrouping"}) {
        entity.registerDerivedProperty(key, [](const ManagedObject& o) -> Value {
            std::vector<BLCost*> lines = static_cast<const BLGroup&>(o).costs();
            return Value(static_cast<Object*>(lines.empty() ? nullptr : lines.front()->itemGroup()));
        });
    }
    entity.registerDerivedProperty("minimumDate", [](const ManagedObject& o) -> Value {
        std::optional<Date> date = static_cast<const BLGroup&>(o).minimumDate();
        return date ? Value(*date) : Value();
    });
    entity.registerDerivedProperty("maximumDate", [](const ManagedObject& o) -> Value {
        std::optional<Date> date = static_cast<const BLGroup&>(o).maximumDate();
        return date ? Value(*date) : Value();
    });
    entity.registerDerivedProperty("undiscountedAmount", [](const ManagedObject& o) -> Value {
        return Value(const_cast<BLGroup&>(static_cast<const BLGroup&>(o)).undiscountedAmount());
    });
}

std::vector<BLCost*> BLGroup::costs() const {
    std::vector<BLCost*> lines;
    for (BLContainer* child : childsArray()) {
        if (child->isKindOfEntity("Cost")) {
            lines.push_back(static_cast<BLCost*>(child));
        }
    }
    return lines;
}

Decimal BLGroup::cost() {
    // The unrounded lines are added and the total rounded once, to cents in any currency.
    // Every child adds what it gives a group: a group moved into this one adds its own
    // rounded sum, a note nothing.
    Decimal total;
    for (BLContainer* child : childsArray()) {
        if (auto* item = dynamic_cast<BLItem*>(child)) {
            total += item->costForGroup();
        }
    }
    return total.fixedValue();
}

Decimal BLGroup::undiscountedAmount() {
    Decimal total;
    for (BLCost* line : costs()) {
        total += line->undiscountedAmount();
    }
    return total;
}

Decimal BLGroup::lineUnitPrice() {
    std::vector<Decimal> prices;
    std::vector<Decimal> quantities;
    for (BLCost* line : costs()) {
        prices.push_back(line->lineUnitPrice());
        quantities.push_back(line->lineQuantity());
    }
    std::vector<Decimal> distinctPrices = distinctValues(prices);
    Decimal price;
    if (distinctPrices.size() == 1) {
        price = distinctPrices.front();
    } else if (distinctValues(quantities).size() == 1) {
        for (const Decimal& value : prices) {
            price += value;
        }
    } else {
        for (BLCost* line : costs()) {
            price += line->costForGroup();
        }
    }
    return price.fixed5DigitsValue();
}

Decimal BLGroup::lineQuantity() {
    std::vector<Decimal> prices;
    std::vector<Decimal> quantities;
    for (BLCost* line : costs()) {
        prices.push_back(line->lineUnitPrice());
        quantities.push_back(line->lineQuantity());
    }
    if (distinctValues(prices).size() == 1) {
        Decimal total;
        for (const Decimal& value : quantities) {
            total += value;
        }
        return total;
    }
    std::vector<Decimal> distinctQuantities = distinctValues(quantities);
    if (distinctQuantities.size() == 1) {
        return distinctQuantities.front();
    }
    return Decimal::one();
}

Decimal BLGroup::lineDiscount() {
    std::vector<Decimal> discounts;
    for (BLCost* line : costs()) {
        discounts.push_back(line->lineDiscount());
    }
    std::vector<Decimal> distinct = distinctValues(discounts);
    if (distinct.size() == 1) {
        return distinct.front();
    }
    Decimal undiscounted = undiscountedAmount();
    // The integer part, taken towards zero, so that a credit of -0.7 counts like 0.7.
    if (undiscounted.absoluteNumber().rounded(0, RoundingMode::Down).isZero()) {
        return {};
    }
    return Decimal::hundred() - (cost() / undiscounted * Decimal::hundred());
}

Decimal BLGroup::discountAmount() {
    return (undiscountedAmount() / Decimal::hundred() * lineDiscount()).fixedValue();
}

std::string BLGroup::unitText() const {
    std::vector<Decimal> rates;
    std::vector<std::string> units;
    for (BLCost* line : costs()) {
        Decimal rate = line->unitPrice().value_or(Decimal());
        if (std::find(rates.begin(), rates.end(), rate) == rates.end()) {
            rates.push_back(rate);
        }
        std::string unit = line->unit().value_or("");
        if (std::find(units.begin(), units.end(), unit) == units.end()) {
            units.push_back(unit);
        }
    }
    return rates.size() <= 1 && units.size() == 1 ? units.front() : std::string();
}

Decimal BLGroup::totalWeight() {
    Decimal total;
    for (BLCost* line : costs()) {
        total += line->totalWeight();
    }
    return total;
}

Decimal BLGroup::totalDiscount() {
    Decimal total;
    for (BLCost* line : costs()) {
        total += line->totalDiscount();
    }
    return total;
}

Decimal BLGroup::margin() {
    Decimal total;
    for (BLCost* line : costs()) {
        total += line->margin();
    }
    return total;
}

Decimal BLGroup::lineTaxes() {
    Decimal total;
    for (BLCost* line : costs()) {
        total += line->lineTaxes();
    }
    return total;
}

std::optional<Date> BLGroup::minimumDate() const {
    std::optional<Date> result;
    for (BLCost* line : costs()) {
        std::optional<Date> date = line->dateCreation();
        if (date && (!result || date->timeIntervalSinceReferenceDate() < result->timeIntervalSinceReferenceDate())) {
            result = date;
        }
    }
    return result;
}

std::optional<Date> BLGroup::maximumDate() const {
    std::optional<Date> result;
    for (BLCost* line : costs()) {
        std::optional<Date> date = line->dateCreation();
        if (date && (!result || date->timeIntervalSinceReferenceDate() > result->timeIntervalSinceReferenceDate())) {
            result = date;
        }
    }
    return result;
}

std::string BLGroup::collectNotes(const std::string& separator) const {
    std::vector<std::string> notes;
    for (BLCost* line : costs()) {
        std::string text = line->notes().value_or("");
        if (!text.empty() && std::find(notes.begin(), notes.end(), text) == notes.end()) {
            notes.push_back(text);
        }
    }
    std::string joined;
    for (size_t i = 0; i < notes.size(); ++i) {
        joined += (i == 0 ? "" : separator) + notes[i];
    }
    return joined;
}

void BLGroup::invertQuantities() {
    for (BLCost* line : costs()) {
        line->invertQuantities();
    }
}

}  // namespace brassline
