#include <iostream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../store/StoreTestSupport.h"
#include "app/cli/Run.h"
#include "core/Localization.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/ModelHooks.h"

namespace brassline {
namespace {

// Uids as the generator makes them, one in 64 of which begins with "-".
constexpr const char* kClient = "-kZ8w1cQbSl2nJv5tq0xAw";
constexpr const char* kInvoice = "-3fVbN0aQy2Gm7LkPz9cUe";
constexpr const char* kEstimate = "--9xTq4RmL0aBv2nYc8WdQ";
constexpr const char* kLine = "-h-Jd6s2Fk1Qw0eRt5yUiO";

struct Ran {
    int code = 0;
    std::string out;
    std::string err;
};

// One command line through the whole parser, with standard output and error caught.
Ran runLine(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), "brassline");
    std::ostringstream out;
    std::ostringstream err;
    std::streambuf* oldOut = std::cout.rdbuf(out.rdbuf());
    std::streambuf* oldErr = std::cerr.rdbuf(err.rdbuf());
    Ran ran;
    ran.code = cli::run(arguments);
    std::cout.rdbuf(oldOut);
    std::cerr.rdbuf(oldErr);
    ran.out = out.str();
    ran.err = err.str();
    RunLoop::resetMainForTesting();
    return ran;
}

class CommandLineTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        setCurrentLanguage("en");
        m_path = m_folder / "Acme.brassline";
        ASSERT_EQ(runLine({"new", m_path, "--tax", "VAT=19"}).code, 0);
        // Objects with fixed uids that begin with "-", one of them with two.
        const std::vector<std::vector<std::string>> inserts = {
            {"Client", std::string("uid=") + kClient, "lastName=Lovelace", "firstName=Ada"},
            {"Invoice", std::string("uid=") + kInvoice, std::string("parentDocument=") + kClient},
            {"Cost", std::string("uid=") + kLine, std::string("parent=") + kInvoice, "quantity=2", "unitPrice=50"},
            {"Estimate", std::string("uid=") + kEstimate, std::string("parentDocument=") + kClient},
        };
        for (const std::vector<std::string>& values : inserts) {
            std::vector<std::string> line = {"insert", m_path};
            line.insert(line.end(), values.begin(), values.end());
            Ran ran = runLine(line);
            ASSERT_EQ(ran.code, 0) << ran.err;
        }
    }
    void TearDown() override {
        setCurrentLanguage("");
        RunLoop::resetMainForTesting();
        resetModelHooks();
        NotificationCenter::resetDefaultCenterForTesting();
    }

    storetest::TemporaryFolder m_folder;
    std::string m_path;
};

TEST_F(CommandLineTest, EveryCommandTakesUidsThatBeginWithADash) {
    struct Row {
        std::vector<std::string> line;
        std::string output;  // A piece of standard output.
    };
    const std::string path = m_path;
    // In this order: the invoice is issued before it is settled and unlocked.
    const Row rows[] = {
        {{"get", path, kClient, "lastName", "clientID"}, "Lovelace\n1\n"},
        {{"get", path, "--json", kClient, "lastName"}, "{\"lastName\":\"Lovelace\"}"},
        {{"get", path, kClient, "--json", "lastName"}, "{\"lastName\":\"Lovelace\"}"},
        {{"set", path, kClient, "notes=-5 % off"}, ""},
        {{"get", path, kClient, "notes"}, "-5 % off\n"},
        {{"vcard", path, kClient}, "N:Lovelace;Ada"},
        {{"address", path, kClient}, "Lovelace"},
        {{"number", path, kInvoice}, "INV-"},
        {{"items", path, kInvoice}, "2 x 50\t100"},
        {{"totals", path, kInvoice}, "net\t100"},
        {{"dictionary", path, kInvoice}, "document.number"},
        {{"fill", path, kInvoice, "<recipient.lastName/>"}, "Lovelace"},
        {{"placeholders", path, kInvoice}, ""},
        {{"issue", path, kInvoice}, "INV-"},
        {{"settle", path, kInvoice, "settled"}, "settled"},
        {{"settle", path, kInvoice, "open"}, "open"},
        {{"unlock", path, kInvoice}, "unlocked INV-"},
        {{"duplicate", path, kInvoice}, ""},
        {{"convert", path, kEstimate, "invoice"}, ""},
        {{"delete", path, kLine}, std::string("deleted Cost ") + kLine},
        // Values and formulas that begin with a dash are no options either.
        {{"calc", "-1.5+2"}, "0.5"},
        {{"calc", "--", "-2*3"}, "-6"},
    };
    for (const Row& row : rows) {
        std::string shown;
        for (const std::string& argument : row.line) {
            shown += argument + " ";
        }
        SCOPED_TRACE(shown);
        Ran ran = runLine(row.line);
        EXPECT_EQ(ran.code, 0) << ran.err;
        EXPECT_EQ(ran.err.find("--help"), std::string::npos) << ran.err;
        EXPECT_NE(ran.out.find(row.output), std::string::npos) << ran.out;
    }
}

