#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "layout/BLView.h"

namespace brassline {

// The layout class table: every element class by its archived name, its superclass and
// the C++ class that stands for it (legacy names share the class of their modern form).
// Registers every class, the platform value classes and the stand-in for unknown classes
// with the shared keyed-archive registry. Idempotent; call before reading a layout.
void registerLayoutClasses();

// A fresh element of a class in the table; nullptr for a name the table doesn't hold.
ViewPtr makeView(std::string_view className);
// The superclass chain after the class, nearest first, ending in "NSObject".
std::vector<std::string> layoutSuperclassNames(std::string_view className);
bool isLayoutClassKindOf(std::string_view className, std::string_view ancestor);
// Every class name of the table (for tests and the fuzzer's dictionary).
std::vector<std::string> layoutClassNames();

}  // namespace brassline
