#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "../store/StoreTestSupport.h"
#include "core/Date.h"
#include "core/Value.h"
#include "lifecycle/IssueCommands.h"
#include "lifecycle/NumberingCommands.h"
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

std::string fileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

class IssueCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        resetIssueHooks();
        UserDefaults::setDirectoryForTesting(m_folder / "defaults");
        TimeZone::setCurrent("Europe/Berlin");
        Clock::setNow(Date::dateWithYear(2024, 3, 10).dateByAddingTimeInterval(9 * 3600.0));
        m_path = m_folder / "Acme.brassline";
        CommandResult created =
            runCommand([&](auto& out, auto& err) { return companyfile::newFile(m_path, {}, out, err); });
        ASSERT_EQ(created.code, 0) << created.err;
        CommandResult pattern = runCommand([&](auto& out, auto& err) {
            return numbercommands::pattern(m_path, "invoice",
                                           R"(["RE-", {"field": "increment", "option": "ZPIncrement3"}])", out, err);
        });
        ASSERT_EQ(pattern.code, 0) << pattern.err;
    }
    void TearDown() override {
        RunLoop::resetMainForTesting();
        resetModelHooks();
        resetIssueHooks();
        Clock::setNow(std::nullopt);
        TimeZone::setCurrent("");
        UserDefaults::setDirectoryForTesting("");
        NotificationCenter::resetDefaultCenterForTesting();
    }

    std::string insert(const std::string& entity) {
        CommandResult result =
            runCommand([&](auto& out, auto& err) { return companyfile::insert(m_path, entity, {}, out, err); });
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out.substr(0, result.out.find('\n'));
    }
    CommandResult issue(issuecommands::IssueOptions options) {
        return runCommand([&](auto& out, auto& err) { return issuecommands::issue(m_path, options, out, err); });
    }
    CommandResult unlock(const std::string& uid) {
        return runCommand([&](auto& out, auto& err) { return issuecommands::unlock(m_path, uid, out, err); });
    }
    CommandResult settle(const std::string& uid, const std::string& mode) {
        return runCommand([&](auto& out, auto& err) { return issuecommands::settle(m_path, uid, mode, out, err); });
    }
    CommandResult transcripts(std::optional<std::string> folder = std::nullopt) {
        return runCommand([&](auto& out, auto& err) { return issuecommands::transcripts(m_path, folder, out, err); });
    }

    storetest::TemporaryFolder m_folder;
    std::string m_path;
};

TEST_F(IssueCommandsTest, IssueNumbersInOrderAndSaysWhatWasNotDelivered) {
    const std::string first = insert("Invoice");
    const std::string second = insert("Invoice");
    issuecommands::IssueOptions options;
    options.uids = {second, first};
    options.date = "2024-03-01";
    CommandResult result = issue(options);
    ASSERT_EQ(result.code, 0) << result.err;
    // No client: the default route prints, and nothing can print yet.
    EXPECT_EQ(result.out, "delivery: print (it has no client)\n" + second + " RE-001\n" + first + " RE-002\n");
    EXPECT_NE(result.err.find("No printing is installed"), std::string::npos) << result.err;

    // Issued for good: a second issue of the first is a re-send with the same number.
    options.uids = {first};
    options.deliver = "save";
    CommandResult again = issue(options);
    ASSERT_EQ(again.code, 0) << again.err;
    EXPECT_EQ(again.out, first + " RE-002\n");
}

