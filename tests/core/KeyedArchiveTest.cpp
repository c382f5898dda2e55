#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <limits>
#include <random>

#include <gtest/gtest.h>
#include <unistd.h>

#include "PythonCheck.h"
#include "core/KeyedArchive.h"
#include "core/Log.h"

namespace brassline {
namespace keyedarchivetest {

Decimal dec(std::string_view text) {
    return Decimal::parse(text).value_or(Decimal::notANumber());
}

Value uid(int64_t index) {
    return Value(Value::Dictionary{{"CF$UID", index}});
}

void expectSame(const Value& actual, const Value& expected) {
    ASSERT_EQ(actual.type(), expected.type()) << actual.description() << " vs " << expected.description();
    EXPECT_EQ(actual, expected) << actual.description() << " vs " << expected.description();
    if (expected.decimal() != nullptr) {
        EXPECT_EQ(actual.decimal()->toString(), expected.decimal()->toString());
    } else if (expected.array() != nullptr) {
        ASSERT_EQ(actual.count(), expected.count());
        for (size_t i = 0; i < expected.count(); ++i) {
            expectSame(actual[i], expected[i]);
        }
    } else if (expected.dictionary() != nullptr) {
        ASSERT_EQ(actual.count(), expected.count());
        for (const auto& [key, member] : *expected.dictionary()) {
            SCOPED_TRACE(key);
            expectSame(actual[key], member);
        }
    }
}

TEST(KeyedArchiveTest, EveryValueTypeComesBackAsItWent) {
    const Value shared(Value::Array{"s", 1});
    const std::vector<std::pair<const char*, Value>> rows = {
        {"null", Value()},
        {"true", Value(true)},
        {"false", Value(false)},
        {"zero", Value(0)},
        {"int64 min", Value(std::numeric_limits<int64_t>::min())},
        {"int64 max", Value(std::numeric_limits<int64_t>::max())},
        {"double", Value(0.1)},
        {"negative double", Value(-1e-300)},
        {"decimal 0.1", Value(dec("0.1"))},
        {"decimal money", Value(dec("-12345678901234567890.12"))},
        {"decimal 38 nines", Value(dec("99999999999999999999999999999999999999"))},
        {"decimal tiny", Value(dec("1e-128"))},
        {"decimal huge", Value(dec("1e127"))},
        {"decimal zero", Value(Decimal())},
        {"decimal nan", Value(Decimal::notANumber())},
        {"empty string", Value("")},
        {"string $null", Value("$null")},
        {"unicode string", Value("Gr\xC3\xBC\xC3\x9F"
                                 "e \xE2\x82\xAC \xF0\x9F\x98\x80")},
        // NS.time is a full double: no microsecond step as in plain property lists.
        {"date", Value(Date(731000000.123456789))},
        {"date before 2001", Value(Date(-3e9 + 0.25))},
        {"bytes", Value(Bytes{0, 1, 255})},
        {"empty bytes", Value(Bytes{})},
        {"array with nulls", Value(Value::Array{Value(), 1, Value(), "x"})},
        {"empty array", Value(Value::Array{})},
        {"nested", Value(Value::Dictionary{{"list", Value::Array{shared, shared, Value::Dictionary{}}},
                                           {"$dollar", "key with a dollar"},
                                           {"", Value()},
                                           {"amount", dec("19.99")},
                                           {"when", Date(0.0)}})},
    };
    for (const auto& [label, value] : rows) {
        SCOPED_TRACE(label);
        const Bytes data = KeyedArchiver::archivedDataWithRootObject(value);
        std::string error;
        const std::optional<Value> back = KeyedUnarchiver::unarchiveObjectWithData(data, &error);
        ASSERT_TRUE(back.has_value()) << error;
        expectSame(*back, value);
    }
}

// The objects of an archive in the platform's own shape, with the mutable classes, the
// platform's decimal fields in both byte orders, NSNull and mutable data and string.
Value::Array platformObjects() {
    Bytes littleEndian(16, 0);
    littleEndian[0] = 0xCF;  // 1999 = 0x07CF.
    littleEndian[1] = 0x07;
    Bytes bigEndian(16, 0);
    bigEndian[1] = 0x02;  // Words 0x0002 and 0x0001: 0x00010002 = 65538.
    bigEndian[3] = 0x01;
    const auto classRecord = [](std::vector<std::string> chain) {
        Value::Array names(chain.begin(), chain.end());
        return Value(Value::Dictionary{{"$classname", chain.front()}, {"$classes", names}});
    };
    return {
        "$null",
        Value::Dictionary{{"$class", uid(2)},
                          {"NS.keys", Value::Array{uid(3), uid(4), uid(5), uid(6), uid(7)}},
                          {"NS.objects", Value::Array{uid(8), uid(9), uid(11), uid(15), uid(17)}}},
        classRecord({"NSMutableDictionary", "NSDictionary", "NSObject"}),
        "name",
        "total",
        "lines",
        "created",
        "blob",
        "Ada Lovelace",
        Value::Dictionary{{"$class", uid(10)},
                          {"NS.exponent", -2},
                          {"NS.length", 1},
                          {"NS.negative", true},
                          {"NS.compact", true},
                          {"NS.mantissa.bo", 1},
                          {"NS.mantissa", littleEndian}},
        classRecord({"NSDecimalNumber", "NSNumber", "NSValue", "NSObject"}),
        Value::Dictionary{{"$class", uid(14)},
                          {"NS.objects", Value::Array{uid(12), uid(13), uid(8), uid(20), uid(22)}}},
        3,
        Value::Dictionary{{"$class", uid(16)}},
        classRecord({"NSMutableArray", "NSArray", "NSObject"}),
        Value::Dictionary{{"$class", uid(18)}, {"NS.time", 730987200.5}},
        classRecord({"NSNull", "NSObject"}),
        Value::Dictionary{{"$class", uid(19)}, {"NS.data", Bytes{1, 2, 3}}},
        classRecord({"NSDate", "NSObject"}),
        classRecord({"NSMutableData", "NSData", "NSObject"}),
        Value::Dictionary{{"$class", uid(21)}, {"NS.string", "mutable"}},
        classRecord({"NSMutableString", "NSString", "NSObject"}),
        Value::Dictionary{{"$class", uid(10)},
                          {"NS.exponent", 0},
                          {"NS.length", 2},
                          {"NS.negative", false},
                          {"NS.compact", true},
                          {"NS.mantissa.bo", 2},
                          {"NS.mantissa", bigEndian}},
    };
}

Value archiveOf(Value::Array objects) {
    return Value(Value::Dictionary{{"$archiver", "NSKeyedArchiver"},
                                   {"$version", 100000},
                                   {"$top", Value::Dictionary{{"root", uid(1)}}},
                                   {"$objects", std::move(objects)}});
}

Value platformValue() {
    return Value(Value::Dictionary{
        {"name", "Ada Lovelace"},
        {"total", dec("-19.99")},
        {"lines", Value::Array{3, Value(), "Ada Lovelace", "mutable", dec("65538")}},
        {"created", Date(730987200.5)},
        {"blob", Bytes{1, 2, 3}},
    });
}

TEST(KeyedArchiveTest, ReadsArchivesInThePlatformsShapeInBothForms) {
    const Value archive = archiveOf(platformObjects());
    std::string error;
    const std::optional<Value> fromBinary =
        KeyedUnarchiver::unarchiveObjectWithData(archive.toBinaryPropertyList(), &error);
    ASSERT_TRUE(fromBinary.has_value()) << error;
    expectSame(*fromBinary, platformValue());
    const std::string xml = archive.toXMLPropertyList();
    const std::optional<Value> fromXML =
        KeyedUnarchiver::unarchiveObjectWithData(Bytes(xml.begin(), xml.end()), &error);
    ASSERT_TRUE(fromXML.has_value()) << error;
    expectSame(*fromXML, platformValue());
}

using pythoncheck::hasPython;
using pythoncheck::runPython;

std::filesystem::path scratchPath(const std::string& name) {
    return std::filesystem::temp_directory_path() / ("brassline-" + name + "-" + std::to_string(::getpid()));
}

TEST(KeyedArchiveTest, OutputHasTheDocumentedShapeInPythonsPlistlib) {
    if (!hasPython()) {
        GTEST_SKIP() << "python3 with plistlib is not available";
    }
    const Value root(Value::Dictionary{{"a", "x"}, {"n", 5}, {"d", dec("19.99")}, {"l", Value::Array{"x"}}});
    const Bytes data = KeyedArchiver::archivedDataWithRootObject(root);
    const std::filesystem::path path = scratchPath("archive");
    std::ofstream(path, std::ios::binary)
        .write(reinterpret_cast<const char*>(data.data()), static_cast<std::streamsize>(data.size()));
    const std::string output = runPython(R"(import plistlib, sys
d = plistlib.load(open(sys.argv[1], 'rb'))
print(sorted(d), d['$archiver'], d['$version'], d['$top'])
for i, o in enumerate(d['$objects']):
    if isinstance(o, dict):
        print(i, '{' + ', '.join('%r: %r' % (k, o[k]) for k in sorted(o)) + '}')
    else:
        print(i, repr(o))
)",
                                         path);
    std::filesystem::remove(path);
    // Worked out by hand: the dictionary takes entry 1 before its contents; keys and values
    // follow in key order, each string once ("x" serves the value of "a" and the list), each
    // class record where first needed; 19.99 is mantissa 1999 = 0x07CF, exponent -2.
    EXPECT_EQ(
        output,
        "['$archiver', '$objects', '$top', '$version'] NSKeyedArchiver 100000 {'root': UID(1)}\n"
        "0 '$null'\n"
        "1 {'$class': UID(12), 'NS.keys': [UID(2), UID(4), UID(7), UID(10)], "
        "'NS.objects': [UID(3), UID(6), UID(8), UID(11)]}\n"
        "2 'a'\n"
        "3 'x'\n"
        "4 'd'\n"
        "5 {'$classes': ['NSDecimalNumber', 'NSNumber', 'NSValue', 'NSObject'], '$classname': 'NSDecimalNumber'}\n"
        "6 {'$class': UID(5), 'NS.compact': True, 'NS.exponent': -2, 'NS.length': 1, "
        "'NS.mantissa': b'\\xcf\\x07\\x00\\x00\\x00\\x00\\x00\\x00\\x00\\x00\\x00\\x00\\x00\\x00\\x00\\x00', "
        "'NS.mantissa.bo': 1, 'NS.negative': False}\n"
        "7 'l'\n"
        "8 {'$class': UID(9), 'NS.objects': [UID(3)]}\n"
        "9 {'$classes': ['NSArray', 'NSObject'], '$classname': 'NSArray'}\n"
        "10 'n'\n"
        "11 5\n"
        "12 {'$classes': ['NSDictionary', 'NSObject'], '$classname': 'NSDictionary'}\n");
}

TEST(KeyedArchiveTest, ReadsAnArchiveWrittenByPythonsPlistlib) {
    if (!hasPython()) {
        GTEST_SKIP() << "python3 with plistlib is not available";
    }
    const std::filesystem::path path = scratchPath("python-archive");
    const std::string output = runPython(R"(import plistlib, sys
from plistlib import UID
def cls(*chain):
    return {'$classname': chain[0], '$classes': list(chain)}
objects = ['$null',
    {'$class': UID(2), 'NS.keys': [UID(3), UID(4), UID(5), UID(6), UID(7)],
     'NS.objects': [UID(8), UID(9), UID(11), UID(15), UID(17)]},
    cls('NSMutableDictionary', 'NSDictionary', 'NSObject'),
    'name', 'total', 'lines', 'created', 'blob', 'Ada Lovelace',
    {'$class': UID(10), 'NS.exponent': -2, 'NS.length': 1, 'NS.negative': True, 'NS.compact': True,
     'NS.mantissa.bo': 1, 'NS.mantissa': (1999).to_bytes(16, 'little')},
    cls('NSDecimalNumber', 'NSNumber', 'NSValue', 'NSObject'),
    {'$class': UID(14), 'NS.objects': [UID(12), UID(13), UID(8), UID(20), UID(22)]},
    3,
    {'$class': UID(16)},
    cls('NSMutableArray', 'NSArray', 'NSObject'),
    {'$class': UID(18), 'NS.time': 730987200.5},
    cls('NSNull', 'NSObject'),
    {'$class': UID(19), 'NS.data': bytes([1, 2, 3])},
    cls('NSDate', 'NSObject'),
    cls('NSMutableData', 'NSData', 'NSObject'),
    {'$class': UID(21), 'NS.string': 'mutable'},
    cls('NSMutableString', 'NSString', 'NSObject'),
    {'$class': UID(10), 'NS.exponent': 0, 'NS.length': 2, 'NS.negative': False, 'NS.compact': True,
     'NS.mantissa.bo': 2, 'NS.mantissa': bytes([0, 2, 0, 1]) + bytes(12)},
]
archive = {'$archiver': 'NSKeyedArchiver', '$version': 100000, '$top': {'root': UID(1)}, '$objects': objects}
open(sys.argv[1], 'wb').write(plistlib.dumps(archive, fmt=plistlib.FMT_BINARY))
)",
                                         path);
    ASSERT_EQ(output, "");
    std::ifstream file(path, std::ios::binary);
    const Bytes data((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
    std::filesystem::remove(path);
    std::string error;
    const std::optional<Value> value = KeyedUnarchiver::unarchiveObjectWithData(data, &error);
    ASSERT_TRUE(value.has_value()) << error;
    expectSame(*value, platformValue());
}

// A class of our own that archives itself under fixed keys.
class Shape : public KeyedArchivable {
public:
    std::string name;
    double width = 0;
    int64_t count = 0;
    bool visible = false;
    Value fill;
    Bytes data;
    std::string dollar;
    std::vector<std::shared_ptr<Shape>> children;
    std::shared_ptr<Shape> partner;

    std::string archivedClassName() const override { return "BLTestShape"; }
    std::vector<std::string> archivedSuperclassNames() const override { return {"BLTestElement", "NSObject"}; }
    void encodeWithCoder(KeyedEncoder& coder) const override {
        coder.encodeString(name, "name");
        coder.encodeDouble(width, "width");
        coder.encodeInt(count, "count");
        coder.encodeBool(visible, "visible");
        coder.encodeValue(fill, "fill");
        coder.encodeBytes(data, "data");
        coder.encodeString(dollar, "$class");  // A reserved key of the format: escaped.
        std::vector<const KeyedArchivable*> list;
        for (const auto& child : children) {
            list.push_back(child.get());
        }
        coder.encodeObjects(list, "children");
        coder.encodeObject(partner.get(), "partner");
    }

    static std::shared_ptr<KeyedArchivable> decode(KeyedDecoder& coder) {
        if (!coder.containsValueForKey("name")) {
            coder.failWithError("a shape needs a name");
            return nullptr;
        }
        auto shape = std::make_shared<Shape>();
        shape->name = coder.decodeStringForKey("name");
        shape->width = coder.decodeDoubleForKey("width");
        shape->count = coder.decodeIntForKey("count");
        shape->visible = coder.decodeBoolForKey("visible");
        shape->fill = coder.decodeValueForKey("fill");
        shape->data = coder.decodeBytesForKey("data");
        shape->dollar = coder.decodeStringForKey("$class");
        for (const auto& child : coder.decodeObjectsForKey("children")) {
            shape->children.push_back(std::dynamic_pointer_cast<Shape>(child));
        }
        shape->partner = std::dynamic_pointer_cast<Shape>(coder.decodeObjectForKey("partner"));
        return shape;
    }
};

struct ShapeRegistration {
    ShapeRegistration() { KeyedArchiveRegistry::shared().registerClass("BLTestShape", &Shape::decode); }
    ~ShapeRegistration() { KeyedArchiveRegistry::shared().unregisterClass("BLTestShape"); }
};

std::shared_ptr<Shape> sampleShapes() {
    auto root = std::make_shared<Shape>();
    root->name = "page";
    root->width = 595.5;
    root->count = -3;
    root->visible = true;
    root->fill = Value(Value::Dictionary{{"alpha", dec("0.75")}, {"names", Value::Array{"a", "b"}}});
    root->data = Bytes{9, 8, 7};
    root->dollar = "escaped";
    auto left = std::make_shared<Shape>();
    left->name = "left";
    auto right = std::make_shared<Shape>();
    right->name = "right";
    right->fill = Value(Date(12.5));
    left->partner = right;
    root->children = {left, right, nullptr};
    return root;
}

TEST(KeyedArchiveTest, RegisteredClassesComeBackAsTheirOwnObjects) {
    const ShapeRegistration registration;
    std::string error;
    const std::optional<Bytes> data = KeyedArchiver::archivedDataWithRootObject(*sampleShapes(), &error);
    ASSERT_TRUE(data.has_value()) << error;
    const auto back = std::dynamic_pointer_cast<Shape>(KeyedUnarchiver::unarchiveArchivableWithData(*data, &error));
    ASSERT_NE(back, nullptr) << error;
    EXPECT_EQ(back->name, "page");
    EXPECT_EQ(back->width, 595.5);
    EXPECT_EQ(back->count, -3);
    EXPECT_TRUE(back->visible);
    expectSame(back->fill, sampleShapes()->fill);
    EXPECT_EQ(back->data, (Bytes{9, 8, 7}));
    EXPECT_EQ(back->dollar, "escaped");
    ASSERT_EQ(back->children.size(), 3u);
    ASSERT_NE(back->children[0], nullptr);
    ASSERT_NE(back->children[1], nullptr);
    EXPECT_EQ(back->children[2], nullptr);
    EXPECT_EQ(back->children[0]->name, "left");
    EXPECT_EQ(back->children[1]->name, "right");
    expectSame(back->children[1]->fill, Value(Date(12.5)));
    EXPECT_FALSE(back->children[0]->visible);
    // One object referenced twice comes back as one object.
    EXPECT_EQ(back->children[0]->partner, back->children[1]);
    EXPECT_EQ(back->partner, nullptr);

    // The class record carries the chain, and the reserved key is stored escaped.
    const std::optional<Value> plist = Value::fromPropertyList(*data);
    ASSERT_TRUE(plist.has_value());
    const Value& objects = (*plist)["$objects"];
    const Value& rootRecord = objects[1];
    EXPECT_TRUE(rootRecord.dictionary()->count("$$class") == 1);
    const int64_t classIndex = *rootRecord["$class"]["CF$UID"].integer();
    expectSame(objects[static_cast<size_t>(classIndex)],
               Value(Value::Dictionary{{"$classname", "BLTestShape"},
                                       {"$classes", Value::Array{"BLTestShape", "BLTestElement", "NSObject"}}}));
}

TEST(KeyedArchiveTest, ObjectArchivesFailWithReasons) {
    LogCapture capture;
    std::string error;
    {
        // Without its decoder the class cannot come back.
        const std::optional<Bytes> data = KeyedArchiver::archivedDataWithRootObject(*sampleShapes());
        ASSERT_TRUE(data.has_value());
        EXPECT_EQ(KeyedUnarchiver::unarchiveArchivableWithData(*data, &error), nullptr);
        EXPECT_NE(error.find("no decoder is registered for the class BLTestShape"), std::string::npos) << error;
    }
    const ShapeRegistration registration;
    {
        // An object where a value is expected.
        const std::optional<Bytes> data = KeyedArchiver::archivedDataWithRootObject(*sampleShapes());
        ASSERT_TRUE(data.has_value());
        EXPECT_FALSE(KeyedUnarchiver::unarchiveObjectWithData(*data, &error).has_value());
        EXPECT_NE(error.find("stands where a value is expected"), std::string::npos) << error;
        // A value archive where an object is expected.
        EXPECT_EQ(
            KeyedUnarchiver::unarchiveArchivableWithData(KeyedArchiver::archivedDataWithRootObject(Value(1)), &error),
            nullptr);
        EXPECT_FALSE(error.empty());
    }
    {
        // A cycle is refused on writing.
        auto shape = std::make_shared<Shape>();
        shape->name = "loop";
        shape->partner = shape;
        EXPECT_FALSE(KeyedArchiver::archivedDataWithRootObject(*shape, &error).has_value());
        EXPECT_NE(error.find("refers back to itself"), std::string::npos) << error;
        shape->partner.reset();
    }
    {
        // A decoder's own refusal reaches the caller.
        Shape unnamed;
        const std::optional<Bytes> data = KeyedArchiver::archivedDataWithRootObject(unnamed);
        ASSERT_TRUE(data.has_value());
        std::optional<Value> plist = Value::fromPropertyList(*data);
        ASSERT_TRUE(plist.has_value());
        Value::Array objects = *(*plist)["$objects"].array();
        Value::Dictionary record = *objects[1].dictionary();
        record.erase("name");
        objects[1] = Value(record);
        const Bytes damaged = archiveOf(objects).toBinaryPropertyList();
        EXPECT_EQ(KeyedUnarchiver::unarchiveArchivableWithData(damaged, &error), nullptr);
        EXPECT_NE(error.find("a shape needs a name"), std::string::npos) << error;
    }
}

Value::Array withField(Value::Array objects, size_t index, const std::string& key, std::optional<Value> value) {
    Value::Dictionary record = *objects[index].dictionary();
    if (value) {
        record.insert_or_assign(key, *value);
    } else {
        record.erase(key);
    }
    objects[index] = Value(record);
    return objects;
}

TEST(KeyedArchiveTest, DamagedArchivesAreRefusedWithReasons) {
    struct Row {
        const char* label;
        Value archive;
        const char* reason;
    };
    const Value::Array good = platformObjects();
    const auto withTop = [&](Value top) {
        Value::Dictionary archive = *archiveOf(good).dictionary();
        archive.insert_or_assign("$top", top);
        return Value(archive);
    };
    const auto without = [&](const char* key) {
        Value::Dictionary archive = *archiveOf(good).dictionary();
        archive.erase(key);
        return Value(archive);
    };
    const auto replaced = [&](size_t index, Value entry) {
        Value::Array objects = good;
        objects[index] = std::move(entry);
        return archiveOf(objects);
    };
    Value::Dictionary wrongArchiver = *archiveOf(good).dictionary();
    wrongArchiver.insert_or_assign("$archiver", "NSArchiver");
    const std::vector<Row> rows = {
        {"not a dictionary", Value(Value::Array{1}), "not a dictionary"},
        {"wrong archiver", Value(wrongArchiver), "not NSKeyedArchiver"},
        {"no objects", without("$objects"), "no list of objects"},
        {"no top", without("$top"), "no root object"},
        {"root past the end", withTop(Value(Value::Dictionary{{"root", uid(99)}})), "outside the 23 entries"},
        {"array contains itself", archiveOf(withField(good, 11, "NS.objects", Value(Value::Array{uid(11)}))),
         "contains itself"},
        {"array contains its dictionary", archiveOf(withField(good, 11, "NS.objects", Value(Value::Array{uid(1)}))),
         "contains itself"},
        {"keys and objects differ in number", archiveOf(withField(good, 1, "NS.keys", Value(Value::Array{uid(3)}))),
         "1 keys for 5 objects"},
        {"key that is a number",
         archiveOf(withField(good, 1, "NS.keys", Value(Value::Array{uid(12), uid(4), uid(5), uid(6), uid(7)}))),
         "key that is not a string"},
        {"no class", archiveOf(withField(good, 15, "$class", std::nullopt)), "entry 15 has no valid class reference"},
        {"class past the end", archiveOf(withField(good, 15, "$class", uid(500))), "no valid class reference"},
        {"class record without name", replaced(18, Value(Value::Dictionary{{"$classes", Value::Array{}}})),
         "without a name"},
        {"unknown class", replaced(18, Value(Value::Dictionary{{"$classname", "NSFancy"}})), "NSFancy is not known"},
        {"decimal with nine words", archiveOf(withField(good, 9, "NS.length", Value(9))), "damaged fields"},
        {"decimal in a third byte order", archiveOf(withField(good, 9, "NS.mantissa.bo", Value(3))), "damaged fields"},
        {"decimal exponent as text", archiveOf(withField(good, 9, "NS.exponent", Value("x"))), "not a number"},
        {"decimal mantissa as number", archiveOf(withField(good, 9, "NS.mantissa", Value(5))), "not data"},
        {"date without time", archiveOf(withField(good, 15, "NS.time", Value("noon"))), "no time"},
        {"list that is a number", archiveOf(withField(good, 11, "NS.objects", Value(5))), "not a list of references"},
        {"list of plain numbers", archiveOf(withField(good, 11, "NS.objects", Value(Value::Array{5}))),
         "other than a reference"},
        {"reference as an entry", replaced(12, uid(3)), "neither a value nor an object"},
        {"raw array as an entry", replaced(12, Value(Value::Array{})), "neither a value nor an object"},
        {"class record as an object",
         archiveOf(withField(good, 1, "NS.objects", Value(Value::Array{uid(2), uid(9), uid(11), uid(15), uid(17)}))),
         "entry 2 has no valid class reference"},
    };
    LogCapture capture;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        std::string error;
        EXPECT_FALSE(KeyedUnarchiver::unarchiveObjectWithData(row.archive.toBinaryPropertyList(), &error).has_value());
        EXPECT_NE(error.find(row.reason), std::string::npos) << error;
        EXPECT_EQ(error.rfind("Keyed archive: ", 0), 0u) << error;
    }
    EXPECT_TRUE(capture.contains("Keyed archive: "));
}

TEST(KeyedArchiveTest, DeepChainsAreRefusedAndSharedPartsStayLinear) {
    LogCapture capture;
    // 1000 arrays, each holding the next: far deeper than any real archive.
    Value::Array chain{"$null"};
    for (int64_t i = 1; i <= 1000; ++i) {
        chain.push_back(Value::Dictionary{{"$class", uid(1001)},
                                          {"NS.objects", i < 1000 ? Value::Array{uid(i + 1)} : Value::Array{}}});
    }
    chain.push_back(Value::Dictionary{{"$classname", "NSArray"}, {"$classes", Value::Array{"NSArray", "NSObject"}}});
    std::string error;
    EXPECT_FALSE(KeyedUnarchiver::unarchiveObjectWithData(archiveOf(chain).toBinaryPropertyList(), &error).has_value());
    EXPECT_NE(error.find("nest too deeply"), std::string::npos) << error;

    // Sixty levels of an array that holds the level below twice: 2^60 paths, 61 arrays.
    Value level(Value::Array{"leaf"});
    for (int i = 0; i < 60; ++i) {
        level = Value(Value::Array{level, level});
    }
    const Bytes data = KeyedArchiver::archivedDataWithRootObject(level);
    EXPECT_LT(data.size(), 4000u);
    const std::optional<Value> back = KeyedUnarchiver::unarchiveObjectWithData(data, &error);
    ASSERT_TRUE(back.has_value()) << error;
    const Value* walk = &*back;
    for (int i = 0; i < 60; ++i) {
        ASSERT_EQ(walk->count(), 2u);
        EXPECT_EQ((*walk)[0].sharedIdentity(), (*walk)[1].sharedIdentity());
        walk = &(*walk)[0];
    }
    EXPECT_EQ((*walk)[0], Value("leaf"));
}

TEST(KeyedArchiveTest, TruncatedAndFlippedArchivesNeverCrash) {
    const ShapeRegistration registration;
    LogCapture capture;
    const Bytes valueArchive = archiveOf(platformObjects()).toBinaryPropertyList();
    const std::optional<Bytes> objectArchive = KeyedArchiver::archivedDataWithRootObject(*sampleShapes());
    ASSERT_TRUE(objectArchive.has_value());
    for (const Bytes* original : {&valueArchive, &*objectArchive}) {
        const bool isObjects = original == &*objectArchive;
        const auto decodes = [&](const Bytes& data) {
            return isObjects ? KeyedUnarchiver::unarchiveArchivableWithData(data) != nullptr
                             : KeyedUnarchiver::unarchiveObjectWithData(data).has_value();
        };
        ASSERT_TRUE(decodes(*original));
        // A binary property list ends in its offset table and trailer: no cut-off survives.
        size_t truncatedDecoded = 0;
        for (size_t length = 0; length < original->size(); ++length) {
            truncatedDecoded +=
                decodes(Bytes(original->begin(), original->begin() + static_cast<ptrdiff_t>(length))) ? 1 : 0;
        }
        EXPECT_EQ(truncatedDecoded, 0u);
        size_t flipsRefused = 0;
        for (size_t position = 0; position < original->size(); ++position) {
            for (const uint8_t mask : {0x01, 0x10, 0x80, 0xFF}) {
                Bytes damaged = *original;
                damaged[position] ^= mask;
                flipsRefused += decodes(damaged) ? 0 : 1;
            }
        }
        // Many flips land in text or numbers and still decode; many others must not.
        EXPECT_GT(flipsRefused, original->size());
    }
}

TEST(KeyedArchiveTest, RandomlyDamagedArchivesInBothFormsNeverCrash) {
    LogCapture capture;
    const Value archive = archiveOf(platformObjects());
    const std::string xml = archive.toXMLPropertyList();
    const std::vector<Bytes> originals = {archive.toBinaryPropertyList(), Bytes(xml.begin(), xml.end())};
    // A fixed seed: the same damage on every run. Several bytes change at once, some into
    // the characters that matter to each form (NUL, markers, XML's < > & # ;).
    std::mt19937 random(20240301);
    size_t decoded = 0;
    for (int round = 0; round < 3000; ++round) {
        Bytes damaged = originals[static_cast<size_t>(round) % 2];
        const int changes = 1 + static_cast<int>(random() % 4);
        for (int change = 0; change < changes && !damaged.empty(); ++change) {
            const size_t position = random() % damaged.size();
            switch (random() % 4) {
                case 0:
                    damaged[position] ^= static_cast<uint8_t>(1u << (random() % 8));
                    break;
                case 1:
                    damaged[position] = static_cast<uint8_t>(random());
                    break;
                case 2:
                    damaged.erase(damaged.begin() + static_cast<ptrdiff_t>(position));
                    break;
                default:
                    damaged[position] = static_cast<uint8_t>("\0\x0f\xff\x7f<>&#;"[random() % 9]);
                    break;
            }
        }
        decoded += KeyedUnarchiver::unarchiveObjectWithData(damaged).has_value() ? 1 : 0;
    }
    EXPECT_LT(decoded, 3000u);
}

// A record class that keeps whatever fields it meets: the shape of the fallback decoder.
class KeepingRecord : public KeyedArchivable {
public:
    explicit KeepingRecord(std::string name) : m_name(std::move(name)) {}
    std::string archivedClassName() const override { return m_name; }
    std::vector<std::string> archivedSuperclassNames() const override {
        return superclasses.empty() ? KeyedArchivable::archivedSuperclassNames() : superclasses;
    }
    void encodeWithCoder(KeyedEncoder& coder) const override {
        for (const auto& [key, node] : fields) {
            coder.encodeNode(node, key);
        }
    }
    std::vector<std::pair<std::string, KeyedNode>> fields;
    std::vector<std::string> superclasses;

private:
    std::string m_name;
};

TEST(KeyedArchiveTest, MixedGraphsAndUnknownClassesComeBackAsNodes) {
    auto inner = std::make_shared<KeepingRecord>("BLTestFutureThing");
    inner->fields.emplace_back("count", KeyedNode::fromValue(Value(int64_t{7})));
    inner->fields.back().second.kind = KeyedNode::Kind::Inline;
    inner->fields.emplace_back("label", KeyedNode::fromValue(Value("seven")));
    const KeyedNode root =
        KeyedNode::dictionary({"items", "plain"},
                              {KeyedNode::array({KeyedNode::fromObject(inner), KeyedNode()}, "NSMutableArray"),
                               KeyedNode::fromValue(Value(Value::Array{Value(1), Value("x")}))},
                              "NSMutableDictionary");
    std::string error;
    const std::optional<Bytes> data = KeyedArchiver::archivedDataWithRootNode(root, &error);
    ASSERT_TRUE(data) << error;

    // Without a decoder or a fallback the unknown class fails the archive.
    EXPECT_FALSE(KeyedUnarchiver::unarchiveNodeWithData(*data, &error));
    EXPECT_NE(error.find("BLTestFutureThing"), std::string::npos) << error;

    KeyedArchiveRegistry registry;
    registry.setFallbackDecoder([](KeyedDecoder& coder) -> std::shared_ptr<KeyedArchivable> {
        auto kept = std::make_shared<KeepingRecord>(coder.className());
        for (const std::string& key : coder.allKeys()) {
            kept->fields.emplace_back(key, coder.decodeNodeForKey(key));
        }
        return kept;
    });
    const std::optional<KeyedNode> back = KeyedUnarchiver::unarchiveNodeWithData(*data, &error, registry);
    ASSERT_TRUE(back) << error;
    EXPECT_EQ(back->className, "NSMutableDictionary");
    const KeyedNode* items = back->member("items");
    ASSERT_NE(items, nullptr);
    ASSERT_EQ(items->elements.size(), 2U);
    EXPECT_EQ(items->className, "NSMutableArray");
    EXPECT_EQ(items->elements[1].kind, KeyedNode::Kind::Null);
    auto* kept = dynamic_cast<KeepingRecord*>(items->elements[0].object.get());
    ASSERT_NE(kept, nullptr);
    EXPECT_EQ(kept->archivedClassName(), "BLTestFutureThing");
    ASSERT_EQ(kept->fields.size(), 2U);
    EXPECT_EQ(kept->fields[0].second.kind, KeyedNode::Kind::Inline);
    EXPECT_EQ(kept->fields[1].second.value, Value("seven"));
    const KeyedNode* plain = back->member("plain");
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(plain->elements.size(), 2U);
    // Written again, the graph gives the same bytes.
    EXPECT_EQ(KeyedArchiver::archivedDataWithRootNode(*back), data);
}

// Writes many short-lived dictionaries, each made for its call and freed after it: the
// allocator hands their storage out again, which must not make them one shared value.
class TemporaryValues : public KeyedArchivable {
public:
    std::string archivedClassName() const override { return "BLTestTemporaries"; }
    void encodeWithCoder(KeyedEncoder& coder) const override {
        for (int i = 0; i < 20; ++i) {
            coder.encodeValue(Value(Value::Dictionary{{"index", Value(i)}}), "value" + std::to_string(i));
        }
    }
};

TEST(KeyedArchiveTest, TemporaryValuesAreNeverTakenForEachOther) {
    KeyedArchiveRegistry registry;
    registry.registerClass("BLTestTemporaries", [](KeyedDecoder& coder) -> std::shared_ptr<KeyedArchivable> {
        for (int i = 0; i < 20; ++i) {
            if (coder.decodeValueForKey("value" + std::to_string(i))["index"] != Value(i)) {
                coder.failWithError("value " + std::to_string(i) + " came back as another");
            }
        }
        return std::make_shared<TemporaryValues>();
    });
    const std::optional<Bytes> data = KeyedArchiver::archivedDataWithRootObject(TemporaryValues());
    ASSERT_TRUE(data);
    std::string error;
    EXPECT_NE(KeyedUnarchiver::unarchiveArchivableWithData(*data, &error, registry), nullptr) << error;
}

TEST(KeyedArchiveTest, ArraysThatReferToOneArrayTwiceCannotExpandWithoutEnd) {
    // 60 arrays, each holding the next one twice: 2^60 leaves as a tree, 62 entries as a
    // graph. Values share what the archive shares; nodes give up within their budget.
    const auto uid = [](int64_t index) { return Value(Value::Dictionary{{"CF$UID", Value(index)}}); };
    Value::Array objects{Value("$null")};
    const int64_t classIndex = 62;
    for (int64_t i = 1; i <= 60; ++i) {
        objects.push_back(Value(Value::Dictionary{{"NS.objects", Value(Value::Array{uid(i + 1), uid(i + 1)})},
                                                  {"$class", uid(classIndex)}}));
    }
    objects.push_back(Value("leaf"));
    objects.push_back(Value(Value::Dictionary{{"$classname", Value("NSArray")},
                                              {"$classes", Value(Value::Array{Value("NSArray"), Value("NSObject")})}}));
    const Bytes data = Value(Value::Dictionary{{"$archiver", Value("NSKeyedArchiver")},
                                               {"$version", Value(100000)},
                                               {"$top", Value(Value::Dictionary{{"root", uid(1)}})},
                                               {"$objects", Value(std::move(objects))}})
                           .toBinaryPropertyList();
    std::string error;
    EXPECT_TRUE(KeyedUnarchiver::unarchiveObjectWithData(data, &error)) << error;
    EXPECT_FALSE(KeyedUnarchiver::unarchiveNodeWithData(data, &error));
    EXPECT_NE(error.find("expand"), std::string::npos) << error;
}

TEST(KeyedArchiveTest, TextThatIsNoUTF8ReadsWithReplacementCharacters) {
    struct Case {
        std::string stored;
        std::string read;
    };
    const std::string replacement = "\xEF\xBF\xBD";
    const Case cases[] = {
        {"plain", "plain"},
        {"-<amount/>\xF0", "-<amount/>" + replacement},                           // A lead byte at the end.
        {std::string("a\xC0\xAF") + "b", "a" + replacement + replacement + "b"},  // An overlong "/".
        {"\xED\xA0\x80", replacement + replacement + replacement},                // A surrogate.
        {"Gr\xC3\xBC\xC3\x9F", "Gr\xC3\xBC\xC3\x9F"},                             // Well-formed text stays.
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.read);
        const Value archive(Value::Dictionary{
            {"$archiver", Value("NSKeyedArchiver")},
            {"$version", Value(100000)},
            {"$top", Value(Value::Dictionary{{"root", Value(Value::Dictionary{{"CF$UID", Value(1)}})}})},
            {"$objects", Value(Value::Array{Value("$null"), Value(c.stored)})}});
        const std::string xml = archive.toXMLPropertyList();
        const std::optional<Value> back = KeyedUnarchiver::unarchiveObjectWithData(Bytes(xml.begin(), xml.end()));
        ASSERT_TRUE(back);
        EXPECT_EQ(*back, Value(c.read));
    }
    // A NUL, which the writer can't keep inside text (it would end the text there): the
    // archive is written with a stand-in character that is then set to 0 (in UTF-16, as
    // the text is not ASCII).
    const Bytes written = KeyedArchiver::archivedDataWithRootObject(Value("<document.label/>#<page.number/> \xC3\xBC"));
    const std::string stored(written.begin(), written.end());
    const size_t stand = stored.find(std::string("/\0>\0#\0<", 7));
    ASSERT_NE(stand, std::string::npos);
    Bytes withNul = written;
    withNul[stand + 4] = 0;
    const std::optional<Value> back = KeyedUnarchiver::unarchiveObjectWithData(withNul);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->toString(), "<document.label/>" + replacement + "<page.number/> \xC3\xBC");
    const std::optional<Value> again =
        KeyedUnarchiver::unarchiveObjectWithData(KeyedArchiver::archivedDataWithRootObject(*back));
    ASSERT_TRUE(again);
    EXPECT_EQ(again->toString(), back->toString());
}

