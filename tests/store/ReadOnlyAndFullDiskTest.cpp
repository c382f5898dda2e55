#include <csignal>

#include <gtest/gtest.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "StoreTestSupport.h"
#include "core/Log.h"
#include "store/StoreMessages.h"

namespace brassline {
namespace {

using namespace storetest;

void makeCompany(const std::string& path) {
    auto context = openContext(path, true);
    ASSERT_TRUE(context);
    for (int i = 0; i < 50; ++i) {
        context->insertNewObjectForEntityForName("Client")->setValueForKey(Value("c" + std::to_string(i)), "uid");
    }
    ASSERT_TRUE(context->save());
}

// Reads, refuses the save with the read-only message, and leaves the package as it was,
// without -wal or -shm files.
void expectReadOnly(const std::string& path, const SQLiteStore::Options& options) {
    const auto before = treeContents(path);
    {
        std::string error;
        std::unique_ptr<SQLiteStore> store = SQLiteStore::open(path, model(), options, &error);
        ASSERT_TRUE(store) << error;
        EXPECT_TRUE(store->isReadOnly());
        ManagedObjectContext context(model(), std::move(store));
        EXPECT_EQ(fetchAll(context, "Client").size(), 50u);
        byUid(context, "Client", "c1")->setValueForKey(Value("changed"), "name");
        EXPECT_FALSE(context.save(&error));
        EXPECT_EQ(error, formatMessage(kReadOnlyMessage, CompanyPackage::displayName(path)));
        EXPECT_FALSE(std::filesystem::exists(path + "/Store.sqlite-wal"));
        EXPECT_FALSE(std::filesystem::exists(path + "/Store.sqlite-shm"));
    }
    EXPECT_TRUE(treeContents(path) == before);
}

TEST(ReadOnlyAndFullDiskTest, AFileThatCantBeWrittenOpensForReading) {
    TemporaryFolder folder;
    const std::string path = folder / "Locked.brassline";
    makeCompany(path);
    ASSERT_FALSE(::testing::Test::HasFatalFailure());
    SQLiteStore::Options asked = deviceOptions("A");
    asked.readOnly = true;
    expectReadOnly(path, asked);
    if (::geteuid() != 0) {
        // The permissions themselves; the superuser writes whatever they say.
        ASSERT_EQ(::chmod((path + "/Store.sqlite").c_str(), 0444), 0);
        ASSERT_EQ(::chmod(path.c_str(), 0555), 0);
        expectReadOnly(path, deviceOptions("A"));
        ::chmod(path.c_str(), 0755);
    }
}

// A save that finds no room fails whole, says why, and the file keeps the last save.
// Where the test may mount a small memory disk the disk is really full; elsewhere a size
// limit on the process's files stands in for it, which the system reports as a refused
// write.
TEST(ReadOnlyAndFullDiskTest, AFullDiskSaysSoAndKeepsTheLastSave) {
    TemporaryFolder folder;
    const std::string disk = folder / "disk";
    std::filesystem::create_directories(disk);
    const bool mounted = ::mount("tmpfs", disk.c_str(), "tmpfs", 0, "size=512k") == 0;
    const std::string path = disk + "/Full.brassline";
    makeCompany(path);
    ASSERT_FALSE(::testing::Test::HasFatalFailure());
    int pipeFds[2];
    ASSERT_EQ(::pipe(pipeFds), 0);
    std::fflush(nullptr);
    pid_t child = ::fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        std::signal(SIGXFSZ, SIG_IGN);
        auto context = openContext(path, false);
        if (!mounted) {
            rlimit limit{64 * 1024, 64 * 1024};
            ::setrlimit(RLIMIT_FSIZE, &limit);
        }
        ManagedObject* storage = context->insertNewObjectForEntityForName("Storage");
        storage->setValueForKey(Value(Bytes(1024 * 1024, 7)), "data");
        std::string error;
        const bool saved = context->save(&error);
        std::string answer = saved ? "saved" : error;
        (void)!::write(pipeFds[1], answer.data(), answer.size());
        ::_exit(0);
    }
    ::close(pipeFds[1]);
    std::string answer;
    char buffer[512];
    for (ssize_t got; (got = ::read(pipeFds[0], buffer, sizeof buffer)) > 0;) {
        answer.append(buffer, static_cast<size_t>(got));
    }
    ::close(pipeFds[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    EXPECT_EQ(answer, formatMessage(mounted ? kDiskFullMessage : kDiskWriteFailedMessage, "Full.brassline"));
    {
        auto context = openContext(path, false);
        ASSERT_TRUE(context);
        EXPECT_EQ(fetchAll(*context, "Client").size(), 50u);
        EXPECT_TRUE(fetchAll(*context, "Storage").empty());
    }
    if (mounted) {
        ::umount(disk.c_str());
    }
}

}  // namespace
}  // namespace brassline
