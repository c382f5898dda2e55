#include <random>
#include <set>

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include "StoreTestSupport.h"
#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/RunLoop.h"
#include "store/BLDoc.h"

namespace brassline {
namespace {

using namespace storetest;

constexpr int kLineCount = 20;
constexpr int64_t kKeptInvoices = 3;

// The company every run starts from: a client whose counter numbers the saves, and a
// fixed invoice with lines whose quantities each save sets to that number.
void makeCrashCompany(const std::string& path) {
    auto context = openContext(path, true, "Parent");
    ASSERT_TRUE(context);
    ManagedObject* client = context->insertNewObjectForEntityForName("Client");
    client->setValueForKey(Value("client"), "uid");
    client->setValueForKey(Value(int64_t{0}), "counter");
    ManagedObject* invoice = context->insertNewObjectForEntityForName("Invoice");
    invoice->setValueForKey(Value("fixed"), "uid");
    invoice->setValueForKey(Value(static_cast<Object*>(client)), "client");
    const RelationshipDescription& childs = *invoice->entity().relationshipNamed("childs");
    for (int i = 0; i < kLineCount; ++i) {
        ManagedObject* line = context->insertNewObjectForEntityForName("Cost");
        line->setValueForKey(Value("c" + std::to_string(i)), "uid");
        line->setValueForKey(Value(Decimal(0)), "quantity");
        invoice->addObjectToRelationship(childs, line);
    }
    ASSERT_TRUE(context->save());
}

// In the child process: save after save until killed. Each save raises the counter to k,
// sets every line's quantity to k, inserts the invoice "save-k" and deletes "save-(k-3)".
// After its first save the child writes one byte to `readyFd`, so that the parent's kill
// falls among later saves however slow the machine is.
[[noreturn]] void saveUntilKilled(const std::string& path, int readyFd) {
    LogCapture quiet;
    auto context = openContext(path, false, "Child");
    if (!context) {
        _exit(2);
    }
    ManagedObject* client = byUid(*context, "Client", "client");
    ManagedObject* fixed = byUid(*context, "Invoice", "fixed");
    if (client == nullptr || fixed == nullptr) {
        _exit(3);
    }
    const std::vector<ManagedObject*> lines = fixed->toManyObjects(*fixed->entity().relationshipNamed("childs"));
    for (;;) {
        int64_t k = client->valueForKey("counter").toInt64() + 1;
        client->setValueForKey(Value(k), "counter");
        for (ManagedObject* line : lines) {
            line->setValueForKey(Value(Decimal(k)), "quantity");
        }
        ManagedObject* invoice = context->insertNewObjectForEntityForName("Invoice");
        invoice->setValueForKey(Value("save-" + std::to_string(k)), "uid");
        invoice->setValueForKey(Value(static_cast<Object*>(client)), "client");
        if (ManagedObject* old = byUid(*context, "Invoice", "save-" + std::to_string(k - kKeptInvoices))) {
            context->deleteObject(old);
        }
        if (!context->save()) {
            _exit(4);
        }
        if (readyFd >= 0) {
            const char ready = 1;
            if (::write(readyFd, &ready, 1) != 1) {
                _exit(5);
            }
            ::close(readyFd);
            readyFd = -1;
        }
    }
}

// Opens the file as the user would after the crash and checks that it holds exactly the
// state of one whole save. Answers that save's number.
int64_t checkConsistent(const std::string& path) {
    std::string error;
    auto context = openContext(path, false, "Parent", &error);
    EXPECT_TRUE(context) << error;
    if (!context) {
        return -1;
    }
    ManagedObject* client = byUid(*context, "Client", "client");
    ManagedObject* fixed = byUid(*context, "Invoice", "fixed");
    EXPECT_NE(client, nullptr);
    EXPECT_NE(fixed, nullptr);
    if (client == nullptr || fixed == nullptr) {
        return -1;
    }
    const int64_t k = client->valueForKey("counter").toInt64();
    const std::vector<ManagedObject*>& lines = fixed->toManyObjects(*fixed->entity().relationshipNamed("childs"));
    EXPECT_EQ(lines.size(), static_cast<size_t>(kLineCount));
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_EQ(lines[i]->valueForKey("uid"), Value("c" + std::to_string(i)));
        EXPECT_EQ(lines[i]->valueForKey("quantity"), Value(Decimal(k))) << "line " << i << " after save " << k;
    }
    std::set<std::string> expected = {"fixed"};
    for (int64_t j = std::max<int64_t>(1, k - kKeptInvoices + 1); j <= k; ++j) {
        expected.insert("save-" + std::to_string(j));
    }
    std::set<std::string> invoices;
    for (ManagedObject* invoice : fetchAll(*context, "Invoice")) {
        invoices.insert(invoice->valueForKey("uid").toString());
        EXPECT_EQ(invoice->valueForKey("client").object(), client);
    }
    EXPECT_EQ(invoices, expected) << "after save " << k;
    EXPECT_EQ(client->toManyObjects(*client->entity().relationshipNamed("invoices")).size(), expected.size());
    // The change log holds exactly the saves whose data is there.
    int64_t childSaves = 0;
    for (const ChangeSetInfo& info : storeOf(*context).changeLog()) {
        if (info.device == "Child") {
            ++childSaves;
            EXPECT_EQ(info.sequence, childSaves);
        }
    }
    EXPECT_EQ(childSaves, k);
    return k;
}

TEST(CrashSafetyTest, KilledDuringSavesTheFileHoldsOneWholeSave) {
    TemporaryFolder folder;
    const std::string path = folder / "Crash.brassline";
    makeCrashCompany(path);
    ASSERT_FALSE(::testing::Test::HasFatalFailure());
    std::mt19937 random(20240601);
    std::uniform_int_distribution<int> delayMicroseconds(0, 30000);
    int64_t previous = 0;
    for (int run = 0; run < 30; ++run) {
        SCOPED_TRACE("run " + std::to_string(run));
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        std::fflush(nullptr);
        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            ::close(ready[0]);
            saveUntilKilled(path, ready[1]);
        }
        ::close(ready[1]);
        char byte = 0;
        const bool childSaved = ::read(ready[0], &byte, 1) == 1;
        ::close(ready[0]);
        ::usleep(static_cast<useconds_t>(delayMicroseconds(random)));
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        // The child must have died by the kill, not by a failure of its own.
        ASSERT_TRUE(WIFSIGNALED(status)) << "child exited with " << WEXITSTATUS(status);
        ASSERT_TRUE(childSaved);
        int64_t k = checkConsistent(path);
        ASSERT_FALSE(::testing::Test::HasFailure());
        // Each run saved at least once before the kill.
        EXPECT_GT(k, previous);
        previous = k;
    }
}

