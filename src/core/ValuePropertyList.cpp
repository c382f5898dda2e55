#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>
#include <string_view>

#include <plist/plist.h>

#include "core/Log.h"
#include "core/Value.h"

// Property lists go through libplist 2.2. Its limits shape a few choices below: dates are
// handed over as whole seconds and microseconds in 32 bits (so 1933 to 2069 only), XML
// dates carry whole seconds, and integers are one unsigned 64-bit type that holds negative
// numbers in two's complement.

namespace brassline {

namespace {

constexpr int kMaxPlistDepth = 512;
constexpr const char* kUIDKey = "CF$UID";

struct PlistDeleter {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

Value uidValue(uint64_t uid) {
    return Value(Value::Dictionary{{kUIDKey, Value(static_cast<int64_t>(uid))}});
}

// libplist answers a date as seconds cut toward zero and the fraction's absolute value in
// microseconds, so a date before the reference date carries its sign in the seconds only.
Date dateFromNode(plist_t node) {
    int32_t seconds = 0;
    int32_t microseconds = 0;
    plist_get_date_val(node, &seconds, &microseconds);
    const double fraction = microseconds / 1e6;
    return Date(seconds < 0 ? seconds - fraction : seconds + fraction);
}

bool nodeToValue(plist_t node, int depth, Value& out, std::string& error) {
    if (depth > kMaxPlistDepth) {
        error = "The property list nests too deeply";
        return false;
    }
    switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            uint8_t flag = 0;
            plist_get_bool_val(node, &flag);
            out = Value(flag != 0);
            return true;
        }
        case PLIST_UINT: {
            uint64_t number = 0;
            plist_get_uint_val(node, &number);
            out = Value(static_cast<int64_t>(number));
            return true;
        }
        case PLIST_REAL: {
            double number = 0;
            plist_get_real_val(node, &number);
            out = Value(number);
            return true;
        }
        case PLIST_STRING:
        case PLIST_KEY: {
            uint64_t length = 0;
            const char* text = plist_get_string_ptr(node, &length);
            out = Value(std::string(text != nullptr ? text : "", text != nullptr ? length : 0));
            return true;
        }
        case PLIST_DATE:
            out = Value(dateFromNode(node));
            return true;
        case PLIST_DATA: {
            uint64_t length = 0;
            const char* data = plist_get_data_ptr(node, &length);
            const auto* begin = reinterpret_cast<const uint8_t*>(data);
            out = Value(data != nullptr ? Bytes(begin, begin + length) : Bytes());
            return true;
        }
        case PLIST_UID: {
            uint64_t uid = 0;
            plist_get_uid_val(node, &uid);
            out = uidValue(uid);
            return true;
        }
        case PLIST_ARRAY: {
            Value::Array elements;
            const uint32_t size = plist_array_get_size(node);
            elements.reserve(size);
            for (uint32_t i = 0; i < size; ++i) {
                Value element;
                if (!nodeToValue(plist_array_get_item(node, i), depth + 1, element, error)) {
                    return false;
                }
                elements.push_back(std::move(element));
            }
            out = Value(std::move(elements));
            return true;
        }
        case PLIST_DICT: {
            Value::Dictionary members;
            plist_dict_iter iterator = nullptr;
            plist_dict_new_iter(node, &iterator);
            bool ok = true;
            while (ok) {
                char* key = nullptr;
                plist_t item = nullptr;
                plist_dict_next_item(node, iterator, &key, &item);
                if (item == nullptr) {
                    std::free(key);
                    break;
                }
                Value member;
                ok = nodeToValue(item, depth + 1, member, error);
                members.insert_or_assign(std::string(key != nullptr ? key : ""), std::move(member));
                std::free(key);
            }
            std::free(iterator);
            out = Value(std::move(members));
            return ok;
        }
        default:
            error = "The property list holds an element of unknown type";
            return false;
    }
}

// A dictionary of the one key "CF$UID" with a non-negative integer is how UIDs appear as
// values (the same shape the XML form of a keyed archive shows); it goes back as a UID.
std::optional<uint64_t> uidOf(const Value::Dictionary& members) {
    if (members.size() != 1) {
        return std::nullopt;
    }
    const auto found = members.find(kUIDKey);
    if (found == members.end() || found->second.integer() == nullptr || *found->second.integer() < 0) {
        return std::nullopt;
    }
    return static_cast<uint64_t>(*found->second.integer());
}

plist_t dateNode(Date date) {
    const double seconds = date.timeIntervalSinceReferenceDate();
    const double whole = std::floor(seconds);
    if (!std::isfinite(seconds) || whole < std::numeric_limits<int32_t>::min() ||
        whole > std::numeric_limits<int32_t>::max()) {
        logMessage("Property list: the date %@ lies outside the range that can be written; written as the nearest",
                   date);
        const int32_t clamped = seconds > 0 ? std::numeric_limits<int32_t>::max() : std::numeric_limits<int32_t>::min();
        return plist_new_date(clamped, 0);
    }
    auto microseconds = static_cast<int32_t>(std::lround((seconds - whole) * 1e6));
    auto secondsPart = static_cast<int64_t>(whole);
    if (microseconds >= 1000000) {
        microseconds -= 1000000;
        secondsPart += 1;
    }
    return plist_new_date(static_cast<int32_t>(std::min<int64_t>(secondsPart, std::numeric_limits<int32_t>::max())),
                          microseconds);
}

// Null and object references have no property-list form: the answer is nullptr and the
// caller leaves the member out.
plist_t valueToNode(const Value& value, int depth) {
    if (depth > kMaxPlistDepth) {
        logMessage("Property list: a value nested deeper than %@ levels is left out", kMaxPlistDepth);
        return nullptr;
    }
    switch (value.type()) {
        case Value::Type::Null:
        case Value::Type::Object:
            return nullptr;
        case Value::Type::Bool:
            return plist_new_bool(*value.boolean() ? 1 : 0);
        case Value::Type::Integer:
            return plist_new_uint(static_cast<uint64_t>(*value.integer()));
        case Value::Type::Double:
            return plist_new_real(*value.real());
        case Value::Type::Decimal: {
            const Decimal& number = *value.decimal();
            const Decimal whole = number.rounded(0);
            const bool fitsInteger = !number.isNaN() && whole == number &&
                                     number >= Decimal(std::numeric_limits<int64_t>::min()) &&
                                     number <= Decimal(std::numeric_limits<int64_t>::max());
            if (fitsInteger) {
                return plist_new_uint(static_cast<uint64_t>(number.toInt64()));
            }
            return plist_new_real(number.toDouble());
        }
        case Value::Type::String:
            return plist_new_string(value.string()->c_str());
        case Value::Type::Date:
            return dateNode(*value.date());
        case Value::Type::Bytes: {
            const Bytes& bytes = *value.bytes();
            return plist_new_data(reinterpret_cast<const char*>(bytes.data()), bytes.size());
        }
        case Value::Type::Array: {
            plist_t array = plist_new_array();
            for (const Value& element : *value.array()) {
                if (plist_t node = valueToNode(element, depth + 1)) {
                    plist_array_append_item(array, node);
                }
            }
            return array;
        }
        case Value::Type::Dictionary: {
            const Value::Dictionary& members = *value.dictionary();
            if (const auto uid = uidOf(members)) {
                return plist_new_uid(*uid);
            }
            plist_t dict = plist_new_dict();
            for (const auto& [key, member] : members) {
                if (plist_t node = valueToNode(member, depth + 1)) {
                    plist_dict_set_item(dict, key.c_str(), node);
                }
            }
            return dict;
        }
    }
    return nullptr;
}

// libplist 2.2 aborts on an assertion when a dictionary key holds a NUL character, which
// a damaged binary list can easily contain. The binary layout (trailer, offset table,
// object markers) is walked here first, every read bounds-checked, to find such keys; a
// layout that doesn't add up is left for libplist to refuse.
class BinaryKeyCheck {
public:
    explicit BinaryKeyCheck(const Bytes& data) : m_data(data) {}

