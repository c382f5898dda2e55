#include "plugins/BrasslineRecord.h"

#include <algorithm>
#include <map>
#include <mutex>

#include <unicode/locid.h>

#include "core/BLLocales.h"
#include "core/Log.h"
#include "core/ValueTransformers.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/Predicate.h"
#include "model/SortDescriptor.h"
#include "model/StringFolding.h"
#include "model/entities/BLBase.h"
#include "model/entities/BLDocument.h"
#include "model/entities/UserEdits.h"

namespace brassline {

namespace {

ManagedObjectContext* contextOf(const ScriptScopeRef& scope) {
    std::shared_ptr<const ScriptScope> alive = scope.lock();
    return alive ? alive->context : nullptr;
}

ManagedObject* resolve(const ScriptScopeRef& scope, const ObjectID& id) {
    ManagedObjectContext* context = contextOf(scope);
    if (context == nullptr || id.isNull()) {
        return nullptr;
    }
    ManagedObject* object = context->objectWithID(id);
    return object != nullptr && !object->isDeleted() ? object : nullptr;
}

const std::vector<std::string> kReadOperations = {"valueForKey",
                                                  "valueForKeyPath",
                                                  "valueForCustomField",
                                                  "formattedDate",
                                                  "formattedNumber",
                                                  "editableRecord",
                                                  "entityName",
                                                  "description",
                                                  "interchangeRecord",
                                                  "toString",
                                                  "save",
                                                  "insertRecord",
                                                  "newQuery",
                                                  "fetchRecord",
                                                  "log",
                                                  "monthNames",
                                                  "shortMonthNames",
                                                  "fixArray",
                                                  "preferences",
                                                  "localizedName"};
const std::vector<std::string> kWriteOperations = {"delete",        "setValueForCustomField", "setMetaValue",
                                                   "setValue",      "setValueForKey",         "setValueForKeyPath",
                                                   "setCountryName"};

}  // namespace

BrasslineRecord::BrasslineRecord(ScriptScopeRef scope, ManagedObject& object, bool editable)
    : m_scope(std::move(scope)), m_id(object.objectID()), m_editable(editable) {}

ManagedObject* BrasslineRecord::object() const {
    return resolve(m_scope, m_id);
}

ManagedObjectContext* BrasslineRecord::context() const {
    return contextOf(m_scope);
}

Value BrasslineRecord::valueForKey(std::string_view key) const {
    ManagedObject* target = object();
    return target != nullptr ? target->valueForKey(key) : Value();
}

Value BrasslineRecord::valueForKeyPath(std::string_view keyPath) const {
    ManagedObject* target = object();
    return target != nullptr ? target->valueForKeyPath(keyPath) : Value();
}

Value BrasslineRecord::valueForCustomField(std::string_view key) const {
    auto* document = dynamic_cast<BLDocument*>(object());
    return document != nullptr ? document->valueForCustomField(key) : Value();
}

std::string BrasslineRecord::entityName() const {
    ManagedObject* target = object();
    return target != nullptr ? target->entityName() : std::string();
}

std::string BrasslineRecord::description() const {
    auto* base = dynamic_cast<BLBase*>(object());
    return base != nullptr ? base->entityName() + " " + base->displayName() : std::string();
}

std::string BrasslineRecord::formattedDate(const Value& date) const {
    static const DateTransformer transformer(DateStyle::Short);
    return transformer.transformedValue(date).toString();
}

std::string BrasslineRecord::formattedNumber(const Value& number) const {
    static const NumberTransformer transformer(NumberStyle::Grouped);
    return transformer.transformedValue(number).toString();
}

bool BrasslineRecord::setValueForKeyPath(const Value& value, std::string_view keyPath) {
    ManagedObject* target = m_editable ? object() : nullptr;
    if (target == nullptr) {
        return false;
    }
    std::string_view key = keyPath;
    const size_t dot = keyPath.rfind('.');
    if (dot != std::string_view::npos) {
        target = attributes::toObject(target->valueForKeyPath(keyPath.substr(0, dot)));
        key = keyPath.substr(dot + 1);
        if (target == nullptr) {
            return false;
        }
    }
    // A script edits as the user does: an issued document and its items stay read-only,
    // and so does an issued document that the assignment would hang an item under.
    EditCheck check = checkUserEdit(*target, key);
    const RelationshipDescription* relationship = target->entity().relationshipNamed(key);
    const auto* newOwner = dynamic_cast<const ManagedObject*>(value.object());
    if (check.allowed() && relationship != nullptr && relationship->inverse != nullptr && newOwner != nullptr) {
        check = checkUserEdit(*newOwner, relationship->inverse->name);
    }
    if (!check.allowed()) {
        logMessage("Record change refused: %@", check.refusal);
        return false;
    }
    // A record handed in as the value stands for its object in this context.
    target->setValueForKey(value, key);
    return true;
}

bool BrasslineRecord::setValueForCustomField(const Value& value, std::string_view key) {
    auto* document = m_editable ? dynamic_cast<BLDocument*>(object()) : nullptr;
    if (document == nullptr) {
        return false;
    }
    document->setValueForCustomField(value, key);
    return true;
}

bool BrasslineRecord::setMetaValue(const Value& value, std::string_view key) {
    auto* document = m_editable ? dynamic_cast<BLDocument*>(object()) : nullptr;
    if (document == nullptr) {
        return false;
    }
    document->setMetaValue(value, key);
    return true;
}

bool BrasslineRecord::setCountryName(std::string_view name) {
    ManagedObject* target = m_editable ? object() : nullptr;
    if (target == nullptr || target->entity().attributeNamed("countryCode") == nullptr) {
        return false;
    }
    const std::string folded = foldedString(name, kFoldCase | kFoldDiacritics);
    std::string code(name);
    for (const char* const* country = icu::Locale::getISOCountries(); *country != nullptr; ++country) {
        std::optional<std::string> display = countryDisplayName(*country);
        if (display && foldedString(*display, kFoldCase | kFoldDiacritics) == folded) {
            code = *country;
            break;
        }
    }
    target->setValueForKey(Value(code), "countryCode");
    return true;
}

bool BrasslineRecord::deleteObject() {
    ManagedObject* target = m_editable ? object() : nullptr;
    ManagedObjectContext* context = this->context();
    if (target == nullptr || context == nullptr) {
        return false;
    }
    if (EditCheck check = checkUserDeletion(*target); !check.allowed()) {
        logMessage("Record delete refused: %@", check.refusal);
        return false;
    }
    std::string error;
    if (!context->deleteObject(target, &error)) {
        logMessage("Record delete refused: %@", error);
        return false;
    }
    return true;
}

bool BrasslineRecord::operator==(const BrasslineRecord& other) const {
    return m_id == other.m_id && contextOf(m_scope) == contextOf(other.m_scope);
}

BrasslineQuery::BrasslineQuery(ScriptScopeRef scope, const std::vector<ManagedObject*>& objects, bool editable)
    : m_scope(std::move(scope)), m_editable(editable) {
    m_ids.reserve(objects.size());
    for (ManagedObject* object : objects) {
        m_ids.push_back(object->objectID());
    }
}

BrasslineQuery BrasslineQuery::newQuery(ScriptScopeRef scope, std::string_view entityName, bool editable) {
    ManagedObjectContext* context = contextOf(scope);
    std::vector<ManagedObject*> objects;
    if (context != nullptr && context->entityNamed(entityName) != nullptr) {
        objects = context->executeFetchRequest(FetchRequest(std::string(entityName))).value_or(objects);
    }
    return BrasslineQuery(std::move(scope), objects, editable);
}

ManagedObject* BrasslineQuery::fetchRecord(ManagedObjectContext& context, std::string_view entityName,
                                           std::string_view predicate, const std::vector<Value>& arguments) {
    if (context.entityNamed(entityName) == nullptr) {
        return nullptr;
    }
    FetchRequest request{std::string(entityName)};
    std::string error;
    if (!request.setPredicateFormat(predicate, arguments, &error)) {
        logMessage("fetchRecord: predicate ignored: %@", error);
    }
    std::optional<std::vector<ManagedObject*>> objects = context.executeFetchRequest(request);
    return objects && !objects->empty() ? objects->front() : nullptr;
}

std::vector<ManagedObject*> BrasslineQuery::objects() const {
    std::vector<ManagedObject*> result;
    result.reserve(m_ids.size());
    for (const ObjectID& id : m_ids) {
        if (ManagedObject* object = resolve(m_scope, id)) {
            result.push_back(object);
        }
    }
    return result;
}

BrasslineQuery BrasslineQuery::filter(std::string_view predicate) const {
    std::string error;
    std::optional<Predicate> parsed = Predicate::parse(predicate, {}, &error);
    if (!parsed) {
        logMessage("filter: %@", error);
        return BrasslineQuery(m_scope, {}, m_editable);
    }
    std::vector<ManagedObject*> kept;
    for (ManagedObject* object : objects()) {
        if (parsed->evaluate(Value(static_cast<Object*>(object)))) {
            kept.push_back(object);
        }
    }
    return BrasslineQuery(m_scope, kept, m_editable);
}

BrasslineQuery BrasslineQuery::sort(std::string_view key, bool ascending) const {
    std::vector<ManagedObject*> sorted = objects();
    SortDescriptor descriptor;
    descriptor.key = std::string(key);
    descriptor.ascending = ascending;
    const SortComparator comparator({descriptor});
    std::stable_sort(sorted.begin(), sorted.end(),
                     [&comparator](ManagedObject* a, ManagedObject* b) { return comparator(a, b); });
    return BrasslineQuery(m_scope, sorted, m_editable);
}

Value BrasslineQuery::valueForKeyPath(std::string_view keyPath) const {
    Value::Array values;
    for (ManagedObject* object : objects()) {
        values.push_back(object->valueForKeyPath(keyPath));
    }
    return Value(std::move(values));
}

std::vector<BrasslineRecord> BrasslineQuery::records() const {
    std::vector<BrasslineRecord> result;
    for (ManagedObject* object : objects()) {
        result.emplace_back(m_scope, *object, m_editable);
    }
    return result;
}

std::string BrasslineQuery::description() const {
    return "BrasslineQuery (" + std::to_string(m_ids.size()) + (m_editable ? " editable)" : ")");
}

const std::vector<std::string>& scriptablePropertyNames(const EntityDescription& entity) {
    static std::mutex mutex;
    static std::map<const EntityDescription*, std::vector<std::string>> cache;
    std::lock_guard lock(mutex);
    auto found = cache.find(&entity);
    if (found != cache.end()) {
        return found->second;
    }
    std::vector<std::string> names = entity.attributeNames();
    for (std::string& name : entity.relationshipNames()) {
        names.push_back(std::move(name));
    }
    for (std::string& name : entity.derivedPropertyNames()) {
        if (std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(std::move(name));
        }
    }
    auto taken = [](const std::string& name) {
        return std::find(kReadOperations.begin(), kReadOperations.end(), name) != kReadOperations.end() ||
               std::find(kWriteOperations.begin(), kWriteOperations.end(), name) != kWriteOperations.end();
    };
    std::erase_if(names, taken);
    return cache.emplace(&entity, std::move(names)).first->second;
}

const std::vector<std::string>& recordOperationNames(bool editable) {
    static const std::vector<std::string> all = [] {
        std::vector<std::string> names = kReadOperations;
        names.insert(names.end(), kWriteOperations.begin(), kWriteOperations.end());
        return names;
    }();
    return editable ? all : kReadOperations;
}

}  // namespace brassline
