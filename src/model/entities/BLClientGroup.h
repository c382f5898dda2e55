#pragma once

#include "model/entities/gen/BLClientGroup.h"

namespace brassline {

class BLClientGroup : public gen::BLClientGroup {};

}  // namespace brassline
