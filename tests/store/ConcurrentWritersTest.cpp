#include <algorithm>
#include <cstdio>
#include <random>
#include <set>

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "StoreTestSupport.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "store/BLDoc.h"
#include "store/StoreMessages.h"

namespace brassline {
namespace {

using namespace storetest;

std::unique_ptr<ManagedObjectContext> openWith(const std::string& path, const std::string& device,
                                               int busyMilliseconds = SQLiteStore::kDefaultBusyTimeoutMilliseconds) {
    SQLiteStore::Options options = deviceOptions(device);
    options.busyTimeoutMilliseconds = busyMilliseconds;
    std::string error;
    std::unique_ptr<SQLiteStore> store = SQLiteStore::open(path, model(), options, &error);
    EXPECT_TRUE(store) << error;
    return store ? std::make_unique<ManagedObjectContext>(model(), std::move(store)) : nullptr;
}

// Draws the next value of the "counter" client's counter the way a document number is
// drawn: under the write lock, then saved with the object that carries it.
bool drawNumbered(ManagedObjectContext& context, const std::string& uid, std::string* number, std::string* error) {
    if (!context.beginWriting(error)) {
        return false;
    }
    ManagedObject* counter = byUid(context, "Client", "counter");
    if (counter == nullptr) {
        *error = "no counter";
        context.persistentStore()->endWriting();
        return false;
    }
    int64_t next = counter->valueForKey("counter").toInt64() + 1;
    counter->setValueForKey(Value(next), "counter");
    ManagedObject* invoice = insert(context, "Invoice", uid);
    *number = "INV-" + std::to_string(next);
    invoice->setValueForKey(Value(*number), "name");
    return context.save(error);
}

class ConcurrentWritersTest : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        m_path = m_folder / "Shared.brassline";
        auto context = openContext(m_path, true);
        ASSERT_TRUE(context);
        ManagedObject* shared = insert(*context, "Client", "shared");
        shared->setValueForKey(Value("Shared"), "name");
        insert(*context, "Client", "counter");
        ManagedObject* invoice = insert(*context, "Invoice", "invoice");
        invoice->setValueForKey(Value(static_cast<Object*>(shared)), "client");
        for (const char* line : {"l0", "l1"}) {
            invoice->addObjectToRelationship(relationship(*invoice, "childs"), insert(*context, "Cost", line));
        }
        ASSERT_TRUE(context->save());
    }
    void TearDown() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
    }

    TemporaryFolder m_folder;
    std::string m_path;
};

