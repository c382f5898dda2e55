#pragma once

#include "model/entities/gen/BLExternalFile.h"

namespace brassline {

class BLExternalFile : public gen::BLExternalFile {};

}  // namespace brassline
