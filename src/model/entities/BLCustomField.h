#pragma once

#include "model/entities/gen/BLCustomField.h"

namespace brassline {

class BLCustomField : public gen::BLCustomField {};

}  // namespace brassline
