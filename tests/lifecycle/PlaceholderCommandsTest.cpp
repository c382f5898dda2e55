#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../store/StoreTestSupport.h"
#include "core/ValueTransformers.h"
#include "lifecycle/PlaceholderCommands.h"
#include "lifecycle/SubstitutionCache.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/ModelHooks.h"
#include "store/CompanyFileCommands.h"

namespace brassline {
namespace {

using storetest::CommandResult;
using storetest::runCommand;

class PlaceholderCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        setCurrentFormattingLocale("en_US");
        m_path = m_folder / "Acme.brassline";
        CommandResult created =
            runCommand([&](auto& out, auto& err) { return companyfile::newFile(m_path, {}, out, err); });
        ASSERT_EQ(created.code, 0) << created.err;
        std::string client = insert("Client", {"firstName=Ada", "lastName=Lovelace"});
        m_invoice = insert("Invoice", {"name=RE-1", "parentDocument=" + client});
        insert("Cost", {"unitPrice=12.5", "quantity=2", "parent=" + m_invoice});
    }
    void TearDown() override {
        BLSubstitutionCache::resetForTesting();
        RunLoop::resetMainForTesting();
        resetModelHooks();
        NotificationCenter::resetDefaultCenterForTesting();
        setCurrentFormattingLocale("");
    }

    std::string insert(const std::string& entity, const std::vector<std::string>& values) {
        CommandResult result =
            runCommand([&](auto& out, auto& err) { return companyfile::insert(m_path, entity, values, out, err); });
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out.substr(0, result.out.find('\n'));
    }
    CommandResult fill(const std::string& uid, const std::string& text) {
        BLSubstitutionCache::resetForTesting();
        return runCommand([&](auto& out, auto& err) { return placeholdercommands::fill(m_path, uid, text, out, err); });
    }
    CommandResult dictionary(const std::string& uid, bool json) {
        BLSubstitutionCache::resetForTesting();
        return runCommand(
            [&](auto& out, auto& err) { return placeholdercommands::dictionary(m_path, uid, json, out, err); });
    }

    storetest::TemporaryFolder m_folder;
    std::string m_path;
    std::string m_invoice;
};

TEST_F(PlaceholderCommandsTest, FillReplacesTagsAndKeepsWhatIsNoTag) {
    struct Row {
        const char* text;
        const char* expected;
    };
    // 2 × 12.50 = 25.00; the draft has no date yet.
    const Row rows[] = {
        {"Dear <recipient.firstname/>, invoice <document.number/>", "Dear Ada, invoice RE-1\n"},
        {"<document.cost/> due <document.due/>", "25.00 due \u2753\n"},
        {"<unknown.key/>|<document.number>|<document.number", "|<document.number>|<document.number\n"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.text);
        CommandResult result = fill(m_invoice, row.text);
        ASSERT_EQ(result.code, 0) << result.err;
        EXPECT_EQ(result.out, row.expected);
    }
}

TEST_F(PlaceholderCommandsTest, DictionaryListsSortedKeysOrOneJSONObject) {
    CommandResult plain = dictionary(m_invoice, false);
    ASSERT_EQ(plain.code, 0) << plain.err;
    EXPECT_NE(plain.out.find("recipient.lastname\tLovelace\n"), std::string::npos);
    EXPECT_NE(plain.out.find("ZPBrasslineObject\t" + m_invoice + "\n"), std::string::npos);
    // An address spans lines; the listing keeps one line per key.
    std::istringstream lines(plain.out);
    std::string line;
    std::string previous;
    while (std::getline(lines, line)) {
        ASSERT_NE(line.find('\t'), std::string::npos) << line;
        std::string key = line.substr(0, line.find('\t'));
        EXPECT_LT(previous, key);
        previous = key;
    }

    CommandResult json = dictionary(m_invoice, true);
    ASSERT_EQ(json.code, 0) << json.err;
    std::optional<Value> parsed = Value::fromJSON(json.out);
    ASSERT_TRUE(parsed.has_value()) << json.out;
    EXPECT_EQ((*parsed)["document.number"].toString(), "RE-1");
    EXPECT_EQ((*parsed)["ZPBrasslineObject"].toString(), m_invoice);
}

TEST_F(PlaceholderCommandsTest, UnknownUidOrFileIsRefusedByName) {
    CommandResult missing = fill("no-such-uid", "<a/>");
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find("no-such-uid"), std::string::npos);
    CommandResult badFile = runCommand([&](auto& out, auto& err) {
        return placeholdercommands::dictionary(m_folder / "Missing.brassline", m_invoice, false, out, err);
    });
    EXPECT_EQ(badFile.code, 1);
    EXPECT_FALSE(badFile.err.empty());
    EXPECT_TRUE(badFile.out.empty());
}

}  // namespace
}  // namespace brassline
