#pragma once

#include "model/entities/gen/BLProject.h"

namespace brassline {

class BLProject : public gen::BLProject {};

}  // namespace brassline
