#pragma once

#include "model/entities/gen/BLFollowUp.h"

namespace brassline {

// A reminder letter below an invoice. It has no currency of its own: it reads its parent's.
class BLFollowUp : public gen::BLFollowUp {
public:
    static void setupClass(EntityDescription& entity);
    BLCurrency* currency() const;
    void setCurrency(brassline::BLCurrency* value) override;
    std::optional<std::vector<std::string>> skippedProperties() const override {
        return std::vector<std::string>{"currency"};
    }
    void setup() override;
};

}  // namespace brassline
