#pragma once

#include "model/entities/gen/BLFollowUp.h"

namespace brassline {

class BLFollowUp : public gen::BLFollowUp {};

}  // namespace brassline
