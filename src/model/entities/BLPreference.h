#pragma once

#include "model/entities/gen/BLPreference.h"

namespace brassline {

class BLPreference : public gen::BLPreference {};

}  // namespace brassline
