#pragma once

#include "model/entities/gen/BLItem.h"

namespace brassline {

// A line of a document's item tree. Its caches feed its parent's sums, so a reset climbs.
class BLItem : public gen::BLItem {
public:
    void resetCaches() override;
};

}  // namespace brassline
