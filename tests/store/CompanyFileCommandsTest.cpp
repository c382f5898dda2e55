#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "StoreTestSupport.h"
#include "core/Date.h"
#include "core/Value.h"
#include "model/BLSyncHelper.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/ModelHooks.h"
#include "store/BLDocumentController.h"
#include "store/BLUserDefaults.h"
#include "store/CompanyFileCommands.h"

namespace brassline {
namespace {

using storetest::TemporaryFolder;
namespace cf = companyfile;

using storetest::CommandResult;
using storetest::runCommand;

std::string firstLine(const std::string& text) {
    return text.substr(0, text.find('\n'));
}

class CompanyFileCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        BLSyncHelper::setIsSyncing(false);
        UserDefaults::setDirectoryForTesting(m_folder / "config");
        BLDocumentController::resetSharedForTesting();
        m_path = m_folder / "Acme.brassline";
        cf::NewOptions options;
        options.taxes = {"VAT=19", "reduced=7"};
        CommandResult created =
            runCommand([&](auto& out, auto& err) { return cf::newFile(m_path, options, out, err); });
        ASSERT_EQ(created.code, 0) << created.err;
    }
    void TearDown() override {
        BLDocumentController::resetSharedForTesting();
        UserDefaults::setDirectoryForTesting("");
        RunLoop::resetMainForTesting();
        resetModelHooks();
        NotificationCenter::resetDefaultCenterForTesting();
    }

    CommandResult insert(const std::string& entity, const std::vector<std::string>& values) {
        return runCommand([&](auto& out, auto& err) { return cf::insert(m_path, entity, values, out, err); });
    }
    CommandResult get(const std::string& uid, const std::vector<std::string>& keys, bool json = false) {
        return runCommand([&](auto& out, auto& err) { return cf::get(m_path, uid, keys, json, out, err); });
    }
    CommandResult set(const std::string& uid, const std::vector<std::string>& values) {
        return runCommand([&](auto& out, auto& err) { return cf::set(m_path, uid, values, out, err); });
    }
    CommandResult fetch(const std::string& entity, const cf::FetchOptions& options) {
        return runCommand([&](auto& out, auto& err) { return cf::fetch(m_path, entity, options, out, err); });
    }
    // Object counts and change sets: any save shows here.
    std::string state() {
        return runCommand([&](auto& out, auto& err) { return cf::info(m_path, true, out, err); }).out;
    }
    std::string insertClient(const std::string& name) {
        CommandResult result = insert("Client", {"name=" + name});
        EXPECT_EQ(result.code, 0) << result.err;
        return firstLine(result.out);
    }

    TemporaryFolder m_folder;
    std::string m_path;
};

TEST_F(CompanyFileCommandsTest, NewFileHoldsTheFirstRunObjects) {
    std::optional<Value> info = Value::fromJSON(state());
    ASSERT_TRUE(info);
    const Value& objects = (*info)["objects"];
    // Not-taxable group plus one per tax; each tax group has a rule per client group.
    EXPECT_EQ(objects["TaxGroup"].toInt64(), 3);
    EXPECT_EQ(objects["TaxRule"].toInt64(), 6);
    EXPECT_EQ(objects["ClientGroup"].toInt64(), 2);
    EXPECT_EQ(objects["Profile"].toInt64(), 1);
    // Bank transfer for invoices, the validity terms for estimates.
    EXPECT_EQ(objects["PaymentType"].toInt64(), 2);
    EXPECT_EQ((*info)["modelVersion"].toInt64(), 23);
    EXPECT_EQ((*info)["changeSets"].toInt64(), 1);

    CommandResult again = runCommand([&](auto& out, auto& err) { return cf::newFile(m_path, {}, out, err); });
    EXPECT_NE(again.code, 0);
    EXPECT_NE(again.err.find("exists"), std::string::npos) << again.err;
    CommandResult badTax = runCommand([&](auto& out, auto& err) {
        cf::NewOptions options;
        options.taxes = {"VAT"};
        return cf::newFile(m_folder / "B.brassline", options, out, err);
    });
    EXPECT_EQ(badTax.code, 1);
    EXPECT_FALSE(std::filesystem::exists(m_folder / "B.brassline"));
}