TEST_F(CommandLineTest, OptionsStillReadAndUnknownOnesAreStillRefused) {
    // A real option with its value keeps both, a value after "=" as well.
    Ran fetched = runLine({"fetch", m_path, "Client", "--keys", "lastName", "--sort=lastName:desc"});
    EXPECT_EQ(fetched.code, 0) << fetched.err;
    EXPECT_EQ(fetched.out, std::string(kClient) + "\tLovelace\n");
    // An uid that is not there is reported as such, not as a usage error.
    Ran missing = runLine({"get", m_path, "-nothere", "name"});
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find("-nothere"), std::string::npos) << missing.err;
    // Too few arguments are still a usage error.
    Ran short_ = runLine({"get", m_path, kClient});
    EXPECT_NE(short_.code, 0);
}

TEST_F(CommandLineTest, NewTakesPatternsAndRefusesBadOnes) {
    const std::string other = m_folder / "Other.brassline";
    Ran created =
        runLine({"new", other, "--invoice-pattern", R"(["R-", {"field": "increment", "option": "ZPIncrement4"}])",
                 "--client-pattern", R"(["K", {"field": "increment", "option": "ZPClientIncrement3"}])"});
    ASSERT_EQ(created.code, 0) << created.err;
    Ran invoice = runLine({"pattern", other, "invoice"});
    EXPECT_NE(invoice.out.find("preview: R-0001\n"), std::string::npos) << invoice.out;
    EXPECT_NE(invoice.out.find("reset: never\n"), std::string::npos) << "no year, no yearly reset";
    Ran client = runLine({"insert", other, "Client", "lastName=Byron"});
    ASSERT_EQ(client.code, 0) << client.err;
    std::string uid = client.out.substr(0, client.out.find('\n'));
    EXPECT_EQ(runLine({"get", other, "--", uid, "clientID"}).out, "K001\n");
    // The estimate kept its default.
    EXPECT_NE(runLine({"pattern", other, "estimate"}).out.find("preview: EST-"), std::string::npos);

    struct Row {
        const char* option;
        const char* json;
        const char* message;
    } rows[] = {
        {"--invoice-pattern", "[1", "not JSON"},
        {"--folder-pattern", R"([{"field": "year", "option": "ZPNope"}])", "unknown option \"ZPNope\""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.option);
        const std::string refused = m_folder / "Refused.brassline";
        Ran ran = runLine({"new", refused, row.option, row.json});
        EXPECT_EQ(ran.code, 1);
        EXPECT_NE(ran.err.find(row.message), std::string::npos) << ran.err;
        EXPECT_NE(runLine({"info", refused}).code, 0) << "nothing is created";
    }
}

}  // namespace
}  // namespace brassline
