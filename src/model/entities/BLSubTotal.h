#pragma once

#include <string>
#include <vector>

#include "model/entities/gen/BLSubTotal.h"

namespace brassline {

class BLTitle;

// A running sum line. Carries no money itself (cost 0).
class BLSubTotal : public gen::BLSubTotal {
public:
    static void setupClass(EntityDescription& entity);
    static std::string layoutIdentifier() { return "subtotal"; }
    static std::string tableCellIdentifier() { return "SubTotalEditor"; }
    // The siblings before this line after the last earlier subtotal or option.
    std::vector<BLItem*> affectedItems() override;
    // The nearest plain title above (exact class), null when there is none.
    BLTitle* titleItem() const;
    // The costs since the last subtotal, skipping option sections up to the next plain
    // title; absent and not-a-number amounts count 0.
    Decimal sum() override;
    // The summed counts of the affected lines without a time unit, as short number text
    // ("3.5"); "" when the whole part is 0.
    std::string quantityString();
};

}  // namespace brassline
