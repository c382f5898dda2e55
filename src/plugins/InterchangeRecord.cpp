#include "plugins/InterchangeRecord.h"

#include <nlohmann/json.hpp>

namespace brassline {

namespace {

std::string jsonString(std::string_view text) {
    // Invalid UTF-8 is replaced rather than thrown about: a record never fails to print.
    return nlohmann::json(std::string(text)).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

void newline(std::string& out, bool pretty, int depth) {
    if (pretty) {
        out += '\n';
        out.append(static_cast<size_t>(depth) * 2, ' ');
    }
}

void write(const RecordValue& value, std::string& out, bool pretty, int depth);

void writeRecord(const InterchangeRecord& record, std::string& out, bool pretty, int depth) {
    if (record.empty()) {
        out += "{}";
        return;
    }
    out += '{';
    bool first = true;
    for (const InterchangeRecord::Entry& entry : record.entries()) {
        if (!first) {
            out += ',';
        }
        first = false;
        newline(out, pretty, depth + 1);
        out += jsonString(entry.key);
        out += pretty ? ": " : ":";
        write(entry.value, out, pretty, depth + 1);
    }
    newline(out, pretty, depth);
    out += '}';
}

void write(const RecordValue& value, std::string& out, bool pretty, int depth) {
    if (const InterchangeRecord* record = value.record()) {
        writeRecord(*record, out, pretty, depth);
    } else if (const RecordValue::List* list = value.list()) {
        if (list->empty()) {
            out += "[]";
            return;
        }
        out += '[';
        for (size_t i = 0; i < list->size(); ++i) {
            if (i > 0) {
                out += ',';
            }
            newline(out, pretty, depth + 1);
            write((*list)[i], out, pretty, depth + 1);
        }
        newline(out, pretty, depth);
        out += ']';
    } else {
        out += value.value()->toJSON();
    }
}

}  // namespace

InterchangeRecord::InterchangeRecord() = default;
InterchangeRecord::~InterchangeRecord() = default;
InterchangeRecord::InterchangeRecord(const InterchangeRecord&) = default;
InterchangeRecord::InterchangeRecord(InterchangeRecord&&) noexcept = default;
InterchangeRecord& InterchangeRecord::operator=(const InterchangeRecord&) = default;
InterchangeRecord& InterchangeRecord::operator=(InterchangeRecord&&) noexcept = default;

void InterchangeRecord::set(std::string_view key, RecordValue value) {
    if (value.isNull()) {
        remove(key);
        return;
    }
    if (RecordValue* existing = find(key)) {
        *existing = std::move(value);
        return;
    }
    m_entries.push_back(Entry{std::string(key), std::move(value)});
}

void InterchangeRecord::remove(std::string_view key) {
    std::erase_if(m_entries, [key](const Entry& entry) { return entry.key == key; });
}

const RecordValue* InterchangeRecord::find(std::string_view key) const {
    for (const Entry& entry : m_entries) {
        if (entry.key == key) {
            return &entry.value;
        }
    }
    return nullptr;
}

RecordValue* InterchangeRecord::find(std::string_view key) {
    return const_cast<RecordValue*>(std::as_const(*this).find(key));
}

std::vector<std::string> InterchangeRecord::keys() const {
    std::vector<std::string> result;
    result.reserve(m_entries.size());
    for (const Entry& entry : m_entries) {
        result.push_back(entry.key);
    }
    return result;
}

std::string InterchangeRecord::toJSON(bool pretty) const {
    std::string out;
    writeRecord(*this, out, pretty, 0);
    return out;
}

Value InterchangeRecord::toValue() const {
    Value::Dictionary dictionary;
    for (const Entry& entry : m_entries) {
        dictionary.emplace(entry.key, entry.value.toValue());
    }
    return Value(std::move(dictionary));
}

InterchangeRecord InterchangeRecord::fromDictionary(const Value::Dictionary& dictionary) {
    InterchangeRecord record;
    record.m_entries.reserve(dictionary.size());
    for (const auto& [key, value] : dictionary) {
        record.set(key, RecordValue::fromValue(value));
    }
    return record;
}

RecordValue::RecordValue(Value value) : m_data(std::move(value)) {}

bool RecordValue::isNull() const {
    const Value* plain = value();
    return plain != nullptr && plain->isNull();
}

std::string RecordValue::toJSON(bool pretty) const {
    std::string out;
    write(*this, out, pretty, 0);
    return out;
}

Value RecordValue::toValue() const {
    if (const InterchangeRecord* nested = record()) {
        return nested->toValue();
    }
    if (const List* elements = list()) {
        Value::Array array;
        array.reserve(elements->size());
        for (const RecordValue& element : *elements) {
            array.push_back(element.toValue());
        }
        return Value(std::move(array));
    }
    return *value();
}

RecordValue RecordValue::fromValue(const Value& value) {
    if (const Value::Dictionary* dictionary = value.dictionary()) {
        return RecordValue(InterchangeRecord::fromDictionary(*dictionary));
    }
    if (const Value::Array* array = value.array()) {
        List list;
        list.reserve(array->size());
        for (const Value& element : *array) {
            list.push_back(fromValue(element));
        }
        return RecordValue(std::move(list));
    }
    return RecordValue(value);
}

}  // namespace brassline
