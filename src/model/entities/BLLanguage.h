#pragma once

#include "model/entities/gen/BLLanguage.h"

namespace brassline {

class BLLanguage : public gen::BLLanguage {};

}  // namespace brassline
