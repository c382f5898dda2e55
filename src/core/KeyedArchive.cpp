#include "core/KeyedArchive.h"

#include <cmath>
#include <limits>
#include <set>
#include <utility>

#include "core/Log.h"

namespace brassline {

namespace {

constexpr int64_t kArchiveVersion = 100000;
constexpr const char* kArchiverName = "NSKeyedArchiver";
constexpr const char* kUIDKey = "CF$UID";
// Nesting deeper than this is refused when reading and left out when writing; it keeps
// the recursion of both far from the end of the stack.
constexpr int kMaxDepth = 400;

Value uidValue(size_t index) {
    return Value(Value::Dictionary{{kUIDKey, Value(static_cast<int64_t>(index))}});
}

std::optional<uint64_t> uidOf(const Value& value) {
    const Value::Dictionary* members = value.dictionary();
    if (members == nullptr || members->size() != 1) {
        return std::nullopt;
    }
    const auto found = members->find(kUIDKey);
    if (found == members->end() || found->second.integer() == nullptr || *found->second.integer() < 0) {
        return std::nullopt;
    }
    return static_cast<uint64_t>(*found->second.integer());
}

// The format reserves keys that begin with "$"; the platform stores such a key of an
// object's own with one more "$" in front, and so do we.
std::string escapedKey(std::string_view key) {
    return !key.empty() && key.front() == '$' ? "$" + std::string(key) : std::string(key);
}

bool isInlineScalar(const Value& value) {
    switch (value.type()) {
        case Value::Type::Bool:
        case Value::Type::Integer:
        case Value::Type::Double:
        case Value::Type::String:
        case Value::Type::Bytes:
        case Value::Type::Date:
            return true;
        default:
            return false;
    }
}

// Text as valid UTF-8: each byte that begins no well-formed sequence becomes U+FFFD, and
// so does a NUL. The binary writer drops such bytes and ends text at a NUL, so an archive
// read and written again would otherwise differ from what was read.
Value validText(const Value& value) {
    const std::string* text = value.string();
    if (text == nullptr) {
        return value;
    }
    const auto sequenceLength = [](const std::string& s, size_t i) -> size_t {
        const auto byte = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
        const unsigned char first = byte(i);
        size_t length = first == 0             ? 0
                        : first < 0x80         ? 1
                        : (first >> 5) == 0x6  ? 2
                        : (first >> 4) == 0xE  ? 3
                        : (first >> 3) == 0x1E ? 4
                                               : 0;
        if (length == 0 || i + length > s.size() || (length == 2 && first < 0xC2) || (length == 4 && first > 0xF4)) {
            return 0;
        }
        for (size_t k = 1; k < length; ++k) {
            if ((byte(i + k) & 0xC0) != 0x80) {
                return 0;
            }
        }
        // Overlong three- and four-byte forms, surrogates and code points past U+10FFFF.
        if ((length == 3 && first == 0xE0 && byte(i + 1) < 0xA0) ||
            (length == 3 && first == 0xED && byte(i + 1) >= 0xA0) ||
            (length == 4 && first == 0xF0 && byte(i + 1) < 0x90) ||
            (length == 4 && first == 0xF4 && byte(i + 1) >= 0x90)) {
            return 0;
        }
        return length;
    };
    size_t i = 0;
    while (i < text->size()) {
        const size_t length = sequenceLength(*text, i);
        if (length == 0) {
            break;
        }
        i += length;
    }
    if (i == text->size()) {
        return value;
    }
    std::string fixed = text->substr(0, i);
    while (i < text->size()) {
        const size_t length = sequenceLength(*text, i);
        if (length == 0) {
            fixed += "\xEF\xBF\xBD";
            ++i;
        } else {
            fixed.append(*text, i, length);
            i += length;
        }
    }
    return Value(std::move(fixed));
}

const std::set<std::string, std::less<>>& builtInValueClassNames() {
    static const std::set<std::string, std::less<>> names = {"NSString",        "NSMutableString",
                                                             "NSData",          "NSMutableData",
                                                             "NSDate",          "NSNull",
                                                             "NSDictionary",    "NSMutableDictionary",
                                                             "NSDecimalNumber", "NSDecimalNumberPlaceholder"};
    return names;
}

const std::set<std::string, std::less<>>& arrayClassNames() {
    static const std::set<std::string, std::less<>> names = {"NSArray",      "NSMutableArray", "NSSet",
                                                             "NSMutableSet", "NSOrderedSet",   "NSMutableOrderedSet"};
    return names;
}

}  // namespace

KeyedArchiveRegistry& KeyedArchiveRegistry::shared() {
    static KeyedArchiveRegistry registry;
    return registry;
}

void KeyedArchiveRegistry::registerClass(std::string className, KeyedDecodeFunction decode) {
    const std::lock_guard lock(m_mutex);
    m_decoders.insert_or_assign(std::move(className), std::move(decode));
}

void KeyedArchiveRegistry::unregisterClass(std::string_view className) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_decoders.find(className);
    if (found != m_decoders.end()) {
        m_decoders.erase(found);
    }
}

KeyedDecodeFunction KeyedArchiveRegistry::decoderForClass(std::string_view className) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_decoders.find(className);
    return found != m_decoders.end() ? found->second : KeyedDecodeFunction();
}

void KeyedArchiveRegistry::setFallbackDecoder(KeyedDecodeFunction decode) {
    const std::lock_guard lock(m_mutex);
    m_fallback = std::move(decode);
}

