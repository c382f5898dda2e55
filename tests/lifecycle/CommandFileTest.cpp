#include <filesystem>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../store/StoreTestSupport.h"
#include "lifecycle/ConversionCommands.h"
#include "lifecycle/IssueCommands.h"
#include "lifecycle/NumberingCommands.h"
#include "lifecycle/PlaceholderCommands.h"
#include "lifecycle/TagCommands.h"
#include "model/BLSyncHelper.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/BLContextState.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/gen/BrasslineModel.h"
#include "money/ContactCommands.h"
#include "money/ItemHooks.h"
#include "money/MoneyCommands.h"
#include "money/MoneyHooks.h"
#include "store/BLDocumentController.h"
#include "store/BLUserDefaults.h"
#include "store/CommandFile.h"
#include "store/CompanyFileCommands.h"
#include "store/SQLiteStore.h"

namespace brassline {
// Named: the test sources are compiled together, and the helpers' names are common ones.
namespace commandfiletest {

using storetest::CommandResult;
using storetest::runCommand;

// Every command opens its company file one way: as the application does, so the repair
// runs and the file joins the recent list, and the file is closed when the command ends.
class CommandFileTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        installMoneyHooks();
        installItemHooks();
        BLSyncHelper::setIsSyncing(false);
        UserDefaults::setDirectoryForTesting(m_folder / "config");
        BLDocumentController::resetSharedForTesting();
        m_path = m_folder / "Acme.brassline";
        CommandResult created =
            runCommand([&](auto& out, auto& err) { return companyfile::newFile(m_path, {}, out, err); });
        ASSERT_EQ(created.code, 0) << created.err;
    }
    void TearDown() override {
        BLDocumentController::resetSharedForTesting();
        UserDefaults::setDirectoryForTesting("");
        RunLoop::resetMainForTesting();
        resetModelHooks();
        NotificationCenter::resetDefaultCenterForTesting();
    }

    std::string insert(const std::string& entity, const std::vector<std::string>& values) {
        CommandResult result =
            runCommand([&](auto& out, auto& err) { return companyfile::insert(m_path, entity, values, out, err); });
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out.substr(0, result.out.find('\n'));
    }
    std::string normalized(const std::string& path) const {
        return std::filesystem::path(path).lexically_normal().string();
    }

    storetest::TemporaryFolder m_folder;
    std::string m_path;
};

TEST_F(CommandFileTest, EveryCommandJoinsTheRecentListAndClosesTheFile) {
    const std::string client = insert("Client", {"name=Acme"});
    const std::string invoice = insert("Invoice", {"parentDocument=" + client});
    insert("Cost", {"parent=" + invoice, "quantity=2", "unitPrice=10"});
    const std::string exported = m_folder / "plain.sqlite";
    using Command = std::function<int(const std::string&, std::ostream&, std::ostream&)>;
    struct Row {
        const char* command;
        Command run;
        int code;
    };
    // Each command on its arguments; the unlock of a draft is refused after the open.
    const std::vector<Row> rows = {
        {"info", [](auto& p, auto& o, auto& e) { return companyfile::info(p, false, o, e); }, 0},
        {"insert", [](auto& p, auto& o, auto& e) { return companyfile::insert(p, "Client", {}, o, e); }, 0},
        {"set", [&](auto& p, auto& o, auto& e) { return companyfile::set(p, client, {"name=Acme AG"}, o, e); }, 0},
        {"get", [&](auto& p, auto& o, auto& e) { return companyfile::get(p, client, {"name"}, false, o, e); }, 0},
        {"fetch", [](auto& p, auto& o, auto& e) { return companyfile::fetch(p, "Client", {}, o, e); }, 0},
        {"export-sqlite", [&](auto& p, auto& o, auto& e) { return companyfile::exportSQLite(p, exported, o, e); }, 0},
        {"url", [](auto& p, auto& o, auto& e) { return companyfile::url(p, "brassline://fixeuro", o, e); }, 0},
        {"vcard", [&](auto& p, auto& o, auto& e) { return contactcommands::vcard(p, client, o, e); }, 0},
        {"address", [&](auto& p, auto& o, auto& e) { return contactcommands::address(p, client, o, e); }, 0},
        {"clients", [](auto& p, auto& o, auto& e) { return contactcommands::clients(p, false, o, e); }, 0},
        {"rates", [](auto& p, auto& o, auto& e) { return moneycommands::rates(p, false, o, e); }, 0},
        {"taxes", [](auto& p, auto& o, auto& e) { return moneycommands::taxes(p, o, e); }, 0},
        {"items", [&](auto& p, auto& o, auto& e) { return moneycommands::items(p, invoice, false, o, e); }, 0},
        {"totals", [&](auto& p, auto& o, auto& e) { return moneycommands::totals(p, invoice, false, o, e); }, 0},
        {"number", [&](auto& p, auto& o, auto& e) { return numbercommands::showNumber(p, invoice, o, e); }, 0},
        {"pattern", [](auto& p, auto& o, auto& e) { return numbercommands::pattern(p, "invoice", {}, o, e); }, 0},
        {"unlock", [&](auto& p, auto& o, auto& e) { return issuecommands::unlock(p, invoice, o, e); }, 1},
        {"settle", [&](auto& p, auto& o, auto& e) { return issuecommands::settle(p, invoice, "open", o, e); }, 0},
        {"transcripts", [](auto& p, auto& o, auto& e) { return issuecommands::transcripts(p, {}, o, e); }, 0},
        {"duplicate", [&](auto& p, auto& o, auto& e) { return conversioncommands::duplicate(p, invoice, o, e); }, 0},
        {"fill", [&](auto& p, auto& o, auto& e) { return placeholdercommands::fill(p, invoice, "x", o, e); }, 0},
        {"dictionary",
         [&](auto& p, auto& o, auto& e) { return placeholdercommands::dictionary(p, invoice, false, o, e); }, 0},
        {"tags", [](auto& p, auto& o, auto& e) { return tagcommands::tags(p, false, o, e); }, 0},
        {"placeholders", [&](auto& p, auto& o, auto& e) { return tagcommands::placeholders(p, invoice, false, o, e); },
         0},
        {"delete", [&](auto& p, auto& o, auto& e) { return companyfile::remove(p, invoice, o, e); }, 0},
    };
    BLDocumentController& controller = BLDocumentController::shared();
    for (const Row& row : rows) {
        SCOPED_TRACE(row.command);
        controller.clearRecentDocuments();
        CommandResult result = runCommand([&](auto& out, auto& err) { return row.run(m_path, out, err); });
        EXPECT_EQ(result.code, row.code) << result.err;
        EXPECT_EQ(controller.recentDocumentURLs(), std::vector<std::string>{normalized(m_path)});
        EXPECT_EQ(controller.documentCount(), 0u) << "the command's file stays open";
    }
}

