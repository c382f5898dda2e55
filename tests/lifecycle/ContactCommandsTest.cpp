#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unicode/uloc.h>

#include "../store/StoreTestSupport.h"
#include "core/Value.h"
#include "lifecycle/LifecycleHooks.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/ModelHooks.h"
#include "money/ContactCommands.h"
#include "money/ItemHooks.h"
#include "store/CompanyFileCommands.h"

namespace brassline {
// Named: the test sources are compiled together, and the helpers' names are common ones.
namespace contactcommandstest {

using storetest::CommandResult;
using storetest::runCommand;

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

// A company file made through the store commands, with the hooks the process installs
// at start-up, so clients are numbered and balanced as on the command line.
class ContactCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        installItemHooks();
        installLifecycleHooks();
        UErrorCode status = U_ZERO_ERROR;
        m_previousLocale = uloc_getDefault();
        uloc_setDefault("en_US", &status);
        m_path = m_folder / "Acme.brassline";
        CommandResult created =
            runCommand([&](auto& out, auto& err) { return companyfile::newFile(m_path, {}, out, err); });
        ASSERT_EQ(created.code, 0) << created.err;
    }
    void TearDown() override {
        UErrorCode status = U_ZERO_ERROR;
        uloc_setDefault(m_previousLocale.c_str(), &status);
        RunLoop::resetMainForTesting();
        resetModelHooks();
        NotificationCenter::resetDefaultCenterForTesting();
    }

    std::string insert(const std::string& entity, const std::vector<std::string>& values = {}) {
        CommandResult result =
            runCommand([&](auto& out, auto& err) { return companyfile::insert(m_path, entity, values, out, err); });
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out.substr(0, result.out.find('\n'));
    }
    CommandResult clients(bool json) {
        return runCommand([&](auto& out, auto& err) { return contactcommands::clients(m_path, json, out, err); });
    }

    storetest::TemporaryFolder m_folder;
    std::string m_path;
    std::string m_previousLocale;
};

TEST_F(ContactCommandsTest, ClientsWithoutAPatternListByNameWithANullNumber) {
    // A new file has no client pattern, so inserted clients stay unnumbered.
    const std::string zeller = insert("Client", {"lastName=Zeller"});
    const std::string alpha = insert("Client", {"organization=Alpha AG"});

    CommandResult listed = clients(true);
    ASSERT_EQ(listed.code, 0) << listed.err;
    const std::vector<std::string> lines = linesOf(listed.out);
    ASSERT_EQ(lines.size(), 2u) << listed.out;
    std::vector<Value::Dictionary> rows;
    for (const std::string& line : lines) {
        std::optional<Value> parsed = Value::fromJSON(line);
        ASSERT_TRUE(parsed && parsed->dictionary() != nullptr) << line;
        rows.push_back(*parsed->dictionary());
    }
    // Equal (absent) numbers: the name decides, so the later Alpha AG comes first.
    EXPECT_EQ(rows[0].at("uid").toString(), alpha);
    EXPECT_EQ(rows[1].at("uid").toString(), zeller);
    EXPECT_EQ(rows[0].at("displayName").toString(), "Alpha AG");
    EXPECT_EQ(rows[1].at("displayName").toString(), "Zeller");
    EXPECT_TRUE(rows[0].at("number").isNull()) << "no number is null, not an empty text";
    EXPECT_EQ(rows[1].at("balance").toString(), "") << "no invoices, nothing open";

    CommandResult plain = clients(false);
    ASSERT_EQ(plain.code, 0) << plain.err;
    EXPECT_EQ(plain.out, "\tAlpha AG\t\n\tZeller\t\n");
}

TEST_F(ContactCommandsTest, VCardAndAddressOfAClient) {
    const std::string uid = insert("Client", {"firstName=Eva", "lastName=Muster", "address=Hauptstr. 1", "zip=10115",
                                              "city=Berlin", "countryCode=DE", "notes=line one\nline two"});
    CommandResult card =
        runCommand([&](auto& out, auto& err) { return contactcommands::vcard(m_path, uid, out, err); });
    ASSERT_EQ(card.code, 0) << card.err;
    const std::vector<std::string> lines = linesOf(card.out);
    ASSERT_EQ(lines.size(), 12u) << card.out;
    EXPECT_EQ(lines.front(), "BEGIN:VCARD");
    EXPECT_EQ(lines[3], "N:Muster;Eva");
    EXPECT_EQ(lines[4], "FN:Eva Muster");
    EXPECT_EQ(lines[5], "ORG:") << "an empty field still gives its line";
    EXPECT_EQ(lines[8], "item1.ADR;type=WORK;type=pref:;;Hauptstr. 1;Berlin;;10115;Germany");
    EXPECT_EQ(lines[9], "item1.X-ABADR:de");
    EXPECT_EQ(lines[10], "NOTE:line one\\nline two");
    EXPECT_EQ(lines.back(), "END:VCARD");

    CommandResult address =
        runCommand([&](auto& out, auto& err) { return contactcommands::address(m_path, uid, out, err); });
    ASSERT_EQ(address.code, 0) << address.err;
    const std::string nbsp = "\u00A0";
    EXPECT_EQ(address.out.rfind("Eva" + nbsp + "Muster\nHauptstr." + nbsp + "1\n10115" + nbsp + "Berlin", 0), 0u)
        << address.out;
}

TEST_F(ContactCommandsTest, RefusedLookupsNameTheirCause) {
    const std::string invoice = insert("Invoice");
    struct Row {
        const char* label;
        std::string path;
        std::string uid;
        const char* message;
    };
    const std::vector<Row> rows = {
        {"unknown uid", m_path, "no-such-uid", "no object with uid 'no-such-uid'"},
        {"not a contact", m_path, invoice, "not a contact"},
        {"no company file", m_path + ".missing", "x", "brassline: "},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.label);
        for (auto command : {&contactcommands::vcard, &contactcommands::address}) {
            CommandResult result =
                runCommand([&](auto& out, auto& err) { return command(row.path, row.uid, out, err); });
            EXPECT_EQ(result.code, 1);
            EXPECT_TRUE(result.out.empty());
            EXPECT_NE(result.err.find(row.message), std::string::npos) << result.err;
        }
    }
    CommandResult missing =
        runCommand([&](auto& out, auto& err) { return contactcommands::clients(m_path + ".missing", true, out, err); });
    EXPECT_EQ(missing.code, 1);
    EXPECT_FALSE(missing.err.empty());
}

}  // namespace contactcommandstest
}  // namespace brassline
