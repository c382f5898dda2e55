#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"

namespace brassline {

// A key path parsed once and evaluated many times: keys separated by dots, resolved on
// objects through Object::valueForKey, on dictionaries by member lookup and on arrays by
// mapping the key over the elements (nested arrays stay nested). "self" is the value
// itself; "#key" escapes a key that would read as a reserved word elsewhere.
//
// Collection operators take the collection on their left and apply the rest of the path
// to each element: "childs.@sum.cost", "items.@count", "@max.date" on an array root.
// - @count: the number of elements (Integer); the rest of the path is ignored.
// - @sum, @avg: exact Decimal arithmetic over every non-null element's numeric value
//   (numbers of any type, numeric text). The sum of nothing is 0, and so is the average
//   of nothing, as the platform answers; the average divides by the non-null elements.
// - @min, @max: the least / greatest non-null element by Value::compare; null when empty.
// - @unionOfObjects / @distinctUnionOfObjects: the elements' values without nulls, the
//   latter without duplicates (first occurrence kept, so the order is deterministic).
// - @unionOfArrays / @distinctUnionOfArrays: the elements' values, which are arrays,
//   flattened by one level (nulls skipped), the latter without duplicates.
// An operator on a null value gives null. Evaluation never throws and never fails: a key
// path that did not parse (unknown operator, empty key) evaluates to null.
class KeyPath {
public:
    enum class Operator : uint8_t {
        None,
        Count,
        Sum,
        Avg,
        Min,
        Max,
        UnionOfObjects,
        DistinctUnionOfObjects,
        UnionOfArrays,
        DistinctUnionOfArrays,
    };

    KeyPath() = default;  // The empty path: evaluates to the root itself.
    // Always answers a path; isValid() and error() tell whether the text made sense.
    static KeyPath parse(std::string_view text);

    Value evaluate(const Value& root) const;

    bool isValid() const { return m_error.empty(); }
    const std::string& error() const { return m_error; }
    bool isEmpty() const { return m_segments.empty(); }
    // The path as written, normalised (no '#' escapes, no surrounding blanks).
    std::string toString() const;
    // The key names in order, operators written with their '@'.
    std::vector<std::string> components() const;

private:
    struct Segment {
        std::string key;  // Empty for an operator.
        Operator op = Operator::None;
    };
    Value evaluateFrom(const Value& value, size_t index) const;
    Value applyOperator(Operator op, const Value& collection, size_t restIndex) const;

    std::vector<Segment> m_segments;
    std::string m_error;
};

// Evaluates `keyPath` from `root` (parsing it each call: keep a KeyPath in loops).
Value valueForKeyPath(const Value& root, std::string_view keyPath);

}  // namespace brassline
