#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "../store/StoreTestSupport.h"
#include "core/Date.h"
#include "core/Localization.h"
#include "lifecycle/NumberingCommands.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/ModelHooks.h"
#include "store/CompanyFileCommands.h"

namespace brassline {
namespace {

using storetest::CommandResult;
using storetest::runCommand;

class NumberingCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        m_path = m_folder / "Acme.brassline";
        CommandResult created =
            runCommand([&](auto& out, auto& err) { return companyfile::newFile(m_path, {}, out, err); });
        ASSERT_EQ(created.code, 0) << created.err;
    }
    void TearDown() override {
        RunLoop::resetMainForTesting();
        resetModelHooks();
        NotificationCenter::resetDefaultCenterForTesting();
    }

    CommandResult pattern(const std::string& kind, std::optional<std::string> json = std::nullopt) {
        return runCommand([&](auto& out, auto& err) { return numbercommands::pattern(m_path, kind, json, out, err); });
    }
    CommandResult number(const std::string& uid) {
        return runCommand([&](auto& out, auto& err) { return numbercommands::showNumber(m_path, uid, out, err); });
    }
    std::string insert(const std::string& entity, const std::vector<std::string>& values = {}) {
        CommandResult result =
            runCommand([&](auto& out, auto& err) { return companyfile::insert(m_path, entity, values, out, err); });
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out.substr(0, result.out.find('\n'));
    }

    storetest::TemporaryFolder m_folder;
    std::string m_path;
};

TEST_F(NumberingCommandsTest, ANewFileNumbersInItsLanguageAndARepairedOldFileToo) {
    const std::string year = std::to_string(Date::now().yearOfCommonEra());
    struct Row {
        const char* language;
        std::string invoice;
        std::string estimate;
        std::string project;
    } rows[] = {
        {"en", "INV-" + year + "-001", "EST-" + year + "-001", "PRJ-001"},
        {"de", "RE-" + year + "-001", "AN-" + year + "-001", "PR-001"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.language);
        m_path = m_folder / (std::string(row.language) + ".brassline");
        setCurrentLanguage(row.language);
        CommandResult created =
            runCommand([&](auto& out, auto& err) { return companyfile::newFile(m_path, {}, out, err); });
        ASSERT_EQ(created.code, 0) << created.err;
        EXPECT_EQ(number(insert("Invoice")).out, row.invoice + " (next)\n");
        EXPECT_EQ(number(insert("Estimate")).out, row.estimate + " (next)\n");
        EXPECT_EQ(number(insert("Client")).out, "1\n") << "a client takes its number when made";
        EXPECT_EQ(number(insert("Client")).out, "2\n");
        CommandResult reset = pattern("invoice");
        EXPECT_NE(reset.out.find("reset: year\n"), std::string::npos) << reset.out;
        EXPECT_NE(pattern("project").out.find("preview: " + row.project + "\n"), std::string::npos);
        setCurrentLanguage("");
    }

    // A file from before default patterns: the invoice pattern is gone, and the next
    // opening stores it again.
    CommandResult removed = runCommand(
        [&](auto& out, auto& err) { return companyfile::remove(m_path, "BLPref.invoice.numbering", out, err); });
    ASSERT_EQ(removed.code, 0) << removed.err;
    setCurrentLanguage("en");
    EXPECT_EQ(number(insert("Invoice")).out, "INV-" + year + "-001 (next)\n");
    setCurrentLanguage("");
}

TEST_F(NumberingCommandsTest, SetPatternIsStoredAndNumbersArePeekedWithoutTaking) {
    CommandResult set = pattern("invoice", R"(["RE-", {"field": "increment", "option": "ZPIncrement4"}])");
    ASSERT_EQ(set.code, 0) << set.err;
    EXPECT_NE(set.out.find("preview: RE-0001\n"), std::string::npos) << set.out;
    // Every token got a uid on the way in.
    EXPECT_NE(pattern("invoice").out.find("\"uid\":"), std::string::npos);

    std::string draft = insert("Invoice");
    EXPECT_EQ(number(draft).out, "RE-0001 (next)\n");
    EXPECT_EQ(number(draft).out, "RE-0001 (next)\n");
    std::string named = insert("Invoice", {"name=RE-0001"});
    EXPECT_EQ(number(named).out, "RE-0001\n");
    // The taken number is skipped by the peek as it would be by sending.
    EXPECT_EQ(number(draft).out, "RE-0002 (next)\n");
    EXPECT_NE(pattern("invoice").out.find("counter: 1\n"), std::string::npos);
}

TEST_F(NumberingCommandsTest, BadInputIsNamedAndNothingIsStored) {
    struct Row {
        const char* kind;
        const char* json;
        const char* message;
    };
    const Row rows[] = {
        {"invoice", "[1", "not JSON"},
        {"invoice", R"({"field": "year"})", "a pattern is a JSON list"},
        {"invoice", R"([{"field": "year", "option": "ZPNope"}])", "unknown option \"ZPNope\""},
        {"estimate", R"([{"option": "ZPYear"}])", "element 1"},
        {"receipts", "[]", "unknown pattern kind \"receipts\""},
    };
    const std::string before = pattern("invoice").out;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.json);
        CommandResult result = pattern(row.kind, std::string(row.json));
        EXPECT_EQ(result.code, 1);
        EXPECT_NE(result.err.find(row.message), std::string::npos) << result.err;
    }
    EXPECT_EQ(pattern("invoice").out, before) << "the stored pattern stays as it was";
    EXPECT_EQ(number("no-such-uid").code, 1);
    std::string layoutless = insert("Payment");
    CommandResult payment = number(layoutless);
    EXPECT_EQ(payment.code, 1);
    EXPECT_NE(payment.err.find("carries no number"), std::string::npos) << payment.err;
}

}  // namespace
}  // namespace brassline
