#pragma once

#include "model/entities/gen/BLSendableTemplate.h"

namespace brassline {

class BLSendableTemplate : public gen::BLSendableTemplate {};

}  // namespace brassline
