// Units, durations and the typed entry of a line's numbers.
#include <algorithm>
#include <cctype>

#include "core/Log.h"
#include "core/ValueTransformers.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLCatalogItem.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLPreference.h"

namespace brassline {

namespace {

constexpr const char* kPrefTimeImporterUnit = "timeImporter.unit";

std::string lowercased(std::string text) {
    for (char& c : text) {
        c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return text;
}

std::optional<Decimal> parseTyped(std::string_view text) {
    std::string error;
    std::optional<Decimal> value = NumberTransformer(NumberStyle::Grouped).parse(text, &error);
    if (!value) {
        logMessage("Items: \"%@\" is no number: %@", std::string(text), error);
    }
    return value;
}

}  // namespace

std::vector<std::string> BLCost::timeUnits() const {
    std::vector<std::string> units;
    if (ManagedObjectContext* context = managedObjectContext()) {
        Value preferred = BLPreference::preferenceValue(*context, kPrefTimeImporterUnit);
        if (const std::string* text = preferred.string(); text != nullptr && !text->empty()) {
            units.push_back(lowercased(*text));
        }
    }
    for (const char* unit : {"h", "std", "std.", "u"}) {
        units.emplace_back(unit);
    }
    return units;
}

void BLCost::collectDuration(int64_t& seconds) {
    if (hasTimeUnit()) {
        // The float step is kept: summed durations must match what time imports wrote.
        seconds += static_cast<int64_t>(static_cast<double>(lineQuantity().toFloat()) * 3600.0);
    }
}

void BLCost::collectQuantity(Decimal& quantity) {
    if (!hasTimeUnit()) {
        quantity += lineQuantity();
    }
}

void BLCost::setRate(float value) {
    setUnitPrice(Decimal::fromDouble(static_cast<double>(value)).fixed4DigitsValue());
}

bool BLCost::setFastQuantity(std::string_view text) {
    std::optional<Decimal> value = parseTyped(text);
    if (value) {
        setQuantity(value);
    }
    return value.has_value();
}

bool BLCost::setFastDiscount(std::string_view text) {
    std::string plain(text);
    plain.erase(std::remove(plain.begin(), plain.end(), '%'), plain.end());
    std::optional<Decimal> value = parseTyped(plain);
    if (value) {
        setDiscount(value);
    }
    return value.has_value();
}

std::optional<Decimal> BLCost::catalogCostPrice() {
    BLCatalogItem* item = catalogItem();
    if (item != nullptr && item != this && item->costPrice()) {
        return item->costPrice();
    }
    return costPrice();
}

void BLCost::setCatalogCostPrice(std::optional<Decimal> value) {
    BLCatalogItem* item = catalogItem();
    if (item != nullptr && item != this) {
        item->setCostPrice(std::move(value));
    } else {
        setCostPrice(std::move(value));
    }
}

}  // namespace brassline
