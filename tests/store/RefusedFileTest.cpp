#include <functional>

#include <gtest/gtest.h>

#include "StoreTestSupport.h"
#include "core/Log.h"
#include "store/SQLiteConnection.h"
#include "store/StoreMessages.h"

namespace brassline {
namespace {

using namespace storetest;

void writePlist(const std::string& package, const Value::Dictionary& info) {
    writeBytes(package + "/Info.plist", Value(info).toXMLPropertyList());
}

// A saved company with enough objects that its database spans many pages.
void makeSavedCompany(const std::string& path) {
    auto context = openContext(path, true);
    ASSERT_TRUE(context);
    for (int i = 0; i < 300; ++i) {
        ManagedObject* client = context->insertNewObjectForEntityForName("Client");
        client->setValueForKey(Value("Client number " + std::to_string(i) + std::string(60, 'x')), "name");
    }
    ASSERT_TRUE(context->save());
}

Value::Dictionary currentInfo(const std::string& path) {
    return CompanyPackage::inspect(path)->infoDictionary;
}

Value::Dictionary withHoldfastKey(Value::Dictionary info, const char* key, Value value) {
    Value::Dictionary holdfast = *info["Holdfast"].dictionary();
    holdfast[key] = std::move(value);
    info["Holdfast"] = Value(std::move(holdfast));
    return info;
}

TEST(RefusedFileTest, BadFilesAreRefusedWithTheirMessageAndLeftUntouched) {
    struct Case {
        const char* what;
        const char* name;  // The path handed to open, inside the test folder.
        std::function<void(const std::string& path)> prepare;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {"missing path", "Gone.brassline", [](const std::string&) {},
         "The company file \"Gone.brassline\" does not exist."},
        {"plain file", "Notes.brassline", [](const std::string& path) { writeBytes(path, "just text"); },
         "\"Notes.brassline\" is not a company file."},
        {"folder without the extension", "Acme",
         [](const std::string& path) {
             makeSavedCompany(path + ".brassline");
             std::filesystem::rename(path + ".brassline", path);
         },
         "\"Acme\" is not a company file."},
        {"empty package", "Empty.brassline", [](const std::string& path) { std::filesystem::create_directory(path); },
         "\"Empty.brassline\" is not a company file."},
        {"previous generation store", "V3.brassline",
         [](const std::string& path) {
             std::filesystem::create_directory(path);
             writeBytes(path + "/Brassline3.storedata", "SQLite format 3");
         },
         "\"V3.brassline\" is a company file of an older format and must be migrated before it can be opened."},
        {"Info.plist without Holdfast", "Older.brassline",
         [](const std::string& path) {
             std::filesystem::create_directory(path);
             writePlist(path, {{"DocumentIdentifier", Value("abc")}});
         },
         "\"Older.brassline\" is a company file of an older format and must be migrated before it can be opened."},
        {"layout package", "Layout.brassline",
         [](const std::string& path) {
             std::filesystem::create_directory(path);
             writePlist(path, {{"type", Value("layout3")}});
         },
         "Please open a company first. Then open the layout."},
        {"design package", "Design.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             Value::Dictionary info = currentInfo(path);
             info["type"] = Value("design");
             writePlist(path, info);
         },
         "Please open a company first. Then open the layout."},
        {"old backup", "Backup.brassline",
         [](const std::string& path) {
             std::filesystem::create_directory(path);
             writePlist(path, {{"type", Value("backup")}});
         },
         "\"Backup.brassline\" is a backup. Restore it from an open company file instead of opening it."},
        {"previous generation backup", "B3.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             Value::Dictionary info = currentInfo(path);
             info["type"] = Value("brassline3backup");
             writePlist(path, info);
         },
         "\"B3.brassline\" is a backup. Restore it from an open company file instead of opening it."},
        {"sync backup", "TW.brassline",
         [](const std::string& path) {
             std::filesystem::create_directory(path);
             writePlist(path, {{"type", Value("TWBackup")}});
         },
         "\"TW.brassline\" is a backup. Restore it from an open company file instead of opening it."},
        {"unknown type", "Odd.brassline",
         [](const std::string& path) {
             std::filesystem::create_directory(path);
             writePlist(path, {{"type", Value("statement")}});
         },
         "\"Odd.brassline\" is a package of type \"statement\", not a company file."},
        {"password protected", "Secret.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             Value::Dictionary info = currentInfo(path);
             info["Encryption"] = Value(Value::Dictionary{{"Method", Value("AES")}});
             writePlist(path, info);
         },
         "\"Secret.brassline\" is protected by a password, which this version cannot open."},
        {"garbage Info.plist", "Garbled.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             writeBytes(path + "/Info.plist", "<?xml version=\"1.0\"?><plist><dict><key>Hold");
         },
         ""},  // The parser's reason follows the fixed start; checked by prefix below.
        {"model from the future in Info.plist", "Future.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             writePlist(path, withHoldfastKey(currentInfo(path), "ModelVersion", Value(int64_t{24})));
         },
         "The company file \"Future.brassline\" was saved by a newer version of Brassline (data model 24, this "
         "version reads up to 23). Please update Brassline to open it."},
        {"model from the future in the database", "Future2.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             SQLiteConnection db;
             ASSERT_TRUE(db.open(path + "/Store.sqlite", SQLiteConnection::Mode::ReadWrite));
             ASSERT_TRUE(db.execute("UPDATE _metadata SET value = 30 WHERE key = 'modelVersion'"));
         },
         "The company file \"Future2.brassline\" was saved by a newer version of Brassline (data model 30, this "
         "version reads up to 23). Please update Brassline to open it."},
        {"another data model", "Other.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             writePlist(path, withHoldfastKey(currentInfo(path), "ModelName", Value("Brassline")));
         },
         "The company file \"Other.brassline\" holds the data model \"Brassline\", not \"Test\"."},
        {"creation cut short by an older version", "Half.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             std::filesystem::remove(path + "/Info.plist");
         },
         "\"Half.brassline\" is a company file whose creation was interrupted. It holds no data; remove it and "
         "create the company again."},
        {"object number beyond any store's", "Huge.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             SQLiteConnection db;
             ASSERT_TRUE(db.open(path + "/Store.sqlite", SQLiteConnection::Mode::ReadWrite));
             ASSERT_TRUE(
                 db.execute("UPDATE Client SET _number = 9000000000000000000 WHERE _number = "
                            "(SELECT min(_number) FROM Client)"));
         },
         "The company file \"Huge.brassline\" is damaged and can't be opened: an object's number is out of range. "
         "Open its latest backup instead."},
        {"database missing", "NoData.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             std::filesystem::remove(path + "/Store.sqlite");
         },
         "The company file \"NoData.brassline\" has no database."},
        {"database truncated", "Cut.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             std::string bytes = readBytes(path + "/Store.sqlite");
             ASSERT_GT(bytes.size(), 8192u);
             writeBytes(path + "/Store.sqlite", bytes.substr(0, bytes.size() / 2));
         },
         "The company file \"Cut.brassline\" is damaged and can't be opened: the database is truncated. Open its "
         "latest backup instead."},
        {"database header overwritten", "Header.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             std::string bytes = readBytes(path + "/Store.sqlite");
             bytes.replace(0, 16, "Not a database!!");
             writeBytes(path + "/Store.sqlite", bytes);
         },
         "The company file \"Header.brassline\" is damaged and can't be opened: the database is not a SQLite file. "
         "Open its latest backup "
         "instead."},
        {"database pages overwritten", "Pages.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             std::string bytes = readBytes(path + "/Store.sqlite");
             // Everything after the schema page becomes noise; the length stays right.
             for (size_t i = 4096; i < bytes.size(); ++i) {
                 bytes[i] = static_cast<char>((i * 7919) % 251);
             }
             writeBytes(path + "/Store.sqlite", bytes);
         },
         "The company file \"Pages.brassline\" is damaged and can't be opened: a page of its database is damaged. Open "
         "its latest backup "
         "instead."},
        {"not a store database", "Foreign.brassline",
         [](const std::string& path) {
             makeSavedCompany(path);
             std::filesystem::remove(path + "/Store.sqlite");
             SQLiteConnection db;
             ASSERT_TRUE(db.open(path + "/Store.sqlite", SQLiteConnection::Mode::Create));
             ASSERT_TRUE(db.execute("CREATE TABLE notes (text TEXT); INSERT INTO notes VALUES ('hello')"));
         },
         "The company file \"Foreign.brassline\" is damaged and can't be opened: the store's metadata is missing. Open "
         "its latest backup "
         "instead."},
    };
    for (const Case& testCase : cases) {
        SCOPED_TRACE(testCase.what);
        TemporaryFolder folder;
        const std::string path = folder / testCase.name;
        testCase.prepare(path);
        if (::testing::Test::HasFatalFailure()) {
            return;
        }
        const auto before = treeContents(folder.path());
        std::string error;
        LogCapture capture;
        std::unique_ptr<SQLiteStore> store = SQLiteStore::open(path, model(), deviceOptions("A"), &error);
        EXPECT_FALSE(store);
        if (testCase.expected.empty()) {
            EXPECT_EQ(error.rfind("The Info.plist of \"Garbled.brassline\" can't be read: ", 0), 0u) << error;
        } else {
            EXPECT_EQ(error, testCase.expected);
        }
        // Refusal is logged, and nothing in or beside the package changed (no journal,
        // no log file left behind either).
        EXPECT_TRUE(!error.empty() && capture.contains(error));
        EXPECT_EQ(treeContents(folder.path()), before);
    }
}

TEST(RefusedFileTest, CreateRefusesAnExistingPath) {
    TemporaryFolder folder;
    const std::string path = folder / "Taken.brassline";
    makeSavedCompany(path);
    const auto before = treeContents(path);
    std::string error;
    LogCapture capture;
    EXPECT_FALSE(SQLiteStore::create(path, model(), deviceOptions("A"), &error));
    EXPECT_EQ(error, "Can't create \"Taken.brassline\": a file of that name exists.");
    EXPECT_EQ(treeContents(path), before);
}

TEST(RefusedFileTest, CurrentPackagesAreRecognised) {
    TemporaryFolder folder;
    const std::string path = folder / "Good.brassline";
    makeSavedCompany(path);
    EXPECT_TRUE(SQLiteStore::isCorrectFormat(path));
    EXPECT_TRUE(SQLiteStore::isCorrectFormat(path + "/"));
    EXPECT_FALSE(SQLiteStore::isCorrectFormat(folder.path()));
    EXPECT_FALSE(SQLiteStore::isCorrectFormat(path + "/Info.plist"));
}

}  // namespace
}  // namespace brassline
