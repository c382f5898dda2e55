#pragma once

#include <compare>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "core/Value.h"

namespace brassline {

// How two strings are compared when sorting. Compare orders by code point; the localized
// forms use the collation of the current locale, LocalizedStandard also orders digits by
// their numeric value ("file2" before "file10"), as a file browser does.
enum class StringComparison : uint8_t {
    Compare,
    CaseInsensitive,
    Localized,
    LocalizedCaseInsensitive,
    LocalizedStandard
};

// One sort key: a key path, a direction and how strings compare. Null sorts before every
// value when ascending (after them when descending); numbers of any type compare
// numerically; values of types that do not compare keep a fixed order by type.
struct SortDescriptor {
    std::string key;
    bool ascending = true;
    StringComparison comparison = StringComparison::Compare;

    // The ordering of two values of this key (already evaluated), direction applied.
    std::weak_ordering compareValues(const Value& a, const Value& b) const;
};

// Compares whole values (objects, dictionaries, ...) by a list of descriptors, each key
// path parsed once at construction. Usable as a less-than with std::stable_sort.
class SortComparator {
public:
    explicit SortComparator(const std::vector<SortDescriptor>& descriptors);
    ~SortComparator();
    SortComparator(const SortComparator& other);
    SortComparator& operator=(const SortComparator& other);

    std::weak_ordering compare(const Value& a, const Value& b) const;
    bool operator()(const Value& a, const Value& b) const { return compare(a, b) < 0; }
    bool operator()(Object* a, Object* b) const { return compare(Value(a), Value(b)) < 0; }

private:
    struct Impl;
    std::unique_ptr<Impl> m_impl;
};

// Stable sorts; each element's keys are evaluated once, not once per comparison.
void sortValues(std::vector<Value>& values, const std::vector<SortDescriptor>& descriptors);
void sortObjects(std::vector<Object*>& objects, const std::vector<SortDescriptor>& descriptors);

}  // namespace brassline
