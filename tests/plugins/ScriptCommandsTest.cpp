#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../store/StoreTestSupport.h"
#include "plugins/ScriptCommands.h"
#include "store/CompanyFileCommands.h"

namespace brassline {
namespace {

using storetest::CommandResult;
using storetest::runCommand;

class ScriptCommandsTest : public storetest::CompanyFileFixture {
protected:
    std::string writeScript(const std::string& name, const std::string& text) {
        const std::string path = m_folder / name;
        std::ofstream(path) << text;
        return path;
    }
    CommandResult run(const std::string& scriptPath, const scriptcommands::ScriptOptions& options = {}) {
        return runCommand(
            [&](auto& out, auto& err) { return scriptcommands::script(m_path, scriptPath, options, out, err); });
    }
    CommandResult fetch(const std::string& entity) {
        return runCommand([&](auto& out, auto& err) { return companyfile::fetch(m_path, entity, {}, out, err); });
    }
};

TEST_F(ScriptCommandsTest, AnAutomationInvoicesEveryClientWithOpenHours) {
    const std::string acme = insert("Client", {"organization=Acme"});
    const std::string beta = insert("Client", {"organization=Beta"});
    insert("Client", {"organization=Idle"});
    const std::string roof = insert("Project", {"name=Roof", "parentDocument=" + acme});
    const std::string site = insert("Project", {"name=Site", "parentDocument=" + beta});
    // Acme: 2.5 h + 4 h at 80 = 520; Beta: 1 h at 95.50. A kilometre line stays behind.
    insert("Cost", {"parent=" + roof, "name=Planning", "unit=h", "quantity=2.5", "unitPrice=80"});
    insert("Cost", {"parent=" + roof, "name=Building", "unit=h", "quantity=4", "unitPrice=80"});
    insert("Cost", {"parent=" + roof, "name=Travel", "unit=km", "quantity=30", "unitPrice=0.7"});
    insert("Cost", {"parent=" + site, "name=Survey", "unit=h", "quantity=1", "unitPrice=95.50"});

    scriptcommands::ScriptOptions options;
    options.assignments = {"subject=Hours of"};
    const std::string script = std::string(BRASSLINE_SOURCE_DIR) + "/tests/data/plugins/invoice_open_hours.js";
    CommandResult ran = run(script, options);
    ASSERT_EQ(ran.code, 0) << ran.err;
    // These lines carry no tax in a new file, so the gross is the hours times the rates.
    EXPECT_EQ(ran.out,
              "[{\"client\":\"Acme\",\"lines\":2,\"gross\":\"520\"},"
              "{\"client\":\"Beta\",\"lines\":1,\"gross\":\"95.5\"}]\n");
    EXPECT_NE(ran.err.find("invoices made: 2"), std::string::npos) << ran.err;

    // Saved in the file: a second run finds no open hours left.
    CommandResult again = run(script, options);
    ASSERT_EQ(again.code, 0) << again.err;
    EXPECT_EQ(again.out, "[]\n");
    CommandResult invoices = fetch("Invoice");
    EXPECT_EQ(std::count(invoices.out.begin(), invoices.out.end(), '\n'), 2) << invoices.out;
}

TEST_F(ScriptCommandsTest, FailuresExitNonZeroAndSaveNothing) {
    struct Row {
        const char* name;
        const char* text;
        double timeout;
        const char* message;
    };
    const Row rows[] = {
        {"throws.js", "insertRecord('Client').organization = 'Ghost';\nnull.x;", 30, "failed at line 2: TypeError"},
        {"loops.js", "insertRecord('Client').organization = 'Ghost'; for (;;) {}", 0.3, "ran longer than 0.3 seconds"},
        {"syntax.js", "function (", 30, "failed at line 1: SyntaxError"},
    };
    const std::string before = fetch("Client").out;
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        scriptcommands::ScriptOptions options;
        options.timeoutSeconds = row.timeout;
        CommandResult ran = run(writeScript(row.name, row.text), options);
        EXPECT_EQ(ran.code, 1);
        EXPECT_NE(ran.err.find(row.message), std::string::npos) << ran.err;
        EXPECT_EQ(fetch("Client").out, before);
    }
    CommandResult missing = run(m_folder / "missing.js");
    EXPECT_EQ(missing.code, 1);
    scriptcommands::ScriptOptions badSetting;
    badSetting.assignments = {"novalue"};
    EXPECT_EQ(run(writeScript("ok.js", "1"), badSetting).code, 1);
    scriptcommands::ScriptOptions badDocument;
    badDocument.documentUid = "no-such-uid";
    EXPECT_EQ(run(writeScript("ok.js", "1"), badDocument).code, 1);
}

TEST_F(ScriptCommandsTest, TheDocumentOptionHandsTheObjectToTheQuery) {
    const std::string acme = insert("Client", {"organization=Acme"});
    scriptcommands::ScriptOptions options;
    options.documentUid = acme;
    options.type = "PlaceHolders.Document";
    CommandResult ran = run(writeScript("rename.js",
                                        "var c = query.record(); c.organization = 'Acme AG';\n"
                                        "[pluginType, c.organization]"),
                            options);
    ASSERT_EQ(ran.code, 0) << ran.err;
    EXPECT_EQ(ran.out, "[\"placeholders.document\",\"Acme AG\"]\n");
    CommandResult record =
        runCommand([&](auto& out, auto& err) { return scriptcommands::record(m_path, acme, true, out, err); });
    ASSERT_EQ(record.code, 0) << record.err;
    EXPECT_NE(record.out.find("\"organization\":\"Acme AG\""), std::string::npos) << record.out;
    CommandResult text =
        runCommand([&](auto& out, auto& err) { return scriptcommands::record(m_path, acme, false, out, err); });
    EXPECT_NE(text.out.find("\norganization: Acme AG\n"), std::string::npos) << text.out;
    EXPECT_EQ(
        runCommand([&](auto& out, auto& err) { return scriptcommands::record(m_path, "nope", true, out, err); }).code,
        1);
}

}  // namespace
}  // namespace brassline