TEST_F(IssueCommandsTest, BadInputIsRefusedBeforeAnythingChanges) {
    const std::string draft = insert("Invoice");
    struct Row {
        const char* name;
        issuecommands::IssueOptions options;
        const char* message;
    };
    const Row rows[] = {
        {"unknown uid", {{"nope"}, std::nullopt, std::nullopt, std::nullopt}, "no object with uid 'nope'"},
        {"bad date", {{draft}, std::string("1 March"), std::nullopt, std::nullopt}, "is not a date"},
        {"bad route", {{draft}, std::nullopt, std::nullopt, std::string("fax")}, "unknown delivery"},
        {"negative interval", {{draft}, std::nullopt, int64_t{-1}, std::nullopt}, "payment interval"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CommandResult result = issue(row.options);
        EXPECT_EQ(result.code, 1);
        EXPECT_NE(result.err.find(row.message), std::string::npos) << result.err;
    }
    issuecommands::IssueOptions ok;
    ok.uids = {draft};
    ok.deliver = "save";
    CommandResult issued = issue(ok);
    ASSERT_EQ(issued.code, 0) << issued.err;
    EXPECT_EQ(issued.out, draft + " RE-001\n");
}

TEST_F(IssueCommandsTest, SettleTakesTheWordsOfEachKind) {
    const std::string invoice = insert("Invoice");
    const std::string estimate = insert("Estimate");
    // Both are empty drafts: nothing is owed, so the invoice's plain status is "paid"
    // whatever the mark, while the estimate's marks come first.
    struct Row {
        const std::string* uid;
        const char* mode;
        int code;
        const char* text;
    };
    const Row rows[] = {
        {&invoice, "settled", 0, ": settled (status paid)"},
        {&invoice, "canceled", 0, ": canceled (status paid)"},
        {&invoice, "accepted", 1, "unknown mark"},
        {&estimate, "accepted", 0, ": accepted (status accepted)"},
        {&estimate, "declined", 0, ": declined (status declined)"},
        {&estimate, "open", 0, ": open (status draft)"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(std::string(row.mode));
        CommandResult result = settle(*row.uid, row.mode);
        EXPECT_EQ(result.code, row.code) << result.err;
        EXPECT_NE((result.out + result.err).find(row.text), std::string::npos) << result.out << result.err;
    }
}

TEST_F(IssueCommandsTest, UnlockLeavesATranscriptThatExportsAsAPropertyList) {
    const std::string first = insert("Invoice");
    const std::string second = insert("Invoice");
    issuecommands::IssueOptions options;
    options.uids = {first, second};
    options.deliver = "save";
    ASSERT_EQ(issue(options).code, 0);
    EXPECT_EQ(unlock(second).code, 0);
    Clock::setNow(Date::dateWithYear(2024, 3, 11));
    CommandResult unlocked = unlock(first);
    ASSERT_EQ(unlocked.code, 0) << unlocked.err;
    EXPECT_EQ(unlocked.out.rfind("unlocked RE-001; transcript ", 0), 0u) << unlocked.out;
    EXPECT_EQ(unlock(first).code, 1);

    CommandResult listed = transcripts();
    ASSERT_EQ(listed.code, 0) << listed.err;
    // Newest first: RE-001 was unlocked a day after RE-002.
    const size_t newer = listed.out.find("(RE-001)");
    const size_t older = listed.out.find("(RE-002)");
    ASSERT_NE(newer, std::string::npos) << listed.out;
    ASSERT_NE(older, std::string::npos) << listed.out;
    EXPECT_LT(newer, older);

    const std::string exportFolder = m_folder / "export";
    std::filesystem::create_directories(exportFolder + "/Transcript");
    std::ofstream(exportFolder + "/Transcript/stale.txt") << "old";
    CommandResult exported = transcripts(exportFolder);
    ASSERT_EQ(exported.code, 0) << exported.err;
    EXPECT_EQ(exported.out, exportFolder + "/Transcript (2 entries)\n");
    EXPECT_FALSE(std::filesystem::exists(exportFolder + "/Transcript/stale.txt"));

    const std::string xml = fileText(exportFolder + "/Transcript/Transcript.xml");
    std::optional<Value> plist = Value::fromPropertyList(Bytes(xml.begin(), xml.end()));
    ASSERT_TRUE(plist.has_value());
    EXPECT_EQ((*plist)["creator"].toString(), "Brassline");
    const Value& entries = (*plist)["entries"];
    ASSERT_EQ(entries.count(), 2u);
    EXPECT_EQ(entries[0]["documentNumber"].toString(), "RE-001");
    EXPECT_EQ(entries[1]["documentNumber"].toString(), "RE-002");
    EXPECT_EQ(entries[0]["operation"].toString(), "Unlocked");
    ASSERT_NE(entries[0]["date"].date(), nullptr);
    EXPECT_EQ(*entries[0]["date"].date(), Date::dateWithYear(2024, 3, 11));

    const std::string rtf = fileText(exportFolder + "/Transcript/Transcript.rtf");
    EXPECT_EQ(rtf, fileText(std::string(BRASSLINE_RESOURCES_DIR) + "/GoBD.rtf"));
    EXPECT_EQ(rtf.rfind("{\\rtf1", 0), 0u);
}

}  // namespace
}  // namespace brassline
