#pragma once

#include <compare>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/Date.h"
#include "core/Decimal.h"

namespace brassline {

class Object;

using Bytes = std::vector<uint8_t>;

// The value that key-value coding, predicates, substitution dictionaries, interchange
// records and scripts exchange. Arrays, dictionaries and bytes are shared and immutable
// once made, so copying a Value is cheap. An object reference is borrowed, never owned.
class Value {
public:
    enum class Type : uint8_t { Null, Bool, Integer, Double, Decimal, String, Date, Bytes, Array, Dictionary, Object };
    using Array = std::vector<Value>;
    using Dictionary = std::map<std::string, Value, std::less<>>;

    Value() = default;
    Value(std::nullptr_t) {}
    Value(bool value) : m_data(value) {}
    Value(int value) : m_data(int64_t{value}) {}
    Value(int64_t value) : m_data(value) {}
    Value(double value) : m_data(value) {}
    Value(const Decimal& value) : m_data(value) {}
    Value(std::string value) : m_data(std::move(value)) {}
    Value(std::string_view value) : m_data(std::string(value)) {}
    Value(const char* value) : m_data(std::string(value)) {}
    Value(Date value) : m_data(value) {}
    Value(Bytes value);
    Value(Array value);
    Value(Dictionary value);
    Value(Object* object);  // nullptr gives the null value.

    Type type() const { return static_cast<Type>(m_data.index()); }
    bool isNull() const { return type() == Type::Null; }
    bool isNumber() const;  // Bool, Integer, Double or Decimal.

    // Typed access: a null pointer when the value is of another type.
    const bool* boolean() const { return std::get_if<bool>(&m_data); }
    const int64_t* integer() const { return std::get_if<int64_t>(&m_data); }
    const double* real() const { return std::get_if<double>(&m_data); }
    const Decimal* decimal() const { return std::get_if<Decimal>(&m_data); }
    const std::string* string() const { return std::get_if<std::string>(&m_data); }
    const Date* date() const { return std::get_if<Date>(&m_data); }
    const Bytes* bytes() const;
    const Array* array() const;
    const Dictionary* dictionary() const;
    Object* object() const;
    // The address of the shared storage of bytes, arrays and dictionaries (nullptr for other
    // types): copies of one value share it, which lets archives write shared parts once.
    const void* sharedIdentity() const;

    // Conversions in the manner of the platform's number and string values: numbers
    // convert among themselves, numeric text parses, anything else gives 0 / false / "".
    bool toBool() const;
    int64_t toInt64() const;
    double toDouble() const;
    Decimal toDecimal() const;  // Double through its shortest text; bad text gives 0.
    // Text of strings and numbers (canonical decimal text, booleans "1" and "0"); dates in
    // ISO 8601; null gives ""; other types their description.
    std::string toString() const;
    // A readable rendering of any value, nested values included (for logs and tests).
    std::string description() const;

    // A dictionary member or array element; the null value when absent.
    const Value& operator[](std::string_view key) const;
    const Value& operator[](size_t index) const;
    size_t count() const;  // Elements of an array or dictionary, 0 otherwise.

    // Equality across numeric types compares numerically (1 == 1.0 == Decimal 1);
    // strings, dates, bytes, arrays and dictionaries compare by content; objects by identity.
    bool operator==(const Value& other) const;
    // Ordering where defined: numbers with numbers, strings (by code point), dates,
    // bytes; equal values of other types are equivalent, anything else unordered.
    // Not-a-number (double or decimal) orders before every number and equals itself.
    std::partial_ordering compare(const Value& other) const;

    // JSON through nlohmann: numbers with a fraction or exponent become Decimal from their
    // text when the exponent fits (beyond 38 digits rounded plainly; else double), integers
    // int64 (past int64 Decimal); dates are written as ISO 8601 text, bytes as base64 text,
    // objects as null. An empty optional for malformed JSON, with the reason in `error`.
    static std::optional<Value> fromJSON(std::string_view text, std::string* error = nullptr);
    std::string toJSON(bool pretty = false) const;

    // Property lists (XML or binary, told apart by their first bytes). Decimals are written
    // as reals when they are not whole, integers otherwise; null is not representable and
    // is left out of dictionaries and arrays (a null root gives empty output). A UID (keyed
    // archives) reads as the dictionary {"CF$UID": n}, and such a dictionary writes as a UID.
    // Dates keep microseconds in binary and whole seconds in XML, between 1933 and 2069.
    static std::optional<Value> fromPropertyList(const Bytes& data, std::string* error = nullptr);
    std::string toXMLPropertyList() const;
    Bytes toBinaryPropertyList() const;

private:
    struct ObjectRef {
        Object* object;
        bool operator==(const ObjectRef&) const = default;
    };
    std::variant<std::monostate, bool, int64_t, double, Decimal, std::string, Date, std::shared_ptr<const Bytes>,
                 std::shared_ptr<const Array>, std::shared_ptr<const Dictionary>, ObjectRef>
        m_data;
};

// The base of everything that key-value coding reaches by name: managed objects and the
// helper objects that expose derived values. Implemented by the object runtime.
class Object {
public:
    virtual ~Object() = default;
    // The value for a key; the null value for an unknown key (after the class's hook).
    virtual Value valueForKey(std::string_view key) const = 0;
    virtual std::string_view className() const = 0;
};

}  // namespace brassline
