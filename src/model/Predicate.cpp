#include "model/Predicate.h"

#include <cstring>

#include <unicode/regex.h>
#include <unicode/unistr.h>

#include "core/Log.h"
#include "model/KeyPath.h"
#include "model/StringFolding.h"

namespace brassline {

namespace {

constexpr int kMaxDepth = 200;

enum class Operator : uint8_t {
    Equal,
    NotEqual,
    Less,
    LessOrEqual,
    Greater,
    GreaterOrEqual,
    Like,
    Contains,
    BeginsWith,
    EndsWith,
    Matches,
    In,
    Between,
};

enum class Modifier : uint8_t { Direct, Any, All, None };

const char* operatorText(Operator op) {
    switch (op) {
        case Operator::Equal:
            return "==";
        case Operator::NotEqual:
            return "!=";
        case Operator::Less:
            return "<";
        case Operator::LessOrEqual:
            return "<=";
        case Operator::Greater:
            return ">";
        case Operator::GreaterOrEqual:
            return ">=";
        case Operator::Like:
            return "LIKE";
        case Operator::Contains:
            return "CONTAINS";
        case Operator::BeginsWith:
            return "BEGINSWITH";
        case Operator::EndsWith:
            return "ENDSWITH";
        case Operator::Matches:
            return "MATCHES";
        case Operator::In:
            return "IN";
        case Operator::Between:
            return "BETWEEN";
    }
    return "==";
}

// Words that the language reserves; as keys they must be written with a leading '#'.
constexpr const char* kReservedWords[] = {
    "AND",
    "OR",
    "NOT",
    "ANY",
    "ALL",
    "NONE",
    "SOME",
    "IN",
    "LIKE",
    "CONTAINS",
    "BEGINSWITH",
    "ENDSWITH",
    "MATCHES",
    "BETWEEN",
    "NIL",
    "NULL",
    "TRUE",
    "FALSE",
    "YES",
    "NO",
    "SELF",
    "TRUEPREDICATE",
    "FALSEPREDICATE",
    "CAST",
    "FIRST",
    "LAST",
    "SIZE",
    "SUBQUERY",
    "FUNCTION",
    "ANYKEY",
};

bool equalsIgnoringCase(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) {
        return false;
    }
    for (size_t i = 0; i < a.size(); ++i) {
        char x = a[i] >= 'a' && a[i] <= 'z' ? static_cast<char>(a[i] - 32) : a[i];
        if (x != b[i]) {
            return false;
        }
    }
    return true;
}

bool isReservedWord(std::string_view word) {
    for (const char* reserved : kReservedWords) {
        if (equalsIgnoringCase(word, reserved)) {
            return true;
        }
    }
    return false;
}

bool isIdentifierStart(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' || static_cast<unsigned char>(c) >= 0x80;
}

bool isIdentifierChar(char c) {
    return isIdentifierStart(c) || (c >= '0' && c <= '9');
}

bool isWritableKey(std::string_view key) {
    if (key.empty() || !isIdentifierStart(key.front())) {
        return false;
    }
    for (char c : key) {
        if (!isIdentifierChar(c)) {
            return false;
        }
    }
    return true;
}

// Writes a string constant with double quotes; control characters as \uXXXX so that the
// text stays on one line and reads back unchanged.
void appendQuoted(std::string& out, std::string_view text) {
    out += '"';
    for (char c : text) {
        switch (c) {
            case '"':
                out += "\\\"";
                break;
            case '\\':
                out += "\\\\";
                break;
            case '\n':
                out += "\\n";
                break;
            case '\t':
                out += "\\t";
                break;
            case '\r':
                out += "\\r";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    static const char kHex[] = "0123456789abcdef";
                    out += "\\u00";
                    out += kHex[(c >> 4) & 0xF];
                    out += kHex[c & 0xF];
                } else {
                    out += c;
                }
        }
    }
    out += '"';
}

}  // namespace

// An operand of a comparison.
struct Expression {
    enum class Kind : uint8_t { Constant, KeyPath, Self, Variable, Aggregate };
    Kind kind = Kind::Constant;
    Value constant;
    brassline::KeyPath path;
    std::string name;  // The variable's name.
    std::vector<Expression> elements;

    const Value& evaluate(const Value& object, Value& storage) const;
    void format(std::string& out) const;
    bool substitute(const Value::Dictionary& variables);
};

struct Predicate::Node {
    enum class Kind : uint8_t { True, False, And, Or, Not, Comparison };
    Kind kind = Kind::True;
    std::vector<std::shared_ptr<const Node>> children;

    Operator op = Operator::Equal;
    Modifier modifier = Modifier::Direct;
    unsigned options = kFoldNone;
    Expression lhs;
    Expression rhs;

    // Prepared from a constant right-hand side once, not per object.
    bool hasFoldedConstant = false;
    std::string foldedConstant;
    std::shared_ptr<const icu::RegexPattern> regex;

    void prepare(std::string* error);
    bool evaluate(const Value& object) const;
    bool compareOne(const Value& left, const Value& right, bool rightIsConstant) const;
    void format(std::string& out) const;
};

