#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"

// Keyed archives in the platform's format: a binary property list with "$archiver"
// "NSKeyedArchiver", "$version" 100000, "$top" {"root": UID} and "$objects", whose entry 0
// is "$null" and whose other entries are strings, numbers and data inline and objects as
// dictionaries with a "$class" UID. Values map as follows:
//   null        UID 0 for a key or the root; an NSNull object inside arrays and dictionaries
//   bool, integer, double   inline numbers in $objects
//   string      an inline string, written once however often it occurs
//   bytes       inline data (NSMutableData's {"NS.data"} is read too)
//   date        NSDate {"NS.time": seconds since 2001}
//   decimal     NSDecimalNumber with the platform's fields: "NS.exponent", "NS.length"
//               (16-bit mantissa words in use), "NS.negative", "NS.compact",
//               "NS.mantissa.bo" (1, little endian) and "NS.mantissa" (16 bytes of data);
//               not-a-number is length 0 with the negative flag
//   array       NSArray {"NS.objects": [UIDs]} (mutable arrays and sets are read too)
//   dictionary  NSDictionary {"NS.keys": [UIDs], "NS.objects": [UIDs]}
//   object reference   not archivable: written as null, with a log line
// Classes of our own archive themselves through KeyedArchivable and come back through the
// decoder registered under their class name.

namespace brassline {

class KeyedEncoder;
class KeyedDecoder;
class KeyedArchivable;

// A number as a 32-bit float holds it: beyond the float range it is infinite (a plain
// conversion of such a double is undefined), not-a-number stays so.
double singlePrecision(double value);

// A field or value read without knowing its type beforehand: what a mixed graph of plain
// values and objects decodes to (a dictionary of arrays of objects, say), and what an
// object of a class unknown here keeps so that it writes itself back unchanged. Arrays and
// dictionaries keep their archived class name and their order.
struct KeyedNode {
    enum class Kind : uint8_t { Null, Inline, Value, Object, Array, Dictionary };
    Kind kind = Kind::Null;
    Value value;                              // Inline (stored in the record) and Value.
    std::shared_ptr<KeyedArchivable> object;  // Object.
    std::string className;                    // Array and Dictionary.
    std::vector<KeyedNode> elements;          // Array elements; Dictionary values.
    std::vector<std::string> keys;            // Dictionary keys, beside their values.

    static KeyedNode fromValue(Value value);
    static KeyedNode fromObject(std::shared_ptr<KeyedArchivable> object);
    static KeyedNode array(std::vector<KeyedNode> elements, std::string className = "NSArray");
    static KeyedNode dictionary(std::vector<std::string> keys, std::vector<KeyedNode> values,
                                std::string className = "NSDictionary");
    // The member of a dictionary node; nullptr when absent or not a dictionary.
    const KeyedNode* member(std::string_view key) const;
};

// An object that writes itself into a keyed archive under fixed string keys. The class
// name and its superclass chain go into the archive's class record.
class KeyedArchivable {
public:
    virtual ~KeyedArchivable() = default;
    virtual std::string archivedClassName() const = 0;
    // The superclasses after the class itself, nearest first.
    virtual std::vector<std::string> archivedSuperclassNames() const { return {"NSObject"}; }
    virtual void encodeWithCoder(KeyedEncoder& coder) const = 0;
};

// Makes an object from its archived fields; nullptr (ideally after coder.failWithError)
// when the fields don't make one.
using KeyedDecodeFunction = std::function<std::shared_ptr<KeyedArchivable>(KeyedDecoder& coder)>;

// Class name to decoder, for the classes that later subsystems archive. Registration
// happens at start-up; lookups may come from any thread.
class KeyedArchiveRegistry {
public:
    static KeyedArchiveRegistry& shared();

    // Replaces an earlier registration of the same name.
    void registerClass(std::string className, KeyedDecodeFunction decode);
    void unregisterClass(std::string_view className);
    // An empty function for an unknown class.
    KeyedDecodeFunction decoderForClass(std::string_view className) const;
    // What decodes an object of a class with no decoder of its own (empty: such an archive
    // fails). The layout archive keeps elements of unknown classes this way.
    void setFallbackDecoder(KeyedDecodeFunction decode);
    KeyedDecodeFunction fallbackDecoder() const;

private:
    mutable std::mutex m_mutex;
    std::map<std::string, KeyedDecodeFunction, std::less<>> m_decoders;
    KeyedDecodeFunction m_fallback;
};

namespace keyedarchive {
class Writer;
class Reader;
}  // namespace keyedarchive

// What encodeWithCoder writes into: the fields of one object. Values and objects are
// referenced; encodeInt, encodeDouble, encodeBool and encodeBytes are written inline. Keys
// that begin with "$" are stored with one more "$", as the format reserves them.
class KeyedEncoder {
public:
    void encodeValue(const Value& value, std::string_view key);
    // A null object is written as UID 0, like a null value.
    void encodeObject(const KeyedArchivable* object, std::string_view key);
    // An NSArray of the objects; null entries become NSNull.
    void encodeObjects(const std::vector<const KeyedArchivable*>& objects, std::string_view key);
    void encodeInt(int64_t value, std::string_view key);
    void encodeDouble(double value, std::string_view key);
    void encodeBool(bool value, std::string_view key);
    void encodeString(std::string_view value, std::string_view key);
    void encodeBytes(const Bytes& value, std::string_view key);
    // A value as the platform's encodeFloat:forKey: leaves it: rounded to 32 bits.
    void encodeFloat(double value, std::string_view key);
    // An untyped field, written back in the form it was read in.
    void encodeNode(const KeyedNode& node, std::string_view key);

private:
    friend class keyedarchive::Writer;
    KeyedEncoder(keyedarchive::Writer& writer, Value::Dictionary& record) : m_writer(writer), m_record(record) {}

