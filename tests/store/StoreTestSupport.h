#pragma once

#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "model/FetchRequest.h"
#include "model/ManagedObject.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/entities/ModelHooks.h"
#include "store/CompanyFileCommands.h"
#include "store/SQLiteStore.h"
#include "testmodel/gen/TestModel.h"

namespace brassline::storetest {

namespace fs = std::filesystem;

// What a command printed and answered.
struct CommandResult {
    int code = 0;
    std::string out;
    std::string err;
};

// Runs one command function (taking the output and error streams) the way main does,
// capturing both streams.
template <typename Function>
CommandResult runCommand(Function function) {
    std::ostringstream out;
    std::ostringstream err;
    CommandResult result;
    result.code = function(out, err);
    result.out = out.str();
    result.err = err.str();
    return result;
}

// A fresh folder per test, removed afterwards.
class TemporaryFolder {
public:
    TemporaryFolder() {
        std::string pattern = (fs::temp_directory_path() / "brassline-store-XXXXXX").string();
        m_path = ::mkdtemp(pattern.data()) != nullptr ? pattern : std::string();
    }
    ~TemporaryFolder() {
        std::error_code code;
        fs::remove_all(m_path, code);
    }
    const std::string& path() const { return m_path; }
    std::string operator/(const std::string& name) const { return (fs::path(m_path) / name).string(); }

private:
    std::string m_path;
};

// A new company file made by the `new` command in a fresh folder, with the run loop, the
// notification centre and the model hooks reset around each test; `insert` runs the
// `insert` command and answers the new object's uid.
class CompanyFileFixture : public ::testing::Test {
protected:
    void SetUp() override {
        RunLoop::resetMainForTesting();
        NotificationCenter::resetDefaultCenterForTesting();
        resetModelHooks();
        m_path = m_folder / "Acme.brassline";
        CommandResult created =
            runCommand([&](auto& out, auto& err) { return companyfile::newFile(m_path, {}, out, err); });
        ASSERT_EQ(created.code, 0) << created.err;
    }
    void TearDown() override {
        RunLoop::resetMainForTesting();
        resetModelHooks();
        NotificationCenter::resetDefaultCenterForTesting();
    }
    std::string insert(const std::string& entity, const std::vector<std::string>& assignments) {
        CommandResult inserted = runCommand(
            [&](auto& out, auto& err) { return companyfile::insert(m_path, entity, assignments, out, err); });
        EXPECT_EQ(inserted.code, 0) << inserted.err;
        std::string uid = inserted.out;
        while (!uid.empty() && uid.back() == '\n') {
            uid.pop_back();
        }
        return uid;
    }

    TemporaryFolder m_folder;
    std::string m_path;
};

inline const ManagedObjectModel& model() {
    return gen::testModel();
}

inline SQLiteStore::Options deviceOptions(const std::string& device) {
    SQLiteStore::Options options;
    options.deviceIdentifier = device;
    return options;
}

// A main context over the store of the package at `path` (created when `create`).
inline std::unique_ptr<ManagedObjectContext> openContext(const std::string& path, bool create,
                                                         const std::string& device = "DeviceA",
                                                         std::string* error = nullptr) {
    std::string message;
    std::unique_ptr<SQLiteStore> store = create ? SQLiteStore::create(path, model(), deviceOptions(device), &message)
                                                : SQLiteStore::open(path, model(), deviceOptions(device), &message);
    if (error != nullptr) {
        *error = message;
    }
    if (!store) {
        return nullptr;
    }
    return std::make_unique<ManagedObjectContext>(model(), std::move(store));
}

inline SQLiteStore& storeOf(ManagedObjectContext& context) {
    return *static_cast<SQLiteStore*>(context.persistentStore());
}

inline const RelationshipDescription& relationship(const ManagedObject& object, const char* name) {
    return *object.entity().relationshipNamed(name);
}

// A new object of `entity` with that uid.
inline ManagedObject* insert(ManagedObjectContext& context, const char* entity, const std::string& uid) {
    ManagedObject* object = context.insertNewObjectForEntityForName(entity);
    object->setValueForKey(Value(uid), "uid");
    return object;
}

inline std::vector<std::string> uidsOf(const std::vector<ManagedObject*>& objects) {
    std::vector<std::string> uids;
    for (ManagedObject* object : objects) {
        uids.push_back(object->valueForKey("uid").toString());
    }
    return uids;
}

inline ManagedObject* byUid(ManagedObjectContext& context, const std::string& entity, const std::string& uid) {
    return context.objectWithUid(*context.entityNamed(entity), uid);
}

inline std::vector<ManagedObject*> fetchAll(ManagedObjectContext& context, const std::string& entity) {
    return context.executeFetchRequest(FetchRequest(entity)).value_or(std::vector<ManagedObject*>{});
}

inline std::string readBytes(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
}

inline void writeBytes(const std::string& path, const std::string& bytes) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out << bytes;
}

// Every file under `path` (or the file itself) with its bytes: the before and after of a
// refused open must be equal.
inline std::map<std::string, std::string> treeContents(const std::string& path) {
    std::map<std::string, std::string> contents;
    std::error_code code;
    if (fs::is_regular_file(path, code)) {
        contents[""] = readBytes(path);
        return contents;
    }
    if (!fs::is_directory(path, code)) {
        return contents;
    }
    for (const auto& entry : fs::recursive_directory_iterator(path)) {
        std::string relative = fs::relative(entry.path(), path).string();
        contents[relative] = entry.is_regular_file() ? readBytes(entry.path().string()) : std::string("<folder>");
    }
    return contents;
}

}  // namespace brassline::storetest
