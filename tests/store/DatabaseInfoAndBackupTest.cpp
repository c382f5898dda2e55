#include <filesystem>
#include <fstream>
#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "DocumentTestSupport.h"
#include "core/Date.h"
#include "model/BLSyncHelper.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/ModelHooks.h"
#include "store/BLBackup.h"
#include "store/BLDatabaseInfo.h"
#include "store/BLDoc.h"
#include "store/BLDocumentController.h"
#include "store/BLSetupDefaultsController.h"
#include "store/BLUserDefaults.h"
#include "store/CompanyPackage.h"
#include "store/DocumentHooks.h"
#include "store/SQLiteConnection.h"

namespace brassline {
namespace {

namespace fs = std::filesystem;

class DatabaseInfoAndBackupTest : public storetest::DocumentProcessTest {
protected:
    void SetUp() override {
        DocumentProcessTest::SetUp();
        BLDatabaseInfoManager::setApplicationSupportDirectory(m_folder / "support");
    }
    void TearDown() override {
        BLDatabaseInfoManager::setApplicationSupportDirectory("");
        DocumentProcessTest::TearDown();
    }
    // A package folder holding only an Info.plist with `info`.
    std::string package(const std::string& name, const Value::Dictionary& info) {
        std::string path = m_folder / name;
        fs::create_directories(path);
        EXPECT_TRUE(CompanyPackage::writeInfo(path, info));
        return path;
    }
};

TEST_F(DatabaseInfoAndBackupTest, InfoTellsTheKindOfStore) {
    Date migrated = Date::parseISO8601("2026-02-01T00:00:00Z").value();
    // Older stores: one with its own metadata table, one with only the header's user
    // version, one that is no database at all.
    auto database = [&](const std::string& name, const char* sql) {
        std::string path = m_folder / name;
        fs::create_directories(fs::path(path).parent_path());
        SQLiteConnection db;
        EXPECT_TRUE(db.open(path, SQLiteConnection::Mode::Create));
        EXPECT_TRUE(db.execute(sql)) << db.lastError();
        return path;
    };
    std::string storedata = database("Meta/Brassline3.storedata",
                                     "CREATE TABLE _metadata (key TEXT PRIMARY KEY, value);"
                                     "INSERT INTO _metadata VALUES ('modelVersion', 21), ('modelName', 'Brassline');"
                                     "PRAGMA user_version = 5");
    std::string headerOnly = database("Header/Brassline3.storedata", "PRAGMA user_version = 19");
    std::string garbage = m_folder / "Brassline3.storedata";
    std::ofstream(garbage) << "sqlite";
    const std::string storedataBefore = storetest::readBytes(storedata);
    struct Case {
        std::string name;
        std::string path;
        std::string type;
        bool needsMigration;
        int64_t modelVersion;
    } cases[] = {
        {"current",
         package("Current.brassline", {{"Holdfast", Value(Value::Dictionary{{"ModelVersion", Value(int64_t{23})}})},
                                       {"DocumentIdentifier", Value("DOC")},
                                       {"DocumentInfo.MigrationIdentifier", Value("MIG")},
                                       {"DocumentInfo.MigrationDate", Value(migrated)}}),
         "None", false, 23},
        {"old backup", package("Old.brassline", {{"type", Value("backup")}}), "V2Backup", true, 0},
        {"backup of v3", package("V3.brassline", {{"type", Value("brassline3backup")}}), "V3Backup", true, 0},
        {"layout", package("Layout.brassline", {{"type", Value("layout3")}}), "Unknown", true, 0},
        {"older store with metadata", storedata, "V3SQL", true, 21},
        {"older store with a header version", headerOnly, "V3SQL", true, 19},
        {"older store that is no database", garbage, "V3SQL", true, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::optional<BLDatabaseInfo> info = BLDatabaseInfo::infoWithPath(c.path);
        ASSERT_TRUE(info);
        EXPECT_EQ(info->migrationType, c.type);
        EXPECT_EQ(info->needsMigration, c.needsMigration);
        EXPECT_EQ(info->modelVersion, c.modelVersion);
    }
    EXPECT_EQ(storetest::readBytes(storedata), storedataBefore);
    std::optional<BLDatabaseInfo> current = BLDatabaseInfo::infoWithPath(cases[0].path);
    EXPECT_EQ(current->migrationIdentifier, "MIG");
    EXPECT_EQ(current->migrationDate, migrated);
    EXPECT_EQ(current->profileUID, "DOC");
    EXPECT_FALSE(BLDatabaseInfo::infoWithPath(m_folder / "missing.brassline"));

    BLDatabaseInfo outer;
    outer.path = "/a/Acme.brassline";
    BLDatabaseInfo inner;
    inner.path = "/a/Acme.brassline/Store.sqlite";
    BLDatabaseInfo other;
    other.path = "/a/Beta.brassline";
    EXPECT_TRUE(outer == inner);
    EXPECT_TRUE(inner == outer);
    EXPECT_FALSE(outer == other);
}

TEST_F(DatabaseInfoAndBackupTest, ManagerCollectsKnownStoresAndOpensTheNewestMigration) {
    std::string error;
    auto make = [&](const std::string& name, const char* migrationDate) {
        std::string path = m_folder / name;
        EXPECT_TRUE(BLDoc::create(path, {}, &error)) << error;
        std::optional<PackageInfo> info = CompanyPackage::inspect(path);
        Value::Dictionary plist = info->infoDictionary;
        plist["DocumentInfo.MigrationIdentifier"] = Value("MIG");
        plist["DocumentInfo.MigrationDate"] = Value(Date::parseISO8601(migrationDate).value());
        EXPECT_TRUE(CompanyPackage::writeInfo(path, plist));
        BLDocumentController::shared().logURL(path);
        return path;
    };
    make("Older.brassline", "2026-01-01T00:00:00Z");
    std::string newer = make("Newer.brassline", "2026-03-01T00:00:00Z");
    fs::create_directories(m_folder / "support/Brassline");
    package("support/Brassline/Backup.brassline", {{"type", Value("backup")}});
    package("support/Unknown.brassline", {{"type", Value("design")}});

    BLDatabaseInfoManager& manager = BLDatabaseInfoManager::shared();
    const std::vector<BLDatabaseInfo>& infos = manager.collect();
    ASSERT_EQ(infos.size(), 3u);
    EXPECT_EQ(infos[2].migrationType, "V2Backup");

    BLDoc* opened = manager.openMigrated("MIG", &error);
    ASSERT_NE(opened, nullptr) << error;
    EXPECT_EQ(opened->fileURL(), newer);
    // With a document open nothing more opens.
    EXPECT_EQ(manager.openMigrated("MIG"), nullptr);
    EXPECT_EQ(BLDocumentController::shared().documentCount(), 1u);
}

TEST_F(DatabaseInfoAndBackupTest, AdditionalBackupsFillTheTemplateAndExportLayouts) {
    std::string error;
    std::unique_ptr<BLDoc> document =
        BLDoc::create(m_folder / "Acme.brassline", {{"taxes", Value(Value::Array{})}}, &error);
    ASSERT_TRUE(document) << error;
    ManagedObjectContext& context = document->managedObjectContext();
    context.objectWithUid(*context.entityNamed("Profile"), "default.profile")
        ->setValueForKey(Value("Smith & <Sons>"), "organization");
    for (int i = 0; i < 3; ++i) {
        context.insertNewObjectForEntityForName("Client");
    }
    Clock::setNow(Date::parseISO8601("2026-04-05T06:07:08Z"));

    std::string backup = m_folder / "Backup";
    // Without the layout hook the layouts are left out.
    ASSERT_TRUE(BLBackup::createAdditionalBackups(backup, context, &error)) << error;
    EXPECT_FALSE(fs::exists(backup + "/Layouts"));
    std::string html = storetest::readBytes(backup + "/QuickLook/Preview.html");
    // First-run objects: 2 client groups, 1 not-taxable tax group, 1 item group.
    for (const char* expected :
         {"Backup of Smith &amp; &lt;Sons&gt;", "Made on 2026-04-05T06:07:08Z", "Client (3) <br/>",
          "ClientGroup (2) <br/>", "TaxGroup (1) <br/>", "ItemGroup (1) <br/>", "Invoice (0) <br/>"}) {
        SCOPED_TRACE(expected);
        EXPECT_NE(html.find(expected), std::string::npos) << html;
    }
    EXPECT_EQ(html.find("<owner/>"), std::string::npos);
    EXPECT_EQ(html.find("<contents/>"), std::string::npos);
    // The pictures come over from the resources unchanged, each a whole file of its kind:
    // an icon family's length field counts the whole file, a PDF ends with its trailer.
    for (const char* name : {"Icon.icns", "Preview.pdf", "Thumbnail.png"}) {
        SCOPED_TRACE(name);
        std::string copied = storetest::readBytes(backup + "/QuickLook/" + name);
        ASSERT_GT(copied.size(), 8u);
        EXPECT_EQ(copied, storetest::readBytes(BLSetupDefaultsController::resourcesDirectory() + "/" + name));
    }
    std::string icon = storetest::readBytes(backup + "/QuickLook/Icon.icns");
    EXPECT_EQ(icon.substr(0, 4), "icns");
    EXPECT_EQ((uint32_t{static_cast<uint8_t>(icon[4])} << 24) | (uint32_t{static_cast<uint8_t>(icon[5])} << 16) |
                  (uint32_t{static_cast<uint8_t>(icon[6])} << 8) | uint32_t{static_cast<uint8_t>(icon[7])},
              icon.size());
    EXPECT_EQ(storetest::readBytes(backup + "/QuickLook/Thumbnail.png").substr(0, 8), "\x89PNG\r\n\x1a\n");
    std::string preview = storetest::readBytes(backup + "/QuickLook/Preview.pdf");
    EXPECT_EQ(preview.substr(0, 5), "%PDF-");
    EXPECT_NE(preview.find("%%EOF", preview.size() - 8), std::string::npos);

    std::vector<std::string> exported;
    documentHooks().exportLayout = [&exported](ManagedObject& layout, const std::string& folder) {
        exported.push_back(layout.valueForKey("uid").toString());
        return fs::exists(folder);
    };
    ASSERT_TRUE(BLBackup::createAdditionalBackups(backup, context, &error)) << error;
    EXPECT_EQ(exported, std::vector<std::string>{"com.orvane.Brassline.defaultLayout"});
}

}  // namespace
}  // namespace brassline