namespace {

using NodePtr = std::shared_ptr<const Predicate::Node>;

// Glob matching with '*' (any run) and '?' (one code point); a backslash makes the next
// character literal. Iterative with one backtrack point, so linear in practice and never
// recursive on hostile patterns.
size_t codePointLength(std::string_view text, size_t index) {
    auto byte = static_cast<unsigned char>(text[index]);
    size_t length = byte < 0xC0 ? 1 : byte < 0xE0 ? 2 : byte < 0xF0 ? 3 : 4;
    return index + length <= text.size() ? length : text.size() - index;
}

bool likeMatches(std::string_view text, std::string_view pattern) {
    size_t t = 0;
    size_t p = 0;
    size_t starPattern = std::string_view::npos;
    size_t starText = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            starPattern = ++p;
            starText = t;
            continue;
        }
        if (p < pattern.size() && pattern[p] == '?') {
            t += codePointLength(text, t);
            ++p;
            continue;
        }
        if (p < pattern.size()) {
            size_t literal = p;
            if (pattern[literal] == '\\' && literal + 1 < pattern.size()) {
                ++literal;
            }
            size_t length = codePointLength(pattern, literal);
            if (text.compare(t, length, pattern.substr(literal, length)) == 0) {
                t += length;
                p = literal + length;
                continue;
            }
        }
        if (starPattern == std::string_view::npos) {
            return false;
        }
        starText += codePointLength(text, starText);
        t = starText;
        p = starPattern;
    }
    while (p < pattern.size() && pattern[p] == '*') {
        ++p;
    }
    return p == pattern.size();
}

std::shared_ptr<const icu::RegexPattern> compileRegex(std::string_view pattern, unsigned options, std::string* error) {
    UErrorCode status = U_ZERO_ERROR;
    UParseError parseError{};
    uint32_t flags = (options & kFoldCase) != 0 ? UREGEX_CASE_INSENSITIVE : 0;
    icu::UnicodeString text =
        icu::UnicodeString::fromUTF8(icu::StringPiece(pattern.data(), static_cast<int32_t>(pattern.size())));
    std::shared_ptr<const icu::RegexPattern> compiled(icu::RegexPattern::compile(text, flags, parseError, status));
    if (U_FAILURE(status) || !compiled) {
        if (error != nullptr) {
            *error = "invalid regular expression \"" + std::string(pattern) + "\" (" + u_errorName(status) + ")";
        }
        return nullptr;
    }
    return compiled;
}

bool regexMatches(const icu::RegexPattern& pattern, std::string_view text) {
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString subject =
        icu::UnicodeString::fromUTF8(icu::StringPiece(text.data(), static_cast<int32_t>(text.size())));
    std::unique_ptr<icu::RegexMatcher> matcher(pattern.matcher(subject, status));
    if (U_FAILURE(status) || !matcher) {
        return false;
    }
    // Patterns come from users' stored lists: a pathological one gives up (no match)
    // after roughly a second instead of hanging the caller.
    matcher->setTimeLimit(1000, status);
    bool matched = matcher->matches(status);
    return U_SUCCESS(status) && matched;
}

// The two buffers that hold folded text while a comparison runs; thread-local so that
// evaluation allocates nothing once they have grown.
std::string& leftBuffer() {
    thread_local std::string buffer;
    return buffer;
}
std::string& rightBuffer() {
    thread_local std::string buffer;
    return buffer;
}

}  // namespace

const Value& Expression::evaluate(const Value& object, Value& storage) const {
    switch (kind) {
        case Kind::Constant:
            return constant;
        case Kind::Self:
            return object;
        case Kind::KeyPath:
            storage = path.evaluate(object);
            return storage;
        case Kind::Variable:
            storage = Value();
            return storage;
        case Kind::Aggregate: {
            Value::Array values;
            values.reserve(elements.size());
            for (const auto& element : elements) {
                Value elementStorage;
                values.push_back(element.evaluate(object, elementStorage));
            }
            storage = Value(std::move(values));
            return storage;
        }
    }
    return constant;
}

namespace {

void formatConstant(std::string& out, const Value& value) {
    switch (value.type()) {
        case Value::Type::Null:
            out += "nil";
            return;
        case Value::Type::Bool:
            out += *value.boolean() ? "YES" : "NO";
            return;
        case Value::Type::Integer:
            out += std::to_string(*value.integer());
            return;
        case Value::Type::Double:
        case Value::Type::Decimal: {
            Decimal number = value.decimal() != nullptr ? *value.decimal() : Decimal::fromDouble(*value.real());
            out += number.isNaN() ? "nil" : number.toString();
            return;
        }
        case Value::Type::String:
            appendQuoted(out, *value.string());
            return;
        case Value::Type::Date:
            out += "CAST(";
            out += Decimal::fromDouble(value.date()->timeIntervalSinceReferenceDate()).toString();
            out += ", \"NSDate\")";
            return;
        case Value::Type::Array: {
            out += '{';
            bool first = true;
            for (const auto& element : *value.array()) {
                if (!first) {
                    out += ", ";
                }
                first = false;
                formatConstant(out, element);
            }
            out += '}';
            return;
        }
        default:
            out += value.description();
            return;
    }
}

void formatKeyPath(std::string& out, const KeyPath& path) {
    bool first = true;
    for (const auto& component : path.components()) {
        if (!first) {
            out += '.';
        }
        first = false;
        if (component.front() != '@' && isReservedWord(component)) {
            out += '#';
        }
        out += component;
    }
}

}  // namespace

void Expression::format(std::string& out) const {
    switch (kind) {
        case Kind::Constant:
            formatConstant(out, constant);
            return;
        case Kind::Self:
            out += "SELF";
            return;
        case Kind::KeyPath:
            formatKeyPath(out, path);
            return;
        case Kind::Variable:
            out += '$';
            out += name;
            return;
        case Kind::Aggregate: {
            out += '{';
            bool first = true;
            for (const auto& element : elements) {
                if (!first) {
                    out += ", ";
                }
                first = false;
                element.format(out);
            }
            out += '}';
            return;
        }
    }
}