TEST_F(ConcurrentWritersTest, SavesOfTwoWritersMergeInsteadOfReplacingEachOther) {
    // Both open the same state; each then saves without having seen the other's save.
    for (const char* secondDevice : {"DeviceB", "DeviceA"}) {
        SCOPED_TRACE(secondDevice);
        const std::string path = m_folder / (std::string(secondDevice) + ".brassline");
        fs::copy(m_path, path, fs::copy_options::recursive);
        auto a = openWith(path, "DeviceA");
        auto b = openWith(path, secondDevice);
        ASSERT_TRUE(a && b);
        std::vector<std::string> heard;
        uint64_t token = NotificationCenter::defaultCenter().addObserver(
            BLDoc::kObjectsDidChangeExternallyNotification, b.get(), [&](const Notification& notification) {
                if (const Value::Array* inserted = notification.userInfo.at(kInsertedObjectsKey).array()) {
                    for (const Value& value : *inserted) {
                        heard.push_back(static_cast<ManagedObject*>(value.object())->valueForKey("uid").toString());
                    }
                }
            });

        ManagedObject* sharedA = byUid(*a, "Client", "shared");
        sharedA->setValueForKey(Value("Name from A"), "name");
        sharedA->setValueForKey(Value(2.5), "weight");
        ManagedObject* invoiceA = byUid(*a, "Invoice", "invoice");
        invoiceA->insertObjectInRelationshipAtIndex(relationship(*invoiceA, "childs"), insert(*a, "Cost", "a-line"), 0);
        insert(*a, "Client", "from-a")->setValueForKey(Value(int64_t{11}), "counter");
        ASSERT_TRUE(a->save());

        // B changes the same name later (B's wins), another attribute of the same client
        // (both stay), and adds objects whose numbers A has taken meanwhile.
        ManagedObject* sharedB = byUid(*b, "Client", "shared");
        sharedB->setValueForKey(Value("Name from B"), "name");
        sharedB->setValueForKey(Value(int64_t{7}), "counter");
        ManagedObject* fromB = insert(*b, "Client", "from-b");
        fromB->setValueForKey(Value(int64_t{22}), "counter");
        ManagedObject* invoiceB = insert(*b, "Invoice", "invoice-b");
        invoiceB->setValueForKey(Value(static_cast<Object*>(fromB)), "client");
        std::string error;
        ASSERT_TRUE(b->save(&error)) << error;
        NotificationCenter::defaultCenter().removeObserver(token);

        // B's context now holds A's work, lines in A's order.
        EXPECT_EQ(heard, (std::vector<std::string>{"a-line", "from-a"}));
        ManagedObject* invoiceInB = byUid(*b, "Invoice", "invoice");
        EXPECT_EQ(uidsOf(invoiceInB->toManyObjects(relationship(*invoiceInB, "childs"))),
                  (std::vector<std::string>{"a-line", "l0", "l1"}));
        EXPECT_DOUBLE_EQ(sharedB->valueForKey("weight").toDouble(), 2.5);
        EXPECT_FALSE(b->hasChanges());

        a.reset();
        b.reset();
        auto check = openWith(path, "DeviceC");
        ASSERT_TRUE(check);
        ManagedObject* shared = byUid(*check, "Client", "shared");
        EXPECT_EQ(shared->valueForKey("name").toString(), "Name from B");
        EXPECT_EQ(shared->valueForKey("counter").toInt64(), 7);
        EXPECT_DOUBLE_EQ(shared->valueForKey("weight").toDouble(), 2.5);
        ASSERT_NE(byUid(*check, "Client", "from-a"), nullptr);
        EXPECT_EQ(byUid(*check, "Client", "from-a")->valueForKey("counter").toInt64(), 11);
        ASSERT_NE(byUid(*check, "Client", "from-b"), nullptr);
        EXPECT_EQ(byUid(*check, "Client", "from-b")->valueForKey("counter").toInt64(), 22);
        ManagedObject* invoice = byUid(*check, "Invoice", "invoice");
        EXPECT_EQ(uidsOf(invoice->toManyObjects(relationship(*invoice, "childs"))),
                  (std::vector<std::string>{"a-line", "l0", "l1"}));
        ManagedObject* savedB = byUid(*check, "Invoice", "invoice-b");
        ASSERT_NE(savedB, nullptr);
        EXPECT_EQ(savedB->toOneObject(relationship(*savedB, "client")), byUid(*check, "Client", "from-b"));
        // Every sequence once per device, even with both programs saving as DeviceA.
        std::set<std::pair<std::string, int64_t>> sequences;
        for (const ChangeSetInfo& info : storeOf(*check).changeLog()) {
            EXPECT_TRUE(sequences.emplace(info.device, info.sequence).second) << info.device << " " << info.sequence;
        }
    }
}

