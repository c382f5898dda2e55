#pragma once

#include "model/entities/gen/BLProfile.h"

namespace brassline {

class BLProfile : public gen::BLProfile {};

}  // namespace brassline