// Replaces variables by constants; answers whether anything changed.
bool Expression::substitute(const Value::Dictionary& variables) {
    if (kind == Kind::Variable) {
        auto found = variables.find(name);
        constant = found == variables.end() ? Value() : found->second;
        kind = Kind::Constant;
        return true;
    }
    if (kind != Kind::Aggregate) {
        return false;
    }
    bool changed = false;
    bool allConstant = true;
    for (auto& element : elements) {
        changed = element.substitute(variables) || changed;
        allConstant = allConstant && element.kind == Kind::Constant;
    }
    if (allConstant) {
        Value::Array values;
        for (const auto& element : elements) {
            values.push_back(element.constant);
        }
        constant = Value(std::move(values));
        elements.clear();
        kind = Kind::Constant;
    }
    return changed;
}

void Predicate::Node::prepare(std::string* error) {
    hasFoldedConstant = false;
    regex.reset();
    if (kind != Kind::Comparison || rhs.kind != Expression::Kind::Constant) {
        return;
    }
    const std::string* text = rhs.constant.string();
    if (text == nullptr) {
        return;
    }
    if (op == Operator::Matches) {
        // Case is the regex engine's business; diacritics are folded on both sides.
        std::string pattern = (options & kFoldDiacritics) != 0 ? foldedString(*text, kFoldDiacritics) : *text;
        regex = compileRegex(pattern, options, error);
        return;
    }
    if (options != kFoldNone) {
        foldString(*text, options, foldedConstant);
        hasFoldedConstant = true;
    }
}

bool Predicate::Node::evaluate(const Value& object) const {
    switch (kind) {
        case Kind::True:
            return true;
        case Kind::False:
            return false;
        case Kind::And:
            for (const auto& child : children) {
                if (!child->evaluate(object)) {
                    return false;
                }
            }
            return true;
        case Kind::Or:
            for (const auto& child : children) {
                if (child->evaluate(object)) {
                    return true;
                }
            }
            return false;
        case Kind::Not:
            return !children.front()->evaluate(object);
        case Kind::Comparison:
            break;
    }
    Value leftStorage;
    Value rightStorage;
    const Value& left = lhs.evaluate(object, leftStorage);
    const Value& right = rhs.evaluate(object, rightStorage);
    bool rightIsConstant = rhs.kind == Expression::Kind::Constant;
    if (modifier == Modifier::Direct) {
        return compareOne(left, right, rightIsConstant);
    }
    // Null counts as an empty collection, a single value as a collection of one.
    const Value::Array* array = left.array();
    if (array == nullptr) {
        if (left.isNull()) {
            return modifier != Modifier::Any;
        }
        bool matched = compareOne(left, right, rightIsConstant);
        return modifier == Modifier::None ? !matched : matched;
    }
    for (const Value& element : *array) {
        bool matched = compareOne(element, right, rightIsConstant);
        if (modifier == Modifier::All && !matched) {
            return false;
        }
        if (modifier != Modifier::All && matched) {
            return modifier == Modifier::Any;
        }
    }
    return modifier != Modifier::Any;
}

namespace {

// The right-hand text, folded as the options ask, from the prepared constant when there is one.
std::string_view foldedRight(const Predicate::Node& node, const std::string& text, bool rightIsConstant) {
    if (node.options == kFoldNone) {
        return text;
    }
    if (rightIsConstant && node.hasFoldedConstant) {
        return node.foldedConstant;
    }
    foldString(text, node.options, rightBuffer());
    return rightBuffer();
}

std::string_view foldedLeft(const Predicate::Node& node, const std::string& text) {
    if (node.options == kFoldNone) {
        return text;
    }
    foldString(text, node.options, leftBuffer());
    return leftBuffer();
}

bool valuesEqual(const Value& left, const Value& right, unsigned options) {
    if (options != kFoldNone) {
        const std::string* a = left.string();
        const std::string* b = right.string();
        if (a != nullptr && b != nullptr) {
            std::string foldedA = foldedString(*a, options);
            return foldedA == foldedString(*b, options);
        }
    }
    return left == right;
}

std::partial_ordering orderValues(const Value& left, const Value& right, unsigned options) {
    if (left.isNull() || right.isNull()) {
        return std::partial_ordering::unordered;
    }
    if (options != kFoldNone) {
        const std::string* a = left.string();
        const std::string* b = right.string();
        if (a != nullptr && b != nullptr) {
            return foldedString(*a, options).compare(foldedString(*b, options)) <=> 0;
        }
    }
    return left.compare(right);
}

}  // namespace

