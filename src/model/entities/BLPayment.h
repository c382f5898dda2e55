#pragma once

#include "model/entities/gen/BLPayment.h"

namespace brassline {

// An amount received for the document above it.
class BLPayment : public gen::BLPayment {
public:
    void awakeFromCreate() override;
    void fixMissingValues() override;
    bool canDelete() const override { return true; }
};

}  // namespace brassline