TEST_F(CommandFileTest, EveryCommandSeesTheRepairedFile) {
    // Saved as an older version wrote it; the repair on open names it "EUR" with the
    // symbol "€" without saving, so every reading command must open through the repair.
    const std::string euro = insert("Currency", {"name=€"});
    {
        // Read past the repair: the store alone.
        std::unique_ptr<SQLiteStore> store = SQLiteStore::open(m_path, gen::brasslineModel());
        ASSERT_TRUE(store);
        ManagedObjectContext raw(gen::brasslineModel(), std::move(store));
        ManagedObject* stored = raw.objectWithUid(*raw.entityNamed("Base"), euro);
        ASSERT_NE(stored, nullptr);
        ASSERT_EQ(stored->valueForKey("name").toString(), "€") << "the file holds the unrepaired name";
        RunLoop::main().runUntilIdle();
        BLContextState::forgetContext(raw);
    }

    CommandResult rates =
        runCommand([&](auto& out, auto& err) { return moneycommands::rates(m_path, false, out, err); });
    ASSERT_EQ(rates.code, 0) << rates.err;
    EXPECT_NE(rates.out.find("\nEUR     €"), std::string::npos) << rates.out;
    EXPECT_EQ(rates.out.find("\n€ "), std::string::npos) << rates.out;

    CommandResult name =
        runCommand([&](auto& out, auto& err) { return companyfile::get(m_path, euro, {"name"}, false, out, err); });
    EXPECT_EQ(name.out, "EUR\n") << name.err;
}

TEST_F(CommandFileTest, AFileOpenBeforeTheCommandStaysOpen) {
    BLDocumentController& controller = BLDocumentController::shared();
    BLDoc* open = controller.openDocumentWithContentsOfURL(m_path);
    ASSERT_NE(open, nullptr);
    {
        std::ostringstream err;
        std::optional<CommandFile> file = CommandFile::open(m_path, err);
        ASSERT_TRUE(file) << err.str();
        EXPECT_EQ(&file->document(), open) << "the open document, not a second one";
        std::optional<CommandFile> moved = std::move(file);
        EXPECT_EQ(&moved->document(), open);
    }
    EXPECT_EQ(controller.documentCount(), 1u);
    {
        // Not open before: a second handle reaches the same document, and the last one
        // that owns it closes it.
        controller.closeAllDocuments();
        std::ostringstream err;
        std::optional<CommandFile> file = CommandFile::open(m_path, err);
        ASSERT_TRUE(file) << err.str();
        std::optional<CommandFile> other = std::move(file);
        EXPECT_EQ(controller.documentCount(), 1u) << "a moved handle closes nothing";
    }
    EXPECT_EQ(controller.documentCount(), 0u);
}

TEST_F(CommandFileTest, AMissingFileIsRefusedWithAMessageAndLeftOffTheRecentList) {
    std::ostringstream err;
    EXPECT_FALSE(CommandFile::open(m_folder / "Missing.brassline", err));
    EXPECT_EQ(err.str().rfind("brassline: ", 0), 0u) << err.str();
    EXPECT_EQ(BLDocumentController::shared().documentCount(), 0u);
    EXPECT_EQ(BLDocumentController::shared().recentDocumentURLs(), std::vector<std::string>{normalized(m_path)});
}

}  // namespace commandfiletest
}  // namespace brassline
