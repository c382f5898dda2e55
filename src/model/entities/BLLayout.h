#pragma once

#include "model/entities/gen/BLLayout.h"

namespace brassline {

// A page layout; its archive lives in its storage.
class BLLayout : public gen::BLLayout {
public:
    using BLBase::cloneWithEntityReplacements;
    void awakeFromCreate() override;
    BLBase* clone() override;
    std::vector<std::string> usageKeys() const override {
        return {"documents", "estimateDocuments", "statementDocuments", "followUps"};
    }
    bool canDelete() const override { return usageObjects().empty(); }
};

}  // namespace brassline
