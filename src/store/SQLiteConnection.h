#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"

struct sqlite3;
struct sqlite3_stmt;

namespace brassline {

class SQLiteConnection;

// One prepared statement of a connection. Binding is 1-based like SQLite's; columns are
// 0-based. step() answers Row, Done or Error (the message then sits in the connection).
class SQLiteStatement {
public:
    enum class StepResult { Row, Done, Error };

    SQLiteStatement() = default;
    SQLiteStatement(SQLiteStatement&& other) noexcept;
    SQLiteStatement& operator=(SQLiteStatement&& other) noexcept;
    SQLiteStatement(const SQLiteStatement&) = delete;
    SQLiteStatement& operator=(const SQLiteStatement&) = delete;
    ~SQLiteStatement();

    bool isValid() const { return m_statement != nullptr; }
    void bindNull(int index);
    void bindInteger(int index, int64_t value);
    void bindDouble(int index, double value);
    void bindText(int index, std::string_view text);
    void bindBlob(int index, const uint8_t* data, size_t size);
    StepResult step();
    // Clears bindings and rewinds, so the statement can run again.
    void reset();

    int columnCount() const;
    bool isNull(int column) const;
    // The column as the type SQLite stored it: null, integer, double, text or bytes.
    Value value(int column) const;
    int64_t integer(int column) const;
    double real(int column) const;
    std::string text(int column) const;
    std::string_view textView(int column) const;  // Valid until the next step.
    Bytes blob(int column) const;
    std::string columnName(int column) const;
    // SQLite's message for the last failed step, and whether it told of a damaged file.
    std::string errorMessage() const;
    bool failedOnCorruption() const;

private:
    friend class SQLiteConnection;
    explicit SQLiteStatement(sqlite3_stmt* statement) : m_statement(statement) {}
    sqlite3_stmt* m_statement = nullptr;
};

// An open SQLite database file. Failures answer false or an invalid statement, with
// SQLite's message in lastError(); nothing throws. Not thread-safe: one thread at a time.
class SQLiteConnection {
public:
    // ReadOnlyImmutable reads a file that nobody may write while it is open (a read-only
    // folder or mount): SQLite then neither locks it nor makes its -wal and -shm files.
    enum class Mode { ReadOnly, ReadOnlyImmutable, ReadWrite, Create };
    // What a failure was, for the user's message.
    enum class Failure { None, Busy, ReadOnly, DiskFull, WriteFailed, Corrupt, CantOpen, Other };

    SQLiteConnection() = default;
    SQLiteConnection(const SQLiteConnection&) = delete;
    SQLiteConnection& operator=(const SQLiteConnection&) = delete;
    ~SQLiteConnection();

    bool open(const std::string& path, Mode mode);
    void close();
    // How long a statement waits for another connection's lock before it fails as busy.
    void setBusyTimeout(int milliseconds);
    // The first `bytes` bytes of the database file and its size, read through SQLite's
    // own file handle: a second handle on the file, closed again, would drop the locks
    // SQLite holds on it for this process. Nothing when the file can't be read.
    std::optional<std::string> readFileStart(size_t bytes, int64_t* fileSize);
    bool isOpen() const { return m_db != nullptr; }

    // Runs one or more statements without results.
    bool execute(std::string_view sql);
    SQLiteStatement prepare(std::string_view sql);
    // The first column of the first row, when there is one.
    std::optional<int64_t> queryInteger(std::string_view sql);
    std::optional<std::string> queryText(std::string_view sql);
    bool tableExists(std::string_view name);
    // The column names of a table: empty when it doesn't exist, nothing on failure.
    std::optional<std::vector<std::string>> tableColumns(std::string_view table);
    int64_t lastInsertRowId() const;
    // Rows changed by the last INSERT, UPDATE or DELETE.
    int64_t changes() const;

    const std::string& lastError() const { return m_lastError; }
    // True when the last failure was SQLite's "corrupt" or "not a database".
    bool lastErrorWasCorruption() const { return m_lastWasCorruption; }
    // The kind of the connection's most recent failure, statements' steps included.
    Failure lastFailure() const;

    // A name quoted for use as an SQL identifier.
    static std::string quoted(std::string_view identifier);

private:
    void noteError();
    // The statement positioned on its first row when that row's first column is not null.
    std::optional<SQLiteStatement> firstValueRow(std::string_view sql);

    sqlite3* m_db = nullptr;
    std::string m_lastError;
    bool m_lastWasCorruption = false;
};

}  // namespace brassline
