#pragma once

#include "model/entities/gen/BLSectionEnd.h"

namespace brassline {

// Ends the numbering of a title section: the costs after it count on as plain numbers
// (see BLItem::fullIndexForDocument). Carries no money.
class BLSectionEnd : public gen::BLSectionEnd {};

}  // namespace brassline
