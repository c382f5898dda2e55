#include "model/entities/BLDocument.h"

#include <algorithm>

#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/Predicate.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLContact.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLCustomField.h"
#include "model/entities/BLCustomFieldSet.h"
#include "model/entities/BLCustomValue.h"
#include "model/entities/BLMetaValue.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLProfile.h"
#include "model/entities/BLProject.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTeamMember.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

// What "customFieldAccessor" answers: reading "customFieldAccessor.<name>" as a key path
// asks it for <name>.
class BLDocument::CustomFieldAccessor : public Object {
public:
    explicit CustomFieldAccessor(const BLDocument& document) : m_document(document) {}
    Value valueForKey(std::string_view key) const override { return m_document.valueForCustomField(key); }
    std::string_view className() const override { return "BLCustomFieldAccessor"; }

private:
    const BLDocument& m_document;
};

BLDocument::BLDocument() = default;
BLDocument::~BLDocument() = default;

namespace {

Value objectValue(const ManagedObject* object) {
    return Value(static_cast<Object*>(const_cast<ManagedObject*>(object)));
}

Value objectArray(const std::vector<BLDocument*>& objects) {
    Value::Array array;
    array.reserve(objects.size());
    for (BLDocument* object : objects) {
        array.push_back(objectValue(object));
    }
    return Value(std::move(array));
}

// The first document from `start` up the parent documents that is of `entityName`; nil
// when none is, or when the chain loops before one is found.
BLDocument* firstDocumentUp(const BLDocument* start, std::string_view entityName) {
    std::unordered_set<const BLDocument*> visited;
    for (const BLDocument* current = start; current != nullptr; current = current->parentDocument()) {
        if (!visited.insert(current).second) {
            return nullptr;
        }
        if (current->isKindOfEntity(entityName)) {
            return const_cast<BLDocument*>(current);
        }
    }
    return nullptr;
}

void collectDocuments(const BLDocument& document, std::string_view name, std::vector<BLDocument*>& result,
                      std::unordered_set<const BLDocument*>& visited) {
    if (!visited.insert(&document).second) {
        return;
    }
    if (document.entityName() == name) {
        result.push_back(const_cast<BLDocument*>(&document));
    }
    for (BLDocument* child : document.documents()) {
        collectDocuments(*child, name, result, visited);
    }
}

}  // namespace

void BLDocument::setupClass(EntityDescription& entity) {
    entity.registerDerivedProperty("client", [](const ManagedObject& object) -> Value {
        return objectValue(static_cast<const BLDocument&>(object).client());
    });
    entity.registerDerivedProperty(
        "project",
        [](const ManagedObject& object) -> Value {
            return objectValue(static_cast<const BLDocument&>(object).project());
        },
        [](ManagedObject& object, const Value& value) {
            auto& document = static_cast<BLDocument&>(object);
            // Text is the legacy project name of old files; an object is a new parent.
            if (value.string() != nullptr) {
                if (document.entity().attributeNamed("project") != nullptr) {
                    document.setPrimitiveValueForKey(value, "project");
                }
                return;
            }
            document.setProject(dynamic_cast<BLDocument*>(value.object()));
        });
    entity.registerDerivedProperty("topmostParentDocument", [](const ManagedObject& object) -> Value {
        return objectValue(static_cast<const BLDocument&>(object).topmostParentDocument());
    });
    entity.registerDerivedProperty("sender", [](const ManagedObject& object) -> Value {
        return objectValue(static_cast<const BLDocument&>(object).sender());
    });
    entity.registerDerivedProperty("customFieldPrefix", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLDocument&>(object).customFieldPrefix());
    });
    entity.registerDerivedProperty("countDocuments", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLDocument&>(object).countDocuments());
    });
    entity.registerDerivedProperty("sortDocuments", [](const ManagedObject& object) -> Value {
        return Value(static_cast<const BLDocument&>(object).sortDocuments());
    });
    entity.registerDerivedProperty("effectiveRate", [](const ManagedObject& object) -> Value {
        std::optional<Decimal> rate = static_cast<const BLDocument&>(object).effectiveRate();
        return rate ? Value(*rate) : Value();
    });
    entity.registerDerivedProperty("followUps", [](const ManagedObject& object) -> Value {
        return objectArray(static_cast<const BLDocument&>(object).followUps());
    });
    entity.registerDerivedProperty("allowedDocuments", [](const ManagedObject& object) -> Value {
        Value::Array names;
        for (const std::string& name : static_cast<const BLDocument&>(object).allowedDocuments()) {
            names.emplace_back(name);
        }
        return Value(std::move(names));
    });
    entity.registerDependentKeys("client", {"parentDocument"});
    entity.registerDependentKeys("project", {"parentDocument"});
}

