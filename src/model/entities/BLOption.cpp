#include "model/entities/BLOption.h"

#include <type_traits>

namespace brassline {

// An option is numbered like a title and sums its section like one; the class exists so
// that the optional state can be told by the exact entity (BLItem::itemIsOptional).
static_assert(std::is_base_of_v<BLTitle, BLOption>, "an option is a title");

}  // namespace brassline
