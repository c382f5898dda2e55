#pragma once

#include "model/entities/gen/BLPaymentType.h"

namespace brassline {

// A way of paying. Each `type` (absent for a plain one) has its own default.
class BLPaymentType : public gen::BLPaymentType {
public:
    static void setupClass(EntityDescription& entity);
    void awakeFromCreate() override;
    std::pair<std::string, std::vector<Value>> siblingsToRemoveDefaultPredicate() const override;
    std::vector<std::string> usageKeys() const override { return {"documents"}; }
    bool canDelete() const override { return !isDefaultValue() && documents().empty(); }
};

}  // namespace brassline
