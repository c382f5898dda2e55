#include "model/EntityDescription.h"

#include <algorithm>
#include <cassert>
#include <set>

#include "core/Log.h"
#include "model/ManagedObject.h"

namespace brassline {

std::string_view attributeTypeName(AttributeType type) {
    switch (type) {
        case AttributeType::String:
            return "string";
        case AttributeType::Decimal:
            return "decimal";
        case AttributeType::Date:
            return "date";
        case AttributeType::Data:
            return "data";
        case AttributeType::Bool:
            return "bool";
        case AttributeType::Int16:
            return "int16";
        case AttributeType::Int32:
            return "int32";
        case AttributeType::Int64:
            return "int64";
        case AttributeType::Double:
            return "double";
    }
    return "?";
}

std::string_view deleteRuleName(DeleteRule rule) {
    switch (rule) {
        case DeleteRule::Nullify:
            return "nullify";
        case DeleteRule::Cascade:
            return "cascade";
        case DeleteRule::Deny:
            return "deny";
        case DeleteRule::NoAction:
            return "noAction";
    }
    return "?";
}

EntityDescription::EntityDescription(ManagedObjectModel& model, std::string name, std::string className,
                                     bool isAbstract, Factory factory)
    : m_model(model),
      m_name(std::move(name)),
      m_className(std::move(className)),
      m_isAbstract(isAbstract),
      m_factory(factory) {}

bool EntityDescription::isKindOfEntity(const EntityDescription& other) const {
    for (const EntityDescription* entity = this; entity != nullptr; entity = entity->m_superentity) {
        if (entity == &other) {
            return true;
        }
    }
    return false;
}

const AttributeDescription* EntityDescription::attributeNamed(std::string_view name) const {
    const Property* property = propertyForKey(name);
    if (property != nullptr && property->attribute != nullptr) {
        return property->attribute;
    }
    // A derived property may shadow the stored one for key-value coding; reflection
    // still answers the stored attribute.
    for (const AttributeDescription* attribute : m_attributes) {
        if (attribute->name == name) {
            return attribute;
        }
    }
    return nullptr;
}

const RelationshipDescription* EntityDescription::relationshipNamed(std::string_view name) const {
    const Property* property = propertyForKey(name);
    if (property != nullptr && property->relationship != nullptr) {
        return property->relationship;
    }
    for (const RelationshipDescription* relationship : m_relationships) {
        if (relationship->name == name) {
            return relationship;
        }
    }
    return nullptr;
}

std::vector<std::string> EntityDescription::attributeNames() const {
    std::vector<std::string> names;
    names.reserve(m_attributes.size());
    for (const AttributeDescription* attribute : m_attributes) {
        names.push_back(attribute->name);
    }
    return names;
}

std::vector<std::string> EntityDescription::relationshipNames() const {
    std::vector<std::string> names;
    names.reserve(m_relationships.size());
    for (const RelationshipDescription* relationship : m_relationships) {
        names.push_back(relationship->name);
    }
    return names;
}

std::vector<std::string> EntityDescription::derivedPropertyNames() const {
    std::vector<std::string> names;
    for (const EntityDescription* level = this; level != nullptr; level = level->m_superentity) {
        for (const auto& [key, property] : level->m_ownDerived) {
            if (std::find(names.begin(), names.end(), key) == names.end()) {
                names.push_back(key);
            }
        }
    }
    return names;
}

void EntityDescription::registerDerivedProperty(std::string key, DerivedGetter getter, PropertySetter setter) {
    assert(!m_model.isFinished() && "derived properties are registered while the model is built");
    Property property;
    property.kind = Property::Kind::Derived;
    property.getter = getter;
    property.setter = setter;
    m_ownDerived.emplace_back(std::move(key), property);
}

void EntityDescription::registerDependentKeys(const std::string& key, const std::vector<std::string>& dependsOn) {
    assert(!m_model.isFinished() && "dependent keys are registered while the model is built");
    m_ownDependencies.emplace_back(key, dependsOn);
}

const EntityDescription::Property* EntityDescription::propertyForKey(std::string_view key) const {
    auto found = m_properties.find(key);
    return found == m_properties.end() ? nullptr : &found->second;
}

std::vector<std::string> EntityDescription::propertyKeys() const {
    std::vector<std::string> keys;
    keys.reserve(m_properties.size());
    for (const auto& [key, property] : m_properties) {
        keys.push_back(key);
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

const std::vector<std::string>* EntityDescription::keysAffectedBy(std::string_view key) const {
    if (m_affectedKeys.empty()) {
        return nullptr;
    }
    auto found = m_affectedKeys.find(key);
    return found == m_affectedKeys.end() ? nullptr : &found->second;
}

std::unique_ptr<ManagedObject> EntityDescription::newInstance() const {
    if (m_isAbstract || m_factory == nullptr) {
        return nullptr;
    }
    return m_factory();
}

ManagedObjectModel::ManagedObjectModel(std::string name) : m_name(std::move(name)) {}

ManagedObjectModel::~ManagedObjectModel() = default;

const EntityDescription* ManagedObjectModel::entityNamed(std::string_view name) const {
    auto found = m_byName.find(std::string(name));
    return found == m_byName.end() ? nullptr : found->second;
}

EntityDescription& ManagedObjectModel::addEntity(std::string name, std::string className, std::string superName,
                                                 bool isAbstract, EntityDescription::Factory factory) {
    auto entity =
        std::make_unique<EntityDescription>(*this, std::move(name), std::move(className), isAbstract, factory);
    entity->m_index = static_cast<uint32_t>(m_entities.size());
    entity->m_superName = std::move(superName);
    EntityDescription& result = *entity;
    m_byName[result.m_name] = &result;
    m_byName[result.m_className] = &result;
    m_entities.push_back(std::move(entity));
    return result;
}

AttributeDescription& ManagedObjectModel::addAttribute(EntityDescription& entity, std::string name, AttributeType type,
                                                       bool isTransient, uint16_t slot, PropertySetter setter) {
    auto attribute = std::make_unique<AttributeDescription>();
    attribute->name = std::move(name);
    attribute->type = type;
    attribute->isTransient = isTransient;
    attribute->slot = slot;
    attribute->entity = &entity;
    attribute->setter = setter;
    entity.m_ownAttributes.push_back(std::move(attribute));
    return *entity.m_ownAttributes.back();
}

RelationshipDescription& ManagedObjectModel::addRelationship(EntityDescription& entity, std::string name,
                                                             std::string destination, std::string inverse,
                                                             bool isToMany, bool isOrdered, DeleteRule rule,
                                                             uint16_t slot, PropertySetter setter) {
    auto relationship = std::make_unique<RelationshipDescription>();
    relationship->name = std::move(name);
    relationship->destinationName = std::move(destination);
    relationship->inverseName = std::move(inverse);
    relationship->isToMany = isToMany;
    relationship->isOrdered = isOrdered;
    relationship->deleteRule = rule;
    relationship->slot = slot;
    relationship->entity = &entity;
    relationship->setter = setter;
    entity.m_ownRelationships.push_back(std::move(relationship));
    return *entity.m_ownRelationships.back();
}

bool ManagedObjectModel::finish(std::string* error) {
    std::vector<std::string> problems;
    // Entities arrive superentities first, so one pass in order sees every parent done.
    for (auto& owned : m_entities) {
        EntityDescription& entity = *owned;
        if (!entity.m_superName.empty()) {
            auto found = m_byName.find(entity.m_superName);
            if (found == m_byName.end() || found->second->m_index >= entity.m_index) {
                problems.push_back("entity " + entity.m_name + ": unknown or later superentity " + entity.m_superName);
                continue;
            }
            EntityDescription* parent = found->second;
            entity.m_superentity = parent;
            parent->m_subentities.push_back(&entity);
            entity.m_attributes = parent->m_attributes;
            entity.m_relationships = parent->m_relationships;
            entity.m_toOneCount = parent->m_toOneCount;
            entity.m_toManyCount = parent->m_toManyCount;
            entity.m_properties = parent->m_properties;
            entity.m_uidAttribute = parent->m_uidAttribute;
            for (const auto& [key, dependents] : parent->m_affectedKeys) {
                entity.m_affectedKeys[key] = dependents;
            }
        }
        for (auto& attribute : entity.m_ownAttributes) {
            if (attribute->slot != entity.m_attributes.size()) {
                problems.push_back("attribute " + entity.m_name + "." + attribute->name + ": slot out of order");
            }
            entity.m_attributes.push_back(attribute.get());
            EntityDescription::Property property;
            property.kind = EntityDescription::Property::Kind::Attribute;
            property.attribute = attribute.get();
            property.setter = attribute->setter;
            entity.m_properties[attribute->name] = property;
            if (attribute->name == "uid" && attribute->type == AttributeType::String) {
                entity.m_uidAttribute = attribute.get();
            }
        }
        for (auto& relationship : entity.m_ownRelationships) {
            size_t& count = relationship->isToMany ? entity.m_toManyCount : entity.m_toOneCount;
            if (relationship->slot != count) {
                problems.push_back("relationship " + entity.m_name + "." + relationship->name + ": slot out of order");
            }
            ++count;
            entity.m_relationships.push_back(relationship.get());
            EntityDescription::Property property;
            property.kind = relationship->isToMany ? EntityDescription::Property::Kind::ToMany
                                                   : EntityDescription::Property::Kind::ToOne;
            property.relationship = relationship.get();
            property.setter = relationship->setter;
            entity.m_properties[relationship->name] = property;
        }
        for (const auto& [key, property] : entity.m_ownDerived) {
            entity.m_properties[key] = property;
        }
        for (const auto& [key, dependsOn] : entity.m_ownDependencies) {
            for (const std::string& source : dependsOn) {
                auto& affected = entity.m_affectedKeys[source];
                if (std::find(affected.begin(), affected.end(), key) == affected.end()) {
                    affected.push_back(key);
                }
            }
        }
    }
    // Dependencies chain ("costWithTaxes" on "cost" on "quantity"): close each list so a
    // change notice needs one lookup.
    for (auto& owned : m_entities) {
        auto& table = owned->m_affectedKeys;
        for (auto& [source, affected] : table) {
            std::set<std::string> seen(affected.begin(), affected.end());
            for (size_t i = 0; i < affected.size(); ++i) {
                auto next = table.find(affected[i]);
                if (next == table.end()) {
                    continue;
                }
                for (const std::string& key : next->second) {
                    if (key != source && seen.insert(key).second) {
                        affected.push_back(key);
                    }
                }
            }
        }
    }
    for (auto& owned : m_entities) {
        for (auto& relationship : owned->m_ownRelationships) {
            auto destination = m_byName.find(relationship->destinationName);
            if (destination == m_byName.end()) {
                problems.push_back("relationship " + owned->m_name + "." + relationship->name +
                                   ": unknown destination " + relationship->destinationName);
                continue;
            }
            relationship->destination = destination->second;
            if (relationship->inverseName.empty()) {
                continue;
            }
            const RelationshipDescription* inverse = nullptr;
            for (const RelationshipDescription* candidate : destination->second->m_relationships) {
                if (candidate->name == relationship->inverseName) {
                    inverse = candidate;
                }
            }
            if (inverse == nullptr || inverse->inverseName != relationship->name) {
                problems.push_back("relationship " + owned->m_name + "." + relationship->name + ": inverse " +
                                   relationship->inverseName + " does not point back");
                continue;
            }
            relationship->inverse = inverse;
        }
    }
    for (auto& owned : m_entities) {
        for (const EntityDescription* entity = owned.get(); entity != nullptr; entity = entity->m_superentity) {
            const_cast<EntityDescription*>(entity)->m_selfAndDescendants.push_back(owned.get());
        }
    }
    // Each entity's own list must start with itself; descendants were appended in model
    // order, which puts the entity first because superentities come earlier.
    if (!problems.empty()) {
        std::string text;
        for (const std::string& problem : problems) {
            text += problem + "\n";
        }
        logMessage("Model %@ is inconsistent: %@", m_name, text);
        if (error != nullptr) {
            *error = text;
        }
        return false;
    }
    m_finished = true;
    return true;
}

}  // namespace brassline
