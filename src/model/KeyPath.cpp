#include "model/KeyPath.h"

#include <cmath>
#include <functional>
#include <unordered_map>

namespace brassline {

namespace {

struct OperatorName {
    std::string_view name;
    KeyPath::Operator op;
};

constexpr OperatorName kOperators[] = {
    {"count", KeyPath::Operator::Count},
    {"sum", KeyPath::Operator::Sum},
    {"avg", KeyPath::Operator::Avg},
    {"min", KeyPath::Operator::Min},
    {"max", KeyPath::Operator::Max},
    {"unionOfObjects", KeyPath::Operator::UnionOfObjects},
    {"distinctUnionOfObjects", KeyPath::Operator::DistinctUnionOfObjects},
    {"unionOfArrays", KeyPath::Operator::UnionOfArrays},
    {"distinctUnionOfArrays", KeyPath::Operator::DistinctUnionOfArrays},
};

std::string_view operatorName(KeyPath::Operator op) {
    for (const auto& entry : kOperators) {
        if (entry.op == op) {
            return entry.name;
        }
    }
    return {};
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\t')) {
        text.remove_suffix(1);
    }
    return text;
}

Value lookUp(const Value& value, std::string_view key) {
    if (Object* object = value.object()) {
        return object->valueForKey(key);
    }
    if (const auto* dictionary = value.dictionary()) {
        auto found = dictionary->find(key);
        return found == dictionary->end() ? Value() : found->second;
    }
    return Value();
}

// A hash consistent with Value::operator==: numbers of every type that compare equal
// hash through the same double, so 1, 1.0 and Decimal 1 land in one bucket.
size_t valueHash(const Value& value) {
    switch (value.type()) {
        case Value::Type::Null:
            return 0;
        case Value::Type::Bool:
        case Value::Type::Integer:
        case Value::Type::Double:
        case Value::Type::Decimal: {
            double number = value.toDouble();
            return std::isnan(number) ? 1 : std::hash<double>{}(number == 0.0 ? 0.0 : number);
        }
        case Value::Type::String:
            return std::hash<std::string>{}(*value.string());
        case Value::Type::Date:
            return std::hash<double>{}(value.date()->timeIntervalSinceReferenceDate());
        case Value::Type::Object:
            return std::hash<const void*>{}(value.object());
        default:
            return value.count() * 31 + static_cast<size_t>(value.type());
    }
}

// Appends `value` unless an equal value is already there; linear in the number of
// elements thanks to the hash buckets.
class DistinctCollector {
public:
    void add(const Value& value) {
        auto& bucket = m_buckets[valueHash(value)];
        for (size_t index : bucket) {
            if (m_values[index] == value) {
                return;
            }
        }
        bucket.push_back(m_values.size());
        m_values.push_back(value);
    }
    Value::Array take() { return std::move(m_values); }

private:
    Value::Array m_values;
    std::unordered_map<size_t, std::vector<size_t>> m_buckets;
};

}  // namespace

KeyPath KeyPath::parse(std::string_view text) {
    KeyPath path;
    text = trimmed(text);
    if (text.empty()) {
        return path;
    }
    size_t start = 0;
    while (start <= text.size()) {
        size_t dot = text.find('.', start);
        std::string_view part =
            text.substr(start, dot == std::string_view::npos ? std::string_view::npos : dot - start);
        part = trimmed(part);
        if (part.empty()) {
            path.m_error =
                "empty key at position " + std::to_string(start) + " of key path \"" + std::string(text) + "\"";
            path.m_segments.clear();
            return path;
        }
        Segment segment;
        if (part.front() == '@') {
            std::string_view name = part.substr(1);
            for (const auto& entry : kOperators) {
                if (entry.name == name) {
                    segment.op = entry.op;
                }
            }
            if (segment.op == Operator::None) {
                path.m_error = "unknown collection operator \"" + std::string(part) + "\" in key path \"" +
                               std::string(text) + "\"";
                path.m_segments.clear();
                return path;
            }
        } else {
            if (part.front() == '#') {
                part.remove_prefix(1);
            }
            if (part.empty()) {
                path.m_error = "empty key after '#' in key path \"" + std::string(text) + "\"";
                path.m_segments.clear();
                return path;
            }
            segment.key = std::string(part);
        }
        path.m_segments.push_back(std::move(segment));
        if (dot == std::string_view::npos) {
            break;
        }
        start = dot + 1;
    }
    return path;
}

std::string KeyPath::toString() const {
    std::string text;
    for (const auto& segment : m_segments) {
        if (!text.empty()) {
            text += '.';
        }
        if (segment.op == Operator::None) {
            text += segment.key;
        } else {
            text += '@';
            text += operatorName(segment.op);
        }
    }
    return text;
}

