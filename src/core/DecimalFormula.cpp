#include "core/DecimalFormula.h"

#include <cctype>

namespace brassline {

namespace {

// Recursive descent over: expr := term (('+'|'-') term)*; term := unary (('*'|'/') unary)*;
// unary := ('+'|'-') unary | primary; primary := number | '(' expr ')'.
class FormulaParser {
public:
    explicit FormulaParser(std::string_view text) : m_text(text) {}

    std::optional<Decimal> parse(std::string* error) {
        std::optional<Decimal> value = expression(0);
        skipSpace();
        if (value && m_position != m_text.size()) {
            fail("unexpected '" + std::string(1, m_text[m_position]) + "'");
        }
        if (!m_error.empty()) {
            if (error) {
                *error = m_error;
            }
            return std::nullopt;
        }
        return value;
    }

private:
    // Deep nesting is refused before it can exhaust the stack.
    static constexpr int kMaxDepth = 200;

    void skipSpace() {
        while (m_position < m_text.size() && std::isspace(static_cast<unsigned char>(m_text[m_position]))) {
            ++m_position;
        }
    }

    bool consume(char c) {
        skipSpace();
        if (m_position < m_text.size() && m_text[m_position] == c) {
            ++m_position;
            return true;
        }
        return false;
    }

    std::optional<Decimal> fail(const std::string& message) {
        if (m_error.empty()) {
            m_error = message + " at position " + std::to_string(m_position + 1);
        }
        return std::nullopt;
    }

    std::optional<Decimal> expression(int depth) {
        std::optional<Decimal> left = term(depth);
        while (left) {
            if (consume('+')) {
                std::optional<Decimal> right = term(depth);
                if (!right) {
                    return std::nullopt;
                }
                *left += *right;
            } else if (consume('-')) {
                std::optional<Decimal> right = term(depth);
                if (!right) {
                    return std::nullopt;
                }
                *left -= *right;
            } else {
                break;
            }
        }
        return left;
    }

    std::optional<Decimal> term(int depth) {
        std::optional<Decimal> left = unary(depth);
        while (left) {
            if (consume('*')) {
                std::optional<Decimal> right = unary(depth);
                if (!right) {
                    return std::nullopt;
                }
                *left *= *right;
            } else if (consume('/')) {
                std::optional<Decimal> right = unary(depth);
                if (!right) {
                    return std::nullopt;
                }
                *left /= *right;
            } else {
                break;
            }
        }
        return left;
    }

    std::optional<Decimal> unary(int depth) {
        if (depth > kMaxDepth) {
            return fail("formula nested too deeply");
        }
        if (consume('-')) {
            std::optional<Decimal> value = unary(depth + 1);
            return value ? std::optional<Decimal>(-*value) : std::nullopt;
        }
        if (consume('+')) {
            return unary(depth + 1);
        }
        return primary(depth);
    }

    std::optional<Decimal> primary(int depth) {
        if (consume('(')) {
            std::optional<Decimal> value = expression(depth + 1);
            if (!value) {
                return std::nullopt;
            }
            if (!consume(')')) {
                return fail("missing ')'");
            }
            return value;
        }
        skipSpace();
        size_t start = m_position;
        while (m_position < m_text.size()) {
            char c = m_text[m_position];
            bool exponentSign = (c == '+' || c == '-') && m_position > start &&
                                (m_text[m_position - 1] == 'e' || m_text[m_position - 1] == 'E');
            if (std::isdigit(static_cast<unsigned char>(c)) || c == '.' || c == 'e' || c == 'E' || exponentSign) {
                ++m_position;
            } else {
                break;
            }
        }
        if (start == m_position) {
            return fail(m_position < m_text.size() ? "expected a number" : "unexpected end of formula");
        }
        std::string_view digits = m_text.substr(start, m_position - start);
        std::optional<Decimal> number = Decimal::parse(digits);
        if (!number) {
            m_position = start;
            return fail("malformed number '" + std::string(digits) + "'");
        }
        return number;
    }

    std::string_view m_text;
    size_t m_position = 0;
    std::string m_error;
};

}  // namespace

std::optional<Decimal> evaluateDecimalFormula(std::string_view text, std::string* error) {
    return FormulaParser(text).parse(error);
}

}  // namespace brassline
