// Fuzzes the predicate parser: arbitrary text with a fixed set of arguments is parsed,
// evaluated over a few objects, formatted, and read back. A predicate that parsed must
// format to text that parses again, evaluates the same, and formats to a fixed point.
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "core/Log.h"
#include "model/Predicate.h"

namespace {

using brassline::Date;
using brassline::Decimal;
using brassline::Object;
using brassline::Predicate;
using brassline::Value;

class FuzzObject : public Object {
public:
    explicit FuzzObject(Value::Dictionary values) : m_values(std::move(values)) {}
    Value valueForKey(std::string_view key) const override {
        auto found = m_values.find(key);
        return found == m_values.end() ? Value() : found->second;
    }
    std::string_view className() const override { return "FuzzObject"; }

private:
    Value::Dictionary m_values;
};

struct World {
    FuzzObject child1{Value::Dictionary{{"cost", 2}, {"name", "Ärger"}}};
    FuzzObject child2{Value::Dictionary{{"cost", *Decimal::parse("10.5")}, {"name", "bolt"}}};
    FuzzObject client{Value::Dictionary{{"name", "Müller & Söhne"}}};
    FuzzObject record{Value::Dictionary{{"name", "Müller & Söhne"},
                                        {"city", "Zürich 漢"},
                                        {"amount", *Decimal::parse("150.5")},
                                        {"count", 3},
                                        {"ratio", 0.5},
                                        {"flag", true},
                                        {"date", Date(731030400.0)},
                                        {"tags", Value::Array{"a", "b"}},
                                        {"childs", Value::Array{&child1, &child2}},
                                        {"client", Value(&client)}}};
    std::vector<Value> objects;
    std::vector<Value> arguments;

    World() {
        objects = {Value(&record),  Value(&child1), Value(),
                   Value("Müller"), Value(3),       Value(Value::Dictionary{{"a", 1}, {"name", "x"}})};
        arguments = {Value("name"),
                     Value("Müller"),
                     Value(3),
                     Value(2.5),
                     Value(Date(1e6)),
                     Value(),
                     Value("childs.cost"),
                     Value(Value::Array{1, "a", Value()}),
                     Value(*Decimal::parse("-0.001")),
                     Value("client.name"),
                     Value(true),
                     Value("Z.*")};
        brassline::setLogEchoesToStandardError(false);
        brassline::setLogFilePath("");
    }
};

[[noreturn]] void fail(const char* what, const std::string& first, const std::string& second) {
    std::fprintf(stderr, "%s\n  first:  %s\n  second: %s\n", what, first.c_str(), second.c_str());
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static World world;
    if (size == 0) {
        return 0;
    }
    // The first byte rotates the arguments so that %@ and %K meet every kind.
    std::vector<Value> arguments;
    for (size_t i = 0; i < world.arguments.size(); ++i) {
        arguments.push_back(world.arguments[(i + data[0]) % world.arguments.size()]);
    }
    std::string_view format(reinterpret_cast<const char*>(data) + 1, size - 1);
    std::string error;
    auto predicate = Predicate::parse(format, arguments, &error);
    if (!predicate) {
        if (error.empty()) {
            fail("parse failed without a message", std::string(format), "");
        }
        return 0;
    }
    Value::Dictionary variables{{"v", 1}, {"name", "x"}};
    Predicate substituted = predicate->predicateWithSubstitutionVariables(variables);
    std::string text = predicate->predicateFormat();
    auto again = Predicate::parse(text, {}, &error);
    if (!again) {
        fail("canonical text does not parse", text, error);
    }
    std::string textAgain = again->predicateFormat();
    auto third = Predicate::parse(textAgain, {}, &error);
    if (!third || third->predicateFormat() != textAgain) {
        fail("canonical text is not a fixed point", textAgain, third ? third->predicateFormat() : error);
    }
    for (const Value& object : world.objects) {
        bool first = predicate->evaluate(object);
        if (again->evaluate(object) != first) {
            fail("reparsed predicate evaluates differently", text, object.description());
        }
        substituted.evaluate(object);
    }
    return 0;
}
