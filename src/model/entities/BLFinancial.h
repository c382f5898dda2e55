#pragma once

#include "model/entities/gen/BLFinancial.h"

namespace brassline {

class BLFinancial : public gen::BLFinancial {};

}  // namespace brassline
