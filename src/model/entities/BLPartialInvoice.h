#pragma once

#include "model/entities/gen/BLPartialInvoice.h"

namespace brassline {

class BLPartialInvoice : public gen::BLPartialInvoice {};

}  // namespace brassline