TEST_F(CompanyFileCommandsTest, InsertedValuesReadBackInTheirCanonicalForm) {
    std::string client = insertClient("Acme GmbH");
    CommandResult invoice = insert("Invoice", {"parentDocument=" + client, "dateCreation=2026-11-22", "subject=First",
                                               "toDo=yes", "payInterval=14", "discount=-0.005"});
    ASSERT_EQ(invoice.code, 0) << invoice.err;
    std::string uid = firstLine(invoice.out);
    EXPECT_EQ(uid.size(), 22u);
    CommandResult line = insert("Cost", {"parent=" + uid, "quantity=2", "unitPrice=19.990", "name=Work", "optional=0"});
    ASSERT_EQ(line.code, 0) << line.err;
    std::string lineUid = firstLine(line.out);

    CommandResult read = get(uid, {"subject", "client", "client.name", "dateCreation", "toDo", "payInterval",
                                   "discount", "dateSent", "childs"});
    ASSERT_EQ(read.code, 0) << read.err;
    std::string expected = "First\n" + client + "\nAcme GmbH\n" + Date::parseISO8601("2026-11-22")->iso8601String() +
                           "\n1\n14\n-0.005\n\n[\"" + lineUid + "\"]\n";
    EXPECT_EQ(read.out, expected);

    CommandResult json = get(lineUid, {"quantity", "unitPrice", "optional", "parent"}, true);
    ASSERT_EQ(json.code, 0) << json.err;
    std::optional<Value> parsed = Value::fromJSON(json.out);
    ASSERT_TRUE(parsed);
    EXPECT_EQ((*parsed)["quantity"].toString(), "2");
    EXPECT_EQ((*parsed)["unitPrice"].toString(), "19.99");
    EXPECT_EQ((*parsed)["optional"], Value(false));
    EXPECT_EQ((*parsed)["parent"].toString(), uid);
}

