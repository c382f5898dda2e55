#pragma once

#include "model/entities/gen/BLTaxRule.h"

namespace brassline {

class BLTaxRule : public gen::BLTaxRule {};

}  // namespace brassline
