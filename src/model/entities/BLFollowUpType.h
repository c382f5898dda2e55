#pragma once

#include "model/entities/gen/BLFollowUpType.h"

namespace brassline {

class BLFollowUpType : public gen::BLFollowUpType {};

}  // namespace brassline
