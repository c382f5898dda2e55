#pragma once

#include "model/entities/gen/BLPayment.h"

namespace brassline {

class BLPayment : public gen::BLPayment {};

}  // namespace brassline
