#pragma once

#include "model/entities/gen/BLExternalFileGroup.h"

namespace brassline {

class BLExternalFileGroup : public gen::BLExternalFileGroup {};

}  // namespace brassline
