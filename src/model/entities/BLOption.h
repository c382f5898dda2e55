#pragma once

#include <string>

#include "model/entities/BLTitle.h"
#include "model/entities/gen/BLOption.h"

namespace brassline {

// The heading of optional positions: the lines after it up to the next plain title are
// offered, not charged (on an estimate they stay out of the total).
class BLOption : public gen::BLOption {
public:
    std::string layoutIdentifier() const override { return "options"; }
    std::string tableCellIdentifier() const override { return "OptionEditor"; }
};

}  // namespace brassline
