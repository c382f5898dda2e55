#pragma once

#include "model/entities/gen/BLSendableStorage.h"

namespace brassline {

// The frozen PDF of an issued sendable; after an unlock it belongs to a transcript.
class BLSendableStorage : public gen::BLSendableStorage {};

}  // namespace brassline