TEST_F(ConcurrentWritersTest, ADeletionByAnotherWriterIsNotUndoneByALaterSave) {
    auto a = openWith(m_path, "DeviceA");
    auto b = openWith(m_path, "DeviceB");
    ASSERT_TRUE(a && b);
    ManagedObject* invoiceA = byUid(*a, "Invoice", "invoice");
    ASSERT_TRUE(a->deleteObject(invoiceA));
    ASSERT_TRUE(a->save());

    ManagedObject* invoiceB = byUid(*b, "Invoice", "invoice");
    invoiceB->setValueForKey(Value("late edit"), "name");
    byUid(*b, "Client", "counter")->setValueForKey(Value(int64_t{5}), "counter");
    std::string error;
    ASSERT_TRUE(b->save(&error)) << error;
    EXPECT_TRUE(invoiceB->isDeleted());
    EXPECT_EQ(byUid(*b, "Invoice", "invoice"), nullptr);

    b.reset();
    a.reset();
    auto check = openWith(m_path, "DeviceC");
    EXPECT_EQ(byUid(*check, "Invoice", "invoice"), nullptr);
    EXPECT_EQ(byUid(*check, "Cost", "l0"), nullptr);  // The lines went with it.
    EXPECT_EQ(byUid(*check, "Client", "counter")->valueForKey("counter").toInt64(), 5);
}

TEST_F(ConcurrentWritersTest, NumbersDrawnUnderTheLockAreNeverDrawnTwice) {
    auto a = openWith(m_path, "DeviceA");
    auto b = openWith(m_path, "DeviceB");
    ASSERT_TRUE(a && b);
    std::vector<std::string> drawn;
    for (int i = 0; i < 12; ++i) {
        // Each writer draws from what it read at open plus what it merged since.
        ManagedObjectContext& writer = i % 3 == 0 ? *a : *b;
        std::string number;
        std::string error;
        ASSERT_TRUE(drawNumbered(writer, "draw" + std::to_string(i), &number, &error)) << error;
        drawn.push_back(number);
    }
    std::vector<std::string> expected;
    for (int i = 1; i <= 12; ++i) {
        expected.push_back("INV-" + std::to_string(i));
    }
    EXPECT_EQ(drawn, expected);
}

TEST_F(ConcurrentWritersTest, AWriterWaitsForTheLockAndSaysSoWhenItGivesUp) {
    auto a = openWith(m_path, "DeviceA");
    auto b = openWith(m_path, "DeviceB", 100);
    ASSERT_TRUE(a && b);
    ASSERT_TRUE(a->beginWriting());
    byUid(*b, "Client", "shared")->setValueForKey(Value("waiting"), "name");
    std::string error;
    EXPECT_FALSE(b->save(&error));
    EXPECT_EQ(error,
              "The company file \"Shared.brassline\" is in use by another program, which kept it locked for more "
              "than 0.1 seconds. Nothing was saved; try again in a moment.");
    EXPECT_TRUE(b->hasChanges());  // Nothing lost: the change waits for the next save.
    a->persistentStore()->endWriting();
    EXPECT_TRUE(b->save(&error)) << error;
    b.reset();
    auto check = openWith(m_path, "DeviceC");
    EXPECT_EQ(byUid(*check, "Client", "shared")->valueForKey("name").toString(), "waiting");
}

// Writers in separate processes, each acknowledging on a pipe what it saved; the file
// afterwards must hold every acknowledged object and no number twice.
struct ProcessRun {
    int processes;
    bool sameDevice;
};

void runWriter(const std::string& path, int index, bool sameDevice, int operations, int ackFd) {
    std::mt19937 random(static_cast<unsigned>(index * 7919 + 17));
    const std::string device = sameDevice ? "SharedDevice" : "Device" + std::to_string(index);
    std::unique_ptr<ManagedObjectContext> context = openWith(path, device);
    int failures = 0;
    for (int i = 0; i < operations && context; ++i) {
        ::usleep(random() % 2000);
        if (random() % 10 == 0) {
            // Now and then a fresh open, as a command line run makes.
            context = openWith(path, device);
        }
        const std::string uid = "p" + std::to_string(index) + "-" + std::to_string(i);
        std::string error;
        std::string line;
        if (random() % 3 == 0) {
            std::string number;
            if (drawNumbered(*context, uid, &number, &error)) {
                line = "I " + uid + " " + number + "\n";
            }
        } else {
            ManagedObject* client = insert(*context, "Client", uid);
            client->setValueForKey(Value(static_cast<int64_t>(i)), "counter");
            if (context->save(&error)) {
                line = "C " + uid + " " + std::to_string(i) + "\n";
            }
        }
        if (line.empty()) {
            ++failures;
            line = "F " + error + "\n";
        }
        if (::write(ackFd, line.data(), line.size()) != static_cast<ssize_t>(line.size())) {
            break;
        }
    }
    (void)failures;
}