TEST(KeyedArchiveTest, ClassNamesThatAreNoUTF8ReadAndWriteAsTheyAreWritten) {
    const std::string replacement = "\xEF\xBF\xBD";
    KeyedArchiveRegistry registry;
    registry.setFallbackDecoder([](KeyedDecoder& coder) -> std::shared_ptr<KeyedArchivable> {
        auto kept = std::make_shared<KeepingRecord>(coder.className());
        kept->superclasses = coder.archivedSuperclassNames();
        return kept;
    });
    // Read: the name and its chain come with replacement characters, as text does.
    const Value archive(Value::Dictionary{
        {"$archiver", Value("NSKeyedArchiver")},
        {"$version", Value(100000)},
        {"$top", Value(Value::Dictionary{{"root", uid(1)}})},
        {"$objects",
         Value(Value::Array{
             Value("$null"), Value(Value::Dictionary{{"$class", uid(2)}}),
             Value(Value::Dictionary{{"$classname", Value("BLTestThing\xE0")},
                                     {"$classes", Value(Value::Array{Value("BLTestThing\xE0"), Value("BLTestBase\xF0"),
                                                                     Value("NSObject")})}})})}});
    const std::string xml = archive.toXMLPropertyList();
    std::string error;
    const auto read = std::dynamic_pointer_cast<KeepingRecord>(
        KeyedUnarchiver::unarchiveArchivableWithData(Bytes(xml.begin(), xml.end()), &error, registry));
    ASSERT_NE(read, nullptr) << error;
    EXPECT_EQ(read->archivedClassName(), "BLTestThing" + replacement);
    EXPECT_EQ(read->archivedSuperclassNames(), (std::vector<std::string>{"BLTestBase" + replacement, "NSObject"}));

    // Written: names that differ only in bytes that are no UTF-8 are one name on disk, so
    // they share one class record (a layout keeps one such name from the archive and one
    // read back through a copy), and the archive stands still from the first write on.
    auto kept = std::make_shared<KeepingRecord>("BLTestThing\xE0");
    auto copied = std::make_shared<KeepingRecord>("BLTestThing" + replacement);
    auto other = std::make_shared<KeepingRecord>("BLTestThing\xE1");
    const KeyedNode root =
        KeyedNode::array({KeyedNode::fromObject(kept), KeyedNode::fromObject(copied), KeyedNode::fromObject(other)});
    const std::optional<Bytes> data = KeyedArchiver::archivedDataWithRootNode(root, &error);
    ASSERT_TRUE(data) << error;
    const std::optional<Value> plist = Value::fromPropertyList(*data);
    ASSERT_TRUE(plist);
    std::vector<Value> thingRecords;
    for (const Value& entry : *(*plist)["$objects"].array()) {
        if (entry["$classname"].toString().starts_with("BLTestThing")) {
            thingRecords.push_back(entry);
        }
    }
    ASSERT_EQ(thingRecords.size(), 1U);
    EXPECT_EQ(thingRecords[0]["$classname"], Value("BLTestThing" + replacement));
    const std::optional<KeyedNode> back = KeyedUnarchiver::unarchiveNodeWithData(*data, &error, registry);
    ASSERT_TRUE(back) << error;
    const std::optional<Bytes> again = KeyedArchiver::archivedDataWithRootNode(*back, &error);
    ASSERT_TRUE(again) << error;
    const std::optional<Value> plistAgain = Value::fromPropertyList(*again);
    ASSERT_TRUE(plistAgain);
    EXPECT_EQ(*plistAgain, *plist) << plistAgain->description() << " vs " << plist->description();
}

}  // namespace keyedarchivetest
}  // namespace brassline
