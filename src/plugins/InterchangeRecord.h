#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "core/Value.h"

namespace brassline {

class RecordValue;

// The plain dictionary that plug-ins and e-invoice scripts read: keys keep the order in
// which they were added, so the JSON text and a script's `Object.keys` list them as the
// record's builder wrote them. A null value is never stored: a missing key is absent.
class InterchangeRecord {
public:
    struct Entry;

    InterchangeRecord();
    ~InterchangeRecord();
    InterchangeRecord(const InterchangeRecord&);
    InterchangeRecord(InterchangeRecord&&) noexcept;
    InterchangeRecord& operator=(const InterchangeRecord&);
    InterchangeRecord& operator=(InterchangeRecord&&) noexcept;

    // Adds the key at the end, or replaces its value in place. A null value removes it.
    void set(std::string_view key, RecordValue value);
    void remove(std::string_view key);
    // Null when absent.
    const RecordValue* find(std::string_view key) const;
    RecordValue* find(std::string_view key);
    const std::vector<Entry>& entries() const { return m_entries; }
    std::vector<std::string> keys() const;
    bool empty() const;
    size_t size() const;

    // JSON with the keys in record order; decimals as plain numbers, dates as ISO 8601.
    std::string toJSON(bool pretty = false) const;
    // The same content as a plain Value dictionary (key order is that of the map).
    Value toValue() const;
    // A Value dictionary as a record, its keys in the map's order.
    static InterchangeRecord fromDictionary(const Value::Dictionary& dictionary);

private:
    std::vector<Entry> m_entries;
};

// A value of a record: a plain value, a nested record or a list.
class RecordValue {
public:
    using List = std::vector<RecordValue>;

    RecordValue() = default;
    RecordValue(Value value);  // NOLINT: plain values read naturally as record values.
    RecordValue(InterchangeRecord record) : m_data(std::move(record)) {}
    RecordValue(List list) : m_data(std::move(list)) {}

    bool isNull() const;
    // Null for the other kinds.
    const Value* value() const { return std::get_if<Value>(&m_data); }
    const InterchangeRecord* record() const { return std::get_if<InterchangeRecord>(&m_data); }
    const List* list() const { return std::get_if<List>(&m_data); }

    std::string toJSON(bool pretty = false) const;
    Value toValue() const;
    // Dictionaries become records and arrays lists, recursively.
    static RecordValue fromValue(const Value& value);

private:
    std::variant<Value, InterchangeRecord, List> m_data;
};

struct InterchangeRecord::Entry {
    std::string key;
    RecordValue value;
};

inline bool InterchangeRecord::empty() const {
    return m_entries.empty();
}

inline size_t InterchangeRecord::size() const {
    return m_entries.size();
}

}  // namespace brassline
