#pragma once

#include "model/entities/gen/BLCurrency.h"

namespace brassline {

// A currency; `name` is its ISO code, `rate` units of the default currency per unit.
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
};

}  // namespace brassline
