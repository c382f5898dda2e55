#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "core/Value.h"
#include "model/EntityDescription.h"

namespace brassline {

class SQLiteConnection;
class SQLiteStatement;

// How a model maps onto the tables of a company file's database (see SQLiteStore.h for
// the layout). Built once per store from the entity reflection; read-only afterwards.
class StoreSchema {
public:
    struct ToOneColumn {
        const RelationshipDescription* relationship = nullptr;
        std::string column;          // "<name>_id"
        std::string positionColumn;  // "<name>_position", empty unless the inverse is ordered.
    };
    struct EntityTable {
        const EntityDescription* entity = nullptr;
        std::string name;
        std::vector<const AttributeDescription*> attributes;  // Stored ones only.
        std::vector<ToOneColumn> toOnes;
    };
    // A to-many relationship kept in a table of its own: many-to-many or without inverse.
    struct LinkTable {
        std::string name;                                // "_link_<Entity>_<relationship>"
        const RelationshipDescription* owner = nullptr;  // The side whose order is `position`.
        const RelationshipDescription* inverse = nullptr;
    };

    explicit StoreSchema(const ManagedObjectModel& model);

    const ManagedObjectModel& model() const { return m_model; }
    const std::vector<EntityTable>& tables() const { return m_tables; }
    const std::vector<LinkTable>& links() const { return m_links; }
    // The table of a concrete entity; null for an abstract one.
    const EntityTable* tableForEntity(const EntityDescription& entity) const;
    // The link table of a relationship on either side, null when it lives in a column.
    const LinkTable* linkForRelationship(const RelationshipDescription& relationship) const;
    // Whether the change log records this relationship (the other side of a pair is
    // implied, except an ordered to-many's order).
    static bool isRecordedInChangeLog(const RelationshipDescription& relationship);
    static bool isLinkOwner(const RelationshipDescription& relationship);

    static const char* columnType(AttributeType type);
    // Whether every table and column of the model is in the file (reads only).
    bool isUpToDate(SQLiteConnection& db) const;
    // Creates what is missing: tables, columns, indexes. Never drops anything.
    bool createOrUpgrade(SQLiteConnection& db) const;

    // Column codec: the Value of a stored column for an attribute type, and the binding of
    // a value (converted to the type first; an unconvertible value binds null).
    static Value readColumn(const SQLiteStatement& statement, int column, AttributeType type);
    static void bindColumn(SQLiteStatement& statement, int index, AttributeType type, const Value& value);

private:
    const ManagedObjectModel& m_model;
    std::vector<EntityTable> m_tables;
    std::vector<int> m_tableByEntity;
    std::vector<LinkTable> m_links;
};

// Every object of a store as numbers and values, read in one pass: what open hands to a
// context and what the export writes.
struct StoreSnapshot {
    struct Table {
        const StoreSchema::EntityTable* table = nullptr;
        std::vector<int64_t> numbers;
        std::vector<Value> values;          // numbers.size() × attributes, row-major.
        std::vector<int64_t> toOneTargets;  // numbers.size() × toOnes, 0 for none.
        std::vector<size_t> deferred;       // Cells of `values` left in the file (null there).
    };
    // Data values longer than this stay in the file when a read defers them.
    static constexpr int64_t kDeferredDataBytes = 1024;
    // Object numbers beyond this are made by no store: a file holding one is damaged.
    static constexpr int64_t kLargestObjectNumber = int64_t{1} << 48;
    // One member of a to-many relationship, in the owner's order once sorted.
    struct Edge {
        int64_t owner = 0;
        const RelationshipDescription* relationship = nullptr;
        int64_t position = 0;
        int64_t member = 0;
    };
    std::vector<Table> tables;
    std::vector<Edge> edges;  // Sorted by owner, relationship, position.
    int64_t largestNumber = 0;
    size_t objectCount() const;

    // Reads every table of `schema` (inside the caller's read transaction). Nothing with
    // SQLite's message in `error` and `corrupt` set when the file is damaged. With
    // `deferLargeData`, data values above kDeferredDataBytes are listed in `deferred`
    // instead of being read.
    static std::optional<StoreSnapshot> read(SQLiteConnection& db, const StoreSchema& schema, std::string* error,
                                             bool* corrupt, bool deferLargeData = false);
};

}  // namespace brassline
