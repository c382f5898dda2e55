#pragma once

#include "model/entities/gen/BLCurrency.h"

namespace brassline {

class BLCurrency : public gen::BLCurrency {};

}  // namespace brassline