bool Predicate::Node::compareOne(const Value& left, const Value& right, bool rightIsConstant) const {
    switch (op) {
        case Operator::Equal:
        case Operator::NotEqual: {
            bool equal;
            if (right.isNull() || left.isNull()) {
                equal = left.isNull() && right.isNull();
            } else if (left.string() != nullptr && right.string() != nullptr) {
                equal = foldedLeft(*this, *left.string()) == foldedRight(*this, *right.string(), rightIsConstant);
            } else {
                equal = left == right;
            }
            return op == Operator::Equal ? equal : !equal;
        }
        case Operator::Less:
        case Operator::LessOrEqual:
        case Operator::Greater:
        case Operator::GreaterOrEqual: {
            std::partial_ordering order = std::partial_ordering::unordered;
            if (left.string() != nullptr && right.string() != nullptr) {
                order =
                    foldedLeft(*this, *left.string()).compare(foldedRight(*this, *right.string(), rightIsConstant)) <=>
                    0;
            } else {
                order = orderValues(left, right, kFoldNone);
            }
            switch (op) {
                case Operator::Less:
                    return order < 0;
                case Operator::LessOrEqual:
                    return order <= 0;
                case Operator::Greater:
                    return order > 0;
                default:
                    return order >= 0;
            }
        }
        case Operator::Like:
        case Operator::BeginsWith:
        case Operator::EndsWith: {
            if (left.string() == nullptr || right.string() == nullptr) {
                return false;
            }
            std::string_view text = foldedLeft(*this, *left.string());
            std::string_view pattern = foldedRight(*this, *right.string(), rightIsConstant);
            if (op == Operator::Like) {
                return likeMatches(text, pattern);
            }
            if (op == Operator::BeginsWith) {
                return text.substr(0, pattern.size()) == pattern;
            }
            return text.size() >= pattern.size() && text.substr(text.size() - pattern.size()) == pattern;
        }
        case Operator::Contains: {
            if (const auto* elements = left.array()) {
                for (const Value& element : *elements) {
                    if (valuesEqual(element, right, options)) {
                        return true;
                    }
                }
                return false;
            }
            if (left.string() == nullptr || right.string() == nullptr) {
                return false;
            }
            std::string_view text = foldedLeft(*this, *left.string());
            return text.find(foldedRight(*this, *right.string(), rightIsConstant)) != std::string_view::npos;
        }
        case Operator::Matches: {
            if (left.string() == nullptr || right.string() == nullptr) {
                return false;
            }
            std::string_view subject = *left.string();
            std::string folded;
            if ((options & kFoldDiacritics) != 0) {
                folded = foldedString(subject, kFoldDiacritics);
                subject = folded;
            }
            if (rightIsConstant && regex) {
                return regexMatches(*regex, subject);
            }
            std::string pattern =
                (options & kFoldDiacritics) != 0 ? foldedString(*right.string(), kFoldDiacritics) : *right.string();
            auto compiled = compileRegex(pattern, options, nullptr);
            return compiled && regexMatches(*compiled, subject);
        }
        case Operator::In: {
            if (const auto* elements = right.array()) {
                for (const Value& element : *elements) {
                    if (valuesEqual(left, element, options)) {
                        return true;
                    }
                }
                return false;
            }
            if (const auto* dictionary = right.dictionary()) {
                for (const auto& [key, element] : *dictionary) {
                    if (valuesEqual(left, element, options)) {
                        return true;
                    }
                }
                return false;
            }
            if (left.string() != nullptr && right.string() != nullptr) {
                std::string_view needle = foldedLeft(*this, *left.string());
                return foldedRight(*this, *right.string(), rightIsConstant).find(needle) != std::string_view::npos;
            }
            return false;
        }
        case Operator::Between: {
            const auto* bounds = right.array();
            if (bounds == nullptr || bounds->size() != 2) {
                return false;
            }
            return orderValues(left, (*bounds)[0], options) >= 0 && orderValues(left, (*bounds)[1], options) <= 0;
        }
    }
    return false;
}

void Predicate::Node::format(std::string& out) const {
    switch (kind) {
        case Kind::True:
            out += "TRUEPREDICATE";
            return;
        case Kind::False:
            out += "FALSEPREDICATE";
            return;
        case Kind::Not: {
            // Parentheses only where precedence needs them, so that the canonical text never
            // nests deeper than the text it came from (and stays within the parser's limit).
            bool wrap = children.front()->kind == Kind::And || children.front()->kind == Kind::Or;
            out += wrap ? "NOT (" : "NOT ";
            children.front()->format(out);
            if (wrap) {
                out += ')';
            }
            return;
        }
        case Kind::And:
        case Kind::Or: {
            bool first = true;
            for (const auto& child : children) {
                if (!first) {
                    out += kind == Kind::And ? " AND " : " OR ";
                }
                first = false;
                // AND binds tighter than OR: an AND inside an OR needs no parentheses; any
                // other compound inside a compound came from parentheses and keeps them.
                bool wrap = (child->kind == Kind::And && kind == Kind::And) || child->kind == Kind::Or;
                if (wrap) {
                    out += '(';
                }
                child->format(out);
                if (wrap) {
                    out += ')';
                }
            }
            return;
        }
        case Kind::Comparison:
            break;
    }
    switch (modifier) {
        case Modifier::Any:
            out += "ANY ";
            break;
        case Modifier::All:
            out += "ALL ";
            break;
        case Modifier::None:
            out += "NONE ";
            break;
        case Modifier::Direct:
            break;
    }
    lhs.format(out);
    out += ' ';
    out += operatorText(op);
    if (options != kFoldNone) {
        out += '[';
        if ((options & kFoldCase) != 0) {
            out += 'c';
        }
        if ((options & kFoldDiacritics) != 0) {
            out += 'd';
        }
        out += ']';
    }
    out += ' ';
    rhs.format(out);
}

namespace {

// Recursive descent over the format text. Every error records the first problem with
// its byte position; parsing stops there.
class Parser {
public:
    Parser(std::string_view text, const std::vector<Value>& arguments) : m_text(text), m_arguments(arguments) {}