KeyedDecodeFunction KeyedArchiveRegistry::fallbackDecoder() const {
    const std::lock_guard lock(m_mutex);
    return m_fallback;
}

KeyedNode KeyedNode::fromValue(Value value) {
    KeyedNode node;
    node.kind = value.isNull() ? Kind::Null : Kind::Value;
    node.value = std::move(value);
    return node;
}

KeyedNode KeyedNode::fromObject(std::shared_ptr<KeyedArchivable> object) {
    KeyedNode node;
    node.kind = object ? Kind::Object : Kind::Null;
    node.object = std::move(object);
    return node;
}

KeyedNode KeyedNode::array(std::vector<KeyedNode> elements, std::string className) {
    KeyedNode node;
    node.kind = Kind::Array;
    node.elements = std::move(elements);
    node.className = std::move(className);
    return node;
}

KeyedNode KeyedNode::dictionary(std::vector<std::string> keys, std::vector<KeyedNode> values, std::string className) {
    KeyedNode node;
    node.kind = Kind::Dictionary;
    node.keys = std::move(keys);
    node.elements = std::move(values);
    node.elements.resize(node.keys.size());
    node.className = std::move(className);
    return node;
}

const KeyedNode* KeyedNode::member(std::string_view key) const {
    if (kind != Kind::Dictionary) {
        return nullptr;
    }
    for (size_t i = 0; i < keys.size() && i < elements.size(); ++i) {
        if (keys[i] == key) {
            return &elements[i];
        }
    }
    return nullptr;
}

namespace keyedarchive {

// Builds "$objects": containers take their index before their contents, as the platform
// numbers them; strings and class records are written once; arrays, dictionaries and
// bytes shared between places of one value are written once.
class Writer {
public:
    Writer() { m_objects.emplace_back("$null"); }

    size_t encodeValue(const Value& value, bool inCollection) {
        if (m_depth >= kMaxDepth) {
            fail("a value nests too deeply");
            return 0;
        }
        if (const void* identity = value.sharedIdentity()) {
            if (const auto found = m_shared.find(identity); found != m_shared.end()) {
                return found->second;
            }
        }
        switch (value.type()) {
            case Value::Type::Null:
                return inCollection ? nullObject() : 0;
            case Value::Type::Object:
                logMessage("Keyed archive: an object reference (%@) cannot be archived and is written as null",
                           value.object()->className());
                return inCollection ? nullObject() : 0;
            case Value::Type::Bool:
            case Value::Type::Integer:
            case Value::Type::Double:
                return append(value);
            case Value::Type::String:
                return stringEntry(*value.string());
            case Value::Type::Bytes:
                return remember(value, append(value));
            case Value::Type::Date: {
                Value::Dictionary record{{"NS.time", Value(value.date()->timeIntervalSinceReferenceDate())},
                                         {"$class", uidValue(classRecord("NSDate", {"NSObject"}))}};
                return append(Value(std::move(record)));
            }
            case Value::Type::Decimal:
                return append(decimalRecord(*value.decimal()));
            case Value::Type::Array: {
                const size_t index = remember(value, reserve());
                ++m_depth;
                Value::Array references;
                references.reserve(value.count());
                for (const Value& element : *value.array()) {
                    references.push_back(uidValue(encodeValue(element, true)));
                }
                --m_depth;
                m_objects[index] = Value(Value::Dictionary{{"NS.objects", Value(std::move(references))},
                                                           {"$class", uidValue(classRecord("NSArray", {"NSObject"}))}});
                return index;
            }
            case Value::Type::Dictionary: {
                const size_t index = remember(value, reserve());
                ++m_depth;
                Value::Array keys;
                Value::Array objects;
                for (const auto& [key, member] : *value.dictionary()) {
                    keys.push_back(uidValue(stringEntry(key)));
                    objects.push_back(uidValue(encodeValue(member, true)));
                }
                --m_depth;
                m_objects[index] =
                    Value(Value::Dictionary{{"NS.keys", Value(std::move(keys))},
                                            {"NS.objects", Value(std::move(objects))},
                                            {"$class", uidValue(classRecord("NSDictionary", {"NSObject"}))}});
                return index;
            }
        }
        return 0;
    }

    size_t encodeObject(const KeyedArchivable* object) {
        if (object == nullptr) {
            return 0;
        }
        if (const auto found = m_written.find(object); found != m_written.end()) {
            return found->second;
        }
        if (m_inProgress.count(object) != 0) {
            fail("an object of class " + object->archivedClassName() + " refers back to itself");
            return 0;
        }
        if (m_depth >= kMaxDepth) {
            fail("objects nest too deeply");
            return 0;
        }
        const size_t index = reserve();
        m_inProgress.insert(object);
        ++m_depth;
        Value::Dictionary record;
        KeyedEncoder coder(*this, record);
        object->encodeWithCoder(coder);
        record.insert_or_assign("$class",
                                uidValue(classRecord(object->archivedClassName(), object->archivedSuperclassNames())));
        --m_depth;
        m_inProgress.erase(object);
        m_written.emplace(object, index);
        m_objects[index] = Value(std::move(record));
        return index;
    }

    size_t encodeObjectArray(const std::vector<const KeyedArchivable*>& objects) {
        const size_t index = reserve();
        Value::Array references;
        references.reserve(objects.size());
        for (const KeyedArchivable* object : objects) {
            references.push_back(uidValue(object != nullptr ? encodeObject(object) : nullObject()));
        }
        m_objects[index] = Value(Value::Dictionary{{"NS.objects", Value(std::move(references))},
                                                   {"$class", uidValue(classRecord("NSArray", {"NSObject"}))}});
        return index;
    }

