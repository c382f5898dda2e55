#pragma once

#include "model/entities/gen/BLClient.h"

namespace brassline {

class BLClient : public gen::BLClient {};

}  // namespace brassline
