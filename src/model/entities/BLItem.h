#pragma once

#include "model/entities/gen/BLItem.h"

namespace brassline {

class BLItem : public gen::BLItem {};

}  // namespace brassline