std::vector<std::string> KeyPath::components() const {
    std::vector<std::string> parts;
    for (const auto& segment : m_segments) {
        if (segment.op == Operator::None) {
            parts.push_back(segment.key);
        } else {
            parts.emplace_back("@").append(operatorName(segment.op));
        }
    }
    return parts;
}

Value KeyPath::evaluate(const Value& root) const {
    if (!isValid()) {
        return Value();
    }
    return evaluateFrom(root, 0);
}

Value KeyPath::evaluateFrom(const Value& value, size_t index) const {
    // Walks keys iteratively while the value is a single object or dictionary (the common
    // case, kept free of recursion and copies of arrays); arrays map the rest of the path.
    const Value* current = &value;
    Value holder;
    for (; index < m_segments.size(); ++index) {
        const Segment& segment = m_segments[index];
        if (segment.op != Operator::None) {
            return applyOperator(segment.op, *current, index + 1);
        }
        if (const auto* array = current->array()) {
            Value::Array mapped;
            mapped.reserve(array->size());
            for (const Value& element : *array) {
                mapped.push_back(evaluateFrom(element, index));
            }
            return Value(std::move(mapped));
        }
        if (segment.key == "self") {
            continue;
        }
        Value next = lookUp(*current, segment.key);
        holder = std::move(next);
        current = &holder;
        if (current->isNull()) {
            return Value();
        }
    }
    return *current;
}

Value KeyPath::applyOperator(Operator op, const Value& collection, size_t restIndex) const {
    if (collection.isNull()) {
        return Value();
    }
    const Value::Array* array = collection.array();
    Value::Array single;
    if (array == nullptr) {
        if (const auto* dictionary = collection.dictionary(); dictionary != nullptr && op == Operator::Count) {
            return Value(static_cast<int64_t>(dictionary->size()));
        }
        // A lone value acts as a collection of one, which keeps "@sum.x" on an object
        // meaningful instead of an error.
        single.push_back(collection);
        array = &single;
    }
    if (op == Operator::Count) {
        return Value(static_cast<int64_t>(array->size()));
    }
    auto elementValue = [&](const Value& element) {
        return restIndex < m_segments.size() ? evaluateFrom(element, restIndex) : element;
    };
    switch (op) {
        case Operator::Sum:
        case Operator::Avg: {
            Decimal sum;
            int64_t counted = 0;
            for (const Value& element : *array) {
                Value value = elementValue(element);
                if (value.isNull()) {
                    continue;
                }
                sum += value.toDecimal();
                ++counted;
            }
            if (op == Operator::Avg && counted > 0) {
                sum /= Decimal(counted);
            }
            return Value(sum);
        }
        case Operator::Min:
        case Operator::Max: {
            Value best;
            for (const Value& element : *array) {
                Value value = elementValue(element);
                if (value.isNull()) {
                    continue;
                }
                if (best.isNull()) {
                    best = std::move(value);
                    continue;
                }
                auto order = value.compare(best);
                if ((op == Operator::Min && order < 0) || (op == Operator::Max && order > 0)) {
                    best = std::move(value);
                }
            }
            return best;
        }
        case Operator::UnionOfObjects:
        case Operator::DistinctUnionOfObjects: {
            if (op == Operator::UnionOfObjects) {
                Value::Array result;
                for (const Value& element : *array) {
                    Value value = elementValue(element);
                    if (!value.isNull()) {
                        result.push_back(std::move(value));
                    }
                }
                return Value(std::move(result));
            }
            DistinctCollector collector;
            for (const Value& element : *array) {
                Value value = elementValue(element);
                if (!value.isNull()) {
                    collector.add(value);
                }
            }
            return Value(collector.take());
        }
        case Operator::UnionOfArrays:
        case Operator::DistinctUnionOfArrays: {
            Value::Array result;
            DistinctCollector collector;
            bool distinct = op == Operator::DistinctUnionOfArrays;
            for (const Value& element : *array) {
                Value value = elementValue(element);
                const auto* inner = value.array();
                if (inner == nullptr) {
                    if (!value.isNull()) {
                        distinct ? collector.add(value) : result.push_back(value);
                    }
                    continue;
                }
                for (const Value& item : *inner) {
                    if (!item.isNull()) {
                        distinct ? collector.add(item) : result.push_back(item);
                    }
                }
            }
            return Value(distinct ? collector.take() : std::move(result));
        }
        default:
            return Value();
    }
}

Value valueForKeyPath(const Value& root, std::string_view keyPath) {
    return KeyPath::parse(keyPath).evaluate(root);
}

}  // namespace brassline
