#pragma once

#include "model/entities/gen/BLSummaryCost.h"

namespace brassline {

class BLSummaryCost : public gen::BLSummaryCost {};

}  // namespace brassline
