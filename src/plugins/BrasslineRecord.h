#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/Value.h"
#include "model/ManagedObject.h"

namespace brassline {

class ManagedObjectContext;

// The run a live wrapper belongs to. A wrapper reaches its object through the context of
// the run and the object's ID, so that a wrapper a script kept past the end of its run, or
// an object deleted meanwhile, answers null instead of a dangling object.
struct ScriptScope {
    ManagedObjectContext* context = nullptr;
};
using ScriptScopeRef = std::weak_ptr<const ScriptScope>;

// A store object as a script holds it: read-only, or editable (writes go through the
// object's setters, so the class's logic runs and observers hear of the change).
class BrasslineRecord {
public:
    BrasslineRecord(ScriptScopeRef scope, ManagedObject& object, bool editable);

    // Null once the run is over or the object is gone.
    ManagedObject* object() const;
    ManagedObjectContext* context() const;
    bool isEditable() const { return m_editable; }
    BrasslineRecord editableRecord() const { return BrasslineRecord(m_scope, m_id, true); }
    const ScriptScopeRef& scope() const { return m_scope; }

    Value valueForKey(std::string_view key) const;
    Value valueForKeyPath(std::string_view keyPath) const;
    // Null when the object has no custom fields.
    Value valueForCustomField(std::string_view key) const;
    std::string entityName() const;
    std::string description() const;
    // The object's dates and numbers as its documents show them.
    std::string formattedDate(const Value& date) const;
    std::string formattedNumber(const Value& number) const;

    // Editable records only (false on a read-only one, or a gone object). The last part of
    // a key path is the key on the object at its prefix; the value is converted to the
    // attribute's type by the object's setter, which runs the class's own logic where it
    // has any and otherwise only announces the change.
    bool setValueForKeyPath(const Value& value, std::string_view keyPath);
    bool setValueForCustomField(const Value& value, std::string_view key);
    bool setMetaValue(const Value& value, std::string_view key);
    // countryCode from a country's name in the current language, or its code as given.
    bool setCountryName(std::string_view name);
    bool deleteObject();

    bool operator==(const BrasslineRecord& other) const;

private:
    BrasslineRecord(ScriptScopeRef scope, ObjectID id, bool editable)
        : m_scope(std::move(scope)), m_id(id), m_editable(editable) {}
    ScriptScopeRef m_scope;
    ObjectID m_id;
    bool m_editable;
};

// A list of store objects that a script filters, sorts and maps; `editable` decides the
// kind of record it hands out.
class BrasslineQuery {
public:
    BrasslineQuery(ScriptScopeRef scope, const std::vector<ManagedObject*>& objects, bool editable);
    // All objects of an entity (subentities included); empty for an unknown entity.
    static BrasslineQuery newQuery(ScriptScopeRef scope, std::string_view entityName, bool editable);
    // The first object of the entity that the predicate accepts, null when none. A
    // predicate that does not parse is ignored: the first object of the entity answers.
    static ManagedObject* fetchRecord(ManagedObjectContext& context, std::string_view entityName,
                                      std::string_view predicate, const std::vector<Value>& arguments = {});

    std::vector<ManagedObject*> objects() const;
    size_t count() const { return m_ids.size(); }
    bool isEditable() const { return m_editable; }
    void setEditable(bool editable) { m_editable = editable; }
    const ScriptScopeRef& scope() const { return m_scope; }

    // A new query of the objects the predicate accepts; with text that does not parse, a
    // query without objects.
    BrasslineQuery filter(std::string_view predicate) const;
    BrasslineQuery sort(std::string_view key, bool ascending) const;
    // The key path over every object, as a list.
    Value valueForKeyPath(std::string_view keyPath) const;
    std::vector<BrasslineRecord> records() const;
    std::string description() const;

private:
    ScriptScopeRef m_scope;
    std::vector<ObjectID> m_ids;
    bool m_editable;
};

// The names a script reads on a record of the entity: every stored attribute and
// relationship and every derived property of its class, as the model declares them. A
// name that one of the record's own operations already takes is left out.
const std::vector<std::string>& scriptablePropertyNames(const EntityDescription& entity);
// The operations of records, in the order a script lists them.
const std::vector<std::string>& recordOperationNames(bool editable);

}  // namespace brassline
