#pragma once

#include "model/entities/gen/BLInternalNote.h"

namespace brassline {

// A text line that is kept with the document but never printed.
class BLInternalNote : public gen::BLInternalNote {
public:
    bool isPrinted() const { return false; }
};

}  // namespace brassline