TEST_F(ConcurrentWritersTest, ProcessesWritingAtOnceLoseNothingAndDrawNoNumberTwice) {
    const std::vector<ProcessRun> runs = {{2, false}, {2, true}, {4, false}, {4, true}};
    constexpr int kOperations = 150;
    for (const ProcessRun& run : runs) {
        SCOPED_TRACE(std::to_string(run.processes) + (run.sameDevice ? " processes, one device" : " processes"));
        const std::string path =
            m_folder / ("Run" + std::to_string(run.processes) + (run.sameDevice ? "s" : "d") + ".brassline");
        fs::copy(m_path, path, fs::copy_options::recursive);
        int fds[2];
        ASSERT_EQ(::pipe(fds), 0);
        std::vector<pid_t> children;
        for (int index = 0; index < run.processes; ++index) {
            pid_t pid = ::fork();
            ASSERT_GE(pid, 0);
            if (pid == 0) {
                ::close(fds[0]);
                runWriter(path, index, run.sameDevice, kOperations, fds[1]);
                ::close(fds[1]);
                ::_exit(0);
            }
            children.push_back(pid);
        }
        ::close(fds[1]);
        std::string acknowledged;
        char buffer[4096];
        for (ssize_t got; (got = ::read(fds[0], buffer, sizeof buffer)) > 0;) {
            acknowledged.append(buffer, static_cast<size_t>(got));
        }
        ::close(fds[0]);
        for (pid_t pid : children) {
            int status = 0;
            ::waitpid(pid, &status, 0);
            EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
        }

        auto check = openWith(path, "Checker");
        ASSERT_TRUE(check);
        std::istringstream lines(acknowledged);
        std::string kind, uid, value;
        int clients = 0;
        int invoices = 0;
        std::vector<std::string> failures;
        while (lines >> kind) {
            if (kind == "F") {
                std::getline(lines, value);
                failures.push_back(value);
                continue;
            }
            lines >> uid >> value;
            if (kind == "C") {
                ++clients;
                ManagedObject* client = byUid(*check, "Client", uid);
                ASSERT_NE(client, nullptr) << uid;
                EXPECT_EQ(std::to_string(client->valueForKey("counter").toInt64()), value);
            } else {
                ++invoices;
                ManagedObject* invoice = byUid(*check, "Invoice", uid);
                ASSERT_NE(invoice, nullptr) << uid;
                EXPECT_EQ(invoice->valueForKey("name").toString(), value);
            }
        }
        EXPECT_EQ(clients + invoices + static_cast<int>(failures.size()), run.processes * kOperations);
        EXPECT_TRUE(failures.empty()) << failures.size() << " refused, the first: " << failures.front();
        // Every number once, and the counter stands at the count of numbers drawn.
        std::set<std::string> numbers;
        for (ManagedObject* invoice : fetchAll(*check, "Invoice")) {
            if (invoice->valueForKey("uid").toString() != "invoice") {
                EXPECT_TRUE(numbers.insert(invoice->valueForKey("name").toString()).second)
                    << invoice->valueForKey("name").toString();
            }
        }
        EXPECT_EQ(static_cast<int>(numbers.size()), invoices);
        EXPECT_EQ(byUid(*check, "Client", "counter")->valueForKey("counter").toInt64(), invoices);
    }
}

}  // namespace
}  // namespace brassline
