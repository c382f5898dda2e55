#pragma once

#include "model/entities/gen/BLClientGroup.h"

namespace brassline {

// A group of clients with one tax rule per tax group.
class BLClientGroup : public gen::BLClientGroup {
public:
    static void setupClass(EntityDescription& entity);
    void awakeFromCreate() override;
    void setup() override;
    std::vector<std::string> usageKeys() const override { return {"clients"}; }
    std::vector<ManagedObject*> usageObjects() const override;
    // Yes only while every rule of the group can still be edited.
    bool canEditTax() const;
};

// A new tax rule for every pair that lacks one: `other` names the opposite group entity.
void addTaxRulesForGroup(BLBase& group, std::string_view otherEntity);

}  // namespace brassline
