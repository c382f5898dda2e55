#include "core/Value.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "core/ValueText.h"

namespace brassline {

namespace {

const Value& nullValue() {
    static const Value null;
    return null;
}

std::string_view trimmed(std::string_view text) {
    const auto isSpace = [](char c) {
        return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
    };
    while (!text.empty() && isSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isSpace(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// A decimal's integer part, cut toward zero the way integer conversions of the platform's
// numbers cut ("12.7" and 12.7 both give 12, "-12.7" gives -12).
int64_t truncatedInt64(const Decimal& value) {
    if (value.isNaN()) {
        return 0;
    }
    return value.rounded(0, value.isNegative() ? RoundingMode::Up : RoundingMode::Down).toInt64();
}

int64_t truncatedInt64(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    // 2^63 is exact as a double; anything at or beyond it saturates.
    if (value >= 9223372036854775808.0) {
        return std::numeric_limits<int64_t>::max();
    }
    if (value <= -9223372036854775808.0) {
        return std::numeric_limits<int64_t>::min();
    }
    return static_cast<int64_t>(value);
}

// The platform's rule for the truth of a text: after blanks, an optional sign and leading
// zeros, a first character of Y, y, T, t or a digit 1 to 9 means true.
bool textTruth(std::string_view text) {
    text = trimmed(text);
    if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && text.front() == '0') {
        text.remove_prefix(1);
    }
    if (text.empty()) {
        return false;
    }
    const char c = text.front();
    return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

// Exact comparison of an integer with a double: neither converts into the other without
// loss in general, so the double's integer part and fraction are compared separately.
std::partial_ordering compareIntegerWithDouble(int64_t integer, double real) {
    if (std::isnan(real)) {
        return std::partial_ordering::greater;  // Not-a-number orders before every number.
    }
    if (real >= 9223372036854775808.0) {
        return std::partial_ordering::less;
    }
    if (real < -9223372036854775808.0) {
        return std::partial_ordering::greater;
    }
    const auto whole = static_cast<int64_t>(real);
    if (integer != whole) {
        return integer < whole ? std::partial_ordering::less : std::partial_ordering::greater;
    }
    const double fraction = real - static_cast<double>(whole);
    if (fraction > 0) {
        return std::partial_ordering::less;
    }
    if (fraction < 0) {
        return std::partial_ordering::greater;
    }
    return std::partial_ordering::equivalent;
}

std::partial_ordering compareDoubles(double left, double right) {
    if (std::isnan(left) || std::isnan(right)) {
        if (std::isnan(left) && std::isnan(right)) {
            return std::partial_ordering::equivalent;
        }
        return std::isnan(left) ? std::partial_ordering::less : std::partial_ordering::greater;
    }
    return left <=> right;
}

// A double meets a decimal through the double's shortest text, so that 0.1 equals the
// decimal 0.1 although the double is not exactly a tenth.
std::partial_ordering compareDoubleWithDecimal(double real, const Decimal& decimal) {
    if (std::isnan(real)) {
        return decimal.isNaN() ? std::partial_ordering::equivalent : std::partial_ordering::less;
    }
    if (decimal.isNaN()) {
        return std::partial_ordering::greater;
    }
    if (std::isinf(real)) {
        return real > 0 ? std::partial_ordering::greater : std::partial_ordering::less;
    }
    const Decimal converted = Decimal::fromDouble(real);
    if (converted.isNaN()) {
        // Beyond the decimal's exponent range: the double is far larger or smaller than
        // any decimal of the same sign, and the binary comparison decides correctly.
        return real <=> decimal.toDouble();
    }
    return converted <=> decimal;
}

std::partial_ordering toPartial(std::strong_ordering ordering) {
    return ordering;
}

std::partial_ordering reversed(std::partial_ordering ordering) {
    if (ordering == std::partial_ordering::less) {
        return std::partial_ordering::greater;
    }
    if (ordering == std::partial_ordering::greater) {
        return std::partial_ordering::less;
    }
    return ordering;
}

std::partial_ordering compareBytes(const Bytes& left, const Bytes& right) {
    const size_t common = std::min(left.size(), right.size());
    const int result = common == 0 ? 0 : std::memcmp(left.data(), right.data(), common);
    if (result != 0) {
        return result < 0 ? std::partial_ordering::less : std::partial_ordering::greater;
    }
    return left.size() <=> right.size();
}

}  // namespace

namespace valuetext {

std::string doubleText(double value) {
    if (std::isnan(value)) {
        return "nan";
    }
    if (std::isinf(value)) {
        return value > 0 ? "inf" : "-inf";
    }
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

std::string quoted(std::string_view text) {
    std::string out;
    out.reserve(text.size() + 2);
    out.push_back('"');
    for (const char c : text) {
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
            case '\r':
                out += "\\r";
                break;
            case '\t':
                out += "\\t";
                break;
            default:
                if (static_cast<unsigned char>(c) < 0x20) {
                    static const char* const kHex = "0123456789abcdef";
                    out += "\\u00";
                    out.push_back(kHex[(c >> 4) & 0xF]);
                    out.push_back(kHex[c & 0xF]);
                } else {
                    out.push_back(c);
                }
        }
    }
    out.push_back('"');
    return out;
}

std::string base64(const Bytes& bytes) {
    static const char* const kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string out;
    out.reserve((bytes.size() + 2) / 3 * 4);
    size_t i = 0;
    for (; i + 2 < bytes.size(); i += 3) {
        const uint32_t chunk = (uint32_t{bytes[i]} << 16) | (uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
        out.push_back(kAlphabet[(chunk >> 18) & 63]);
        out.push_back(kAlphabet[(chunk >> 12) & 63]);
        out.push_back(kAlphabet[(chunk >> 6) & 63]);
        out.push_back(kAlphabet[chunk & 63]);
    }
    if (i < bytes.size()) {
        const bool two = i + 1 < bytes.size();
        const uint32_t chunk = (uint32_t{bytes[i]} << 16) | (two ? uint32_t{bytes[i + 1]} << 8 : 0);
        out.push_back(kAlphabet[(chunk >> 18) & 63]);
        out.push_back(kAlphabet[(chunk >> 12) & 63]);
        out.push_back(two ? kAlphabet[(chunk >> 6) & 63] : '=');
        out.push_back('=');
    }
    return out;
}

}  // namespace valuetext

Value::Value(Bytes value) : m_data(std::make_shared<const Bytes>(std::move(value))) {}
Value::Value(Array value) : m_data(std::make_shared<const Array>(std::move(value))) {}
Value::Value(Dictionary value) : m_data(std::make_shared<const Dictionary>(std::move(value))) {}
Value::Value(Object* object) {
    if (object != nullptr) {
        m_data = ObjectRef{object};
    }
}

bool Value::isNumber() const {
    const Type t = type();
    return t == Type::Bool || t == Type::Integer || t == Type::Double || t == Type::Decimal;
}

const Bytes* Value::bytes() const {
    const auto* held = std::get_if<std::shared_ptr<const Bytes>>(&m_data);
    return held != nullptr ? held->get() : nullptr;
}

const Value::Array* Value::array() const {
    const auto* held = std::get_if<std::shared_ptr<const Array>>(&m_data);
    return held != nullptr ? held->get() : nullptr;
}

const Value::Dictionary* Value::dictionary() const {
    const auto* held = std::get_if<std::shared_ptr<const Dictionary>>(&m_data);
    return held != nullptr ? held->get() : nullptr;
}

Object* Value::object() const {
    const auto* held = std::get_if<ObjectRef>(&m_data);
    return held != nullptr ? held->object : nullptr;
}

const void* Value::sharedIdentity() const {
    if (const auto* held = std::get_if<std::shared_ptr<const Bytes>>(&m_data)) {
        return held->get();
    }
    if (const auto* held = std::get_if<std::shared_ptr<const Array>>(&m_data)) {
        return held->get();
    }
    if (const auto* held = std::get_if<std::shared_ptr<const Dictionary>>(&m_data)) {
        return held->get();
    }
    return nullptr;
}

bool Value::toBool() const {
    switch (type()) {
        case Type::Bool:
            return *boolean();
        case Type::Integer:
            return *integer() != 0;
        case Type::Double:
            return *real() != 0.0 && !std::isnan(*real());
        case Type::Decimal:
            return !decimal()->isZero() && !decimal()->isNaN();
        case Type::String:
            return textTruth(*string());
        default:
            return false;
    }
}

int64_t Value::toInt64() const {
    switch (type()) {
        case Type::Bool:
            return *boolean() ? 1 : 0;
        case Type::Integer:
            return *integer();
        case Type::Double:
            return truncatedInt64(*real());
        case Type::Decimal:
            return truncatedInt64(*decimal());
        case Type::String: {
            const std::string_view text = trimmed(*string());
            int64_t whole = 0;
            const auto result = std::from_chars(text.data(), text.data() + text.size(), whole);
            if (result.ec == std::errc() && result.ptr == text.data() + text.size()) {
                return whole;
            }
            const auto parsed = Decimal::parse(text);
            return parsed ? truncatedInt64(*parsed) : 0;
        }
        default:
            return 0;
    }
}

double Value::toDouble() const {
    switch (type()) {
        case Type::Bool:
            return *boolean() ? 1.0 : 0.0;
        case Type::Integer:
            return static_cast<double>(*integer());
        case Type::Double:
            return *real();
        case Type::Decimal:
            return decimal()->toDouble();
        case Type::String: {
            std::string_view text = trimmed(*string());
            if (!text.empty() && text.front() == '+') {
                text.remove_prefix(1);
            }
            double parsed = 0.0;
            const auto result = std::from_chars(text.data(), text.data() + text.size(), parsed);
            if (result.ec == std::errc() && result.ptr == text.data() + text.size() && !text.empty()) {
                return parsed;
            }
            return 0.0;
        }
        default:
            return 0.0;
    }
}

Decimal Value::toDecimal() const {
    switch (type()) {
        case Type::Bool:
            return Decimal(int64_t{*boolean() ? 1 : 0});
        case Type::Integer:
            return Decimal(*integer());
        case Type::Double:
            return Decimal::fromDouble(*real());
        case Type::Decimal:
            return *decimal();
        case Type::String:
            return Decimal::parse(trimmed(*string())).value_or(Decimal());
        default:
            return Decimal();
    }
}

std::string Value::toString() const {
    switch (type()) {
        case Type::Null:
            return {};
        case Type::Bool:
            return *boolean() ? "1" : "0";
        case Type::Integer:
            return std::to_string(*integer());
        case Type::Double:
            return valuetext::doubleText(*real());
        case Type::Decimal:
            return decimal()->toString();
        case Type::String:
            return *string();
        case Type::Date:
            return date()->iso8601String();
        default:
            return description();
    }
}

std::string Value::description() const {
    switch (type()) {
        case Type::Null:
            return "null";
        case Type::Bool:
            return *boolean() ? "true" : "false";
        case Type::String:
            return valuetext::quoted(*string());
        case Type::Bytes: {
            static const char* const kHex = "0123456789abcdef";
            std::string out = "<";
            for (const uint8_t byte : *bytes()) {
                out.push_back(kHex[byte >> 4]);
                out.push_back(kHex[byte & 0xF]);
            }
            out += ">";
            return out;
        }
        case Type::Array: {
            std::string out = "[";
            bool first = true;
            for (const Value& element : *array()) {
                out += first ? "" : ", ";
                out += element.description();
                first = false;
            }
            return out + "]";
        }
        case Type::Dictionary: {
            std::string out = "{";
            bool first = true;
            for (const auto& [key, element] : *dictionary()) {
                out += first ? "" : ", ";
                out += valuetext::quoted(key);
                out += ": ";
                out += element.description();
                first = false;
            }
            return out + "}";
        }
        case Type::Object: {
            // Built by appending: g++ 12 misreads `"<" + std::string(...)` under -O3 as an
            // overlapping copy (-Wrestrict), which CI's -Werror would turn into a failure.
            std::string out = "<";
            out += object()->className();
            out += '>';
            return out;
        }
        default:
            return toString();
    }
}

const Value& Value::operator[](std::string_view key) const {
    if (const Dictionary* members = dictionary()) {
        const auto found = members->find(key);
        if (found != members->end()) {
            return found->second;
        }
    }
    return nullValue();
}

const Value& Value::operator[](size_t index) const {
    if (const Array* elements = array(); elements != nullptr && index < elements->size()) {
        return (*elements)[index];
    }
    return nullValue();
}

size_t Value::count() const {
    if (const Array* elements = array()) {
        return elements->size();
    }
    if (const Dictionary* members = dictionary()) {
        return members->size();
    }
    return 0;
}

namespace {

std::partial_ordering compareNumbers(const Value& left, const Value& right) {
    using Type = Value::Type;
    const auto integerOf = [](const Value& v) {
        return v.type() == Type::Bool ? int64_t{*v.boolean() ? 1 : 0} : *v.integer();
    };
    const auto isIntegral = [](const Value& v) { return v.type() == Type::Bool || v.type() == Type::Integer; };
    if (isIntegral(left)) {
        if (isIntegral(right)) {
            return integerOf(left) <=> integerOf(right);
        }
        if (right.type() == Type::Double) {
            return compareIntegerWithDouble(integerOf(left), *right.real());
        }
        return toPartial(Decimal(integerOf(left)) <=> *right.decimal());
    }
    if (left.type() == Type::Double) {
        if (isIntegral(right)) {
            return reversed(compareIntegerWithDouble(integerOf(right), *left.real()));
        }
        if (right.type() == Type::Double) {
            return compareDoubles(*left.real(), *right.real());
        }
        return compareDoubleWithDecimal(*left.real(), *right.decimal());
    }
    if (right.type() == Type::Decimal) {
        return toPartial(*left.decimal() <=> *right.decimal());
    }
    return reversed(compareNumbers(right, left));
}

}  // namespace

bool Value::operator==(const Value& other) const {
    if (isNumber() && other.isNumber()) {
        return compareNumbers(*this, other) == std::partial_ordering::equivalent;
    }
    if (type() != other.type()) {
        return false;
    }
    switch (type()) {
        case Type::Null:
            return true;
        case Type::String:
            return *string() == *other.string();
        case Type::Date:
            return *date() == *other.date();
        case Type::Bytes:
            return *bytes() == *other.bytes();
        case Type::Array:
            return array() == other.array() || *array() == *other.array();
        case Type::Dictionary:
            return dictionary() == other.dictionary() || *dictionary() == *other.dictionary();
        case Type::Object:
            return object() == other.object();
        default:
            return false;
    }
}

std::partial_ordering Value::compare(const Value& other) const {
    if (isNumber() && other.isNumber()) {
        return compareNumbers(*this, other);
    }
    if (type() != other.type()) {
        return std::partial_ordering::unordered;
    }
    switch (type()) {
        case Type::String: {
            // std::string compares through char_traits<char>, which orders bytes as unsigned:
            // byte order of UTF-8 is code point order.
            const int result = string()->compare(*other.string());
            return result < 0 ? std::partial_ordering::less
                              : (result > 0 ? std::partial_ordering::greater : std::partial_ordering::equivalent);
        }
        case Type::Date:
            return date()->timeIntervalSinceReferenceDate() <=> other.date()->timeIntervalSinceReferenceDate();
        case Type::Bytes:
            return compareBytes(*bytes(), *other.bytes());
        default:
            return *this == other ? std::partial_ordering::equivalent : std::partial_ordering::unordered;
    }
}

}  // namespace brassline
