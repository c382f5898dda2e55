#pragma once

#include "model/entities/gen/BLSendable.h"

namespace brassline {

class BLSendable : public gen::BLSendable {};

}  // namespace brassline
