#pragma once

#include "model/entities/gen/BLLayout.h"

namespace brassline {

class BLLayout : public gen::BLLayout {};

}  // namespace brassline
