#pragma once

#include "model/entities/gen/BLInvoice.h"

namespace brassline {

class BLInvoice : public gen::BLInvoice {};

}  // namespace brassline
