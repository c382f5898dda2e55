#pragma once

#include "model/entities/gen/BLImportRule.h"

namespace brassline {

class BLImportRule : public gen::BLImportRule {};

}  // namespace brassline