    bool hasKeyWithNul() {
        if (m_data.size() < 40 || std::string_view(reinterpret_cast<const char*>(m_data.data()), 6) != "bplist") {
            return false;
        }
        const size_t trailer = m_data.size() - 32;
        m_offsetSize = m_data[trailer + 6];
        m_referenceSize = m_data[trailer + 7];
        const uint64_t count = bigEndian(trailer + 8, 8).value_or(0);
        const uint64_t table = bigEndian(trailer + 24, 8).value_or(0);
        if (m_offsetSize == 0 || m_offsetSize > 8 || m_referenceSize == 0 || m_referenceSize > 8 || table >= trailer ||
            count > (trailer - table) / m_offsetSize) {
            return false;
        }
        m_table = static_cast<size_t>(table);
        m_count = static_cast<size_t>(count);
        for (size_t index = 0; index < m_count; ++index) {
            const std::optional<size_t> offset = objectOffset(index);
            if (!offset || (m_data[*offset] & 0xF0) != 0xD0) {
                continue;
            }
            size_t start = 0;
            const std::optional<uint64_t> entries = lengthOf(*offset, start);
            if (!entries || *entries > m_data.size()) {
                continue;
            }
            for (uint64_t key = 0; key < *entries; ++key) {
                const std::optional<uint64_t> reference = bigEndian(start + key * m_referenceSize, m_referenceSize);
                if (reference && *reference < m_count && stringHasNul(static_cast<size_t>(*reference))) {
                    return true;
                }
            }
        }
        return false;
    }

private:
    std::optional<uint64_t> bigEndian(uint64_t at, size_t width) const {
        if (at > m_data.size() || width > m_data.size() - at) {
            return std::nullopt;
        }
        uint64_t value = 0;
        for (size_t i = 0; i < width; ++i) {
            value = (value << 8) | m_data[static_cast<size_t>(at) + i];
        }
        return value;
    }

