#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "core/Value.h"

namespace brassline {

class EntityDescription;
class ManagedObject;
class ManagedObjectModel;

// The stored attribute types. Every attribute may be absent (the null value).
enum class AttributeType : uint8_t { String, Decimal, Date, Data, Bool, Int16, Int32, Int64, Double };
std::string_view attributeTypeName(AttributeType type);

// What deleting the source does to the targets of a relationship. Deny refuses the
// deletion while the relationship holds any object; NoAction leaves the targets alone.
enum class DeleteRule : uint8_t { Nullify, Cascade, Deny, NoAction };
std::string_view deleteRuleName(DeleteRule rule);

// The typed setter of a property reached through key-value coding: the generated
// function converts the value and calls the (virtual) setter so hand-written side
// effects run.
using PropertySetter = void (*)(ManagedObject& object, const Value& value);
// A derived property registered by a class: computed from the object on demand.
using DerivedGetter = Value (*)(const ManagedObject& object);

struct AttributeDescription {
    std::string name;
    AttributeType type = AttributeType::String;
    bool isTransient = false;                   // Kept in memory only: never saved, never tracked as a change.
    uint16_t slot = 0;                          // Index among the object's attribute slots (inherited first).
    const EntityDescription* entity = nullptr;  // The declaring entity.
    PropertySetter setter = nullptr;
};

struct RelationshipDescription {
    std::string name;
    std::string destinationName;
    std::string inverseName;
    const EntityDescription* destination = nullptr;
    const RelationshipDescription* inverse = nullptr;  // Null when the declaration has none.
    bool isToMany = false;
    bool isOrdered = false;
    DeleteRule deleteRule = DeleteRule::Nullify;
    uint16_t slot = 0;  // Index among the to-one or among the to-many slots.
    const EntityDescription* entity = nullptr;
    PropertySetter setter = nullptr;
};

// One entity of a model: its names, place in the inheritance tree, properties (inherited
// ones first, in declaration order), the class's derived properties and dependent keys,
// and the factory of its class. Built by generated code; read-only once the model is done.
class EntityDescription {
public:
    using Factory = std::unique_ptr<ManagedObject> (*)();

    // The answer of key lookups: one of the stored properties or a derived one. A derived
    // property registered under a stored key shadows it for this class and below.
    struct Property {
        enum class Kind : uint8_t { Attribute, ToOne, ToMany, Derived };
        Kind kind = Kind::Attribute;
        const AttributeDescription* attribute = nullptr;
        const RelationshipDescription* relationship = nullptr;
        DerivedGetter getter = nullptr;
        PropertySetter setter = nullptr;  // Derived properties may have one.
    };

    EntityDescription(ManagedObjectModel& model, std::string name, std::string className, bool isAbstract,
                      Factory factory);
    EntityDescription(const EntityDescription&) = delete;
    EntityDescription& operator=(const EntityDescription&) = delete;

    const std::string& name() const { return m_name; }
    const std::string& managedObjectClassName() const { return m_className; }
    bool isAbstract() const { return m_isAbstract; }
    const ManagedObjectModel& model() const { return m_model; }
    uint32_t index() const { return m_index; }  // Position in the model, dense from 0.

    const EntityDescription* superentity() const { return m_superentity; }
    const std::vector<const EntityDescription*>& subentities() const { return m_subentities; }
    // This entity and every entity below it, this one first.
    const std::vector<const EntityDescription*>& selfAndDescendants() const { return m_selfAndDescendants; }
    bool isKindOfEntity(const EntityDescription& other) const;

    // All properties, inherited ones included.
    const std::vector<const AttributeDescription*>& attributes() const { return m_attributes; }
    const std::vector<const RelationshipDescription*>& relationships() const { return m_relationships; }
    const AttributeDescription* attributeNamed(std::string_view name) const;
    const RelationshipDescription* relationshipNamed(std::string_view name) const;
    std::vector<std::string> attributeNames() const;
    std::vector<std::string> relationshipNames() const;
    // The keys of derived properties registered by this class and its ancestors, the
    // class's own first.
    std::vector<std::string> derivedPropertyNames() const;
    size_t toOneCount() const { return m_toOneCount; }
    size_t toManyCount() const { return m_toManyCount; }
    // The string attribute "uid" when the entity has one: fetches by uid use an index.
    const AttributeDescription* uidAttribute() const { return m_uidAttribute; }

