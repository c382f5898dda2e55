#include "store/SQLiteConnection.h"

#include <algorithm>
#include <cerrno>

#include <sqlite3.h>

namespace brassline {

namespace {

bool isCorruptionCode(int code) {
    int primary = code & 0xff;
    return primary == SQLITE_CORRUPT || primary == SQLITE_NOTADB;
}

}  // namespace

SQLiteStatement::SQLiteStatement(SQLiteStatement&& other) noexcept : m_statement(other.m_statement) {
    other.m_statement = nullptr;
}

SQLiteStatement& SQLiteStatement::operator=(SQLiteStatement&& other) noexcept {
    if (this != &other) {
        sqlite3_finalize(m_statement);
        m_statement = other.m_statement;
        other.m_statement = nullptr;
    }
    return *this;
}

SQLiteStatement::~SQLiteStatement() {
    sqlite3_finalize(m_statement);
}

void SQLiteStatement::bindNull(int index) {
    sqlite3_bind_null(m_statement, index);
}

void SQLiteStatement::bindInteger(int index, int64_t value) {
    sqlite3_bind_int64(m_statement, index, value);
}

void SQLiteStatement::bindDouble(int index, double value) {
    sqlite3_bind_double(m_statement, index, value);
}

void SQLiteStatement::bindText(int index, std::string_view text) {
    sqlite3_bind_text64(m_statement, index, text.data(), text.size(), SQLITE_TRANSIENT, SQLITE_UTF8);
}

void SQLiteStatement::bindBlob(int index, const uint8_t* data, size_t size) {
    // An empty blob must stay a blob, not become null: SQLite takes a null pointer as null.
    static const uint8_t kEmpty = 0;
    sqlite3_bind_blob64(m_statement, index, size == 0 ? &kEmpty : data, size, SQLITE_TRANSIENT);
}

SQLiteStatement::StepResult SQLiteStatement::step() {
    int code = sqlite3_step(m_statement);
    if (code == SQLITE_ROW) {
        return StepResult::Row;
    }
    if (code == SQLITE_DONE) {
        return StepResult::Done;
    }
    return StepResult::Error;
}

void SQLiteStatement::reset() {
    sqlite3_reset(m_statement);
    sqlite3_clear_bindings(m_statement);
}

int SQLiteStatement::columnCount() const {
    return sqlite3_column_count(m_statement);
}

bool SQLiteStatement::isNull(int column) const {
    return sqlite3_column_type(m_statement, column) == SQLITE_NULL;
}

Value SQLiteStatement::value(int column) const {
    switch (sqlite3_column_type(m_statement, column)) {
        case SQLITE_NULL:
            return Value();
        case SQLITE_INTEGER:
            return Value(integer(column));
        case SQLITE_FLOAT:
            return Value(real(column));
        case SQLITE_BLOB:
            return Value(blob(column));
        default:
            return Value(text(column));
    }
}

int64_t SQLiteStatement::integer(int column) const {
    return sqlite3_column_int64(m_statement, column);
}

double SQLiteStatement::real(int column) const {
    return sqlite3_column_double(m_statement, column);
}

std::string SQLiteStatement::text(int column) const {
    return std::string(textView(column));
}

std::string_view SQLiteStatement::textView(int column) const {
    const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(m_statement, column));
    if (text == nullptr) {
        return {};
    }
    return std::string_view(text, static_cast<size_t>(sqlite3_column_bytes(m_statement, column)));
}

Bytes SQLiteStatement::blob(int column) const {
    const auto* data = static_cast<const uint8_t*>(sqlite3_column_blob(m_statement, column));
    int size = sqlite3_column_bytes(m_statement, column);
    if (data == nullptr || size <= 0) {
        return {};
    }
    return Bytes(data, data + size);
}

std::string SQLiteStatement::columnName(int column) const {
    const char* name = sqlite3_column_name(m_statement, column);
    return name != nullptr ? name : "";
}

