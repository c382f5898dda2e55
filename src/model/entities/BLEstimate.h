#pragma once

#include "model/entities/gen/BLEstimate.h"

namespace brassline {

class BLEstimate : public gen::BLEstimate {};

}  // namespace brassline
