#pragma once

#include "model/entities/gen/BLCost.h"

namespace brassline {

class BLCatalogItem;

// A priced line: quantity, unit price, tax rule and item group.
class BLCost : public gen::BLCost {
public:
    using BLBase::cloneWithEntityReplacements;
    static void setupClass(EntityDescription& entity);

    // The catalog item this line was made from, up the derivates chain.
    BLCatalogItem* catalogItem();
    void awakeFromCreate() override;
    void setup() override;
    void fixMissingValues() override;
    bool canDelete() const override;
    BLBase* cloneWithEntityReplacements(const EntityReplacements& replacements,
                                        const std::vector<std::string>& skip) override;
    void hasBeenClonedFrom(BLBase* source) override;
};

}  // namespace brassline