std::string SQLiteStatement::errorMessage() const {
    return sqlite3_errmsg(sqlite3_db_handle(m_statement));
}

bool SQLiteStatement::failedOnCorruption() const {
    return isCorruptionCode(sqlite3_extended_errcode(sqlite3_db_handle(m_statement)));
}

SQLiteConnection::~SQLiteConnection() {
    close();
}

bool SQLiteConnection::open(const std::string& path, Mode mode) {
    close();
    int flags = SQLITE_OPEN_NOMUTEX;
    switch (mode) {
        case Mode::ReadOnly:
        case Mode::ReadOnlyImmutable:
            flags |= SQLITE_OPEN_READONLY;
            break;
        case Mode::ReadWrite:
            flags |= SQLITE_OPEN_READWRITE;
            break;
        case Mode::Create:
            flags |= SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;
            break;
    }
    std::string name = path;
    if (mode == Mode::ReadOnlyImmutable) {
        flags |= SQLITE_OPEN_URI;
        name = "file:";
        for (char c : path) {
            if (c == '%' || c == '?' || c == '#') {
                static const char* kHex = "0123456789ABCDEF";
                name += '%';
                name += kHex[(static_cast<unsigned char>(c) >> 4) & 0xf];
                name += kHex[static_cast<unsigned char>(c) & 0xf];
            } else {
                name += c;
            }
        }
        name += "?immutable=1";
    }
    int code = sqlite3_open_v2(name.c_str(), &m_db, flags, nullptr);
    if (code != SQLITE_OK) {
        m_lastError = m_db != nullptr ? sqlite3_errmsg(m_db) : sqlite3_errstr(code);
        m_lastWasCorruption = isCorruptionCode(code);
        close();
        return false;
    }
    sqlite3_extended_result_codes(m_db, 1);
    return true;
}

void SQLiteConnection::close() {
    if (m_db != nullptr) {
        // Statements are owned by their callers and finalized before; v2 copes if not.
        sqlite3_close_v2(m_db);
        m_db = nullptr;
    }
}

void SQLiteConnection::setBusyTimeout(int milliseconds) {
    if (m_db != nullptr) {
        sqlite3_busy_timeout(m_db, milliseconds);
    }
}

SQLiteConnection::Failure SQLiteConnection::lastFailure() const {
    if (m_db == nullptr) {
        return m_lastError.empty() ? Failure::None : Failure::CantOpen;
    }
    switch (sqlite3_extended_errcode(m_db) & 0xff) {
        case SQLITE_OK:
        case SQLITE_ROW:
        case SQLITE_DONE:
            return Failure::None;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return Failure::Busy;
        case SQLITE_READONLY:
        case SQLITE_PERM:
        case SQLITE_AUTH:
            return Failure::ReadOnly;
        case SQLITE_FULL:
            return Failure::DiskFull;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            return Failure::Corrupt;
        case SQLITE_CANTOPEN:
            return Failure::CantOpen;
        case SQLITE_IOERR:
            // A write the file system refused for want of room (a quota, a size limit);
            // a full disk proper comes as SQLITE_FULL.
            if (const int reason = sqlite3_system_errno(m_db); reason == ENOSPC || reason == EDQUOT) {
                return Failure::DiskFull;
            }
            return (sqlite3_extended_errcode(m_db) == SQLITE_IOERR_WRITE ||
                    sqlite3_extended_errcode(m_db) == SQLITE_IOERR_FSYNC)
                       ? Failure::WriteFailed
                       : Failure::Other;
        default:
            return Failure::Other;
    }
}