// Walks up.

BLClient* BLDocument::client() const {
    return static_cast<BLClient*>(firstDocumentUp(this, "Client"));
}

BLProject* BLDocument::project() const {
    return static_cast<BLProject*>(firstDocumentUp(this, "Project"));
}

BLDocument* BLDocument::topmostParentDocument() const {
    std::unordered_set<const BLDocument*> visited;
    const BLDocument* current = this;
    while (current->parentDocument() != nullptr && visited.insert(current).second) {
        current = current->parentDocument();
    }
    return const_cast<BLDocument*>(current);
}

BLProfile* BLDocument::sender() const {
    ManagedObjectContext* context = managedObjectContext();
    return context != nullptr ? BLContainer::defaultItemForContext<BLProfile>(*context) : nullptr;
}

std::string BLDocument::customFieldPrefix() const {
    return kCustomFieldPrefix;
}

int64_t BLDocument::countDocuments() const {
    std::unordered_set<const BLDocument*> visited;
    return countDocuments(visited);
}

int64_t BLDocument::countDocuments(std::unordered_set<const BLDocument*>& visited) const {
    if (std::optional<Value> cached = holdfastCacheValueForKey(kDocumentCountCacheKey)) {
        return cached->toInt64();
    }
    if (!visited.insert(this).second) {
        return 0;
    }
    int64_t count = 0;
    for (BLDocument* child : documents()) {
        count += child->addToDocumentsCount() + child->countDocuments(visited);
    }
    const_cast<BLDocument*>(this)->setHoldfastCacheValue(Value(count), kDocumentCountCacheKey);
    return count;
}

std::optional<Decimal> BLDocument::effectiveRate() const {
    std::unordered_set<const BLDocument*> visited;
    for (const BLDocument* current = this; current != nullptr && visited.insert(current).second;
         current = current->parentDocument()) {
        if (std::optional<Decimal> own = current->rate()) {
            return own;
        }
    }
    return std::nullopt;
}

// Walks down.

std::vector<BLDocument*> BLDocument::collectDocumentsWithEntityName(std::string_view name) const {
    std::vector<BLDocument*> result;
    std::unordered_set<const BLDocument*> visited;
    collectDocuments(*this, name, result, visited);
    return result;
}

std::vector<BLDocument*> BLDocument::collectExternalFiles() const {
    std::vector<BLDocument*> result = collectDocumentsWithEntityName("ExternalFileGroup");
    const std::vector<BLDocument*> groups = result;
    for (BLDocument* file : collectDocumentsWithEntityName("ExternalFile")) {
        if (std::find(groups.begin(), groups.end(), file->parentDocument()) == groups.end()) {
            result.push_back(file);
        }
    }
    return result;
}

std::vector<BLDocument*> BLDocument::collectDrafts() const {
    std::vector<BLDocument*> result;
    for (const char* name : {"Invoice", "Estimate"}) {
        for (BLDocument* document : collectDocumentsWithEntityName(name)) {
            if (!static_cast<BLSendable*>(document)->dateSent()) {
                result.push_back(document);
            }
        }
    }
    return result;
}

