#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "core/Value.h"

namespace brassline {

class BLDoc;
class ManagedObject;
class ManagedObjectContext;
class SQLiteStore;

// The exit codes of every command: one meaning each, whichever command answers it.
namespace exitcode {
inline constexpr int kSuccess = 0;
// Bad arguments, a refused or missing file, an unknown uid, a rule that says no.
inline constexpr int kBadInput = 1;
// The changes could not be saved; the file holds what it held before the command.
inline constexpr int kSaveFailed = 2;
// A command of a feature that this build does not have yet.
inline constexpr int kNotAvailable = 3;
}  // namespace exitcode

// A company file opened for one command as the application opens it: through the
// document controller, so the start-up steps and the repair run and the file joins the
// recent list. Closed when the handle goes, unless it was open before. Failures write
// "brassline: <reason>" to `err`. Main thread.
class CommandFile {
public:
    // The open file, or nothing after a message on `err`.
    [[nodiscard]] static std::optional<CommandFile> open(const std::string& path, std::ostream& err);
    // A new package at `path` after the first-run set-up with the quick set-up's
    // answers (BLDoc::create), saved and added to the recent list.
    [[nodiscard]] static std::optional<CommandFile> create(const std::string& path, const Value::Dictionary& setup,
                                                           std::ostream& err);

    CommandFile(CommandFile&& other) noexcept;
    CommandFile& operator=(CommandFile&& other) noexcept;
    CommandFile(const CommandFile&) = delete;
    CommandFile& operator=(const CommandFile&) = delete;
    ~CommandFile();

    // Saves the changes: true, or false after "the company file can't be saved" on `err`.
    [[nodiscard]] bool save(std::ostream& err);
    // The object of any entity with `uid`, or null after "no object with uid '<uid>'".
    ManagedObject* objectWithUid(const std::string& uid, std::ostream& err);

    BLDoc& document() { return *m_document; }
    ManagedObjectContext& context();
    SQLiteStore& store();

private:
    CommandFile(BLDoc* document, bool owned) : m_document(document), m_owned(owned) {}
    void close();

    BLDoc* m_document = nullptr;
    bool m_owned = false;
};

}  // namespace brassline