    NodePtr parseAll() {
        NodePtr root = parseOr();
        if (!root) {
            return nullptr;
        }
        skipBlanks();
        if (m_position < m_text.size()) {
            return fail("the end of the predicate");
        }
        return root;
    }
    const std::string& error() const { return m_error; }

private:
    NodePtr fail(std::string_view expected) {
        if (m_error.empty()) {
            skipBlanks();
            m_error = "position ";
            m_error.append(std::to_string(m_position)).append(": expected ").append(expected).append(", found ");
            if (m_position < m_text.size()) {
                m_error.append("'").append(m_text.substr(m_position, 12)).append("'");
            } else {
                m_error.append("the end of the text");
            }
        }
        return nullptr;
    }
    NodePtr failWith(std::string message) {
        if (m_error.empty()) {
            m_error = "position " + std::to_string(m_position) + ": " + message;
        }
        return nullptr;
    }

    void skipBlanks() {
        while (m_position < m_text.size() && (m_text[m_position] == ' ' || m_text[m_position] == '\t' ||
                                              m_text[m_position] == '\n' || m_text[m_position] == '\r')) {
            ++m_position;
        }
    }

    // Whether a symbol comes next (consumed if so).
    bool acceptSymbol(std::string_view symbol) {
        skipBlanks();
        if (m_text.substr(m_position, symbol.size()) == symbol) {
            m_position += symbol.size();
            return true;
        }
        return false;
    }

    // The identifier at the position, without consuming it.
    std::string_view peekWord() {
        skipBlanks();
        size_t end = m_position;
        if (end < m_text.size() && isIdentifierStart(m_text[end])) {
            while (end < m_text.size() && isIdentifierChar(m_text[end])) {
                ++end;
            }
        }
        return m_text.substr(m_position, end - m_position);
    }

    bool acceptKeyword(std::string_view keyword) {
        std::string_view word = peekWord();
        if (!word.empty() && equalsIgnoringCase(word, keyword)) {
            m_position += word.size();
            return true;
        }
        return false;
    }

    struct DepthGuard {
        explicit DepthGuard(int& depth) : m_depth(depth) { ++m_depth; }
        ~DepthGuard() { --m_depth; }
        int& m_depth;
    };

    bool tooDeep() {
        if (m_depth > kMaxDepth) {
            failWith("nesting deeper than " + std::to_string(kMaxDepth) + " levels");
            return true;
        }
        return false;
    }

    NodePtr makeCompound(Predicate::Node::Kind kind, std::vector<NodePtr> children) {
        if (children.size() == 1) {
            return children.front();
        }
        auto node = std::make_shared<Predicate::Node>();
        node->kind = kind;
        node->children = std::move(children);
        return node;
    }

    NodePtr parseOr() {
        std::vector<NodePtr> children;
        do {
            NodePtr child = parseAnd();
            if (!child) {
                return nullptr;
            }
            children.push_back(std::move(child));
        } while (acceptKeyword("OR") || acceptSymbol("||"));
        return makeCompound(Predicate::Node::Kind::Or, std::move(children));
    }

    NodePtr parseAnd() {
        std::vector<NodePtr> children;
        do {
            NodePtr child = parseNot();
            if (!child) {
                return nullptr;
            }
            children.push_back(std::move(child));
        } while (acceptKeyword("AND") || acceptSymbol("&&"));
        return makeCompound(Predicate::Node::Kind::And, std::move(children));
    }

    NodePtr parseNot() {
        DepthGuard guard(m_depth);
        if (tooDeep()) {
            return nullptr;
        }
        skipBlanks();
        bool negated = acceptKeyword("NOT");
        if (!negated && m_text.substr(m_position, 1) == "!" && m_text.substr(m_position, 2) != "!=") {
            ++m_position;
            negated = true;
        }
        if (negated) {
            NodePtr child = parseNot();
            if (!child) {
                return nullptr;
            }
            auto node = std::make_shared<Predicate::Node>();
            node->kind = Predicate::Node::Kind::Not;
            node->children.push_back(std::move(child));
            return node;
        }
        return parsePrimary();
    }

    NodePtr parsePrimary() {
        if (acceptSymbol("(")) {
            NodePtr inner = parseOr();
            if (!inner) {
                return nullptr;
            }
            if (!acceptSymbol(")")) {
                return fail("')'");
            }
            return inner;
        }
        if (acceptKeyword("TRUEPREDICATE")) {
            auto node = std::make_shared<Predicate::Node>();
            node->kind = Predicate::Node::Kind::True;
            return node;
        }
        if (acceptKeyword("FALSEPREDICATE")) {
            auto node = std::make_shared<Predicate::Node>();
            node->kind = Predicate::Node::Kind::False;
            return node;
        }
        return parseComparison();
    }

    NodePtr parseComparison() {
        auto node = std::make_shared<Predicate::Node>();
        node->kind = Predicate::Node::Kind::Comparison;
        if (acceptKeyword("ANY") || acceptKeyword("SOME")) {
            node->modifier = Modifier::Any;
        } else if (acceptKeyword("ALL")) {
            node->modifier = Modifier::All;
        } else if (acceptKeyword("NONE")) {
            node->modifier = Modifier::None;
        }
        if (!parseExpression(node->lhs)) {
            return nullptr;
        }
        if (!parseOperator(*node)) {
            return nullptr;
        }
        if (!parseOptions(*node)) {
            return nullptr;
        }
        if (!parseExpression(node->rhs)) {
            return nullptr;
        }
        if (node->op == Operator::Between && node->rhs.kind == Expression::Kind::Constant) {
            const auto* bounds = node->rhs.constant.array();
            if (bounds == nullptr || bounds->size() != 2) {
                return failWith("BETWEEN needs two bounds, as in {1, 5}");
            }
        }
        std::string regexError;
        node->prepare(&regexError);
        if (!regexError.empty()) {
            return failWith(regexError);
        }
        return node;
    }

