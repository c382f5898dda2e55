#pragma once

#include <optional>
#include <string>
#include <vector>

#include "core/Value.h"
#include "model/entities/gen/BLCurrency.h"

namespace brassline {

// How amounts round in a currency: plain rounding at `scale` fraction digits, or no
// rounding at all when `scale` is empty.
struct RoundingBehavior {
    std::optional<int> scale;
    Decimal apply(const Decimal& value) const { return scale ? value.rounded(*scale) : value; }
    bool operator==(const RoundingBehavior&) const = default;
};

// A currency; `name` is its ISO code, `rate` units of the default currency per unit.
//
// Items round with it: a line's `cost` is `document currency->round(costForGroup)` (the
// behaviour, so a Swiss line keeps its cents); sums payable go through `roundCost`, which
// takes Swiss francs to 0.05. Without a currency an amount stays unrounded.
class BLCurrency : public gen::BLCurrency {
public:
    static void setupClass(EntityDescription& entity);
    // The default currency, named after the current locale's currency when it has no name.
    static BLCurrency* defaultItemForContext(ManagedObjectContext& context) {
        return BLContainer::defaultItemForContext<BLCurrency>(context);
    }
    void setup() override;
    void setIsDefault(std::optional<bool> value) override;
    std::vector<std::string> usageKeys() const override { return {"documents"}; }
    bool canDelete() const override { return !isDefaultValue() && documents().empty(); }

    // The rounding behaviour by the ISO minor units, the currency table and `format`
    // ("nodecimals"); a "noRounding" currency takes the digits of `reference`, or doesn't
    // round at all without one. Cached unless "noRounding".
    RoundingBehavior roundingBehavior() const { return roundingBehaviorAccordingTo(std::nullopt); }
    RoundingBehavior roundingBehaviorAccordingTo(const std::optional<Decimal>& reference) const;
    // `value` rounded by the behaviour (line amounts).
    Decimal round(const Decimal& value) const { return roundingBehavior().apply(value); }
    // An amount payable: Swiss francs to 0.05 (reference ignored), others by the behaviour.
    Decimal roundCost(const Decimal& value) const { return roundCost(value, std::nullopt); }
    Decimal roundCost(const Decimal& value, const std::optional<Decimal>& reference) const;
    static Decimal decimalNumberByRoundingToCHF(const Decimal& value);
    static Decimal decimalNumberByRoundingToSEK(const Decimal& value);

    // value × own rate ÷ target's rate in double precision, to 2 digits, then `roundCost`
    // of the target; unchanged for no target, the same currency or an own rate of 0.
    Decimal convertValue(const Decimal& value, const BLCurrency* target) const;
    Decimal convertValueToDefaultCurrency(const Decimal& value);

    std::string shortName() const { return fixedAttribute(name()); }
    // The ISO code with "EUR" as "€" and "USD" as "$".
    std::string fixedName() const;
    std::string displayName() const override { return fixedAttribute(name()); }
    std::string symbolOrName() const;

    // The currency with that code, made (symbol from the table, rate 1) when missing.
    static BLCurrency* currencyWithISOCode(const std::string& isoCode, ManagedObjectContext& context);
    // The currency marked default, else a new one with the default uid (named "Default").
    static BLCurrency* defaultCurrencyForObject(ManagedObjectContext& context);
    // Files of older versions kept only a short name: it becomes the name, and the uid
    // "currency.<name>".
    void migrateShortName(const std::string& shortName);
    // The picker list: each common ISO code ("name", "symbol", "displayName"), then the
    // table's entries with a "displayName" that the platform lacks.
    static std::vector<Value::Dictionary> currencies();
    // Repairs: same-named currencies merge into the one with most documents; documents
    // and catalog items without a currency get the default.
    static void fixDuplicateCurrencies(ManagedObjectContext& context);
    static void fixCurrencies(ManagedObjectContext& context);

private:
    struct CachedBehavior {
        std::string key;
        RoundingBehavior behavior;
    };
    mutable std::optional<CachedBehavior> m_cachedBehavior;
};

}  // namespace brassline