    // Class-level registration (from a class's setupClass while the model is built).
    // `key` reads through `getter` (and writes through `setter` when given).
    void registerDerivedProperty(std::string key, DerivedGetter getter, PropertySetter setter = nullptr);
    // Observers of `key` are told when any of `dependsOn` changes ("cost" on "quantity").
    void registerDependentKeys(const std::string& key, const std::vector<std::string>& dependsOn);

    // Lookup in the flattened table: stored and derived properties of this class and its
    // ancestors. Null for an unknown key. No allocation.
    const Property* propertyForKey(std::string_view key) const;
    // Every key of that table, sorted.
    std::vector<std::string> propertyKeys() const;
    // The keys whose observers hear of a change to `key` (transitively), null when none.
    const std::vector<std::string>* keysAffectedBy(std::string_view key) const;

    // A new, unattached instance of the entity's class; null for an abstract entity.
    std::unique_ptr<ManagedObject> newInstance() const;

private:
    friend class ManagedObjectModel;

    struct StringHash {
        using is_transparent = void;
        size_t operator()(std::string_view text) const { return std::hash<std::string_view>{}(text); }
    };
    template <typename T>
    using StringMap = std::unordered_map<std::string, T, StringHash, std::equal_to<>>;

    ManagedObjectModel& m_model;
    std::string m_name;
    std::string m_className;
    bool m_isAbstract;
    Factory m_factory;
    uint32_t m_index = 0;
    std::string m_superName;
    const EntityDescription* m_superentity = nullptr;
    std::vector<const EntityDescription*> m_subentities;
    std::vector<const EntityDescription*> m_selfAndDescendants;

    std::vector<std::unique_ptr<AttributeDescription>> m_ownAttributes;
    std::vector<std::unique_ptr<RelationshipDescription>> m_ownRelationships;
    std::vector<const AttributeDescription*> m_attributes;
    std::vector<const RelationshipDescription*> m_relationships;
    size_t m_toOneCount = 0;
    size_t m_toManyCount = 0;
    const AttributeDescription* m_uidAttribute = nullptr;

    std::vector<std::pair<std::string, Property>> m_ownDerived;
    std::vector<std::pair<std::string, std::vector<std::string>>> m_ownDependencies;
    StringMap<Property> m_properties;
    StringMap<std::vector<std::string>> m_affectedKeys;
};

// A set of entities declared together, built once by generated code. Several models may
// live in one process (the business model, a test model).
class ManagedObjectModel {
public:
    explicit ManagedObjectModel(std::string name);
    ~ManagedObjectModel();
    ManagedObjectModel(const ManagedObjectModel&) = delete;
    ManagedObjectModel& operator=(const ManagedObjectModel&) = delete;

    const std::string& name() const { return m_name; }
    const std::vector<std::unique_ptr<EntityDescription>>& entities() const { return m_entities; }
    // By entity name ("Cost") or class name ("BLCost"); null when unknown.
    const EntityDescription* entityNamed(std::string_view name) const;

    // Building, in this order: entities (superentities first), their properties, then
    // finish() once every class has registered its derived properties.
    EntityDescription& addEntity(std::string name, std::string className, std::string superName, bool isAbstract,
                                 EntityDescription::Factory factory);
    AttributeDescription& addAttribute(EntityDescription& entity, std::string name, AttributeType type,
                                       bool isTransient, uint16_t slot, PropertySetter setter);
    RelationshipDescription& addRelationship(EntityDescription& entity, std::string name, std::string destination,
                                             std::string inverse, bool isToMany, bool isOrdered, DeleteRule rule,
                                             uint16_t slot, PropertySetter setter);
    // Resolves destinations and inverses, checks the slots and flattens the key tables.
    // Answers false with the reasons in `error` when the description is inconsistent.
    bool finish(std::string* error = nullptr);
    bool isFinished() const { return m_finished; }

private:
    std::string m_name;
    std::vector<std::unique_ptr<EntityDescription>> m_entities;
    std::unordered_map<std::string, EntityDescription*> m_byName;
    bool m_finished = false;
};

}  // namespace brassline