    // Inline nodes only stand in a record; anywhere else they are written as values.
    size_t encodeNode(const KeyedNode& node, bool inCollection) {
        switch (node.kind) {
            case KeyedNode::Kind::Null:
                return inCollection ? nullObject() : 0;
            case KeyedNode::Kind::Inline:
            case KeyedNode::Kind::Value:
                return encodeValue(node.value, inCollection);
            case KeyedNode::Kind::Object:
                return node.object ? encodeObject(node.object.get()) : (inCollection ? nullObject() : 0);
            case KeyedNode::Kind::Array:
            case KeyedNode::Kind::Dictionary:
                break;
        }
        if (m_depth >= kMaxDepth) {
            fail("a value nests too deeply");
            return 0;
        }
        const size_t index = reserve();
        ++m_depth;
        Value::Array references;
        references.reserve(node.elements.size());
        for (const KeyedNode& element : node.elements) {
            references.push_back(uidValue(encodeNode(element, true)));
        }
        Value::Dictionary record{{"NS.objects", Value(std::move(references))}};
        const bool isArray = node.kind == KeyedNode::Kind::Array;
        if (!isArray) {
            Value::Array keys;
            for (const std::string& key : node.keys) {
                keys.push_back(uidValue(stringEntry(key)));
            }
            record.emplace("NS.keys", Value(std::move(keys)));
        }
        --m_depth;
        const std::string base = isArray ? "NSArray" : "NSDictionary";
        const std::string name = node.className.empty() ? base : node.className;
        std::vector<std::string> chain;
        if (name != base) {
            chain.push_back(base);
        }
        chain.emplace_back("NSObject");
        record.emplace("$class", uidValue(classRecord(name, chain)));
        m_objects[index] = Value(std::move(record));
        return index;
    }

    // Like class records, strings are told apart as written.
    size_t stringEntry(const std::string& text) {
        const Value valid = validText(Value(text));
        const std::string& written = *valid.string();
        if (const auto found = m_strings.find(written); found != m_strings.end()) {
            return found->second;
        }
        const size_t index = append(valid);
        m_strings.emplace(written, index);
        return index;
    }

    Bytes finish(size_t root) {
        Value::Dictionary archive{{"$archiver", Value(kArchiverName)},
                                  {"$version", Value(kArchiveVersion)},
                                  {"$top", Value(Value::Dictionary{{"root", uidValue(root)}})},
                                  {"$objects", Value(std::move(m_objects))}};
        return Value(std::move(archive)).toBinaryPropertyList();
    }

    const std::string& error() const { return m_error; }

private:
    size_t append(Value value) {
        m_objects.push_back(std::move(value));
        return m_objects.size() - 1;
    }

    size_t reserve() { return append(Value()); }

    size_t remember(const Value& value, size_t index) {
        if (const void* identity = value.sharedIdentity()) {
            m_shared.emplace(identity, index);
            // Held until the archive is done: a temporary's storage freed and reused at the
            // same address would otherwise pass for the value written before.
            m_keptAlive.push_back(value);
        }
        return index;
    }

    size_t nullObject() {
        if (m_nullObject == 0) {
            m_nullObject = append(Value(Value::Dictionary{{"$class", uidValue(classRecord("NSNull", {"NSObject"}))}}));
        }
        return m_nullObject;
    }

    // Records are told apart by the names as written: a name that is no UTF-8 is written
    // with replacement characters, so two names that differ only in such bytes (one kept
    // from an archive, one already read back through one) share their record.
    size_t classRecord(const std::string& name, const std::vector<std::string>& superclasses) {
        const Value className = validText(Value(name));
        std::string identity = *className.string();
        Value::Array chain{className};
        for (const std::string& superclass : superclasses) {
            const Value valid = validText(Value(superclass));
            identity += '\0' + *valid.string();
            chain.push_back(valid);
        }
        if (const auto found = m_classes.find(identity); found != m_classes.end()) {
            return found->second;
        }
        const size_t index =
            append(Value(Value::Dictionary{{"$classname", className}, {"$classes", Value(std::move(chain))}}));
        m_classes.emplace(std::move(identity), index);
        return index;
    }

    // The platform's NSDecimal fields: up to eight 16-bit words of mantissa, least
    // significant first, written little endian.
    Value decimalRecord(const Decimal& number) {
        Bytes mantissa(16, 0);
        int length = 0;
        int exponent = 0;
        bool negative = number.isNaN();
        bool compact = false;
        if (!number.isNaN()) {
            UInt128 significand = number.significand();
            exponent = number.exponent();
            negative = number.isNegative();
            compact = significand % 10 != 0;
            while (significand != 0 && length < 8) {
                const auto word = static_cast<uint16_t>(significand & 0xFFFF);
                mantissa[static_cast<size_t>(length) * 2] = static_cast<uint8_t>(word & 0xFF);
                mantissa[static_cast<size_t>(length) * 2 + 1] = static_cast<uint8_t>(word >> 8);
                significand >>= 16;
                ++length;
            }
        }
        Value::Dictionary record{
            {"NS.exponent", Value(int64_t{exponent})},
            {"NS.length", Value(int64_t{length})},
            {"NS.negative", Value(negative)},
            {"NS.compact", Value(compact)},
            {"NS.mantissa.bo", Value(int64_t{1})},
            {"NS.mantissa", Value(std::move(mantissa))},
            {"$class", uidValue(classRecord("NSDecimalNumber", {"NSNumber", "NSValue", "NSObject"}))}};
        return Value(std::move(record));
    }

