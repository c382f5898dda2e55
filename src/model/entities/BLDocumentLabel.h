#pragma once

#include "model/entities/gen/BLDocumentLabel.h"

namespace brassline {

class BLDocumentLabel : public gen::BLDocumentLabel {};

}  // namespace brassline
