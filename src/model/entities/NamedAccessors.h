#pragma once

#include <string>
#include <utility>
#include <vector>

namespace brassline {

// The argument-free accessors the design names on each entity class, by entity name.
// Key-value coding reaches each of them on that entity and every entity below it through
// the class's stored properties or its derived-property table: placeholders, predicates,
// sort descriptors, layouts and scripts read values by these names. A name listed here
// without its entry in a table is a fault the model's coverage test reports.
const std::vector<std::pair<std::string, std::vector<std::string>>>& namedAccessors();

}  // namespace brassline