    bool parseOperator(Predicate::Node& node) {
        skipBlanks();
        struct Symbol {
            std::string_view text;
            Operator op;
        };
        static constexpr Symbol kSymbols[] = {
            {"==", Operator::Equal},          {"!=", Operator::NotEqual},    {"<>", Operator::NotEqual},
            {"<=", Operator::LessOrEqual},    {"=<", Operator::LessOrEqual}, {">=", Operator::GreaterOrEqual},
            {"=>", Operator::GreaterOrEqual}, {"=", Operator::Equal},        {"<", Operator::Less},
            {">", Operator::Greater},
        };
        for (const auto& symbol : kSymbols) {
            if (m_text.substr(m_position, symbol.text.size()) == symbol.text) {
                m_position += symbol.text.size();
                node.op = symbol.op;
                return true;
            }
        }
        struct Word {
            std::string_view text;
            Operator op;
        };
        static constexpr Word kWords[] = {
            {"LIKE", Operator::Like},         {"CONTAINS", Operator::Contains}, {"BEGINSWITH", Operator::BeginsWith},
            {"ENDSWITH", Operator::EndsWith}, {"MATCHES", Operator::Matches},   {"IN", Operator::In},
            {"BETWEEN", Operator::Between},
        };
        for (const auto& word : kWords) {
            if (acceptKeyword(word.text)) {
                node.op = word.op;
                return true;
            }
        }
        fail(
            "a comparison operator (==, !=, <, <=, >, >=, LIKE, CONTAINS, BEGINSWITH, ENDSWITH, MATCHES, IN, BETWEEN)");
        return false;
    }

    bool parseOptions(Predicate::Node& node) {
        // Options follow the operator directly: "CONTAINS[cd]".
        if (m_position >= m_text.size() || m_text[m_position] != '[') {
            return true;
        }
        ++m_position;
        while (m_position < m_text.size() && m_text[m_position] != ']') {
            char c = m_text[m_position];
            if (c == 'c' || c == 'C') {
                node.options |= kFoldCase;
            } else if (c == 'd' || c == 'D') {
                node.options |= kFoldDiacritics;
            } else if (c != 'n' && c != 'N' && c != 'l' && c != 'L') {
                fail("an option letter c, d, n or l");
                return false;
            }
            ++m_position;
        }
        if (m_position >= m_text.size()) {
            fail("']' closing the options");
            return false;
        }
        ++m_position;
        return true;
    }

    bool nextArgument(Value& value, std::string_view conversion) {
        if (m_nextArgument >= m_arguments.size()) {
            failWith("no argument left for " + std::string(conversion) + " (" + std::to_string(m_arguments.size()) +
                     " given)");
            return false;
        }
        value = m_arguments[m_nextArgument++];
        return true;
    }

    bool parseExpression(Expression& expression) {
        DepthGuard guard(m_depth);
        if (tooDeep()) {
            return false;
        }
        skipBlanks();
        if (m_position >= m_text.size()) {
            fail("a value or key path");
            return false;
        }
        char c = m_text[m_position];
        if (c == '\'' || c == '"') {
            std::string text;
            if (!parseString(text)) {
                return false;
            }
            expression.kind = Expression::Kind::Constant;
            expression.constant = Value(std::move(text));
            return true;
        }
        if ((c >= '0' && c <= '9') || ((c == '-' || c == '+') && m_position + 1 < m_text.size() &&
                                       m_text[m_position + 1] >= '0' && m_text[m_position + 1] <= '9')) {
            return parseNumber(expression);
        }
        if (c == '{') {
            return parseAggregate(expression);
        }
        if (c == '%') {
            std::string_view conversion = m_text.substr(m_position, 2);
            m_position += conversion.size();
            Value argument;
            if (conversion == "%K") {
                if (!nextArgument(argument, conversion)) {
                    return false;
                }
                const std::string* key = argument.string();
                if (key == nullptr) {
                    failWith("the argument for %K must be a string naming a key path");
                    return false;
                }
                expression.kind = Expression::Kind::KeyPath;
                expression.path = KeyPath::parse(*key);
                if (!expression.path.isValid() || expression.path.isEmpty()) {
                    failWith("bad key path in argument for %K: " +
                             (expression.path.isValid() ? std::string("empty") : expression.path.error()));
                    return false;
                }
                // Keys must be names the language can write, so that the canonical text
                // reads back.
                for (const auto& component : expression.path.components()) {
                    if (component.front() != '@' && !isWritableKey(component)) {
                        failWith("bad key path in argument for %K: \"" + component + "\" is not a key name");
                        return false;
                    }
                }
                return true;
            }
            if (conversion == "%@" || conversion == "%d" || conversion == "%i" || conversion == "%f" ||
                conversion == "%s") {
                if (!nextArgument(argument, conversion)) {
                    return false;
                }
                expression.kind = Expression::Kind::Constant;
                expression.constant = std::move(argument);
                return true;
            }
            m_position -= conversion.size();
            fail("%@, %K, %d, %i, %f or %s");
            return false;
        }
        if (c == '$') {
            ++m_position;
            std::string_view name =
                m_position < m_text.size() && isIdentifierStart(m_text[m_position]) ? peekWord() : std::string_view();
            if (name.empty()) {
                fail("a variable name after '$'");
                return false;
            }
            m_position += name.size();
            expression.kind = Expression::Kind::Variable;
            expression.name = std::string(name);
            return true;
        }
        std::string_view word = peekWord();
        if (!word.empty()) {
            if (acceptKeyword("NIL") || acceptKeyword("NULL")) {
                expression.kind = Expression::Kind::Constant;
                expression.constant = Value();
                return true;
            }
            if (acceptKeyword("YES") || acceptKeyword("TRUE")) {
                expression.kind = Expression::Kind::Constant;
                expression.constant = Value(true);
                return true;
            }
            if (acceptKeyword("NO") || acceptKeyword("FALSE")) {
                expression.kind = Expression::Kind::Constant;
                expression.constant = Value(false);
                return true;
            }
            if (acceptKeyword("CAST")) {
                return parseCast(expression);
            }
            if (acceptKeyword("SELF")) {
                if (m_position < m_text.size() && m_text[m_position] == '.') {
                    ++m_position;
                    return parseKeyPath(expression);
                }
                expression.kind = Expression::Kind::Self;
                return true;
            }
            if (isReservedWord(word)) {
                failWith("'" + std::string(word) + "' is a reserved word; write #" + std::string(word) +
                         " to use it as a key");
                return false;
            }
        }
        if (word.empty() && c != '#' && c != '@') {
            fail("a value or key path");
            return false;
        }
        return parseKeyPath(expression);
    }