    keyedarchive::Writer& m_writer;
    Value::Dictionary& m_record;
};

// What a registered decoder reads from: the fields of one archived object. A missing key
// gives null, 0, false, "" or nothing; a field of the wrong type or a damaged reference
// fails the whole archive (hasFailed) and gives the same empty answers.
class KeyedDecoder {
public:
    const std::string& className() const { return m_className; }
    // The class record's chain after the class itself ("$classes"), as archived.
    std::vector<std::string> archivedSuperclassNames() const;
    bool containsValueForKey(std::string_view key) const;

    Value decodeValueForKey(std::string_view key);
    std::shared_ptr<KeyedArchivable> decodeObjectForKey(std::string_view key);
    // The objects of an archived array (written by encodeObjects); NSNull entries are nullptr.
    std::vector<std::shared_ptr<KeyedArchivable>> decodeObjectsForKey(std::string_view key);
    int64_t decodeIntForKey(std::string_view key);
    double decodeDoubleForKey(std::string_view key);
    bool decodeBoolForKey(std::string_view key);
    std::string decodeStringForKey(std::string_view key);
    Bytes decodeBytesForKey(std::string_view key);
    // A number read back through a 32-bit float, as the platform's decodeFloatForKey: does.
    double decodeFloatForKey(std::string_view key);
    // The keys of the record, "$class" left out, as the object wrote them.
    std::vector<std::string> allKeys() const;
    // Any field, as a node: values for the built-in value classes, objects through their
    // decoders (or the registry's fallback), arrays and dictionaries element by element.
    KeyedNode decodeNodeForKey(std::string_view key);

    // Marks the archive as damaged: unarchiving answers nothing, with this reason.
    void failWithError(std::string message);
    bool hasFailed() const;

private:
    friend class keyedarchive::Reader;
    KeyedDecoder(keyedarchive::Reader& reader, const Value::Dictionary& record, std::string className)
        : m_reader(reader), m_record(record), m_className(std::move(className)) {}
    const Value* field(std::string_view key) const;

    keyedarchive::Reader& m_reader;
    const Value::Dictionary& m_record;
    std::string m_className;
};

class KeyedArchiver {
public:
    // The binary keyed archive of a value.
    static Bytes archivedDataWithRootObject(const Value& root);
    // The binary keyed archive of an object graph; empty, with the reason in `error`, when
    // an object refers back to itself through its fields (cycles are not written).
    static std::optional<Bytes> archivedDataWithRootObject(const KeyedArchivable& root, std::string* error = nullptr);
    // The archive of a mixed graph; empty, with the reason in `error`, on the same failures.
    static std::optional<Bytes> archivedDataWithRootNode(const KeyedNode& root, std::string* error = nullptr);
};

class KeyedUnarchiver {
public:
    // The value of a keyed archive. Empty, with the reason in `error`, for data that is not
    // a well-formed archive: bad references, cycles, missing parts, wrong types, classes
    // that are not values. Never loops and never reads outside the archive.
    static std::optional<Value> unarchiveObjectWithData(const Bytes& data, std::string* error = nullptr);
    // The root object of an archive written from a KeyedArchivable, made by the decoders of
    // `registry`; nullptr, with the reason in `error`, on the same failures.
    static std::shared_ptr<KeyedArchivable> unarchiveArchivableWithData(
        const Bytes& data, std::string* error = nullptr,
        const KeyedArchiveRegistry& registry = KeyedArchiveRegistry::shared());
    // The same from the archive's property list, already read: what a cache of archives
    // keeps so that each copy skips the parse.
    static std::shared_ptr<KeyedArchivable> unarchiveArchivableWithPropertyList(
        Value plist, std::string* error = nullptr,
        const KeyedArchiveRegistry& registry = KeyedArchiveRegistry::shared());
    // The root of an archive of a mixed graph, as a node; empty, with the reason in `error`,
    // on the same failures.
    static std::optional<KeyedNode> unarchiveNodeWithData(
        const Bytes& data, std::string* error = nullptr,
        const KeyedArchiveRegistry& registry = KeyedArchiveRegistry::shared());
};

}  // namespace brassline
