#include <functional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../store/StoreTestSupport.h"
#include "core/Date.h"
#include "lifecycle/IssueCommands.h"
#include "lifecycle/SendableIssue.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/ModelHooks.h"
#include "store/BLUserDefaults.h"
#include "store/CompanyFileCommands.h"

namespace brassline {
namespace {

using storetest::CommandResult;
using storetest::runCommand;

// A company with an issued invoice (a line under it) for a client, and a currency, layout
// and item group that a draft uses.
class RefusedEditsTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        resetIssueHooks();
        UserDefaults::setDirectoryForTesting(m_folder / "defaults");
        Clock::setNow(Date::dateWithYear(2024, 3, 10).dateByAddingTimeInterval(9 * 3600.0));
        m_path = m_folder / "Acme.brassline";
        ASSERT_EQ(runCommand([&](auto& o, auto& e) { return companyfile::newFile(m_path, {}, o, e); }).code, 0);
        client = insert("Client", {"name=Acme"});
        currency = insert("Currency", {"name=CHF"});
        layout = insert("Layout", {"name=Plain"});
        itemGroup = insert("ItemGroup", {"name=Hardware"});
        issued = insert("Invoice", {"parentDocument=" + client, "subject=Website"});
        line = insert("Cost", {"parent=" + issued, "name=Design", "quantity=2", "unitPrice=50"});
        draft = insert("Invoice", {"parentDocument=" + client, "currency=" + currency, "layout=" + layout});
        insert("Cost", {"parent=" + draft, "itemGroup=" + itemGroup});
        issuecommands::IssueOptions options;
        options.uids = {issued};
        options.date = "2024-03-01";
        options.deliver = "save";
        CommandResult result =
            runCommand([&](auto& o, auto& e) { return issuecommands::issue(m_path, options, o, e); });
        ASSERT_EQ(result.code, 0) << result.err;
    }
    void TearDown() override {
        RunLoop::resetMainForTesting();
        resetModelHooks();
        resetIssueHooks();
        Clock::setNow(std::nullopt);
        UserDefaults::setDirectoryForTesting("");
        NotificationCenter::resetDefaultCenterForTesting();
    }

    std::string insert(const std::string& entity, const std::vector<std::string>& assignments) {
        CommandResult result = runCommand(
            [&](auto& out, auto& err) { return companyfile::insert(m_path, entity, assignments, out, err); });
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out.substr(0, result.out.find('\n'));
    }

    storetest::TemporaryFolder m_folder;
    std::string m_path;
    std::string client, currency, layout, itemGroup, issued, line, draft;
};

TEST_F(RefusedEditsTest, EditsOfIssuedDocumentsAndDeletionsInUseAreRefusedAndTheFileStaysAsItWas) {
    using Command = std::function<int(std::ostream&, std::ostream&)>;
    struct Row {
        const char* what;
        Command command;
        const char* message;
    };
    namespace cf = companyfile;
    const std::vector<Row> rows = {
        {"delete an issued invoice", [&](auto& o, auto& e) { return cf::remove(m_path, issued, o, e); },
         " - Website is issued and can't be deleted, nor can its items. Unlock it first."},
        {"delete a line of it", [&](auto& o, auto& e) { return cf::remove(m_path, line, o, e); },
         "is issued and can't be deleted"},
        {"delete a client with documents", [&](auto& o, auto& e) { return cf::remove(m_path, client, o, e); },
         "can't be deleted: it is used by 2 documents."},
        {"delete a currency in use", [&](auto& o, auto& e) { return cf::remove(m_path, currency, o, e); },
         "Currency \"CHF\" can't be deleted: it is used by 1 documents."},
        {"delete a layout in use", [&](auto& o, auto& e) { return cf::remove(m_path, layout, o, e); },
         "Layout \"Plain\" can't be deleted: it is used by 1 documents."},
        {"delete an item group in use", [&](auto& o, auto& e) { return cf::remove(m_path, itemGroup, o, e); },
         "ItemGroup \"Hardware\" can't be deleted: it is used by 1 costs."},
        {"change the subject", [&](auto& o, auto& e) { return cf::set(m_path, issued, {"subject=Other"}, o, e); },
         "is issued and read-only. Unlock it to change it or its items."},
        {"change the number", [&](auto& o, auto& e) { return cf::set(m_path, issued, {"name=RE-999"}, o, e); },
         "is issued and read-only."},
        {"change a line", [&](auto& o, auto& e) { return cf::set(m_path, line, {"quantity=3"}, o, e); },
         "is issued and read-only."},
        {"add a line under it",
         [&](auto& o, auto& e) { return cf::insert(m_path, "Cost", {"parent=" + issued}, o, e); },
         "is issued and read-only."},
        {"add a title under it",
         [&](auto& o, auto& e) {
             return cf::insert(m_path, "Title", {"parent=" + issued, "name=x"}, o, e);
         },
         "is issued and read-only."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        const auto before = storetest::treeContents(m_path);
        CommandResult result = runCommand(row.command);
        EXPECT_EQ(result.code, 1);
        EXPECT_NE(result.err.find(row.message), std::string::npos) << result.err;
        EXPECT_TRUE(storetest::treeContents(m_path) == before);
    }
    // What stays open on an issued invoice: settling it.
    CommandResult settled =
        runCommand([&](auto& o, auto& e) { return issuecommands::settle(m_path, issued, "settled", o, e); });
    EXPECT_EQ(settled.code, 0) << settled.err;
    // Unlocked, it is a draft again and may change.
    ASSERT_EQ(runCommand([&](auto& o, auto& e) { return issuecommands::unlock(m_path, issued, o, e); }).code, 0);
    CommandResult changed =
        runCommand([&](auto& o, auto& e) { return cf::set(m_path, issued, {"subject=Other"}, o, e); });
    EXPECT_EQ(changed.code, 0) << changed.err;
}

}  // namespace
}  // namespace brassline
