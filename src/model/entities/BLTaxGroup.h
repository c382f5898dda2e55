#pragma once

#include "model/entities/gen/BLTaxGroup.h"

namespace brassline {

class BLTaxGroup : public gen::BLTaxGroup {};

}  // namespace brassline
