#include "lifecycle/NumberPattern.h"

#include "core/Log.h"

namespace brassline {

PatternElement PatternElement::literal(std::string text) {
    PatternElement element;
    element.text = std::move(text);
    return element;
}

PatternElement PatternElement::token(std::string field, std::optional<std::string> option) {
    PatternElement element;
    element.isToken = true;
    element.field = std::move(field);
    element.option = std::move(option);
    return element;
}

namespace {

std::optional<NumberPattern> patternFromList(const Value::Array& list, std::string* error) {
    NumberPattern pattern;
    pattern.reserve(list.size());
    for (size_t index = 0; index < list.size(); ++index) {
        const Value& item = list[index];
        if (const std::string* text = item.string()) {
            pattern.push_back(PatternElement::literal(*text));
            continue;
        }
        const Value::Dictionary* record = item.dictionary();
        const std::string* field = record != nullptr ? item["field"].string() : nullptr;
        if (field == nullptr) {
            if (error != nullptr) {
                *error =
                    "element " + std::to_string(index + 1) + " is neither text nor a token record with a \"field\"";
            }
            return std::nullopt;
        }
        PatternElement token = PatternElement::token(*field);
        if (const std::string* option = item["option"].string()) {
            token.option = *option;
        } else if (!item["option"].isNull()) {
            if (error != nullptr) {
                *error = "element " + std::to_string(index + 1) + ": \"option\" must be text";
            }
            return std::nullopt;
        }
        if (const std::string* uid = item["uid"].string()) {
            token.uid = *uid;
        }
        pattern.push_back(std::move(token));
    }
    return pattern;
}

}  // namespace

std::optional<NumberPattern> patternFromValue(const Value& value, std::string* error) {
    if (const Value::Array* list = value.array()) {
        return patternFromList(*list, error);
    }
    if (const Bytes* bytes = value.bytes()) {
        std::string reason;
        std::optional<Value> decoded = Value::fromPropertyList(*bytes, &reason);
        if (!decoded || decoded->array() == nullptr) {
            if (error != nullptr) {
                *error = decoded ? "the stored pattern is not a list" : "the stored pattern does not read: " + reason;
            }
            return std::nullopt;
        }
        return patternFromList(*decoded->array(), error);
    }
    if (error != nullptr) {
        *error = value.isNull() ? "no pattern is stored" : "a pattern is a list, not " + value.description();
    }
    return std::nullopt;
}

Value patternToList(const NumberPattern& pattern) {
    Value::Array list;
    list.reserve(pattern.size());
    for (const PatternElement& element : pattern) {
        if (!element.isToken) {
            list.emplace_back(element.text);
            continue;
        }
        Value::Dictionary record;
        record.emplace("field", Value(element.field));
        if (element.option) {
            record.emplace("option", Value(*element.option));
        }
        if (!element.uid.empty()) {
            record.emplace("uid", Value(element.uid));
        }
        list.emplace_back(std::move(record));
    }
    return Value(std::move(list));
}

Value archivedPattern(const NumberPattern& pattern) {
    return Value(patternToList(pattern).toBinaryPropertyList());
}

std::optional<NumberPattern> patternFromJSON(std::string_view json, std::string* error) {
    std::string reason;
    std::optional<Value> value = Value::fromJSON(json, &reason);
    if (!value) {
        if (error != nullptr) {
            *error = "not JSON: " + reason;
        }
        return std::nullopt;
    }
    if (value->array() == nullptr) {
        if (error != nullptr) {
            *error = "a pattern is a JSON list of texts and token records";
        }
        return std::nullopt;
    }
    return patternFromList(*value->array(), error);
}

std::string patternToJSON(const NumberPattern& pattern) {
    return patternToList(pattern).toJSON();
}

bool patternHasField(const NumberPattern& pattern, std::string_view field) {
    for (const PatternElement& element : pattern) {
        if (element.isToken && element.field == field) {
            return true;
        }
    }
    return false;
}

}  // namespace brassline
