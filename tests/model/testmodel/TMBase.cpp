#include "testmodel/TMBase.h"

#include "core/UniqueId.h"

namespace brassline {

void TMBase::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("displayName", [](const ManagedObject& object) -> Value {
        const auto& base = static_cast<const TMBase&>(object);
        std::optional<std::string> name = base.name();
        return Value(name ? *name : "untitled " + base.entityName());
    });
}

void TMBase::awakeFromCreate() {
    if (!uid()) {
        setPrimitiveUid(uniqueBase64String());
    }
}

void TMBase::prepareForDeletion() {
    // Derivates of a deleted link point past it to its own source.
    std::vector<TMBase*> derived = derivates().toVector();
    for (TMBase* derivate : derived) {
        derivate->setSource(source());
    }
}

void TMBase::awakeFromSnapshotEvents(uint32_t events) {
    m_snapshotEvents.push_back(events);
}

Value TMBase::valueForUndefinedKey(std::string_view key) const {
    constexpr std::string_view prefix = "custom.";
    if (key.substr(0, prefix.size()) == prefix) {
        return Value("custom value of " + std::string(key.substr(prefix.size())));
    }
    return Value();
}

}  // namespace brassline
