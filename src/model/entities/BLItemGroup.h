#pragma once

#include "model/entities/gen/BLItemGroup.h"

namespace brassline {

class BLItemGroup : public gen::BLItemGroup {};

}  // namespace brassline
