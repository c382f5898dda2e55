#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../model/EntityFixture.h"
#include "../store/StoreTestSupport.h"
#include "core/Localization.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLInvoice.h"
#include "plugins/BLJSContext.h"
#include "plugins/BLJSLogger.h"

namespace brassline {
namespace {

namespace fs = std::filesystem;

std::string readFile(const std::string& path) {
    std::ifstream in(path);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

class ScriptGlobalsTest : public EntityFixture {
protected:
    void SetUp() override {
        EntityFixture::SetUp();
        auto* client = insert<BLClient>();
        client->setUid(std::string("c-1"));
        client->setOrganization(std::string("Acme"));
        auto* invoice = insert<BLInvoice>();
        invoice->setContact(client);
        for (const char* uid : {"line-1", "Line-2", "other"}) {
            auto* cost = insert<BLCost>();
            cost->setUid(std::string(uid));
            cost->setUnitPrice(Decimal(10));
            cost->setQuantity(Decimal(1));
            cost->setParent(invoice);
        }
        m_dir = m_folder / "files";
        fs::create_directories(m_dir);
        std::ofstream(m_dir + "/.hidden") << "x";
        std::ofstream(m_dir + "/visible.txt") << "Grüße";
        m_script = std::make_unique<BLJSContext>();
        m_script->setTimeLimit(2);
        m_script->setupForPlugin(
            {{"uid", Value("globals.test")},
             {"type", Value("Test")},
             {"path", Value("/plug")},
             {"settings",
              Value(Value::Array{Value(Value::Dictionary{{"name", Value("apiKey")}, {"value", Value("secret")}})})}},
            &context());
        m_script->setObjectForKeyedSubscript(Value(m_dir), "dir");
        BLJSLogger::sharedLogger().reset("globals.test");
    }
    void TearDown() override {
        m_script.reset();
        EntityFixture::TearDown();
    }
    // The script's value as JSON text, or the exception's text.
    std::string run(const std::string& text) {
        m_script->evaluateScript(text);
        const ScriptOutcome& outcome = m_script->lastOutcome();
        if (!outcome.succeeded()) {
            return "failed: " + outcome.message;
        }
        return outcome.isUndefined ? "undefined" : outcome.resultJSON;
    }

    storetest::TemporaryFolder m_folder;
    std::string m_dir;
    std::unique_ptr<BLJSContext> m_script;
};

TEST_F(ScriptGlobalsTest, EveryGlobalAnswersAsTold) {
    struct Row {
        const char* script;
        std::string expected;
    };
    const Row rows[] = {
        {"apiKey", "\"secret\""},
        {"'a<b&\"c\"\\''.xmlEncode()", "\"a&lt;b&amp;&quot;c&quot;&apos;\""},
        {"pluginIdentifier", "\"globals.test\""},
        {"pluginType", "\"test\""},
        {"[typeof query.count, typeof brassline.progress.start, typeof brassline.fileManager.fileExists]",
         "[\"function\",\"function\",\"function\"]"},
        // Any case, and only plain lines (not subentities).
        {"getBilledUIDs('LINE-').sort()", "[\"Line-2\",\"line-1\"]"},
        {"getBilledUIDs('').length", "3"},
        // The invoice of the lines is open.
        {"getPaidUIDs('')", "[]"},
        {"[insertRecord('NoSuchEntity') !== null, insertRecord('NoSuchEntity').name]", "[true,null]"},
        {"equalRecords(fetchRecordWithUID('Client', 'c-1', false), fetchRecordWithUID('Client', 'c-1', true))", "true"},
        {"equalRecords(fetchRecordWithUID('Client', 'c-1', false), 'c-1')", "false"},
        {"fetchRecords('Client').count()", "1"},
        // LIKE: wildcards, and the case as written.
        {"fetchRecordWithUID('Client', 'c-*', false).organization", "\"Acme\""},
        {"fetchRecordWithUID('Client', 'C-1', false)", "null"},
        {"fetchRecordWithUID('Client', 'nobody', false)", "null"},
        // Null while the preference has no value; the rate itself is not handed over.
        {"defaultRate", "null"},
        {"applicationVersion", "\"0.1\""},
        {"localize('untitled')", "\"" + localizedString("untitled") + "\""},
        {"pathToURL('/tmp/a b#1')", "\"file:///tmp/a%20b%231\""},
        {"sanitizeXML('<a>\\u0001<b></b><c>x</c></a>').indexOf('<a>\\n  <c>x</c>\\n</a>') > 0", "true"},
        {"sanitizeXML('not xml')", "\"not xml\""},
        {"sanitizeFileName('a/b:c?')", "\"a-b-c-\""},
        {"typeof module", "\"function\""},
        {"[base64Encode('Grüße'), btoa('Grüße')]", "[\"R3LDvMOfZQ==\",\"R3LDvMOfZQ==\"]"},
        {"ISO2CodeToISO3Code('DE') + ISO2CodeToISO3Code('ch') + ISO2CodeToISO3Code('XYZ')", "\"DEUCHE\""},
        {"md5('abc')", "\"900150983cd24fb0d6963f7d28e17f72\""},
        {"PluginDirectory", "\"/plug/\""},
        {"typeof NSHomeDirectory + typeof NSTemporaryDirectoryURL", "\"stringstring\""},
        {"[typeof NSDropboxPath, typeof NSBusinessDropBoxPath, typeof NSPrivateDropboxPath]",
         "[\"undefined\",\"undefined\",\"undefined\"]"},
        {"[fileExists(dir), fileIsDirectory(dir), fileExists(dir + '/none')]", "[true,true,false]"},
        // Dot files stay hidden.
        {"contentsOfDirectory(dir).map(function (p) { return p.split('/').pop(); })", "[\"visible.txt\"]"},
        {"contentsOfFile(pathToURL(dir + '/visible.txt'))", "\"Grüße\""},
        {"fileModificationDate(dir + '/visible.txt') instanceof Date", "true"},
        {"parseCSVString('a;b\\n1;\"2;3\"')", "[[\"a\",\"b\"],[\"1\",\"2;3\"]]"},
        {"parseCSVString('')", "[]"},
        {"parseIntegerComponents('A12-3x007')", "[12,3,7]"},
        {"plistToJSON('<plist><dict/></plist>')", "\"\""},
        {"[moneymoneyPaymentUID({paymentUID: 'p1'}), moneymoneyPaymentUID({})]", "[\"p1\",\"\"]"},
        {"[executeAppleScript('beep'), spotlightAttributes(dir), alert('t', 'x', ['OK'])]", "[null,null,null]"},
        {"findFiles('x', 'path')", "[]"},
        {"brassline.addressBook.people()", "[]"},
        {"var db = openSQLiteDatabase(dir + '/d.sqlite'); db.executeQuery('create table t (a, b)');"
         "db.executeQuery(\"insert into t values (1, 'x')\"); runSQLiteQuery(db, 'select a, b from t')",
         "[{\"a\":1,\"b\":\"x\"}]"},
        {"var db2 = brassline.SQLite.openDatabase(dir + '/d.sqlite'); db2.close(); db2.executeQuery('select 1')", "[]"},
        {"runSQLiteQuery(openSQLiteDatabase(dir + '/d.sqlite'), 'not sql')", "[]"},
        {"openSQLiteDatabase('/proc/none/x.sqlite')", "null"},
        {"var p = brassline.progress; p.configuration.cancel(); p.cancelled", "true"},
        {"brassline.pasteBoard.writeString(3); brassline.pasteBoard.readString()", "null"},
        {"var t = Date.now(); brassline.sleep(0.05); Date.now() - t >= 40", "true"},
        {"plistToJSON()", "\"\""},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.script);
        EXPECT_EQ(run(row.script), row.expected);
    }
}

TEST_F(ScriptGlobalsTest, FilesAreWrittenAsTheRulesSay) {
    struct Row {
        const char* script;
        const char* expected;
        const char* file;
        const char* contents;
    };
    const Row rows[] = {
        // An .xml path in any case goes through the cleaning: empty nodes go, a comment comes.
        {"writeToURL('<a><b/><c>1</c></a>', dir + '/out.XML')", "0", "out.XML", nullptr},
        {"writeToURL('plain', pathToURL(dir + '/sub/dir/t.txt'))", "0", "sub/dir/t.txt", "plain"},
        // A literal "#" of a file name survives a file URL.
        {"writeToURL('hash', 'file://' + dir + '/a#b.txt')", "0", "a#b.txt", "hash"},
        {"writeToURL({a: 1}, dir + '/x.txt')", "-1", nullptr, nullptr},
        {"writeToURL('x', 'http://example.com/x')", "-1", nullptr, nullptr},
        {"writeCSVToURL([['a', 'b;c'], [1, 2.5]], dir + '/t.csv', -1, ';', undefined)", "0", "t.csv",
         "a;\"b;c\"\n1;2.5\n"},
        {"writeCSVToURL([['a', 'b'], ['1', '2']], dir + '/u.csv')", "0", "u.csv", "a,b\n1,2\n"},
        {"writeCSVToURL([['a']], 'https://example.com/u.csv')", "-1", nullptr, nullptr},
        // No library here writes the Excel binary format.
        {"writeXLSToURL([['a']], dir + '/t.xls')", "-1", nullptr, nullptr},
        {"writeDataToFile('raw', dir + '/raw.txt')", "true", "raw.txt", "raw"},
        {"createFolderAtURL(dir + '/made/deep')", "0", "made/deep", nullptr},
        {"createFolderAtURL('http://example.com/x')", "0", nullptr, nullptr},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.script);
        EXPECT_EQ(run(row.script), row.expected);
        if (row.file != nullptr) {
            EXPECT_TRUE(fs::exists(m_dir + "/" + row.file));
        }
        if (row.contents != nullptr) {
            EXPECT_EQ(readFile(m_dir + "/" + row.file), row.contents);
        }
    }
    const std::string xml = readFile(m_dir + "/out.XML");
    EXPECT_NE(xml.find("<!-- Created with Brassline -->"), std::string::npos) << xml;
    EXPECT_EQ(xml.find("<b/>"), std::string::npos) << xml;
    const std::vector<std::string> log = BLJSLogger::sharedLogger().entries("globals.test");
    EXPECT_NE(std::find(log.begin(), log.end(), "URL invalid: http://example.com/x"), log.end());
}

TEST_F(ScriptGlobalsTest, WrongArgumentsNeverCrashNorThrow) {
    // Run from a scratch folder: a wrong argument may well be taken as a relative path.
    const fs::path previous = fs::current_path();
    fs::current_path(m_dir);
    const std::string arguments[] = {
        "",
        "null",
        "undefined, undefined, undefined, undefined, undefined",
        "12, {}, [], true, -1",
        "[], function () {}, Symbol('s'), 10n",
        "{toString: function () { throw new Error('no text'); }}, {valueOf: function () { throw 2; }}",
        "'x'.repeat(100000), NaN, Infinity",
        "fetchRecords('Client'), fetchRecords('Client').record(), new Date(NaN)",
        "(function () { var a = []; a[2e6] = 1; return a; })()",
        "(function () { var o = {}; o.self = o; return o; })(), [[[[[[[[[[[[]]]]]]]]]]]]",
    };
    // Every global function of the script API but those that wait or reach the network.
    const std::vector<std::string> names = {"getBilledUIDs",
                                            "getPaidUIDs",
                                            "insertRecord",
                                            "equalRecords",
                                            "fetchRecords",
                                            "fetchRecordWithPredicate",
                                            "fetchRecordWithUID",
                                            "displayPluginSetting",
                                            "localize",
                                            "launchURL",
                                            "postNotification",
                                            "writeDataToFile",
                                            "findContactByNumber",
                                            "pathToURL",
                                            "displayUserNotification",
                                            "sanitizeXML",
                                            "writeXLSToURL",
                                            "writeToURL",
                                            "writeCSVToURL",
                                            "createFolderAtURL",
                                            "sanitizeFileName",
                                            "module",
                                            "log",
                                            "base64Encode",
                                            "btoa",
                                            "ISO2CodeToISO3Code",
                                            "openSQLiteDatabase",
                                            "runSQLiteQuery",
                                            "findFiles",
                                            "md5",
                                            "fileModificationDate",
                                            "fileAttributes",
                                            "spotlightAttributes",
                                            "fileExists",
                                            "fileIsDirectory",
                                            "contentsOfFile",
                                            "contentsOfDirectory",
                                            "contentsOfCSVFile",
                                            "contentsOfPlist",
                                            "contentsOfXLSFile",
                                            "saveFileDialog",
                                            "openFileDialog",
                                            "showPluginSettings",
                                            "moneymoneyPaymentUID",
                                            "beep",
                                            "alert",
                                            "executeAppleScript",
                                            "parseCSVString",
                                            "sendDistributedNotification",
                                            "parseIntegerComponents",
                                            "plistToJSON"};
    m_script->setTimeLimit(0.5);
    for (const std::string& name : names) {
        SCOPED_TRACE(name);
        EXPECT_EQ(m_script->evaluateScript("typeof " + name), Value("function"));
    }
    auto finishedAsExpected = [](const std::string& list, const ScriptOutcome& outcome) {
        // Arguments that throw while they are read are the script's own exception.
        return list.find("throw") != std::string::npos ? outcome.kind != ScriptOutcome::Kind::TimedOut
                                                       : outcome.succeeded();
    };
    for (const std::string& name : names) {
        for (const std::string& list : arguments) {
            const std::string call = name + "(" + list + ")";
            SCOPED_TRACE(call);
            m_script->evaluateScript(call);
            EXPECT_TRUE(finishedAsExpected(list, m_script->lastOutcome())) << m_script->lastOutcome().message;
        }
    }
    // Record and query operations likewise.
    // A record's delete takes its client away: later rounds work on a new one.
    for (const char* target :
         {"fetchRecordWithUID('Client', 'c-1', true) || insertRecord('Client')", "fetchRecords('Client')"}) {
        const Value operations = m_script->evaluateScript(
            std::string("var t = ") + target +
            "; var names = []; for (var p = Object.getPrototypeOf(t); p && p !== Object.prototype;"
            " p = Object.getPrototypeOf(p)) { names = names.concat(Object.getOwnPropertyNames(p)); } names");
        ASSERT_NE(operations.array(), nullptr);
        EXPECT_GE(operations.count(), 10u);
        for (const Value& operation : *operations.array()) {
            for (const std::string& list : arguments) {
                const std::string call = std::string("var t = ") + target + "; if (t." + operation.toString() +
                                         ") { t." + operation.toString() + "(" + list + "); }";
                SCOPED_TRACE(call);
                m_script->evaluateScript(call);
                EXPECT_TRUE(finishedAsExpected(list, m_script->lastOutcome())) << m_script->lastOutcome().message;
            }
        }
    }
    fs::current_path(previous);
}

}  // namespace
}  // namespace brassline
