#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "../store/StoreTestSupport.h"
#include "lifecycle/ConversionCommands.h"
#include "model/BLSyncHelper.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/ModelHooks.h"
#include "store/CompanyFileCommands.h"

namespace brassline {
namespace {

using storetest::CommandResult;
using storetest::runCommand;

// A company file with a client, an estimate "AN-1" of two lines and an invoice "RE-1".
class ConversionCommandsTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        m_path = m_folder / "Acme.brassline";
        CommandResult created =
            runCommand([&](auto& out, auto& err) { return companyfile::newFile(m_path, {}, out, err); });
        ASSERT_EQ(created.code, 0) << created.err;
        client = insert("Client", {"name=Acme"});
        estimate = insert("Estimate", {"parentDocument=" + client, "name=AN-1"});
        insert("Cost", {"parent=" + estimate, "quantity=2", "unitPrice=10"});
        invoice = insert("Invoice", {"parentDocument=" + client, "name=RE-1", "completeMode=1"});
        insert("Cost", {"parent=" + invoice, "quantity=3", "unitPrice=5"});
    }
    void TearDown() override {
        RunLoop::resetMainForTesting();
        resetModelHooks();
        BLSyncHelper::setIsSyncing(false);
        NotificationCenter::resetDefaultCenterForTesting();
    }

    std::string insert(const std::string& entity, const std::vector<std::string>& values) {
        CommandResult result =
            runCommand([&](auto& out, auto& err) { return companyfile::insert(m_path, entity, values, out, err); });
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out.substr(0, result.out.find('\n'));
    }
    std::string get(const std::string& uid, const std::string& key) {
        CommandResult result =
            runCommand([&](auto& out, auto& err) { return companyfile::get(m_path, uid, {key}, false, out, err); });
        EXPECT_EQ(result.code, 0) << result.err;
        return result.out;
    }
    CommandResult convert(const std::string& uid, const std::string& target) {
        return runCommand(
            [&](auto& out, auto& err) { return conversioncommands::convert(m_path, uid, target, out, err); });
    }

    storetest::TemporaryFolder m_folder;
    std::string m_path;
    std::string client;
    std::string estimate;
    std::string invoice;
};

TEST_F(ConversionCommandsTest, EachConversionSavesANewDraftAndPrintsItsUid) {
    CommandResult made = convert(estimate, "invoice");
    ASSERT_EQ(made.code, 0) << made.err;
    std::string newInvoice = made.out.substr(0, made.out.find('\n'));
    ASSERT_EQ(newInvoice.size(), 22u) << made.out;
    // Read back from the saved file.
    EXPECT_NE(get(newInvoice, "reference").find("AN-1"), std::string::npos);
    EXPECT_NE(get(estimate, "completeMode").find('1'), std::string::npos);

    CommandResult note = convert(invoice, "credit-note");
    ASSERT_EQ(note.code, 0) << note.err;
    std::string noteUid = note.out.substr(0, note.out.find('\n'));
    // 3 x 5 negated.
    EXPECT_NE(get(noteUid, "cost").find("-15"), std::string::npos) << get(noteUid, "cost");

    CommandResult copy =
        runCommand([&](auto& out, auto& err) { return conversioncommands::duplicate(m_path, invoice, out, err); });
    ASSERT_EQ(copy.code, 0) << copy.err;
    EXPECT_NE(copy.out.substr(0, 22), invoice);
}

TEST_F(ConversionCommandsTest, RefusedInputsNameTheReason) {
    struct Row {
        const char* name;
        std::string uid;
        std::string target;
        const char* message;
    };
    const Row rows[] = {
        {"unknown target", estimate, "order", "unknown target"},
        {"unknown uid", "nope", "invoice", "no object with uid 'nope'"},
        {"an invoice does not become an invoice", invoice, "invoice", "only an estimate"},
        {"an estimate has no credit note", estimate, "credit-note", "only an invoice"},
        {"a client is not a document", client, "estimate", "neither an invoice nor an estimate"},
    };
    for (const Row& row : rows) {
        SCOPED_TRACE(row.name);
        CommandResult result = convert(row.uid, row.target);
        EXPECT_EQ(result.code, 1);
        EXPECT_TRUE(result.out.empty());
        EXPECT_NE(result.err.find(row.message), std::string::npos) << result.err;
    }
}

}  // namespace
}  // namespace brassline
