#include <cmath>
#include <exception>
#include <limits>
#include <vector>

#include <nlohmann/json.hpp>

#include "core/Log.h"
#include "core/Value.h"
#include "core/ValueText.h"

namespace brassline {

namespace {

// Deeper nesting is refused: the values are destroyed recursively, and no document that
// this program reads nests anywhere near this far.
constexpr size_t kMaxJSONDepth = 512;

// Builds values from nlohmann's SAX events. The SAX interface hands every number with a
// fraction or exponent over together with its original text, which is parsed as a decimal
// so that "0.1" is exactly a tenth and long money amounts keep every digit.
class ValueBuilder {
public:
    using json = nlohmann::json;

    bool null() { return add(Value()); }
    bool boolean(bool value) { return add(Value(value)); }
    bool number_integer(json::number_integer_t value) { return add(Value(int64_t{value})); }
    bool number_unsigned(json::number_unsigned_t value) {
        if (value <= static_cast<uint64_t>(std::numeric_limits<int64_t>::max())) {
            return add(Value(static_cast<int64_t>(value)));
        }
        return add(Value(Decimal::fromParts(value, 0, false)));
    }
    bool number_float(json::number_float_t value, const json::string_t& text) {
        const std::optional<Decimal> decimal = Decimal::parse(text);
        if (decimal && !decimal->isNaN()) {
            return add(Value(*decimal));
        }
        // Beyond the decimal's exponent range ("1e200"): the double is all there is.
        return add(Value(double{value}));
    }
    bool string(json::string_t& value) { return add(Value(std::move(value))); }
    bool binary(json::binary_t& value) { return add(Value(Bytes(value.begin(), value.end()))); }

    bool start_object(size_t) { return open(false); }
    bool key(json::string_t& key) {
        m_stack.back().key = std::move(key);
        return true;
    }
    bool end_object() { return close(); }
    bool start_array(size_t) { return open(true); }
    bool end_array() { return close(); }

    bool parse_error(size_t position, const std::string&, const nlohmann::detail::exception& error) {
        fail(formatMessage("Malformed JSON at byte %@: %@", position, error.what()));
        return false;
    }

    void fail(std::string message) {
        if (m_error.empty()) {
            m_error = std::move(message);
        }
    }

    std::optional<Value> result() { return m_root; }
    const std::string& error() const { return m_error; }

private:
    struct Frame {
        bool isArray = false;
        Value::Array elements;
        Value::Dictionary members;
        std::string key;
    };

    bool add(Value value) {
        if (m_stack.empty()) {
            m_root = std::move(value);
        } else if (m_stack.back().isArray) {
            m_stack.back().elements.push_back(std::move(value));
        } else {
            Frame& frame = m_stack.back();
            frame.members.insert_or_assign(std::move(frame.key), std::move(value));
        }
        return true;
    }

    bool open(bool isArray) {
        if (m_stack.size() >= kMaxJSONDepth) {
            fail(formatMessage("Malformed JSON: nested deeper than %@ levels", kMaxJSONDepth));
            return false;
        }
        m_stack.push_back(Frame{isArray, {}, {}, {}});
        return true;
    }

    bool close() {
        Frame frame = std::move(m_stack.back());
        m_stack.pop_back();
        return frame.isArray ? add(Value(std::move(frame.elements))) : add(Value(std::move(frame.members)));
    }

    std::vector<Frame> m_stack;
    std::optional<Value> m_root;
    std::string m_error;
};

// nlohmann's own escaping, with invalid UTF-8 replaced by U+FFFD rather than thrown.
std::string jsonString(const std::string& text) {
    return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void writeJSON(const Value& value, bool pretty, int depth, std::string& out) {
    const auto newline = [&](int level) {
        if (pretty) {
            out.push_back('\n');
            out.append(static_cast<size_t>(level) * 2, ' ');
        }
    };
    switch (value.type()) {
        case Value::Type::Null:
        case Value::Type::Object:
            out += "null";
            break;
        case Value::Type::Bool:
            out += *value.boolean() ? "true" : "false";
            break;
        case Value::Type::Integer:
            out += std::to_string(*value.integer());
            break;
        case Value::Type::Double:
            // JSON has no text for not-a-number and the infinities.
            out += std::isfinite(*value.real()) ? valuetext::doubleText(*value.real()) : "null";
            break;
        case Value::Type::Decimal:
            out += value.decimal()->isNaN() ? "null" : value.decimal()->toString();
            break;
        case Value::Type::String:
            out += jsonString(*value.string());
            break;
        case Value::Type::Date:
            out += jsonString(value.date()->iso8601String());
            break;
        case Value::Type::Bytes:
            out += jsonString(valuetext::base64(*value.bytes()));
            break;
        case Value::Type::Array: {
            const Value::Array& elements = *value.array();
            if (elements.empty()) {
                out += "[]";
                break;
            }
            out.push_back('[');
            for (size_t i = 0; i < elements.size(); ++i) {
                out += i == 0 ? "" : ",";
                newline(depth + 1);
                writeJSON(elements[i], pretty, depth + 1, out);
            }
            newline(depth);
            out.push_back(']');
            break;
        }
        case Value::Type::Dictionary: {
            const Value::Dictionary& members = *value.dictionary();
            if (members.empty()) {
                out += "{}";
                break;
            }
            out.push_back('{');
            bool first = true;
            for (const auto& [key, member] : members) {
                out += first ? "" : ",";
                first = false;
                newline(depth + 1);
                out += jsonString(key);
                out += pretty ? ": " : ":";
                writeJSON(member, pretty, depth + 1, out);
            }
            newline(depth);
            out.push_back('}');
            break;
        }
    }
}

}  // namespace

std::optional<Value> Value::fromJSON(std::string_view text, std::string* error) {
    ValueBuilder builder;
    bool parsed = false;
    try {
        parsed = nlohmann::json::sax_parse(text.begin(), text.end(), &builder);
    } catch (const std::exception& exception) {
        parsed = false;
        builder.fail(formatMessage("Malformed JSON: %@", exception.what()));
    }
    if (!parsed || !builder.result()) {
        const std::string message = builder.error().empty() ? std::string("Malformed JSON") : builder.error();
        logMessage("%@", message);
        if (error != nullptr) {
            *error = message;
        }
        return std::nullopt;
    }
    return builder.result();
}

std::string Value::toJSON(bool pretty) const {
    std::string out;
    writeJSON(*this, pretty, 0, out);
    return out;
}

}  // namespace brassline
