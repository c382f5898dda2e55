#pragma once

#include "model/entities/gen/BLBase.h"

namespace brassline {

class BLBase : public gen::BLBase {};

}  // namespace brassline