    void fail(std::string message) {
        if (m_error.empty()) {
            m_error = "Keyed archive: " + std::move(message);
        }
    }

    Value::Array m_objects;
    std::map<std::string, size_t, std::less<>> m_strings;
    std::map<std::string, size_t> m_classes;
    std::map<const void*, size_t> m_shared;
    std::vector<Value> m_keptAlive;
    std::map<const KeyedArchivable*, size_t> m_written;
    std::set<const KeyedArchivable*> m_inProgress;
    size_t m_nullObject = 0;
    int m_depth = 0;
    std::string m_error;
};

// Resolves references into "$objects", each entry at most once: results are kept per
// index, an index met again while it is still being decoded is a cycle, and the first
// failure stops all further work.
class Reader {
public:
    Reader(const Value::Array& objects, const KeyedArchiveRegistry& registry)
        : m_objects(objects),
          m_registry(registry),
          m_state(objects.size(), State::Untouched),
          m_values(objects.size()),
          m_decoded(objects.size()) {}

    Value valueAt(uint64_t uid) {
        if (uid == 0 || !enter(uid)) {
            return Value();
        }
        if (m_state[uid] == State::ValueDone) {
            return m_values[uid];
        }
        const Value& entry = m_objects[uid];
        if (isInlineScalar(entry)) {
            return validText(entry);
        }
        const Value::Dictionary* record = entry.dictionary();
        if (record == nullptr || uidOf(entry)) {
            fail(formatMessage("entry %@ is neither a value nor an object", uid));
            return Value();
        }
        const std::optional<std::string> className = classNameOf(*record, uid);
        if (!className || !begin(uid)) {
            return Value();
        }
        Value result = decodeBuiltIn(*record, *className, uid);
        end(uid);
        if (failed()) {
            return Value();
        }
        m_values[uid] = result;
        m_state[uid] = State::ValueDone;
        return result;
    }

    std::shared_ptr<KeyedArchivable> objectAt(uint64_t uid) {
        if (uid == 0 || !enter(uid)) {
            return nullptr;
        }
        if (m_state[uid] == State::ObjectDone) {
            return m_decoded[uid];
        }
        const Value& entry = m_objects[uid];
        const Value::Dictionary* record = entry.dictionary();
        if (record == nullptr || uidOf(entry)) {
            fail(formatMessage("entry %@ is not an object", uid));
            return nullptr;
        }
        const std::optional<std::string> className = classNameOf(*record, uid);
        if (!className) {
            return nullptr;
        }
        KeyedDecodeFunction decode = m_registry.decoderForClass(*className);
        if (!decode && builtInValueClassNames().count(*className) == 0 && arrayClassNames().count(*className) == 0) {
            decode = m_registry.fallbackDecoder();
        }
        if (!decode) {
            fail("no decoder is registered for the class " + *className);
            return nullptr;
        }
        if (!begin(uid)) {
            return nullptr;
        }
        KeyedDecoder coder(*this, *record, *className);
        std::shared_ptr<KeyedArchivable> object = decode(coder);
        end(uid);
        if (!object && !failed()) {
            fail("the decoder of class " + *className + " made no object");
        }
        if (failed()) {
            return nullptr;
        }
        m_decoded[uid] = object;
        m_state[uid] = State::ObjectDone;
        return object;
    }

    std::vector<std::shared_ptr<KeyedArchivable>> objectsAt(uint64_t uid) {
        std::vector<std::shared_ptr<KeyedArchivable>> result;
        if (uid == 0 || !enter(uid)) {
            return result;
        }
        const Value::Dictionary* record = m_objects[uid].dictionary();
        const std::optional<std::string> className = record != nullptr ? classNameOf(*record, uid) : std::nullopt;
        if (!className || arrayClassNames().count(*className) == 0) {
            fail(formatMessage("entry %@ is not an array of objects", uid));
            return result;
        }
        for (const uint64_t element : references(*record, "NS.objects")) {
            if (failed()) {
                return {};
            }
            const Value::Dictionary* elementRecord =
                element < m_objects.size() ? m_objects[element].dictionary() : nullptr;
            if (elementRecord != nullptr && elementRecord->count("$class") != 0 &&
                classNameOf(*elementRecord, element).value_or("") == "NSNull") {
                result.push_back(nullptr);
            } else {
                result.push_back(objectAt(element));
            }
        }
        return failed() ? std::vector<std::shared_ptr<KeyedArchivable>>() : result;
    }

