#pragma once

#include "model/entities/gen/BLPaymentType.h"

namespace brassline {

class BLPaymentType : public gen::BLPaymentType {};

}  // namespace brassline
