#pragma once

// The texts of the company-file store, spelled exactly as shown to the user. Those with
// "%@" take the package's file name first (formatMessage).

namespace brassline {

inline constexpr const char* kLayoutPackageMessage = "Please open a company first. Then open the layout.";
inline constexpr const char* kMissingPackageMessage = "The company file \"%@\" does not exist.";
inline constexpr const char* kNotAPackageMessage = "\"%@\" is not a company file.";
inline constexpr const char* kOlderFormatMessage =
    "\"%@\" is a company file of an older format and must be migrated before it can be opened.";
inline constexpr const char* kBackupPackageMessage =
    "\"%@\" is a backup. Restore it from an open company file instead of opening it.";
inline constexpr const char* kForeignTypeMessage = "\"%@\" is a package of type \"%@\", not a company file.";
inline constexpr const char* kEncryptedPackageMessage =
    "\"%@\" is protected by a password, which this version cannot open.";
inline constexpr const char* kUnreadableInfoMessage = "The Info.plist of \"%@\" can't be read: %@";
inline constexpr const char* kMissingDatabaseMessage = "The company file \"%@\" has no database.";
inline constexpr const char* kDamagedDatabaseMessage =
    "The company file \"%@\" is damaged and can't be opened: %@. Open its latest backup instead.";
inline constexpr const char* kDamagedWhileSavingMessage =
    "The company file \"%@\" is damaged and the change was not saved. Open its latest backup instead.";
inline constexpr const char* kReadOnlyMessage =
    "The company file \"%@\" is read-only: it can be read, but changes to it can't be saved.";
inline constexpr const char* kDiskFullMessage =
    "The company file \"%@\" can't be saved: the disk is full. Free some space and try again.";
inline constexpr const char* kDiskWriteFailedMessage =
    "The company file \"%@\" can't be saved: its disk refused the write (it may be full or gone). Nothing was "
    "saved.";
inline constexpr const char* kBusyMessage =
    "The company file \"%@\" is in use by another program, which kept it locked for more than %@ seconds. "
    "Nothing was saved; try again in a moment.";
inline constexpr const char* kBusyOpenMessage =
    "The company file \"%@\" is in use by another program and can't be read right now. Try again in a moment.";
inline constexpr const char* kUnreadableDatabaseMessage =
    "The company file \"%@\" can't be read right now. Check that its disk is available and try again.";
inline constexpr const char* kReadOnlyUpgradeMessage =
    "The company file \"%@\" is read-only and was saved by an older version of Brassline, which must update it "
    "before it can be read. Open it where it can be written once.";
inline constexpr const char* kLeftoverPackageMessage =
    "\"%@\" is a company file whose creation was interrupted. It holds no data; remove it and create the "
    "company again.";
inline constexpr const char* kFutureModelMessage =
    "The company file \"%@\" was saved by a newer version of Brassline (data model %@, this version reads up to "
    "%@). Please update Brassline to open it.";
inline constexpr const char* kForeignModelMessage = "The company file \"%@\" holds the data model \"%@\", not \"%@\".";
inline constexpr const char* kPackageExistsMessage = "Can't create \"%@\": a file of that name exists.";
inline constexpr const char* kCreateFailedMessage = "Can't create the company file \"%@\": %@";
inline constexpr const char* kWriteFailedMessage = "The company file \"%@\" can't be written: %@";

// Export of a store to a plain SQLite file.
inline constexpr const char* kExportSQLiteErrorDomain = "ExportSQLiteError";
inline constexpr int kExportSQLiteCreateFailedCode = 1;
inline constexpr int kExportSQLiteWriteFailedCode = 2;
inline constexpr const char* kExportSQLiteCreateFailedMessage = "Failed to create SQLite database.";
inline constexpr const char* kExportSQLiteWriteFailedMessage = "Failed to write SQLite database: %@";
inline constexpr int kExportSQLiteTargetExistsCode = 3;
inline constexpr int kExportSQLiteInsidePackageCode = 4;
inline constexpr const char* kExportSQLiteTargetExistsMessage = "\"%@\" exists already and was left as it is.";
inline constexpr const char* kExportSQLiteInsidePackageMessage =
    "\"%@\" lies inside the company file \"%@\"; export to a place outside any company file.";

}  // namespace brassline