    KeyedNode nodeAt(uint64_t uid) {
        KeyedNode node;
        if (uid == 0 || !enter(uid)) {
            return node;
        }
        // Nodes are trees: a collection referenced from many places is copied to each. A
        // hostile archive could nest such references to expand without end, so the copies
        // have a budget proportional to the archive's size.
        if (m_nodeBudget == 0) {
            fail("the archive's collections expand far beyond its size");
            return node;
        }
        --m_nodeBudget;
        const Value& entry = m_objects[uid];
        if (isInlineScalar(entry)) {
            return KeyedNode::fromValue(validText(entry));
        }
        const Value::Dictionary* record = entry.dictionary();
        if (record == nullptr || uidOf(entry)) {
            fail(formatMessage("entry %@ is neither a value nor an object", uid));
            return node;
        }
        const std::optional<std::string> className = classNameOf(*record, uid);
        if (!className) {
            return node;
        }
        const bool isArray = arrayClassNames().count(*className) != 0;
        const bool isDictionary = *className == "NSDictionary" || *className == "NSMutableDictionary";
        if (!isArray && !isDictionary) {
            if (builtInValueClassNames().count(*className) != 0) {
                return KeyedNode::fromValue(valueAt(uid));
            }
            return KeyedNode::fromObject(objectAt(uid));
        }
        // Collections are not cached: each place gets its own node, as values do.
        if (!begin(uid)) {
            return node;
        }
        node.kind = isArray ? KeyedNode::Kind::Array : KeyedNode::Kind::Dictionary;
        node.className = *className;
        const std::vector<uint64_t> objects = references(*record, "NS.objects");
        if (isDictionary) {
            for (const uint64_t key : references(*record, "NS.keys")) {
                const Value name = valueAt(key);
                if (name.string() == nullptr) {
                    fail(formatMessage("dictionary %@ has a key that is not a string", uid));
                    break;
                }
                node.keys.push_back(*name.string());
            }
            if (!failed() && node.keys.size() != objects.size()) {
                fail(formatMessage("dictionary %@ has %@ keys for %@ objects", uid, node.keys.size(), objects.size()));
            }
        }
        for (size_t i = 0; i < objects.size() && !failed(); ++i) {
            node.elements.push_back(nodeAt(objects[i]));
        }
        end(uid);
        return failed() ? KeyedNode() : node;
    }

    // A field of a record read as a value: a reference resolves, inline scalars stand.
    Value resolve(const Value& field) {
        if (const auto uid = uidOf(field)) {
            return valueAt(*uid);
        }
        if (isInlineScalar(field)) {
            return validText(field);
        }
        fail("a field holds neither a reference nor a plain value");
        return Value();
    }

    void fail(std::string message) {
        if (m_error.empty()) {
            m_error = "Keyed archive: " + std::move(message);
        }
    }
    bool failed() const { return !m_error.empty(); }
    const std::string& error() const { return m_error; }

    std::vector<std::string> classChainOf(const Value::Dictionary& record) const {
        std::vector<std::string> chain;
        const auto found = record.find("$class");
        const auto classUid = found != record.end() ? uidOf(found->second) : std::nullopt;
        if (!classUid || *classUid >= m_objects.size()) {
            return chain;
        }
        if (const Value::Array* classes = m_objects[*classUid]["$classes"].array()) {
            for (size_t i = 1; i < classes->size(); ++i) {
                if ((*classes)[i].string() != nullptr) {
                    chain.push_back(*validText((*classes)[i]).string());
                }
            }
        }
        return chain;
    }

private:
    enum class State : uint8_t { Untouched, InProgress, ValueDone, ObjectDone };

    bool enter(uint64_t uid) {
        if (failed()) {
            return false;
        }
        if (uid >= m_objects.size()) {
            fail(formatMessage("a reference to entry %@ lies outside the %@ entries", uid, m_objects.size()));
            return false;
        }
        if (m_state[uid] == State::InProgress) {
            fail(formatMessage("entry %@ contains itself", uid));
            return false;
        }
        return true;
    }

    bool begin(uint64_t uid) {
        if (m_depth >= kMaxDepth) {
            fail("objects nest too deeply");
            return false;
        }
        ++m_depth;
        m_state[uid] = State::InProgress;
        return true;
    }

    void end(uint64_t uid) {
        --m_depth;
        m_state[uid] = State::Untouched;
    }

    std::optional<std::string> classNameOf(const Value::Dictionary& record, uint64_t uid) {
        const auto found = record.find("$class");
        const auto classUid = found != record.end() ? uidOf(found->second) : std::nullopt;
        if (!classUid || *classUid == 0 || *classUid >= m_objects.size()) {
            fail(formatMessage("entry %@ has no valid class reference", uid));
            return std::nullopt;
        }
        const Value& name = m_objects[*classUid]["$classname"];
        if (name.string() == nullptr) {
            fail(formatMessage("entry %@ refers to a class record without a name", uid));
            return std::nullopt;
        }
        // As other text: the name reads as the writer can write it.
        return *validText(name).string();
    }

    // The UIDs of an array field; a missing field is an empty list.
    std::vector<uint64_t> references(const Value::Dictionary& record, std::string_view key) {
        std::vector<uint64_t> result;
        const auto found = record.find(key);
        if (found == record.end()) {
            return result;
        }
        const Value::Array* elements = found->second.array();
        if (elements == nullptr) {
            fail("the field " + std::string(key) + " is not a list of references");
            return {};
        }
        result.reserve(elements->size());
        for (const Value& element : *elements) {
            const auto uid = uidOf(element);
            if (!uid) {
                fail("the field " + std::string(key) + " holds something other than a reference");
                return {};
            }
            result.push_back(*uid);
        }
        return result;
    }

