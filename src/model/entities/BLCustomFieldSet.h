#pragma once

#include "model/entities/gen/BLCustomFieldSet.h"

namespace brassline {

class BLCustomFieldSet : public gen::BLCustomFieldSet {};

}  // namespace brassline
