#pragma once

#include "model/entities/gen/BLTaxGroup.h"

namespace brassline {

// A group of item groups taxed alike; one tax rule per client group.
class BLTaxGroup : public gen::BLTaxGroup {
public:
    static void setupClass(EntityDescription& entity);
    void awakeFromCreate() override;
    void setup() override;
    BLBase* duplicate() override;
    // Yes only while every rule of the group can still be edited.
    bool canEditTax() const;
    // Matrix order: the number in the name, plus 100 per item group not archived and 100
    // for the default.
    int64_t importance() const;
};

}  // namespace brassline