    Value decodeBuiltIn(const Value::Dictionary& record, const std::string& className, uint64_t uid) {
        if (arrayClassNames().count(className) != 0) {
            Value::Array elements;
            for (const uint64_t element : references(record, "NS.objects")) {
                elements.push_back(valueAt(element));
                if (failed()) {
                    return Value();
                }
            }
            return Value(std::move(elements));
        }
        if (className == "NSDictionary" || className == "NSMutableDictionary") {
            const std::vector<uint64_t> keys = references(record, "NS.keys");
            const std::vector<uint64_t> objects = references(record, "NS.objects");
            if (keys.size() != objects.size()) {
                fail(formatMessage("dictionary %@ has %@ keys for %@ objects", uid, keys.size(), objects.size()));
                return Value();
            }
            Value::Dictionary members;
            for (size_t i = 0; i < keys.size() && !failed(); ++i) {
                const Value key = valueAt(keys[i]);
                if (key.string() == nullptr) {
                    fail(formatMessage("dictionary %@ has a key that is not a string", uid));
                    return Value();
                }
                members.insert_or_assign(*key.string(), valueAt(objects[i]));
            }
            return Value(std::move(members));
        }
        KeyedDecoder fields(*this, record, className);
        if (className == "NSString" || className == "NSMutableString") {
            const Value text = fields.decodeValueForKey("NS.string");
            if (text.string() == nullptr) {
                fail(formatMessage("string %@ has no text", uid));
            }
            return text;
        }
        if (className == "NSData" || className == "NSMutableData") {
            const Value data = fields.decodeValueForKey("NS.data");
            if (data.bytes() == nullptr) {
                fail(formatMessage("data %@ has no bytes", uid));
            }
            return data;
        }
        if (className == "NSDate") {
            const Value time = fields.decodeValueForKey("NS.time");
            if (!time.isNumber()) {
                fail(formatMessage("date %@ has no time", uid));
                return Value();
            }
            return Value(Date(time.toDouble()));
        }
        if (className == "NSDecimalNumber" || className == "NSDecimalNumberPlaceholder") {
            return decodeDecimal(fields, uid);
        }
        if (className == "NSNull") {
            return Value();
        }
        if (m_registry.decoderForClass(className)) {
            fail("an object of class " + className + " stands where a value is expected");
        } else {
            fail("the class " + className + " is not known");
        }
        return Value();
    }

    Value decodeDecimal(KeyedDecoder& fields, uint64_t uid) {
        const int64_t exponent = fields.decodeIntForKey("NS.exponent");
        const int64_t length = fields.decodeIntForKey("NS.length");
        const bool negative = fields.decodeBoolForKey("NS.negative");
        const int64_t byteOrder =
            fields.containsValueForKey("NS.mantissa.bo") ? fields.decodeIntForKey("NS.mantissa.bo") : 1;
        const Bytes mantissa = fields.decodeBytesForKey("NS.mantissa");
        if (failed()) {
            return Value();
        }
        if (length < 0 || length > 8 || mantissa.size() < static_cast<size_t>(length) * 2 || mantissa.size() > 16 ||
            exponent < Decimal::kMinExponent || exponent > Decimal::kMaxExponent ||
            (byteOrder != 1 && byteOrder != 2)) {
            fail(formatMessage("decimal number %@ has damaged fields", uid));
            return Value();
        }
        if (length == 0) {
            return Value(negative ? Decimal::notANumber() : Decimal());
        }
        UInt128 significand = 0;
        for (int64_t i = length - 1; i >= 0; --i) {
            const uint8_t first = mantissa[static_cast<size_t>(i) * 2];
            const uint8_t second = mantissa[static_cast<size_t>(i) * 2 + 1];
            const uint16_t word = byteOrder == 1 ? static_cast<uint16_t>(first | (second << 8))
                                                 : static_cast<uint16_t>((first << 8) | second);
            significand = (significand << 16) | word;
        }
        return Value(Decimal::fromParts(significand, static_cast<int>(exponent), negative));
    }

    const Value::Array& m_objects;
    const KeyedArchiveRegistry& m_registry;
    std::vector<State> m_state;
    std::vector<Value> m_values;
    std::vector<std::shared_ptr<KeyedArchivable>> m_decoded;
    size_t m_nodeBudget = m_objects.size() * 16 + 4096;
    int m_depth = 0;
    std::string m_error;
};

}  // namespace keyedarchive

// Encoder.

void KeyedEncoder::encodeValue(const Value& value, std::string_view key) {
    m_record.insert_or_assign(escapedKey(key), uidValue(m_writer.encodeValue(value, false)));
}

void KeyedEncoder::encodeObject(const KeyedArchivable* object, std::string_view key) {
    m_record.insert_or_assign(escapedKey(key), uidValue(m_writer.encodeObject(object)));
}

void KeyedEncoder::encodeObjects(const std::vector<const KeyedArchivable*>& objects, std::string_view key) {
    m_record.insert_or_assign(escapedKey(key), uidValue(m_writer.encodeObjectArray(objects)));
}

void KeyedEncoder::encodeInt(int64_t value, std::string_view key) {
    m_record.insert_or_assign(escapedKey(key), Value(value));
}

void KeyedEncoder::encodeDouble(double value, std::string_view key) {
    m_record.insert_or_assign(escapedKey(key), Value(value));
}

void KeyedEncoder::encodeBool(bool value, std::string_view key) {
    m_record.insert_or_assign(escapedKey(key), Value(value));
}

void KeyedEncoder::encodeString(std::string_view value, std::string_view key) {
    m_record.insert_or_assign(escapedKey(key), uidValue(m_writer.stringEntry(std::string(value))));
}

void KeyedEncoder::encodeBytes(const Bytes& value, std::string_view key) {
    m_record.insert_or_assign(escapedKey(key), Value(value));
}

double singlePrecision(double value) {
    constexpr double kLargest = std::numeric_limits<float>::max();
    if (std::isnan(value)) {
        return value;
    }
    if (value > kLargest || value < -kLargest) {
        return value > 0 ? std::numeric_limits<double>::infinity() : -std::numeric_limits<double>::infinity();
    }
    return static_cast<double>(static_cast<float>(value));
}