    std::optional<size_t> objectOffset(size_t index) const {
        const std::optional<uint64_t> offset = bigEndian(m_table + index * m_offsetSize, m_offsetSize);
        if (!offset || *offset >= m_data.size()) {
            return std::nullopt;
        }
        return static_cast<size_t>(*offset);
    }

    // The length in an object's marker, or in the integer object after it for 0xF.
    std::optional<uint64_t> lengthOf(size_t offset, size_t& contentStart) const {
        const uint8_t low = m_data[offset] & 0x0F;
        if (low != 0x0F) {
            contentStart = offset + 1;
            return low;
        }
        if (offset + 1 >= m_data.size() || (m_data[offset + 1] & 0xF0) != 0x10) {
            return std::nullopt;
        }
        const size_t width = size_t{1} << (m_data[offset + 1] & 0x03);
        contentStart = offset + 2 + width;
        return bigEndian(offset + 2, width);
    }

    bool stringHasNul(size_t index) const {
        const std::optional<size_t> offset = objectOffset(index);
        if (!offset) {
            return false;
        }
        const uint8_t kind = m_data[*offset] & 0xF0;
        if (kind != 0x50 && kind != 0x60) {
            return false;
        }
        size_t start = 0;
        const std::optional<uint64_t> length = lengthOf(*offset, start);
        const uint64_t unit = kind == 0x60 ? 2 : 1;
        if (!length || start > m_data.size() || *length > (m_data.size() - start) / unit) {
            return false;
        }
        for (uint64_t i = 0; i < *length; ++i) {
            const size_t at = start + static_cast<size_t>(i * unit);
            if (m_data[at] == 0 && (unit == 1 || m_data[at + 1] == 0)) {
                return true;
            }
        }
        return false;
    }

    const Bytes& m_data;
    size_t m_offsetSize = 0;
    size_t m_referenceSize = 0;
    size_t m_table = 0;
    size_t m_count = 0;
};

}  // namespace

std::optional<Value> Value::fromPropertyList(const Bytes& data, std::string* error) {
    std::string message;
    std::optional<Value> result;
    if (data.empty()) {
        message = "The property list is empty";
    } else if (data.size() > std::numeric_limits<uint32_t>::max()) {
        message = "The property list is too large";
    } else if (BinaryKeyCheck(data).hasKeyWithNul()) {
        message = "The property list has a dictionary key with a NUL character";
    } else {
        plist_t root = nullptr;
        plist_from_memory(reinterpret_cast<const char*>(data.data()), static_cast<uint32_t>(data.size()), &root);
        const PlistPtr owner(root);
        if (root == nullptr) {
            message = "The data is not a property list in XML or binary form";
        } else {
            Value value;
            if (nodeToValue(root, 0, value, message)) {
                result = std::move(value);
            }
        }
    }
    if (!result) {
        logMessage("%@", message);
        if (error != nullptr) {
            *error = message;
        }
    }
    return result;
}

std::string Value::toXMLPropertyList() const {
    const PlistPtr root(valueToNode(*this, 0));
    if (!root) {
        return {};
    }
    char* xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(root.get(), &xml, &length);
    std::string text(xml != nullptr ? xml : "", xml != nullptr ? length : 0);
    plist_to_xml_free(xml);
    return text;
}

Bytes Value::toBinaryPropertyList() const {
    const PlistPtr root(valueToNode(*this, 0));
    if (!root) {
        return {};
    }
    char* binary = nullptr;
    uint32_t length = 0;
    plist_to_bin(root.get(), &binary, &length);
    const auto* begin = reinterpret_cast<const uint8_t*>(binary);
    Bytes bytes = binary != nullptr ? Bytes(begin, begin + length) : Bytes();
    plist_to_bin_free(binary);
    return bytes;
}

}  // namespace brassline