TEST(CrashSafetyTest, AKilledNewLeavesNoCompanyOrAWholeOne) {
    TemporaryFolder folder;
    std::mt19937 random(20241125);
    // A creation takes some tens of milliseconds here; the kills fall before, inside and
    // after it.
    std::uniform_int_distribution<int> delayMicroseconds(0, 120000);
    int whole = 0;
    int none = 0;
    for (int run = 0; run < 40; ++run) {
        SCOPED_TRACE("run " + std::to_string(run));
        const std::string path = folder / ("New" + std::to_string(run % 4) + ".brassline");
        std::error_code code;
        std::filesystem::remove_all(path, code);
        std::fflush(nullptr);
        pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            RunLoop::resetMainForTesting();
            std::string error;
            ::_exit(BLDoc::create(path, {}, &error) ? 0 : 1);
        }
        ::usleep(static_cast<useconds_t>(delayMicroseconds(random)));
        ::kill(child, SIGKILL);
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        ASSERT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
        if (!std::filesystem::exists(path)) {
            ++none;
        } else {
            // There, it is whole: it opens and holds the first-run set-up.
            std::string error;
            std::unique_ptr<BLDoc> document = BLDoc::open(path, &error);
            ASSERT_TRUE(document) << error;
            EXPECT_NE(document->managedObjectContext().objectWithUid(
                          *document->managedObjectContext().entityNamed("Preference"), "BLPref.invoice.number"),
                      nullptr);
            ++whole;
        }
        // Either way the name is free for a new company or holds one.
        std::filesystem::remove_all(path, code);
        std::string error;
        RunLoop::resetMainForTesting();
        EXPECT_TRUE(BLDoc::create(path, {}, &error)) << error;
        RunLoop::resetMainForTesting();
    }
    // Both outcomes happened, so the kills did fall inside creations.
    EXPECT_GT(whole, 0);
    EXPECT_GT(none, 0);
}

}  // namespace
}  // namespace brassline
