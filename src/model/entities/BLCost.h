#pragma once

#include "model/entities/gen/BLCost.h"

namespace brassline {

class BLCost : public gen::BLCost {};

}  // namespace brassline
