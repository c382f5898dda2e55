#pragma once

#include "model/entities/gen/BLNote.h"

namespace brassline {

// A text line; carries no money.
class BLNote : public gen::BLNote {
public:
    // Notes are printed; the internal variant says otherwise.
    bool isPrinted() const { return true; }
};

}  // namespace brassline
