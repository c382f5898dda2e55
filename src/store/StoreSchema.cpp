#include "store/StoreSchema.h"

#include <algorithm>
#include <set>

#include "core/Log.h"
#include "model/ManagedObject.h"
#include "store/SQLiteConnection.h"

namespace brassline {

namespace {

std::string quote(std::string_view name) {
    return SQLiteConnection::quoted(name);
}

bool isLinked(const RelationshipDescription& relationship) {
    if (!relationship.isToMany) {
        return false;
    }
    return relationship.inverse == nullptr || relationship.inverse->isToMany;
}

// The canonical text the store writes ("-0.005", "19") read without the general parser,
// which a file of 10^5 lines would otherwise spend a good part of its opening in. Anything
// else (exponents, not-a-number, more than 38 digits) goes through Decimal::parse.
std::optional<Decimal> parseCanonicalDecimal(std::string_view text) {
    size_t i = 0;
    bool negative = false;
    if (!text.empty() && text[0] == '-') {
        negative = true;
        i = 1;
    }
    UInt128 significand = 0;
    int significantDigits = 0;
    int fractionDigits = -1;
    bool sawDigit = false;
    for (; i < text.size(); ++i) {
        char c = text[i];
        if (c == '.') {
            if (fractionDigits >= 0 || !sawDigit) {
                return Decimal::parse(text);
            }
            fractionDigits = 0;
            continue;
        }
        if (c < '0' || c > '9') {
            return Decimal::parse(text);
        }
        sawDigit = true;
        if (significand != 0 || c != '0') {
            if (++significantDigits > Decimal::kMaxDigits) {
                return Decimal::parse(text);
            }
        }
        significand = significand * 10 + static_cast<unsigned>(c - '0');
        if (fractionDigits >= 0) {
            ++fractionDigits;
        }
    }
    if (!sawDigit || fractionDigits == 0 || -fractionDigits < Decimal::kMinExponent) {
        return Decimal::parse(text);
    }
    return Decimal::fromParts(significand, fractionDigits > 0 ? -fractionDigits : 0, negative);
}

}  // namespace

StoreSchema::StoreSchema(const ManagedObjectModel& model) : m_model(model) {
    m_tableByEntity.assign(model.entities().size(), -1);
    for (const auto& owned : model.entities()) {
        const EntityDescription& entity = *owned;
        for (const RelationshipDescription* relationship : entity.relationships()) {
            // Each link table once: from its owner, in the entity that declares it.
            if (relationship->entity == &entity && isLinked(*relationship) && isLinkOwner(*relationship)) {
                m_links.push_back(
                    {"_link_" + entity.name() + "_" + relationship->name, relationship, relationship->inverse});
            }
        }
        if (entity.isAbstract()) {
            continue;
        }
        EntityTable table;
        table.entity = &entity;
        table.name = entity.name();
        for (const AttributeDescription* attribute : entity.attributes()) {
            if (!attribute->isTransient) {
                table.attributes.push_back(attribute);
            }
        }
        for (const RelationshipDescription* relationship : entity.relationships()) {
            if (relationship->isToMany) {
                continue;
            }
            ToOneColumn column;
            column.relationship = relationship;
            column.column = relationship->name + "_id";
            const RelationshipDescription* inverse = relationship->inverse;
            if (inverse != nullptr && inverse->isToMany && inverse->isOrdered) {
                column.positionColumn = relationship->name + "_position";
            }
            table.toOnes.push_back(std::move(column));
        }
        m_tableByEntity[entity.index()] = static_cast<int>(m_tables.size());
        m_tables.push_back(std::move(table));
    }
}

const StoreSchema::EntityTable* StoreSchema::tableForEntity(const EntityDescription& entity) const {
    if (entity.index() >= m_tableByEntity.size() || &entity.model() != &m_model) {
        return nullptr;
    }
    int index = m_tableByEntity[entity.index()];
    return index < 0 ? nullptr : &m_tables[static_cast<size_t>(index)];
}

const StoreSchema::LinkTable* StoreSchema::linkForRelationship(const RelationshipDescription& relationship) const {
    for (const LinkTable& link : m_links) {
        if (link.owner == &relationship || link.inverse == &relationship) {
            return &link;
        }
    }
    return nullptr;
}

bool StoreSchema::isLinkOwner(const RelationshipDescription& relationship) {
    const RelationshipDescription* inverse = relationship.inverse;
    if (!isLinked(relationship) || inverse == nullptr) {
        return isLinked(relationship);
    }
    // A many-to-many pair is stored once; the side whose entity and name sort first owns it.
    auto key = [](const RelationshipDescription& r) { return std::make_pair(r.entity->name(), r.name); };
    return key(relationship) <= key(*inverse);
}

bool StoreSchema::isRecordedInChangeLog(const RelationshipDescription& relationship) {
    if (!relationship.isToMany) {
        return true;
    }
    if (relationship.isOrdered) {
        return true;  // The order exists only on this side.
    }
    return isLinkOwner(relationship);
}

const char* StoreSchema::columnType(AttributeType type) {
    switch (type) {
        case AttributeType::String:
        case AttributeType::Decimal:
            return "TEXT";
        case AttributeType::Date:
        case AttributeType::Double:
            return "REAL";
        case AttributeType::Data:
            return "BLOB";
        case AttributeType::Bool:
        case AttributeType::Int16:
        case AttributeType::Int32:
        case AttributeType::Int64:
            return "INTEGER";
    }
    return "TEXT";
}

bool StoreSchema::isUpToDate(SQLiteConnection& db) const {
    for (const EntityTable& table : m_tables) {
        std::optional<std::vector<std::string>> existing = db.tableColumns(table.name);
        if (!existing || existing->empty()) {
            return false;
        }
        std::set<std::string> present(existing->begin(), existing->end());
        for (const AttributeDescription* attribute : table.attributes) {
            if (present.count(attribute->name) == 0) {
                return false;
            }
        }
        for (const ToOneColumn& toOne : table.toOnes) {
            if (present.count(toOne.column) == 0 ||
                (!toOne.positionColumn.empty() && present.count(toOne.positionColumn) == 0)) {
                return false;
            }
        }
    }
    for (const LinkTable& link : m_links) {
        if (!db.tableExists(link.name)) {
            return false;
        }
    }
    for (const char* table : {"_metadata", "_changesets", "_changes", "_tombstones"}) {
        if (!db.tableExists(table)) {
            return false;
        }
    }
    return true;
}

bool StoreSchema::createOrUpgrade(SQLiteConnection& db) const {
    for (const EntityTable& table : m_tables) {
        std::optional<std::vector<std::string>> existing = db.tableColumns(table.name);
        if (!existing) {
            return false;
        }
        std::vector<std::pair<std::string, std::string>> columns;
        for (const AttributeDescription* attribute : table.attributes) {
            columns.emplace_back(attribute->name, columnType(attribute->type));
        }
        for (const ToOneColumn& toOne : table.toOnes) {
            columns.emplace_back(toOne.column, "INTEGER");
            if (!toOne.positionColumn.empty()) {
                columns.emplace_back(toOne.positionColumn, "INTEGER");
            }
        }
        if (existing->empty()) {
            std::string sql = "CREATE TABLE " + quote(table.name) + " (\"_number\" INTEGER PRIMARY KEY";
            for (const auto& [name, type] : columns) {
                sql += ", " + quote(name) + " " + type;
            }
            sql += ")";
            if (!db.execute(sql)) {
                return false;
            }
            continue;
        }
        // A newer model adds properties; their columns start out absent in every row.
        std::set<std::string> present(existing->begin(), existing->end());
        for (const auto& [name, type] : columns) {
            if (present.count(name) == 0 &&
                !db.execute("ALTER TABLE " + quote(table.name) + " ADD COLUMN " + quote(name) + " " + type)) {
                return false;
            }
        }
    }
    for (const LinkTable& link : m_links) {
        std::string sql = "CREATE TABLE IF NOT EXISTS " + quote(link.name) +
                          " (source INTEGER NOT NULL, target INTEGER NOT NULL, position INTEGER, inverse_position "
                          "INTEGER);"
                          "CREATE INDEX IF NOT EXISTS " +
                          quote(link.name + "_source") + " ON " + quote(link.name) +
                          " (source);"
                          "CREATE INDEX IF NOT EXISTS " +
                          quote(link.name + "_target") + " ON " + quote(link.name) + " (target);";
        if (!db.execute(sql)) {
            return false;
        }
    }
    return db.execute(
        "CREATE TABLE IF NOT EXISTS _metadata (key TEXT PRIMARY KEY, value) WITHOUT ROWID;"
        "CREATE TABLE IF NOT EXISTS _changesets (id INTEGER PRIMARY KEY, device TEXT NOT NULL, sequence INTEGER NOT "
        "NULL, time REAL NOT NULL, clock INTEGER NOT NULL, inserted INTEGER, updated INTEGER, deleted INTEGER, "
        "UNIQUE (device, sequence));"
        "CREATE TABLE IF NOT EXISTS _changes (changeset INTEGER NOT NULL, entity TEXT NOT NULL, object INTEGER NOT "
        "NULL, uid TEXT, key TEXT NOT NULL, kind INTEGER NOT NULL, clock INTEGER NOT NULL, value);"
        "CREATE INDEX IF NOT EXISTS _changes_changeset ON _changes (changeset);"
        "CREATE TABLE IF NOT EXISTS _tombstones (entity TEXT NOT NULL, object INTEGER NOT NULL, uid TEXT, changeset "
        "INTEGER NOT NULL, clock INTEGER NOT NULL);");
}

Value StoreSchema::readColumn(const SQLiteStatement& statement, int column, AttributeType type) {
    if (statement.isNull(column)) {
        return Value();
    }
    switch (type) {
        case AttributeType::String:
            return Value(statement.text(column));
        case AttributeType::Decimal: {
            // Stored as canonical text; SQLite hands a number written by another tool as text too.
            std::optional<Decimal> parsed = parseCanonicalDecimal(statement.textView(column));
            if (!parsed) {
                logMessage("Store: unreadable decimal \"%@\" left absent", statement.text(column));
                return Value();
            }
            return Value(*parsed);
        }
        case AttributeType::Date:
            return Value(Date(statement.real(column)));
        case AttributeType::Double:
            return Value(statement.real(column));
        case AttributeType::Data:
            return Value(statement.blob(column));
        case AttributeType::Bool:
            return Value(statement.integer(column) != 0);
        case AttributeType::Int16:
            return Value(int64_t{static_cast<int16_t>(statement.integer(column))});
        case AttributeType::Int32:
            return Value(int64_t{static_cast<int32_t>(statement.integer(column))});
        case AttributeType::Int64:
            return Value(statement.integer(column));
    }
    return Value();
}

void StoreSchema::bindColumn(SQLiteStatement& statement, int index, AttributeType type, const Value& value) {
    if (value.isNull()) {
        statement.bindNull(index);
        return;
    }
    Value converted = value;
    if (!attributes::coerce(type, converted)) {
        logMessage("Store: %@ is no %@ and is saved as absent", value.description(), attributeTypeName(type));
        statement.bindNull(index);
        return;
    }
    switch (type) {
        case AttributeType::String:
            statement.bindText(index, *converted.string());
            return;
        case AttributeType::Decimal:
            statement.bindText(index, converted.decimal()->toString());
            return;
        case AttributeType::Date:
            statement.bindDouble(index, converted.date()->timeIntervalSinceReferenceDate());
            return;
        case AttributeType::Double:
            statement.bindDouble(index, converted.toDouble());
            return;
        case AttributeType::Data: {
            const Bytes& bytes = *converted.bytes();
            statement.bindBlob(index, bytes.data(), bytes.size());
            return;
        }
        case AttributeType::Bool:
        case AttributeType::Int16:
        case AttributeType::Int32:
        case AttributeType::Int64:
            statement.bindInteger(index, converted.toInt64());
            return;
    }
}

size_t StoreSnapshot::objectCount() const {
    size_t count = 0;
    for (const Table& table : tables) {
        count += table.numbers.size();
    }
    return count;
}

std::optional<StoreSnapshot> StoreSnapshot::read(SQLiteConnection& db, const StoreSchema& schema, std::string* error,
                                                 bool* corrupt, bool deferLargeData) {
    auto failed = [&](const std::string& message, bool damaged) {
        if (error != nullptr) {
            *error = message;
        }
        if (corrupt != nullptr) {
            *corrupt = damaged;
        }
        return std::nullopt;
    };
    StoreSnapshot snapshot;
    for (const StoreSchema::EntityTable& entityTable : schema.tables()) {
        std::optional<std::vector<std::string>> existing = db.tableColumns(entityTable.name);
        if (!existing) {
            return failed(db.lastError(), db.lastErrorWasCorruption());
        }
        Table table;
        table.table = &entityTable;
        if (existing->empty()) {
            snapshot.tables.push_back(std::move(table));
            continue;  // An entity newer than the file: no objects yet.
        }
        std::set<std::string> present(existing->begin(), existing->end());
        // Columns the file lacks (properties newer than the file) read as absent.
        std::string sql = "SELECT \"_number\"";
        auto addColumn = [&](const std::string& name) {
            sql += ", ";
            sql += present.count(name) != 0 ? quote(name) : "NULL";
        };
        // A deferred column reads as two: the value when it is short, and whether it was
        // left behind. SQLite answers length() of a blob from the record header without
        // touching its overflow pages, so a large value costs nothing here.
        std::vector<bool> deferrable;
        for (const AttributeDescription* attribute : entityTable.attributes) {
            bool defer =
                deferLargeData && attribute->type == AttributeType::Data && present.count(attribute->name) != 0;
            deferrable.push_back(defer);
            if (!defer) {
                addColumn(attribute->name);
                continue;
            }
            const std::string column = quote(attribute->name);
            const std::string limit = std::to_string(kDeferredDataBytes);
            sql += ", CASE WHEN length(" + column + ") > " + limit + " THEN NULL ELSE " + column + " END, length(" +
                   column + ") > " + limit;
        }
        for (const StoreSchema::ToOneColumn& toOne : entityTable.toOnes) {
            addColumn(toOne.column);
            // Members of an unordered to-many are listed by number.
            if (toOne.positionColumn.empty()) {
                sql += ", \"_number\"";
            } else {
                addColumn(toOne.positionColumn);
            }
        }
        sql += " FROM " + quote(entityTable.name);
        SQLiteStatement statement = db.prepare(sql);
        if (!statement.isValid()) {
            return failed(db.lastError(), db.lastErrorWasCorruption());
        }
        const size_t attributeCount = entityTable.attributes.size();
        const size_t toOneCount = entityTable.toOnes.size();
        // Growing by doubling would move every value several times and touch twice the
        // memory; SQLite counts the rows of a table from its b-tree pages alone.
        if (std::optional<int64_t> rows = db.queryInteger("SELECT count(*) FROM " + quote(entityTable.name))) {
            const auto count = static_cast<size_t>(std::max<int64_t>(*rows, 0));
            table.numbers.reserve(count);
            table.values.reserve(count * attributeCount);
            table.toOneTargets.reserve(count * toOneCount);
            snapshot.edges.reserve(snapshot.edges.size() + count * toOneCount);
        }
        for (;;) {
            auto result = statement.step();
            if (result == SQLiteStatement::StepResult::Done) {
                break;
            }
            if (result == SQLiteStatement::StepResult::Error) {
                return failed(statement.errorMessage(), statement.failedOnCorruption());
            }
            int64_t number = statement.integer(0);
            if (number <= 0 || number > kLargestObjectNumber) {
                logMessage("Object number %ld in table %@", static_cast<long>(number), entityTable.name);
                return failed("an object's number is out of range", true);
            }
            table.numbers.push_back(number);
            snapshot.largestNumber = std::max(snapshot.largestNumber, number);
            int column = 1;
            for (size_t i = 0; i < attributeCount; ++i, ++column) {
                table.values.push_back(StoreSchema::readColumn(statement, column, entityTable.attributes[i]->type));
                if (deferrable[i]) {
                    ++column;
                    if (!statement.isNull(column) && statement.integer(column) != 0) {
                        table.deferred.push_back(table.values.size() - 1);
                    }
                }
            }
            for (size_t i = 0; i < toOneCount; ++i, column += 2) {
                int64_t target = statement.isNull(column) ? 0 : statement.integer(column);
                table.toOneTargets.push_back(target);
                const RelationshipDescription* inverse = entityTable.toOnes[i].relationship->inverse;
                if (target != 0 && inverse != nullptr && inverse->isToMany) {
                    snapshot.edges.push_back({target, inverse, statement.integer(column + 1), number});
                }
            }
        }
        snapshot.tables.push_back(std::move(table));
    }
    for (const StoreSchema::LinkTable& link : schema.links()) {
        if (!db.tableExists(link.name)) {
            continue;
        }
        SQLiteStatement statement =
            db.prepare("SELECT source, target, coalesce(position, target), coalesce(inverse_position, source) FROM " +
                       quote(link.name));
        if (!statement.isValid()) {
            return failed(db.lastError(), db.lastErrorWasCorruption());
        }
        const bool inverseOrdered = link.inverse != nullptr && link.inverse->isOrdered;
        for (;;) {
            auto result = statement.step();
            if (result == SQLiteStatement::StepResult::Done) {
                break;
            }
            if (result == SQLiteStatement::StepResult::Error) {
                return failed(statement.errorMessage(), statement.failedOnCorruption());
            }
            int64_t source = statement.integer(0);
            int64_t target = statement.integer(1);
            int64_t position = link.owner->isOrdered ? statement.integer(2) : target;
            snapshot.edges.push_back({source, link.owner, position, target});
            if (link.inverse != nullptr) {
                snapshot.edges.push_back(
                    {target, link.inverse, inverseOrdered ? statement.integer(3) : source, source});
            }
        }
    }
    auto before = [](const Edge& a, const Edge& b) {
        if (a.owner != b.owner) {
            return a.owner < b.owner;
        }
        if (a.relationship != b.relationship) {
            return a.relationship < b.relationship;
        }
        if (a.position != b.position) {
            return a.position < b.position;
        }
        return a.member < b.member;
    };
    // Members are mostly written after their owner and in order, so the rows often arrive
    // sorted already.
    if (!std::is_sorted(snapshot.edges.begin(), snapshot.edges.end(), before)) {
        std::sort(snapshot.edges.begin(), snapshot.edges.end(), before);
    }
    return snapshot;
}

}  // namespace brassline
