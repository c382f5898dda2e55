#pragma once

#include "model/entities/gen/BLCatalogItem.h"

namespace brassline {

class BLCatalogItem : public gen::BLCatalogItem {};

}  // namespace brassline
