#pragma once

#include "model/entities/gen/BLCatalogItem.h"

namespace brassline {

// An article of the catalog; lines are cloned from it.
class BLCatalogItem : public gen::BLCatalogItem {
public:
    void setup() override;
    void awakeFromFetch() override;
};

}  // namespace brassline