TEST_F(CompanyFileCommandsTest, BadInputIsNamedAndChangesNothing) {
    std::string client = insertClient("Acme");
    std::string profile = "default.profile";
    std::string before = state();
    struct Case {
        const char* name;
        std::string entity;
        std::vector<std::string> values;
        std::string message;
    } cases[] = {
        {"unknown entity", "Clientele", {"name=x"}, "Clientele"},
        {"abstract entity", "Sendable", {}, "abstract"},
        {"unknown key", "Client", {"name=x", "colour=red"}, "colour"},
        {"bad decimal", "Cost", {"name=x", "quantity=1,5"}, "1,5"},
        {"bad date", "Invoice", {"dateCreation=22.11.2026"}, "22.11.2026"},
        {"bad bool", "Invoice", {"toDo=maybe"}, "maybe"},
        {"int16 overflow", "Invoice", {"payInterval=40000"}, "40000"},
        {"unknown target uid", "Invoice", {"parentDocument=nope"}, "nope"},
        {"target of another entity", "Cost", {"itemGroup=" + client}, "ItemGroup"},
        {"no equals sign", "Client", {"name"}, "KEY=VALUE"},
        {"data attribute", "PaymentType", {"conditions=x"}, "data"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        CommandResult result = insert(c.entity, c.values);
        EXPECT_EQ(result.code, 1);
        EXPECT_TRUE(result.out.empty());
        EXPECT_NE(result.err.find(c.message), std::string::npos) << result.err;
    }
    CommandResult setBad = set(client, {"name=Changed", "archived=perhaps"});
    EXPECT_EQ(setBad.code, 1);
    EXPECT_NE(setBad.err.find("perhaps"), std::string::npos);
    EXPECT_EQ(set("missing-uid", {"name=x"}).code, 1);
    EXPECT_EQ(get(client, {"name"}).out, "Acme\n");
    EXPECT_EQ(state(), before);

    CommandResult unknownKey = get(client, {"name", "colour"});
    EXPECT_EQ(unknownKey.code, 1);
    EXPECT_TRUE(unknownKey.out.empty());
    EXPECT_NE(unknownKey.err.find("colour"), std::string::npos);
    EXPECT_EQ(get("nope", {"name"}).code, 1);
    EXPECT_EQ(get(profile, {"uid"}).out, "default.profile\n");
}

TEST_F(CompanyFileCommandsTest, SetChangesInOrderAndSaves) {
    std::string client = insertClient("Acme");
    CommandResult result = set(client, {"name=First", "name=Second", "archived=true", "notes="});
    ASSERT_EQ(result.code, 0) << result.err;
    EXPECT_EQ(get(client, {"name", "archived", "notes"}).out, "Second\n1\n\n");
}

TEST_F(CompanyFileCommandsTest, FetchFiltersSortsAndPrintsKeys) {
    std::string b = insertClient("Bravo");
    std::string a = insertClient("Alpha");
    std::string c = insertClient("Charlie");
    cf::FetchOptions options;
    options.keys = {"name"};
    options.sort = {"name:desc"};
    CommandResult all = fetch("Client", options);
    ASSERT_EQ(all.code, 0) << all.err;
    EXPECT_EQ(all.out, c + "\tCharlie\n" + b + "\tBravo\n" + a + "\tAlpha\n");

    options.predicate = "name BEGINSWITH 'A' OR name == 'Charlie'";
    options.sort = {"name"};
    options.json = true;
    CommandResult filtered = fetch("Client", options);
    ASSERT_EQ(filtered.code, 0) << filtered.err;
    EXPECT_EQ(filtered.out, "{\"entity\":\"Client\",\"name\":\"Alpha\",\"uid\":\"" + a +
                                "\"}\n{\"entity\":\"Client\",\"name\":\"Charlie\",\"uid\":\"" + c + "\"}\n");

    struct Case {
        const char* name;
        std::string entity;
        cf::FetchOptions options;
        std::string message;
    } cases[] = {
        {"bad predicate", "Client", {"name ==", {}, {}, false}, "predicate"},
        {"unknown entity", "Nobody", {}, "Nobody"},
        {"unknown key", "Client", {"", {"colour"}, {}, false}, "colour"},
        {"unknown sort key", "Client", {"", {}, {"colour:desc"}, false}, "colour"},
        {"bad direction", "Client", {"", {}, {"name:up"}, false}, "name:up"},
    };
    for (const Case& bad : cases) {
        SCOPED_TRACE(bad.name);
        CommandResult result = fetch(bad.entity, bad.options);
        EXPECT_EQ(result.code, 1);
        EXPECT_NE(result.err.find(bad.message), std::string::npos) << result.err;
    }
}

TEST_F(CompanyFileCommandsTest, DeleteRemovesTheObjectAndItsCascade) {
    std::string client = insertClient("Acme");
    std::string invoice = firstLine(insert("Invoice", {"parentDocument=" + client}).out);
    std::string line = firstLine(insert("Cost", {"parent=" + invoice, "quantity=1"}).out);
    CommandResult removed = runCommand([&](auto& out, auto& err) { return cf::remove(m_path, invoice, out, err); });
    ASSERT_EQ(removed.code, 0) << removed.err;
    EXPECT_EQ(get(invoice, {"uid"}).code, 1);
    // The lines go with their invoice (childs cascade); the client stays.
    EXPECT_EQ(get(line, {"uid"}).code, 1);
    EXPECT_EQ(get(client, {"name"}).out, "Acme\n");
    std::string before = state();
    CommandResult missing = runCommand([&](auto& out, auto& err) { return cf::remove(m_path, invoice, out, err); });
    EXPECT_EQ(missing.code, 1);
    EXPECT_NE(missing.err.find(invoice), std::string::npos);
    EXPECT_EQ(state(), before);
}

TEST_F(CompanyFileCommandsTest, ExportWritesTheDatabase) {
    std::string out = m_folder / "export.sqlite";
    CommandResult result = runCommand([&](auto& o, auto& e) { return cf::exportSQLite(m_path, out, o, e); });
    ASSERT_EQ(result.code, 0) << result.err;
    EXPECT_GT(std::filesystem::file_size(out), 0u);
    CommandResult refused =
        runCommand([&](auto& o, auto& e) { return cf::exportSQLite(m_path, m_folder / "no/such/dir.sqlite", o, e); });
    EXPECT_EQ(refused.code, 2);
    EXPECT_NE(refused.err.find("ExportSQLiteError"), std::string::npos);
}

TEST_F(CompanyFileCommandsTest, ExportRefusesPackagesAndExistingFilesAndLeavesThemAlone) {
    const std::string other = m_folder / "Other.brassline";
    ASSERT_EQ(runCommand([&](auto& o, auto& e) { return cf::newFile(other, {}, o, e); }).code, 0);
    const std::string existing = m_folder / "existing.sqlite";
    storetest::writeBytes(existing, "keep me");
    struct Row {
        const char* what;
        std::string target;
        std::string message;
    };
    const std::vector<Row> rows = {
        {"its own database", m_path + "/Store.sqlite", "lies inside the company file"},
        {"a new file in its own package", m_path + "/copy.sqlite", "lies inside the company file"},
        {"a file in another package", other + "/Store.sqlite", "\"Other.brassline\"; export to a place outside"},
        {"an existing file", existing, "exists already and was left as it is. Add --force to replace it."},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.what);
        // The packages and the existing file; the settings folder notes the opening.
        auto contents = [&] {
            return std::vector{storetest::treeContents(m_path), storetest::treeContents(other),
                               storetest::treeContents(existing)};
        };
        auto before = contents();
        CommandResult result = runCommand([&](auto& o, auto& e) { return cf::exportSQLite(m_path, row.target, o, e); });
        EXPECT_EQ(result.code, 1);
        EXPECT_NE(result.err.find(row.message), std::string::npos) << result.err;
        EXPECT_TRUE(contents() == before);
    }
    CommandResult forced = runCommand([&](auto& o, auto& e) { return cf::exportSQLite(m_path, existing, o, e, true); });
    ASSERT_EQ(forced.code, 0) << forced.err;
    EXPECT_EQ(storetest::readBytes(existing).rfind("SQLite format 3", 0), 0u);
}