std::optional<std::string> SQLiteConnection::readFileStart(size_t bytes, int64_t* fileSize) {
    sqlite3_file* file = nullptr;
    if (m_db == nullptr || sqlite3_file_control(m_db, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
        file == nullptr || file->pMethods == nullptr) {
        return std::nullopt;
    }
    sqlite3_int64 size = 0;
    if (file->pMethods->xFileSize(file, &size) != SQLITE_OK) {
        return std::nullopt;
    }
    *fileSize = size;
    std::string text(std::min<size_t>(bytes, static_cast<size_t>(std::max<sqlite3_int64>(size, 0))), '\0');
    if (!text.empty() && file->pMethods->xRead(file, text.data(), static_cast<int>(text.size()), 0) != SQLITE_OK) {
        return std::nullopt;
    }
    return text;
}

void SQLiteConnection::noteError() {
    if (m_db == nullptr) {
        m_lastError = "the database is not open";
        m_lastWasCorruption = false;
        return;
    }
    m_lastError = sqlite3_errmsg(m_db);
    m_lastWasCorruption = isCorruptionCode(sqlite3_extended_errcode(m_db));
}

bool SQLiteConnection::execute(std::string_view sql) {
    if (m_db == nullptr) {
        noteError();
        return false;
    }
    std::string text(sql);
    if (sqlite3_exec(m_db, text.c_str(), nullptr, nullptr, nullptr) != SQLITE_OK) {
        noteError();
        return false;
    }
    return true;
}

SQLiteStatement SQLiteConnection::prepare(std::string_view sql) {
    if (m_db == nullptr) {
        noteError();
        return SQLiteStatement();
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v2(m_db, sql.data(), static_cast<int>(sql.size()), &statement, nullptr) != SQLITE_OK) {
        noteError();
        sqlite3_finalize(statement);
        return SQLiteStatement();
    }
    return SQLiteStatement(statement);
}

std::optional<SQLiteStatement> SQLiteConnection::firstValueRow(std::string_view sql) {
    SQLiteStatement statement = prepare(sql);
    if (!statement.isValid()) {
        return std::nullopt;
    }
    auto result = statement.step();
    if (result == SQLiteStatement::StepResult::Error) {
        noteError();
        return std::nullopt;
    }
    if (result != SQLiteStatement::StepResult::Row || statement.isNull(0)) {
        return std::nullopt;
    }
    return statement;
}

std::optional<int64_t> SQLiteConnection::queryInteger(std::string_view sql) {
    std::optional<SQLiteStatement> row = firstValueRow(sql);
    return row ? std::optional<int64_t>(row->integer(0)) : std::nullopt;
}

std::optional<std::string> SQLiteConnection::queryText(std::string_view sql) {
    std::optional<SQLiteStatement> row = firstValueRow(sql);
    return row ? std::optional<std::string>(row->text(0)) : std::nullopt;
}

bool SQLiteConnection::tableExists(std::string_view name) {
    SQLiteStatement statement = prepare("SELECT 1 FROM sqlite_master WHERE type = 'table' AND name = ?1");
    if (!statement.isValid()) {
        return false;
    }
    statement.bindText(1, name);
    return statement.step() == SQLiteStatement::StepResult::Row;
}

std::optional<std::vector<std::string>> SQLiteConnection::tableColumns(std::string_view table) {
    std::vector<std::string> columns;
    SQLiteStatement statement = prepare("PRAGMA table_info(" + quoted(table) + ")");
    if (!statement.isValid()) {
        return std::nullopt;
    }
    for (;;) {
        auto result = statement.step();
        if (result == SQLiteStatement::StepResult::Done) {
            return columns;
        }
        if (result == SQLiteStatement::StepResult::Error) {
            noteError();
            return std::nullopt;
        }
        columns.push_back(statement.text(1));
    }
}

int64_t SQLiteConnection::lastInsertRowId() const {
    return m_db != nullptr ? sqlite3_last_insert_rowid(m_db) : 0;
}

int64_t SQLiteConnection::changes() const {
    return m_db != nullptr ? sqlite3_changes64(m_db) : 0;
}

std::string SQLiteConnection::quoted(std::string_view identifier) {
    std::string result = "\"";
    for (char c : identifier) {
        if (c == '"') {
            result += '"';
        }
        result += c;
    }
    result += '"';
    return result;
}

}  // namespace brassline
