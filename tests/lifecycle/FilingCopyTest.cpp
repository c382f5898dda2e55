#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "../model/EntityFixture.h"
#include "../store/StoreTestSupport.h"
#include "core/Date.h"
#include "lifecycle/FilingCopy.h"
#include "lifecycle/Numbering.h"
#include "lifecycle/SendableRules.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLPayment.h"
#include "model/entities/BLSendableStorage.h"
#include "model/entities/ModelHooks.h"
#include "store/BLUserDefaults.h"

namespace brassline {
namespace {

namespace fs = std::filesystem;

// 2023-01-15 12:00:00 UTC as seconds since the reference date (2001-01-01).
const Date kFilingDate = Date(695476800.0);
const std::string kPlainPDF = "%PDF-1.7 plain document";

std::string filingFileText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream content;
    content << in.rdbuf();
    return content.str();
}

void writeFilingFile(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

// An issued invoice "RE/7" and a documents root inside a temporary folder. The PDF steps
// of later subsystems are fakes that mark what they did in the bytes.
class FilingCopyTest : public EntityFixture {
protected:
    void SetUp() override {
        EntityFixture::SetUp();
        resetFilingHooks();
        UserDefaults::setDirectoryForTesting(m_folder / "config");
        root = m_folder / "Documents";
        UserDefaults::standard().setObject(Value(root), "documentsRoot");
        invoice = insert<BLInvoice>();
        invoice->setName(std::string("RE/7"));
        invoice->setDateSent(kFilingDate);
        setPattern("documents.filename", {PatternElement::literal("Invoice "), PatternElement::token("name")});
    }
    void TearDown() override {
        resetFilingHooks();
        UserDefaults::setDirectoryForTesting("");
        EntityFixture::TearDown();
    }

    void setPattern(const char* key, const NumberPattern& pattern) {
        NumberingKind kind;
        kind.patternKey = key;
        Numbering(context()).setPattern(kind, pattern);
    }
    void saveAutomatically(bool on) { UserDefaults::standard().setObject(Value(on), "SaveDocumentsAutomatically"); }
    // Layout, attachment and payload fakes: the layout answers kPlainPDF, an attachment
    // is appended as "+<name>:<content>".
    void fakePDFSteps() {
        filingHooks().layoutPDF = [this](BLSendable&) {
            ++layouts;
            return std::optional<std::string>(kPlainPDF);
        };
        filingHooks().attachFile = [this](const std::string& pdf, std::string_view name, const std::string& content) {
            attachedJSON = content;
            return std::optional<std::string>(pdf + "+" + std::string(name));
        };
    }
    std::string filingPath() { return root + "/Invoice RE-7.pdf"; }

    storetest::TemporaryFolder m_folder;
    std::string root;
    BLInvoice* invoice = nullptr;
    int layouts = 0;
    std::string attachedJSON;
};

TEST_F(FilingCopyTest, NamesAndFoldersComeFromThePatterns) {
    struct Row {
        const char* name;
        NumberPattern filename;
        NumberPattern directory;
        std::string expected;  // Below the root.
    };
    const Row rows[] = {
        {"the number's slash made safe",
         {PatternElement::literal("Invoice "), PatternElement::token("name")},
         {},
         "/Invoice RE-7"},
        {"a folder below the root",
         {PatternElement::literal("Invoice "), PatternElement::token("name")},
         {PatternElement::literal("Archive/2023")},
         "/Archive/2023/Invoice RE-7"},
        {"slashes and colons of literals in a name", {PatternElement::literal("a/b: c")}, {}, "/a-b- c"},
        {"a leading slash and dots stay below the root",
         {PatternElement::literal("x")},
         {PatternElement::literal("/outer/../inner")},
         "/inner/x"},
        {"an empty name is untitled", {PatternElement::literal("  ")}, {}, "/Untitled"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        setPattern("documents.filename", row.filename);
        setPattern("documents.directory", row.directory);
        EXPECT_EQ(documentPath(*invoice), root + row.expected);
        EXPECT_EQ(documentName(*invoice), fs::path(row.expected).filename().string());
    }
}

TEST_F(FilingCopyTest, MailNamesLoseLineFeedsSlashesColonsAndQuotes) {
    struct Row {
        const char* name;
        const char* expected;
    };
    const Row rows[] = {
        {"Invoice RE-1", "Invoice RE-1.pdf"},
        {"Invoice 2023/7", "Invoice 2023-7.pdf"},
        {"Offer \"Roof\": draft", "Offer -Roof-- draft.pdf"},
        {"two\nlines", "two-lines.pdf"},
        {"", ".pdf"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        EXPECT_EQ(mailNameWithExtension(std::string_view(row.name)), row.expected);
    }
    // With the filing name in use, the mail carries the file's name.
    UserDefaults::standard().setObject(Value(true), "useFilingNameForMails");
    setPattern("documents.filename", {PatternElement::literal("Offer \"A\" "), PatternElement::token("name")});
    EXPECT_EQ(mailNameWithExtension(*invoice), "Offer -A- RE-7.pdf");
}

TEST_F(FilingCopyTest, OnlyIssuedDocumentsAreFiledAndOnlyWhenAskedFor) {
    fakePDFSteps();
    struct Row {
        const char* name;
        bool issued;
        bool setting;
        FilingResult::Outcome outcome;
    };
    const Row rows[] = {
        {"a draft", false, true, FilingResult::Outcome::Skipped},
        {"the setting off", true, false, FilingResult::Outcome::Skipped},
        {"issued and asked for", true, true, FilingResult::Outcome::Written},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        fs::remove_all(root);
        invoice->setDateSent(row.issued ? std::optional<Date>(kFilingDate) : std::nullopt);
        saveAutomatically(row.setting);
        FilingResult result = writeDocument(*invoice, false);
        EXPECT_EQ(result.outcome, row.outcome) << result.message;
        EXPECT_EQ(fs::exists(filingPath()), row.outcome == FilingResult::Outcome::Written);
    }
}

TEST_F(FilingCopyTest, TheCopyCarriesItsChangesTheStorageTheDocumentAlone) {
    fakePDFSteps();
    saveAutomatically(true);
    // Stationery on: the file is set on the backdrop, the frozen form stays plain.
    modelHooks().preferenceValue = [](ManagedObjectContext&, std::string_view key) {
        if (key == "stationary.useInDocuments") {
            return Value(true);
        }
        if (key == "mail.backdrop") {
            std::string backdrop = "%PDF-1.4 letterhead";
            return Value(Bytes(backdrop.begin(), backdrop.end()));
        }
        return Value();
    };
    filingHooks().compositeOnBackground = [](const std::string& pdf, const std::string&) {
        return std::optional<std::string>(pdf + " on letterhead");
    };
    int filingCalls = 0;
    modelHooks().writeDocument = [&](BLSendable&, bool) { ++filingCalls; };

    FilingResult result = writeDocument(*invoice, false);
    ASSERT_TRUE(result.written()) << result.message;
    EXPECT_EQ(result.path, filingPath());
    EXPECT_EQ(filingFileText(filingPath()), kPlainPDF + " on letterhead+Brassline.json");
    ASSERT_NE(invoice->storage(), nullptr);
    ASSERT_NE(invoice->storage()->data(), nullptr);
    EXPECT_EQ(std::string(invoice->storage()->data()->begin(), invoice->storage()->data()->end()), kPlainPDF);
    EXPECT_EQ(filingCalls, 0) << "storing under the sync flag does not file again";
    struct stat info {};
    ASSERT_EQ(::stat(filingPath().c_str(), &info), 0);
    // 695476800 seconds after 2001-01-01 is 1673784000 after 1970-01-01.
    EXPECT_EQ(info.st_mtim.tv_sec, 1673784000);
    // No temporary file is left beside it.
    EXPECT_EQ(std::distance(fs::directory_iterator(root), fs::directory_iterator()), 1);
}

TEST_F(FilingCopyTest, AnExistingCopyIsKeptUnlessOverwriting) {
    fakePDFSteps();
    saveAutomatically(true);
    fs::create_directories(root);
    writeFilingFile(filingPath(), "earlier copy");

    FilingResult kept = writeDocument(*invoice, false);
    EXPECT_EQ(kept.outcome, FilingResult::Outcome::Kept);
    EXPECT_EQ(filingFileText(filingPath()), "earlier copy");
    EXPECT_EQ(layouts, 0);

    FilingResult written = writeDocument(*invoice, true);
    EXPECT_TRUE(written.written()) << written.message;
    EXPECT_EQ(filingFileText(filingPath()), kPlainPDF + "+Brassline.json");
}

TEST_F(FilingCopyTest, WithoutALayoutNothingIsWrittenAndItSaysSo) {
    saveAutomatically(true);
    FilingResult result = writeDocument(*invoice, false);
    EXPECT_EQ(result.outcome, FilingResult::Outcome::Skipped);
    EXPECT_NE(result.message.find("no PDF"), std::string::npos) << result.message;
    EXPECT_FALSE(fs::exists(filingPath()));
    EXPECT_EQ(invoice->storage(), nullptr);
}

TEST_F(FilingCopyTest, AFrozenCopyIsUsedUntilItNoLongerOpens) {
    fakePDFSteps();
    auto* storage = insert<BLSendableStorage>();
    std::string frozen = "%PDF-1.7 frozen at issue";
    storage->setData(Bytes(frozen.begin(), frozen.end()));
    {
        SyncingScope syncing;
        invoice->setStorage(storage);
    }
    EXPECT_EQ(PDFDocument(*invoice), frozen);
    EXPECT_EQ(layouts, 0);

    std::string damaged = "not a pdf";
    storage->setData(Bytes(damaged.begin(), damaged.end()));
    EXPECT_EQ(PDFDocument(*invoice), kPlainPDF);
    EXPECT_EQ(layouts, 1);
    EXPECT_EQ(invoice->storage(), nullptr) << "the unreadable storage is dropped";
}

TEST_F(FilingCopyTest, TheChangesHoldTheDocumentItsClientPaymentsAndEveryLine) {
    fakePDFSteps();
    saveAutomatically(true);
    auto* client = insert<BLClient>();
    client->setName(std::string("Acme"));
    invoice->setParentDocument(client);
    auto* line = insert<BLCost>();
    line->setName(std::string("first"));
    line->setParent(invoice);
    auto* group = insert<BLGroup>();
    group->setParent(invoice);
    auto* inGroup = insert<BLCost>();
    inGroup->setName(std::string("inside"));
    inGroup->setUid(std::nullopt);
    inGroup->setParent(group);
    auto* payment = insert<BLPayment>();
    payment->setParentDocument(invoice);

    ASSERT_TRUE(writeDocument(*invoice, false).written());
    std::optional<Value> parsed = Value::fromJSON(attachedJSON);
    ASSERT_TRUE(parsed.has_value()) << attachedJSON;
    const Value::Dictionary* top = parsed->dictionary();
    ASSERT_NE(top, nullptr);
    ASSERT_EQ(top->size(), 1u);
    const Value& changes = top->at("changes");
    EXPECT_EQ(changes["document"]["name"].toString(), "RE/7");
    EXPECT_EQ(changes["document"]["entity"].toString(), "Invoice");
    EXPECT_EQ(changes["client"]["name"].toString(), "Acme");
    EXPECT_EQ(changes["payments"].count(), 1u);
    const Value& items = changes["items"];
    ASSERT_EQ(items.count(), 3u) << "the line inside the group is collected too";
    EXPECT_EQ(items[0]["name"].toString(), "first");
    EXPECT_EQ(items[2]["name"].toString(), "inside");
    EXPECT_FALSE(inGroup->uid().value_or("").empty()) << "an object without uid gets one";
    EXPECT_EQ(items[2]["uid"].toString(), inGroup->uid().value_or(""));
}

TEST_F(FilingCopyTest, TheLastPayloadFileIsWrittenBesideTheCopy) {
    fakePDFSteps();
    saveAutomatically(true);
    filingHooks().processDocument = [](BLSendable&) {
        return std::optional<std::vector<EInvoiceFile>>(
            std::vector<EInvoiceFile>{{"first.xml", "<a/>"}, {"invoice.xml", "<Invoice>Grüße</Invoice>"}});
    };
    ASSERT_TRUE(writeDocument(*invoice, false).written());
    EXPECT_EQ(filingFileText(root + "/invoice.xml"), "<Invoice>Grüße</Invoice>");
    EXPECT_FALSE(fs::exists(root + "/first.xml"));
}

TEST_F(FilingCopyTest, StoringAFrozenCopyFilesItOutsideASync) {
    installSendableHooks();
    fakePDFSteps();
    saveAutomatically(true);
    {
        SyncingScope syncing;
        invoice->setStorage(insert<BLSendableStorage>());
    }
    EXPECT_FALSE(fs::exists(filingPath()));
    invoice->setStorage(insert<BLSendableStorage>());
    EXPECT_TRUE(fs::exists(filingPath()));
}

}  // namespace
}  // namespace brassline