std::vector<BLDocument*> BLDocument::followUps() const {
    std::vector<BLDocument*> result = collectDocumentsWithEntityName("FollowUp");
    std::stable_sort(result.begin(), result.end(), [](BLDocument* a, BLDocument* b) {
        std::optional<Date> left = static_cast<BLSendable*>(a)->dateSent();
        std::optional<Date> right = static_cast<BLSendable*>(b)->dateSent();
        if (left.has_value() != right.has_value()) {
            return left.has_value();  // Undated ones last.
        }
        return left.has_value() && *left > *right;
    });
    return result;
}

bool BLDocument::isParentOf(const BLDocument* document) const {
    if (document == nullptr) {
        return false;
    }
    std::unordered_set<const BLDocument*> visited;
    for (const BLDocument* current = document->parentDocument(); current != nullptr && visited.insert(current).second;
         current = current->parentDocument()) {
        if (current == this) {
            return true;
        }
    }
    return false;
}

bool BLDocument::isDescendantOf(const BLDocument* document) const {
    return document != nullptr && document->isParentOf(this);
}

bool BLDocument::hasParentDocumentOfClass(std::string_view className) const {
    std::unordered_set<const BLDocument*> visited{this};
    for (const BLDocument* current = parentDocument(); current != nullptr && visited.insert(current).second;
         current = current->parentDocument()) {
        if (current->className() == className) {
            return true;
        }
    }
    return false;
}

std::string BLDocument::translateString(std::string_view text) const {
    const BLLanguage* language = nullptr;
    if (const BLContact* person = contact()) {
        language = person->language();
    }
    if (language == nullptr) {
        if (const BLClient* owner = client()) {
            language = owner->language();
        }
    }
    const auto& translate = modelHooks().translateWithLanguage;
    if (language != nullptr && translate) {
        if (std::optional<std::string> translated = translate(*language, text)) {
            return *translated;
        }
    }
    return std::string(text);
}

bool BLDocument::allowsDocuments(const std::vector<BLDocument*>& candidates) const {
    const std::vector<std::string> allowed = allowedDocuments();
    for (const BLDocument* candidate : candidates) {
        if (candidate == nullptr ||
            std::find(allowed.begin(), allowed.end(), candidate->className()) == allowed.end()) {
            return false;
        }
    }
    return true;
}

BLDocument* BLDocument::allowedParentForDocument(BLDocument* candidate) const {
    std::unordered_set<const BLDocument*> visited;
    for (const BLDocument* current = this; current != nullptr && visited.insert(current).second;
         current = current->parentDocument()) {
        if (current->allowsDocuments({candidate})) {
            return const_cast<BLDocument*>(current);
        }
    }
    return nullptr;
}

// Moving in the tree.

void BLDocument::setParentDocument(brassline::BLDocument* value) {
    if (isSyncing()) {
        gen::BLDocument::setParentDocument(value);
        return;
    }
    if (value != nullptr && (value == this || isParentOf(value))) {
        return;
    }
    applyParentDocument(value);
}

void BLDocument::applyParentDocument(BLDocument* value) {
    BLDocument* oldParent = parentDocument();
    gen::BLDocument::setParentDocument(value);
    triggerChangeForKey("client");
    if (value == nullptr || isDeleted()) {
        if (contact() != nullptr) {
            gen::BLDocument::setContact(nullptr);
        }
        if (oldParent != nullptr) {
            oldParent->resetCaches();
        }
        return;
    }
    if (oldParent != nullptr) {
        oldParent->notifyChildsForKey("client");
    }
    value->notifyChildsForKey("client");
    validateContacts();
    if (oldParent != nullptr) {
        oldParent->resetCaches();
    }
    value->resetCaches();
}

void BLDocument::setClient(BLDocument* value) {
    setParentDocument(value);
    triggerChangeForKey("client");
}

void BLDocument::setProject(BLDocument* value) {
    setParentDocument(value);
}

