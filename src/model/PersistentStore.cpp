#include "model/PersistentStore.h"

#include "model/ManagedObject.h"
#include "model/ManagedObjectContext.h"

namespace brassline {

std::optional<Value> PersistentStore::loadDataValue(const EntityDescription& entity, int64_t number,
                                                    const AttributeDescription& attribute, std::string* error) {
    (void)number;
    if (error != nullptr) {
        *error = "the store left no value of " + entity.name() + "." + attribute.name + " behind";
    }
    return std::nullopt;
}

bool PersistentStore::beginWriting(ManagedObjectContext& context, std::string* error) {
    (void)context;
    (void)error;
    return true;
}

InMemoryStore::InMemoryStore(std::string identifier) : m_identifier(std::move(identifier)) {}

bool InMemoryStore::loadObjects(ManagedObjectContext& context, std::string* error) {
    std::map<int64_t, ManagedObject*> loaded;
    for (const auto& [number, record] : m_records) {
        const EntityDescription* entity = context.entityNamed(record.entityName);
        if (entity == nullptr) {
            if (error != nullptr) {
                *error = "unknown entity " + record.entityName + " in the store";
            }
            return false;
        }
        ManagedObject* object = context.registerLoadedObject(*entity, number);
        if (object == nullptr) {
            continue;
        }
        loaded[number] = object;
        for (const auto& [name, value] : record.attributes) {
            if (const AttributeDescription* attribute = entity->attributeNamed(name)) {
                context.setLoadedValue(*object, *attribute, value);
            }
        }
    }
    // Relationships once every object exists.
    for (const auto& [number, record] : m_records) {
        auto object = loaded.find(number);
        if (object == loaded.end()) {
            continue;
        }
        for (const auto& [name, numbers] : record.relationships) {
            const RelationshipDescription* relationship = object->second->entity().relationshipNamed(name);
            if (relationship == nullptr) {
                continue;
            }
            std::vector<ManagedObject*> targets;
            for (int64_t targetNumber : numbers) {
                auto target = loaded.find(targetNumber);
                if (target != loaded.end()) {
                    targets.push_back(target->second);
                }
            }
            context.setLoadedRelationship(*object->second, *relationship, targets);
        }
    }
    context.finishLoading();
    return true;
}

bool InMemoryStore::saveChanges(const StoreChanges& changes, std::string* error) {
    if (!m_failure.empty()) {
        if (error != nullptr) {
            *error = m_failure;
        }
        m_failure.clear();
        return false;
    }
    // Records are built first and swapped in after, so a save is whole or not at all.
    std::map<int64_t, Record> written;
    for (const auto* list : {&changes.inserted, &changes.updated}) {
        for (ManagedObject* object : *list) {
            Record record;
            record.entityName = object->entityName();
            for (const AttributeDescription* attribute : object->entity().attributes()) {
                const Value& value = object->primitiveValue(*attribute);
                if (!attribute->isTransient && !value.isNull()) {
                    record.attributes[attribute->name] = value;
                }
            }
            for (const RelationshipDescription* relationship : object->entity().relationships()) {
                std::vector<int64_t> numbers;
                if (relationship->isToMany) {
                    for (ManagedObject* target : object->toManyObjects(*relationship)) {
                        numbers.push_back(target->objectID().number);
                    }
                } else if (ManagedObject* target = object->toOneObject(*relationship)) {
                    numbers.push_back(target->objectID().number);
                }
                if (!numbers.empty()) {
                    record.relationships[relationship->name] = std::move(numbers);
                }
            }
            written[object->objectID().number] = std::move(record);
        }
    }
    for (ManagedObject* object : changes.deleted) {
        m_records.erase(object->objectID().number);
    }
    for (auto& [number, record] : written) {
        m_records[number] = std::move(record);
        m_largestNumber = std::max(m_largestNumber, number);
    }
    ++m_saveCount;
    return true;
}

}  // namespace brassline