void KeyedEncoder::encodeFloat(double value, std::string_view key) {
    m_record.insert_or_assign(escapedKey(key), Value(singlePrecision(value)));
}

void KeyedEncoder::encodeNode(const KeyedNode& node, std::string_view key) {
    if (node.kind == KeyedNode::Kind::Inline) {
        m_record.insert_or_assign(escapedKey(key), node.value);
        return;
    }
    m_record.insert_or_assign(escapedKey(key), uidValue(m_writer.encodeNode(node, false)));
}

// Decoder.

const Value* KeyedDecoder::field(std::string_view key) const {
    const auto found = m_record.find(escapedKey(key));
    return found != m_record.end() ? &found->second : nullptr;
}

bool KeyedDecoder::containsValueForKey(std::string_view key) const {
    return field(key) != nullptr;
}

Value KeyedDecoder::decodeValueForKey(std::string_view key) {
    const Value* value = field(key);
    return value != nullptr ? m_reader.resolve(*value) : Value();
}

std::shared_ptr<KeyedArchivable> KeyedDecoder::decodeObjectForKey(std::string_view key) {
    const Value* value = field(key);
    if (value == nullptr) {
        return nullptr;
    }
    const auto uid = uidOf(*value);
    if (!uid) {
        m_reader.fail("the field " + std::string(key) + " of class " + m_className + " is not an object reference");
        return nullptr;
    }
    return m_reader.objectAt(*uid);
}

std::vector<std::shared_ptr<KeyedArchivable>> KeyedDecoder::decodeObjectsForKey(std::string_view key) {
    const Value* value = field(key);
    if (value == nullptr) {
        return {};
    }
    const auto uid = uidOf(*value);
    if (!uid) {
        m_reader.fail("the field " + std::string(key) + " of class " + m_className + " is not an array reference");
        return {};
    }
    return m_reader.objectsAt(*uid);
}

namespace {

// Inline numbers of any kind convert, as the platform's decoders convert them.
const Value* numberField(const Value* value, std::string_view key, const std::string& className,
                         keyedarchive::Reader& reader) {
    if (value == nullptr) {
        return nullptr;
    }
    if (!value->isNumber()) {
        reader.fail("the field " + std::string(key) + " of class " + className + " is not a number");
        return nullptr;
    }
    return value;
}

}  // namespace

int64_t KeyedDecoder::decodeIntForKey(std::string_view key) {
    const Value* value = numberField(field(key), key, m_className, m_reader);
    return value != nullptr ? value->toInt64() : 0;
}

double KeyedDecoder::decodeDoubleForKey(std::string_view key) {
    const Value* value = numberField(field(key), key, m_className, m_reader);
    return value != nullptr ? value->toDouble() : 0.0;
}

bool KeyedDecoder::decodeBoolForKey(std::string_view key) {
    const Value* value = numberField(field(key), key, m_className, m_reader);
    return value != nullptr && value->toBool();
}

std::string KeyedDecoder::decodeStringForKey(std::string_view key) {
    const Value value = decodeValueForKey(key);
    if (value.string() != nullptr) {
        return *value.string();
    }
    if (!value.isNull()) {
        m_reader.fail("the field " + std::string(key) + " of class " + m_className + " is not a string");
    }
    return {};
}

Bytes KeyedDecoder::decodeBytesForKey(std::string_view key) {
    const Value value = decodeValueForKey(key);
    if (value.bytes() != nullptr) {
        return *value.bytes();
    }
    if (!value.isNull()) {
        m_reader.fail("the field " + std::string(key) + " of class " + m_className + " is not data");
    }
    return {};
}

std::vector<std::string> KeyedDecoder::archivedSuperclassNames() const {
    return m_reader.classChainOf(m_record);
}

double KeyedDecoder::decodeFloatForKey(std::string_view key) {
    return singlePrecision(decodeDoubleForKey(key));
}

std::vector<std::string> KeyedDecoder::allKeys() const {
    std::vector<std::string> keys;
    for (const auto& [key, value] : m_record) {
        if (key == "$class") {
            continue;
        }
        keys.push_back(key.size() > 1 && key[0] == '$' && key[1] == '$' ? key.substr(1) : key);
    }
    return keys;
}

KeyedNode KeyedDecoder::decodeNodeForKey(std::string_view key) {
    const Value* value = field(key);
    if (value == nullptr) {
        return {};
    }
    if (const auto uid = uidOf(*value)) {
        return m_reader.nodeAt(*uid);
    }
    if (isInlineScalar(*value)) {
        KeyedNode node = KeyedNode::fromValue(validText(*value));
        node.kind = KeyedNode::Kind::Inline;
        return node;
    }
    m_reader.fail("the field " + std::string(key) + " of class " + m_className + " is neither a reference nor a value");
    return {};
}

void KeyedDecoder::failWithError(std::string message) {
    m_reader.fail("class " + m_className + ": " + std::move(message));
}

bool KeyedDecoder::hasFailed() const {
    return m_reader.failed();
}

// Archiver and unarchiver.

Bytes KeyedArchiver::archivedDataWithRootObject(const Value& root) {
    keyedarchive::Writer writer;
    const size_t index = writer.encodeValue(root, false);
    if (!writer.error().empty()) {
        logMessage("%@", writer.error());
    }
    return writer.finish(index);
}

