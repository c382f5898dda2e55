#pragma once

#include "model/entities/gen/BLFollowUpType.h"

namespace brassline {

// A kind of reminder letter: its layout, interval and mail texts.
class BLFollowUpType : public gen::BLFollowUpType {
public:
    void awakeFromCreate() override;
    void awakeFromFetch() override;
    std::vector<std::string> usageKeys() const override { return {"followUps"}; }
    bool canDelete() const override { return followUps().empty(); }
};

}  // namespace brassline
