#pragma once

#include <string>

#include "model/entities/gen/BLPageBreak.h"

namespace brassline {

// A forced page break between lines; carries no money.
class BLPageBreak : public gen::BLPageBreak {
public:
    static std::string tableCellIdentifier() { return "PageBreakEditor"; }
};

}  // namespace brassline
