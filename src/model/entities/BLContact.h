#pragma once

#include "model/entities/gen/BLContact.h"

namespace brassline {

class BLContact : public gen::BLContact {};

}  // namespace brassline
