#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"

namespace brassline {

// A condition in the predicate format language, parsed once and evaluated over objects
// (through key-value coding), dictionaries (member lookup) or any value as SELF.
// Comparisons (= == != <> < <= =< > >= =>, LIKE, CONTAINS, BEGINSWITH, ENDSWITH, MATCHES,
// IN, BETWEEN) with [c], [d], [cd] options; AND OR NOT && || !; ANY SOME ALL NONE over
// to-many key paths; key paths with collection operators; SELF, nil, YES/NO, numbers
// (exact Decimal), quoted strings, {..} aggregates, $variables, %@ / %K arguments,
// TRUEPREDICATE and FALSEPREDICATE. Immutable: copies share the parsed tree, and one
// predicate may be evaluated on several threads at once.
class Predicate {
public:
    struct Node;

    // Parses `format`; %@ (and %d %i %f %s) take the next argument as a constant, %K the
    // next argument (a string) as a key path. Malformed text, missing arguments or nesting
    // deeper than 200 levels give an empty optional, with the position and what was
    // expected in `error`. Never throws.
    static std::optional<Predicate> parse(std::string_view format, const std::vector<Value>& arguments = {},
                                          std::string* error = nullptr);
    static Predicate truePredicate();
    static Predicate falsePredicate();

    // Whether `object` (an object reference, a dictionary or any value) satisfies the
    // condition. Comparisons that make no sense (ordering with nil, a string with a
    // number) are false, never errors. Unsubstituted variables are null.
    bool evaluate(const Value& object) const;

    // Canonical text; parsing it again gives an equivalent predicate. Constants that the
    // language cannot write (dictionaries, bytes, object references) appear as their
    // description and do not read back.
    std::string predicateFormat() const;

    // A copy with each $NAME replaced by the dictionary's value for NAME (null when the
    // dictionary has none).
    Predicate predicateWithSubstitutionVariables(const Value::Dictionary& variables) const;

private:
    explicit Predicate(std::shared_ptr<const Node> root) : m_root(std::move(root)) {}
    std::shared_ptr<const Node> m_root;
};

}  // namespace brassline