std::optional<Bytes> KeyedArchiver::archivedDataWithRootObject(const KeyedArchivable& root, std::string* error) {
    keyedarchive::Writer writer;
    const size_t index = writer.encodeObject(&root);
    if (!writer.error().empty()) {
        logMessage("%@", writer.error());
        if (error != nullptr) {
            *error = writer.error();
        }
        return std::nullopt;
    }
    return writer.finish(index);
}

std::optional<Bytes> KeyedArchiver::archivedDataWithRootNode(const KeyedNode& root, std::string* error) {
    keyedarchive::Writer writer;
    const size_t index = writer.encodeNode(root, false);
    if (!writer.error().empty()) {
        logMessage("%@", writer.error());
        if (error != nullptr) {
            *error = writer.error();
        }
        return std::nullopt;
    }
    return writer.finish(index);
}

namespace {

struct ArchiveParts {
    Value plist;  // Keeps the entries alive while they are read.
    const Value::Array* objects = nullptr;
    uint64_t root = 0;
};

std::optional<ArchiveParts> archivePartsOf(Value plist, std::string& error) {
    ArchiveParts parts{std::move(plist)};
    const Value& archive = parts.plist;
    if (archive.dictionary() == nullptr) {
        error = "Keyed archive: the property list is not a dictionary";
        return std::nullopt;
    }
    if (archive["$archiver"].string() == nullptr || *archive["$archiver"].string() != kArchiverName) {
        error = "Keyed archive: the archiver is not NSKeyedArchiver";
        return std::nullopt;
    }
    if (!archive["$version"].isNull() && archive["$version"].integer() == nullptr) {
        error = "Keyed archive: the version is not a number";
        return std::nullopt;
    }
    parts.objects = archive["$objects"].array();
    if (parts.objects == nullptr || parts.objects->empty()) {
        error = "Keyed archive: there is no list of objects";
        return std::nullopt;
    }
    const Value& top = archive["$top"];
    std::optional<uint64_t> root = uidOf(top["root"]);
    if (!root && top.dictionary() != nullptr && top.count() == 1) {
        // Archives made under another top-level key carry their root under that key alone.
        root = uidOf(top.dictionary()->begin()->second);
    }
    if (!root) {
        error = "Keyed archive: there is no root object";
        return std::nullopt;
    }
    parts.root = *root;
    return parts;
}

std::optional<ArchiveParts> archiveParts(const Bytes& data, std::string& error) {
    std::string reason;
    std::optional<Value> plist = Value::fromPropertyList(data, &reason);
    if (!plist) {
        error = "Keyed archive: " + reason;
        return std::nullopt;
    }
    return archivePartsOf(std::move(*plist), error);
}

template <typename Result>
Result reportFailure(const std::string& message, std::string* error) {
    logMessage("%@", message);
    if (error != nullptr) {
        *error = message;
    }
    return Result();
}

}  // namespace

std::optional<Value> KeyedUnarchiver::unarchiveObjectWithData(const Bytes& data, std::string* error) {
    std::string message;
    const std::optional<ArchiveParts> parts = archiveParts(data, message);
    if (!parts) {
        return reportFailure<std::optional<Value>>(message, error);
    }
    keyedarchive::Reader reader(*parts->objects, KeyedArchiveRegistry::shared());
    Value root = reader.valueAt(parts->root);
    if (reader.failed()) {
        return reportFailure<std::optional<Value>>(reader.error(), error);
    }
    return root;
}

std::shared_ptr<KeyedArchivable> KeyedUnarchiver::unarchiveArchivableWithData(const Bytes& data, std::string* error,
                                                                              const KeyedArchiveRegistry& registry) {
    std::string reason;
    std::optional<Value> plist = Value::fromPropertyList(data, &reason);
    if (!plist) {
        return reportFailure<std::shared_ptr<KeyedArchivable>>("Keyed archive: " + reason, error);
    }
    return unarchiveArchivableWithPropertyList(std::move(*plist), error, registry);
}

std::shared_ptr<KeyedArchivable> KeyedUnarchiver::unarchiveArchivableWithPropertyList(
    Value plist, std::string* error, const KeyedArchiveRegistry& registry) {
    std::string message;
    const std::optional<ArchiveParts> parts = archivePartsOf(std::move(plist), message);
    if (!parts) {
        return reportFailure<std::shared_ptr<KeyedArchivable>>(message, error);
    }
    keyedarchive::Reader reader(*parts->objects, registry);
    std::shared_ptr<KeyedArchivable> root = reader.objectAt(parts->root);
    if (reader.failed()) {
        return reportFailure<std::shared_ptr<KeyedArchivable>>(reader.error(), error);
    }
    if (!root) {
        return reportFailure<std::shared_ptr<KeyedArchivable>>("Keyed archive: the root object is null", error);
    }
    return root;
}

std::optional<KeyedNode> KeyedUnarchiver::unarchiveNodeWithData(const Bytes& data, std::string* error,
                                                                const KeyedArchiveRegistry& registry) {
    std::string message;
    const std::optional<ArchiveParts> parts = archiveParts(data, message);
    if (!parts) {
        return reportFailure<std::optional<KeyedNode>>(message, error);
    }
    keyedarchive::Reader reader(*parts->objects, registry);
    KeyedNode root = reader.nodeAt(parts->root);
    if (reader.failed()) {
        return reportFailure<std::optional<KeyedNode>>(reader.error(), error);
    }
    return root;
}

}  // namespace brassline