    // key ('.' key)* where a key is an identifier, '#' identifier or '@' operator.
    bool parseKeyPath(Expression& expression) {
        std::string text;
        while (true) {
            size_t start = m_position;
            if (m_position < m_text.size() && (m_text[m_position] == '#' || m_text[m_position] == '@')) {
                ++m_position;
            }
            size_t wordStart = m_position;
            if (m_position < m_text.size() && isIdentifierStart(m_text[m_position])) {
                while (m_position < m_text.size() && isIdentifierChar(m_text[m_position])) {
                    ++m_position;
                }
            }
            if (m_position == wordStart) {
                m_position = start;
                fail("a key");
                return false;
            }
            if (!text.empty()) {
                text += '.';
            }
            text += m_text.substr(start, m_position - start);
            if (m_position < m_text.size() && m_text[m_position] == '.') {
                ++m_position;
                continue;
            }
            break;
        }
        expression.kind = Expression::Kind::KeyPath;
        expression.path = KeyPath::parse(text);
        if (!expression.path.isValid()) {
            failWith(expression.path.error());
            return false;
        }
        return true;
    }

    bool parseString(std::string& text) {
        char quote = m_text[m_position];
        size_t start = m_position++;
        while (m_position < m_text.size()) {
            char c = m_text[m_position++];
            if (c == quote) {
                return true;
            }
            if (c != '\\') {
                text += c;
                continue;
            }
            if (m_position >= m_text.size()) {
                break;
            }
            char escaped = m_text[m_position++];
            switch (escaped) {
                case 'n':
                    text += '\n';
                    break;
                case 't':
                    text += '\t';
                    break;
                case 'r':
                    text += '\r';
                    break;
                case 'u': {
                    unsigned code = 0;
                    for (int i = 0; i < 4; ++i) {
                        char h = m_position < m_text.size() ? m_text[m_position] : '\0';
                        int digit = (h >= '0' && h <= '9')   ? h - '0'
                                    : (h >= 'a' && h <= 'f') ? h - 'a' + 10
                                    : (h >= 'A' && h <= 'F') ? h - 'A' + 10
                                                             : -1;
                        if (digit < 0) {
                            fail("four hexadecimal digits after \\u");
                            return false;
                        }
                        code = code * 16 + static_cast<unsigned>(digit);
                        ++m_position;
                    }
                    if (code >= 0xD800 && code < 0xE000) {
                        failWith("\\u escape of a lone surrogate");
                        return false;
                    }
                    if (code < 0x80) {
                        text += static_cast<char>(code);
                    } else if (code < 0x800) {
                        text += static_cast<char>(0xC0 | (code >> 6));
                        text += static_cast<char>(0x80 | (code & 0x3F));
                    } else {
                        text += static_cast<char>(0xE0 | (code >> 12));
                        text += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
                        text += static_cast<char>(0x80 | (code & 0x3F));
                    }
                    break;
                }
                default:
                    text += escaped;
            }
        }
        m_position = start;
        failWith("unterminated string");
        return false;
    }

    bool parseNumber(Expression& expression) {
        size_t start = m_position;
        if (m_text[m_position] == '-' || m_text[m_position] == '+') {
            ++m_position;
        }
        auto digits = [&] {
            size_t from = m_position;
            while (m_position < m_text.size() && m_text[m_position] >= '0' && m_text[m_position] <= '9') {
                ++m_position;
            }
            return m_position > from;
        };
        digits();
        if (m_position + 1 < m_text.size() && m_text[m_position] == '.' && m_text[m_position + 1] >= '0' &&
            m_text[m_position + 1] <= '9') {
            ++m_position;
            digits();
        }
        if (m_position < m_text.size() && (m_text[m_position] == 'e' || m_text[m_position] == 'E')) {
            size_t mark = m_position++;
            if (m_position < m_text.size() && (m_text[m_position] == '-' || m_text[m_position] == '+')) {
                ++m_position;
            }
            if (!digits()) {
                m_position = mark;
            }
        }
        if (m_position < m_text.size() && isIdentifierChar(m_text[m_position])) {
            fail("a number");
            return false;
        }
        std::string_view text = m_text.substr(start, m_position - start);
        std::optional<Decimal> number = Decimal::parse(text);
        if (!number || number->isNaN()) {
            m_position = start;
            failWith("number \"" + std::string(text) + "\" out of range");
            return false;
        }
        expression.kind = Expression::Kind::Constant;
        expression.constant = Value(*number);
        return true;
    }