void BLDocument::setContact(brassline::BLContact* value) {
    gen::BLDocument::setContact(value);
    if (value != nullptr && parentDocument() == nullptr) {
        auto* owner = dynamic_cast<BLDocument*>(value->parent());
        gen::BLDocument::setParentDocument(owner != nullptr ? owner : value);
    }
}

namespace {

void dropSelfChildren(BLDocument& document, std::unordered_set<const BLDocument*>& visited) {
    if (!visited.insert(&document).second) {
        return;
    }
    for (BLDocument* child : document.documents().toVector()) {
        if (child == &document) {
            document.removeDocumentsObject(child);
        } else {
            dropSelfChildren(*child, visited);
        }
    }
}

}  // namespace

void BLDocument::validateContacts() {
    // No document may be its own child, whatever made the link; the walk is guarded
    // because such a link is exactly what it looks for.
    std::unordered_set<const BLDocument*> visited;
    dropSelfChildren(*this, visited);
}

// Set-up and duplication.

void BLDocument::setup() {
    BLBase::setup();
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return;
    }
    if (currency() == nullptr) {
        setCurrency(BLContainer::defaultItemForContext<BLCurrency>(*context));
    }
    if (paymentType() == nullptr) {
        setPaymentType(BLContainer::defaultItemForContext<BLPaymentType>(*context));
    }
    if (teamMember() == nullptr) {
        setTeamMember(BLContainer::defaultItemForContext<BLTeamMember>(*context));
    }
}

std::vector<std::string> BLDocument::skippedPropertiesForDuplicate() const {
    bool keepLead = userDefaultIsOn(kKeepLeadOnConversionDefault);
    std::vector<std::string> keys = {"name", "completeMode", "dateCreation", "dateSent", "dateDue"};
    if (!keepLead) {
        keys.emplace_back("lead");
    }
    keys.emplace_back("documents");
    keys.emplace_back("parentDocument");
    return keys;
}

// Caches and notices.

void BLDocument::resetCaches() {
    std::unordered_set<const BLDocument*> visited;
    resetCachesGuarded(visited);
}

void BLDocument::resetCachesGuarded(std::unordered_set<const BLDocument*>& visited) {
    if (!visited.insert(this).second) {
        return;
    }
    if (modelHooks().resetCurrencyTransformer) {
        modelHooks().resetCurrencyTransformer(*this);
    }
    BLContainer::resetCaches();
    if (BLDocument* owner = parentDocument()) {
        owner->resetCachesGuarded(visited);
    }
    resetCachesDown();
}

namespace {

// Visits every document below `root` through `documents` once, even where the tree loops.
template <typename Visit>
void forEachDescendantDocument(const BLDocument& root, Visit visit) {
    std::vector<BLDocument*> pending(root.documents().begin(), root.documents().end());
    std::unordered_set<const BLDocument*> visited{&root};
    while (!pending.empty()) {
        BLDocument* document = pending.back();
        pending.pop_back();
        if (!visited.insert(document).second) {
            continue;
        }
        visit(*document);
        for (BLDocument* child : document->documents()) {
            pending.push_back(child);
        }
    }
}

}  // namespace

void BLDocument::resetCachesDown() {
    // Only the cached values below: the change notices are the owner's to send.
    forEachDescendantDocument(*this, [](BLDocument& document) { document.holdfastResetCacheValues(); });
}

void BLDocument::notifyParentsForKey(std::string_view key) {
    std::unordered_set<const BLContainer*> visited{this};
    for (BLDocument* current = parentDocument(); current != nullptr && visited.insert(current).second;
         current = current->parentDocument()) {
        current->triggerChangeForKey(key);
    }
    BLContainer::notifyParentsForKey(key);
}

void BLDocument::notifyChildsForKey(std::string_view key) {
    forEachDescendantDocument(*this, [key](BLDocument& document) { document.triggerChangeForKey(key); });
}

// Meta values.

