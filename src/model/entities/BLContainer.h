#pragma once

#include "model/entities/gen/BLContainer.h"

namespace brassline {

class BLContainer : public gen::BLContainer {};

}  // namespace brassline