    bool parseAggregate(Expression& expression) {
        ++m_position;  // '{'
        expression.kind = Expression::Kind::Aggregate;
        skipBlanks();
        if (!acceptSymbol("}")) {
            do {
                Expression element;
                if (!parseExpression(element)) {
                    return false;
                }
                expression.elements.push_back(std::move(element));
            } while (acceptSymbol(","));
            if (!acceptSymbol("}")) {
                fail("',' or '}' in the aggregate");
                return false;
            }
        }
        // Constant aggregates become one constant array, compared without rebuilding.
        for (const auto& element : expression.elements) {
            if (element.kind != Expression::Kind::Constant) {
                return true;
            }
        }
        Value::Array values;
        for (auto& element : expression.elements) {
            values.push_back(std::move(element.constant));
        }
        expression.elements.clear();
        expression.kind = Expression::Kind::Constant;
        expression.constant = Value(std::move(values));
        return true;
    }

    // CAST(seconds, "NSDate"): a date given as seconds since the 2001 reference date, the
    // form in which dates are written back.
    bool parseCast(Expression& expression) {
        if (!acceptSymbol("(")) {
            fail("'(' after CAST");
            return false;
        }
        // The operand is read as a number directly: a nested expression would count
        // towards the nesting limit and make written dates nest deeper than their source.
        skipBlanks();
        Expression operand;
        char first = m_position < m_text.size() ? m_text[m_position] : '\0';
        bool signedDigit = (first == '-' || first == '+') && m_position + 1 < m_text.size() &&
                           m_text[m_position + 1] >= '0' && m_text[m_position + 1] <= '9';
        if (!(first >= '0' && first <= '9') && !signedDigit) {
            failWith("CAST supports only a number to \"NSDate\"");
            return false;
        }
        if (!parseNumber(operand)) {
            return false;
        }
        if (!acceptSymbol(",")) {
            fail("',' in CAST");
            return false;
        }
        skipBlanks();
        std::string type;
        if (m_position >= m_text.size() || (m_text[m_position] != '"' && m_text[m_position] != '\'')) {
            fail("a quoted type name in CAST");
            return false;
        }
        if (!parseString(type)) {
            return false;
        }
        if (!acceptSymbol(")")) {
            fail("')' closing CAST");
            return false;
        }
        if (type != "NSDate" || operand.kind != Expression::Kind::Constant || !operand.constant.isNumber()) {
            failWith("CAST supports only a number to \"NSDate\"");
            return false;
        }
        expression.kind = Expression::Kind::Constant;
        expression.constant = Value(Date(operand.constant.toDouble()));
        return true;
    }

    std::string_view m_text;
    const std::vector<Value>& m_arguments;
    size_t m_nextArgument = 0;
    size_t m_position = 0;
    int m_depth = 0;
    std::string m_error;
};

NodePtr substituted(const NodePtr& node, const Value::Dictionary& variables) {
    if (node->kind == Predicate::Node::Kind::Comparison) {
        Expression lhs = node->lhs;
        Expression rhs = node->rhs;
        bool changed = lhs.substitute(variables);
        changed = rhs.substitute(variables) || changed;
        if (!changed) {
            return node;
        }
        auto copy = std::make_shared<Predicate::Node>(*node);
        copy->lhs = std::move(lhs);
        copy->rhs = std::move(rhs);
        copy->prepare(nullptr);
        return copy;
    }
    if (node->children.empty()) {
        return node;
    }
    auto copy = std::make_shared<Predicate::Node>(*node);
    for (auto& child : copy->children) {
        child = substituted(child, variables);
    }
    return copy;
}

}  // namespace

std::optional<Predicate> Predicate::parse(std::string_view format, const std::vector<Value>& arguments,
                                          std::string* error) {
    Parser parser(format, arguments);
    NodePtr root = parser.parseAll();
    if (!root) {
        logMessage("Predicate \"%s\" does not parse: %s", std::string(format.substr(0, 200)), parser.error());
        if (error != nullptr) {
            *error = parser.error();
        }
        return std::nullopt;
    }
    return Predicate(std::move(root));
}

Predicate Predicate::truePredicate() {
    auto node = std::make_shared<Node>();
    node->kind = Node::Kind::True;
    return Predicate(std::move(node));
}

Predicate Predicate::falsePredicate() {
    auto node = std::make_shared<Node>();
    node->kind = Node::Kind::False;
    return Predicate(std::move(node));
}

bool Predicate::evaluate(const Value& object) const {
    return m_root->evaluate(object);
}

std::string Predicate::predicateFormat() const {
    std::string out;
    m_root->format(out);
    return out;
}

Predicate Predicate::predicateWithSubstitutionVariables(const Value::Dictionary& variables) const {
    return Predicate(substituted(m_root, variables));
}

}  // namespace brassline