namespace {

BLMetaValue* findMetaValue(const BLDocument& document, std::string_view key) {
    std::optional<Predicate> like = Predicate::parse("name LIKE %@", {Value(key)});
    if (!like) {
        return nullptr;
    }
    for (BLMetaValue* meta : document.metaValues()) {
        if (like->evaluate(Value(static_cast<Object*>(meta)))) {
            return meta;
        }
    }
    return nullptr;
}

}  // namespace

Value BLDocument::metaValueForKey(std::string_view key) const {
    BLMetaValue* meta = findMetaValue(*this, key);
    return meta != nullptr ? meta->payload() : Value();
}

void BLDocument::setMetaValue(const Value& value, std::string_view key) {
    setMetaValue(value, key, false);
}

void BLDocument::setMetaValue(const Value& value, std::string_view key, bool doNotClone) {
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return;
    }
    BLMetaValue* meta = findMetaValue(*this, key);
    if (value.isNull()) {
        if (meta != nullptr) {
            removeMetaValuesObject(meta);
            meta->deleteObject();
        }
        return;
    }
    if (meta == nullptr) {
        meta = BLMetaValue::insertInManagedObjectContext(*context);
        if (meta == nullptr) {
            return;
        }
        meta->setDoNotClone(doNotClone);
        meta->setup();
        addMetaValuesObject(meta);
    }
    meta->setName(std::string(key));
    meta->setPayload(value);
}

// Custom fields.

Value BLDocument::valueForCustomField(std::string_view key) const {
    for (BLCustomValue* value : customValues()) {
        BLCustomField* field = value->field();
        if (field != nullptr && field->name().value_or("") == key) {
            std::optional<std::string> text = value->name();
            return text ? Value(*text) : Value();
        }
    }
    return Value();
}

void BLDocument::setValueForCustomField(const Value& value, std::string_view key) {
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return;
    }
    std::optional<std::string> text = value.isNull() ? std::nullopt : std::optional<std::string>(value.toString());
    for (BLCustomValue* existing : customValues()) {
        BLCustomField* field = existing->field();
        if (field != nullptr && field->name().value_or("") == key) {
            existing->setName(text);
            return;
        }
    }
    std::string setUID = formatMessage(kCustomFieldSetUIDFormat, customFieldSetIdentifier());
    auto* set = static_cast<BLCustomFieldSet*>(context->objectWithUid(BLCustomFieldSet::entityDescription(), setUID));
    BLCustomField* field = nullptr;
    if (set != nullptr) {
        for (BLCustomField* candidate : set->fields()) {
            if (candidate->name().value_or("") == key) {
                field = candidate;
                break;
            }
        }
    }
    if (field == nullptr) {
        logMessage("No custom field %@ for %@", key, entityName());
        return;
    }
    BLCustomValue* created = BLCustomValue::insertInManagedObjectContext(*context);
    if (created == nullptr) {
        return;
    }
    created->setField(field);
    created->setDocument(this);
    created->setName(text);
}

Value BLDocument::valueForUndefinedKey(std::string_view key) const {
    const std::string_view accessor = kCustomFieldAccessorKey;
    if (key == accessor) {
        if (!m_customFieldAccessor) {
            m_customFieldAccessor = std::make_unique<CustomFieldAccessor>(*this);
        }
        return Value(static_cast<Object*>(m_customFieldAccessor.get()));
    }
    if (key.size() > accessor.size() && key.substr(0, accessor.size()) == accessor && key[accessor.size()] == '.') {
        return valueForCustomField(key.substr(accessor.size() + 1));
    }
    return gen::BLDocument::valueForUndefinedKey(key);
}

void BLDocument::setValueForUndefinedKey(const Value& value, std::string_view key) {
    const std::string_view accessor = kCustomFieldAccessorKey;
    if (key.size() > accessor.size() && key.substr(0, accessor.size()) == accessor && key[accessor.size()] == '.') {
        setValueForCustomField(value, key.substr(accessor.size() + 1));
        return;
    }
    gen::BLDocument::setValueForUndefinedKey(value, key);
}

}  // namespace brassline
