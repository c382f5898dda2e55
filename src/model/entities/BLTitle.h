#pragma once

#include <string>
#include <vector>

#include "model/entities/gen/BLTitle.h"

namespace brassline {

// A heading that opens a numbered section. Carries no money; its sum is the cost of the
// lines of its section.
class BLTitle : public gen::BLTitle {
public:
    virtual std::string layoutIdentifier() const { return "title"; }
    virtual std::string tableCellIdentifier() const { return "TitleEditor"; }
    // The siblings after this title up to the next title; a subtotal closing the section
    // is included and ends it.
    std::vector<BLItem*> affectedItems() override;
    // The summed time of the section's lines with a time unit, in seconds.
    int64_t duration();
};

}  // namespace brassline
