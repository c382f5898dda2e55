#pragma once

#include "model/entities/gen/BLPartialInvoice.h"

namespace brassline {

// A part of an invoice's amount, invoiced on its own.
class BLPartialInvoice : public gen::BLPartialInvoice {
public:
    BLBase* duplicate() override;
};

}  // namespace brassline
