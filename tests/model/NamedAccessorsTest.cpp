#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "EntityFixture.h"
#include "model/EntityDescription.h"
#include "model/entities/BLBase.h"
#include "model/entities/NamedAccessors.h"

namespace brassline {
namespace {

using NamedAccessorsTest = EntityFixture;

// The names come from the table of named accessors and from each entity's own key table;
// a fresh object of every concrete entity answers each one (an empty answer is an
// answer), and a named one must come from a table, never from the undefined-key path.
TEST_F(NamedAccessorsTest, EveryNamedAccessorAnswersOnEveryEntityBelowItsClass) {
    const ManagedObjectModel& model = gen::brasslineModel();
    for (const auto& [className, names] : namedAccessors()) {
        EXPECT_NE(model.entityNamed(className), nullptr) << "no entity " << className;
    }
    std::vector<std::string> unreachable;
    int read = 0;
    for (const auto& entity : model.entities()) {
        if (entity->isAbstract()) {
            continue;
        }
        SCOPED_TRACE(entity->name());
        BLBase* object = BLBase::insertInManagedObjectContext(context(), entity->name(), entity->name() + ".fresh");
        ASSERT_NE(object, nullptr);
        for (const auto& [className, names] : namedAccessors()) {
            const EntityDescription* owner = model.entityNamed(className);
            if (owner == nullptr || !entity->isKindOfEntity(*owner)) {
                continue;
            }
            for (const std::string& name : names) {
                if (entity->propertyForKey(name) == nullptr) {
                    unreachable.push_back(entity->name() + "." + name);
                }
            }
        }
        for (const std::string& key : entity->propertyKeys()) {
            SCOPED_TRACE(key);
            (void)object->valueForKey(key);
            ++read;
        }
    }
    EXPECT_GT(read, 1000) << "every key of every entity is read";
    std::string list;
    for (const std::string& name : unreachable) {
        list += name + " ";
    }
    EXPECT_TRUE(unreachable.empty()) << "not reachable by key: " << list;
}

}  // namespace
}  // namespace brassline