TEST_F(CompanyFileCommandsTest, RefusedFilesAreReportedAndKept) {
    std::string plain = m_folder / "plain.brassline";
    storetest::writeBytes(plain, "not a package");
    std::string missing = m_folder / "Missing.brassline";
    for (const std::string& path : {plain, missing}) {
        SCOPED_TRACE(path);
        auto before = storetest::treeContents(path);
        CommandResult info = runCommand([&](auto& out, auto& err) { return cf::info(path, false, out, err); });
        EXPECT_EQ(info.code, 1);
        EXPECT_TRUE(info.out.empty());
        EXPECT_NE(info.err.find(CompanyPackage::displayName(path)), std::string::npos) << info.err;
        CommandResult inserted =
            runCommand([&](auto& out, auto& err) { return cf::insert(path, "Client", {"name=x"}, out, err); });
        EXPECT_EQ(inserted.code, 1);
        EXPECT_EQ(storetest::treeContents(path), before);
    }
}

}  // namespace
}  // namespace brassline

namespace brassline {
namespace {

TEST_F(CompanyFileCommandsTest, URLCommandsRunOrAreRefused) {
    std::string identifier = Value::fromJSON(state())->operator[]("documentIdentifier").toString();
    struct Case {
        std::string url;
        int code;
        std::string text;  // In the output on success, in the message otherwise.
    } cases[] = {
        {"brassline://show?uid=default.profile", 0, "Profile default.profile"},
        {"BRASSLINE://Show?document=" + identifier + "&uid=default.profile", 0, "Profile"},
        {"brassline://fixprofiles", 0, "fixprofiles: done"},
        {"brassline://show?uid=nothing", 1, "nothing"},
        {"brassline://show?document=other&uid=default.profile", 1, "other"},
        {"brassline://crashnow", 1, "The command crashnow is not supported"},
        {"brassline://fixtaxrules", 3, "this build has no taxes yet"},
        {"brassline://fixzombies", 0, "fixzombies: 0 drafts"},
        {"http://show", 1, "not a brassline:// URL"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url);
        CommandResult result = runCommand([&](auto& out, auto& err) { return cf::url(m_path, c.url, out, err); });
        EXPECT_EQ(result.code, c.code);
        EXPECT_NE((c.code == 0 ? result.out : result.err).find(c.text), std::string::npos) << result.out << result.err;
    }
}

}  // namespace
}  // namespace brassline

namespace brassline {
namespace {

TEST_F(CompanyFileCommandsTest, RecentListsFilesNewestFirstAndMarksVanishedOnes) {
    std::string other = m_folder / "Other.brassline";
    Clock::setNow(Date::parseISO8601("2030-01-01T00:00:00Z"));
    ASSERT_EQ(runCommand([&](auto& out, auto& err) { return cf::newFile(other, {}, out, err); }).code, 0);
    Clock::setNow(std::nullopt);
    // Reading a file counts as opening it, but the other one stays newer by its date.
    EXPECT_FALSE(state().empty());
    std::filesystem::remove_all(other);

    CommandResult listed = runCommand([&](auto& out, auto& err) { return cf::recent(false, out, err); });
    ASSERT_EQ(listed.code, 0);
    std::istringstream lines(listed.out);
    std::string first;
    std::string second;
    std::getline(lines, first);
    std::getline(lines, second);
    EXPECT_EQ(first.substr(0, first.find('\t')), other);
    EXPECT_NE(first.find("\tmissing"), std::string::npos);
    EXPECT_EQ(second.substr(0, second.find('\t')), m_path);
    EXPECT_EQ(second.find("missing"), std::string::npos);
}

}  // namespace
}  // namespace brassline
