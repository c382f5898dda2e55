#pragma once

#include "model/entities/gen/BLDocument.h"

namespace brassline {

class BLDocument : public gen::BLDocument {};

}  // namespace brassline
