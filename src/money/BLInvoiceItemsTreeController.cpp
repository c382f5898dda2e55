#include "money/BLInvoiceItemsTreeController.h"

#include <algorithm>
#include <cctype>
#include <map>
#include <sstream>

#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/SortDescriptor.h"
#include "model/UndoManager.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLGroup.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLSendable.h"
#include "money/ItemPasteboard.h"

namespace brassline {

namespace {

std::string trimmed(std::string_view text) {
    size_t begin = 0;
    size_t end = text.size();
    while (begin < end && std::isspace(static_cast<unsigned char>(text[begin]))) {
        ++begin;
    }
    while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) {
        --end;
    }
    return std::string(text.substr(begin, end - begin));
}

// "3. Travel" and "12 Hotel" name their item group without the number.
std::string stringByRemovingLeadingNumber(const std::string& text) {
    size_t index = 0;
    while (index < text.size() && (std::isdigit(static_cast<unsigned char>(text[index])) || text[index] == '.')) {
        ++index;
    }
    return index == 0 ? text : trimmed(std::string_view(text).substr(index));
}

size_t indexIn(const std::vector<BLContainer*>& children, const BLContainer* item) {
    auto found = std::find(children.begin(), children.end(), item);
    return static_cast<size_t>(found - children.begin());
}

std::string groupNameOf(BLItem* item) {
    if (item->isKindOfEntity("Cost")) {
        if (BLItemGroup* group = static_cast<BLCost*>(item)->itemGroup()) {
            return group->name().value_or("");
        }
    } else if (item->entityName() == "Group") {
        std::vector<BLCost*> lines = static_cast<BLGroup*>(item)->costs();
        if (!lines.empty() && lines.front()->itemGroup() != nullptr) {
            return lines.front()->itemGroup()->name().value_or("");
        }
    }
    return "";
}

// Entities that form one run for sorting: a group sorts among costs.
std::string sortRunName(const BLContainer* item) {
    return item->entityName() == "Group" ? std::string("Cost") : item->entityName();
}

void sortChildren(BLContainer& container, const SortDescriptor& descriptor) {
    std::vector<BLContainer*> children = container.childsArray();
    for (BLContainer* child : children) {
        if (BLItem::itemIsContainer(child)) {
            sortChildren(*child, descriptor);
        }
    }
    // Runs of like items sort among themselves; any change of entity starts a new run.
    std::vector<std::pair<int64_t, BLContainer*>> keyed;
    int64_t sortIndex = 0;
    for (size_t i = 0; i < children.size(); ++i) {
        if (i > 0 && sortRunName(children[i]) != sortRunName(children[i - 1])) {
            ++sortIndex;
        }
        keyed.emplace_back(sortIndex, children[i]);
    }
    std::stable_sort(keyed.begin(), keyed.end(), [&descriptor](const auto& a, const auto& b) {
        if (a.first != b.first) {
            return a.first < b.first;
        }
        return descriptor.compareValues(a.second->valueForKeyPath(descriptor.key),
                                        b.second->valueForKeyPath(descriptor.key)) < 0;
    });
    std::vector<BLContainer*> sorted;
    for (const auto& entry : keyed) {
        sorted.push_back(entry.second);
    }
    if (sorted != children) {
        container.setChildsArray(sorted);
    }
}

// One undoable step for the changes made while it lives; a context without an undo
// manager records nothing anyway.
class UndoStep {
public:
    explicit UndoStep(ManagedObjectContext* context) : m_undo(context != nullptr ? context->undoManager() : nullptr) {
        if (m_undo != nullptr) {
            m_undo->beginUndoGrouping();
        }
    }
    ~UndoStep() {
        if (m_undo != nullptr) {
            m_undo->endUndoGrouping();
        }
    }
    UndoStep(const UndoStep&) = delete;
    UndoStep& operator=(const UndoStep&) = delete;

private:
    UndoManager* m_undo;
};

bool hasAncestorIn(const BLItem* item, const std::vector<BLItem*>& items) {
    for (const BLContainer* up = item->parent(); up != nullptr; up = up->parent()) {
        if (std::find(items.begin(), items.end(), up) != items.end()) {
            return true;
        }
    }
    return false;
}

enum class CellKind { Number, Date, Text };

CellKind kindOf(const std::string& cell, Decimal* number, Date* date) {
    if (std::optional<Decimal> parsed = Decimal::parse(cell)) {
        *number = *parsed;
        return CellKind::Number;
    }
    if (std::optional<Date> parsed = Date::parseISO8601(cell)) {
        *date = *parsed;
        return CellKind::Date;
    }
    return CellKind::Text;
}

}  // namespace

bool BLInvoiceItemsTreeController::canEditItems() const {
    return !m_document.dateSent().has_value();
}

void BLInvoiceItemsTreeController::insertAt(BLItem* item, BLBase* parent, size_t index) {
    auto* container = static_cast<BLContainer*>(parent);
    item->setParent(container);
    std::vector<BLContainer*> children = container->childsArray();
    children.erase(std::find(children.begin(), children.end(), item));
    index = std::min(index, children.size());
    children.insert(children.begin() + static_cast<std::ptrdiff_t>(index), item);
    container->setChildsArray(children);
}

BLItem* BLInvoiceItemsTreeController::addItem(std::string_view entityName) {
    ManagedObjectContext* context = m_document.managedObjectContext();
    if (!canEditItems() || context == nullptr) {
        return nullptr;
    }
    const EntityDescription* entity = context->entityNamed(entityName);
    const EntityDescription* itemEntity = context->entityNamed("Item");
    if (entity == nullptr || itemEntity == nullptr || entity->isAbstract() || !entity->isKindOfEntity(*itemEntity)) {
        logMessage("Items: %@ is no item entity", std::string(entityName));
        return nullptr;
    }
    auto* item = static_cast<BLItem*>(context->insertNewObject(*entity));
    item->setup();
    addManagedObject(item, true);
    return item;
}

bool BLInvoiceItemsTreeController::addManagedObject(BLItem* item, bool editAfterInsert) {
    (void)editAfterInsert;
    if (item == nullptr || !canEditItems()) {
        return false;
    }
    std::vector<BLItem*> selected = m_selection;
    insertAtSelection(item);
    // Only an empty summary gathers the selection: a duplicated or pasted one brings its
    // own lines and would otherwise swallow whatever happens to be selected.
    if (item->entityName() == "SummaryCost" && item->childsArray().empty()) {
        std::vector<std::string> allowed = item->allowedChildren();
        for (BLItem* candidate : selected) {
            if (candidate != item &&
                std::find(allowed.begin(), allowed.end(), candidate->entityName()) != allowed.end()) {
                candidate->setParent(item);
            }
        }
    }
    item->resetCaches();
    m_selection = {item};
    return true;
}

void BLInvoiceItemsTreeController::insertAtSelection(BLItem* item) {
    const std::vector<BLItem*>& selected = m_selection;
    if (selected.empty()) {
        insertAt(item, &m_document, m_document.childsArray().size());
    } else {
        std::vector<std::string> allowed = selected.front()->allowedChildren();
        if (std::find(allowed.begin(), allowed.end(), item->entityName()) != allowed.end()) {
            insertAt(item, selected.front(), selected.front()->childsArray().size());
        } else {
            BLItem* last = selected.back();
            BLContainer* parent = last->parent() != nullptr ? last->parent() : &m_document;
            insertAt(item, parent, indexIn(parent->childsArray(), last) + 1);
        }
    }
}

BLItem* BLInvoiceItemsTreeController::groupSelection() {
    if (m_selection.empty() || !canEditItems()) {
        return nullptr;
    }
    std::vector<BLItem*> members = m_selection;
    ManagedObjectContext* context = m_document.managedObjectContext();
    auto* group = static_cast<BLGroup*>(context->insertNewObjectForEntityForName("Group"));
    group->setup();
    BLContainer* parent = members.front()->parent() != nullptr ? members.front()->parent() : &m_document;
    insertAt(group, parent, indexIn(parent->childsArray(), members.front()));
    std::vector<std::string> names;
    for (BLItem* member : members) {
        member->setParent(group);
        std::string name = member->name().value_or("");
        if (!name.empty() && std::find(names.begin(), names.end(), name) == names.end()) {
            names.push_back(name);
        }
    }
    std::string joined;
    for (size_t i = 0; i < names.size(); ++i) {
        joined += (i == 0 ? "" : ", ") + names[i];
    }
    group->setName(joined);
    group->resetCaches();
    m_selection = {group};
    return group;
}

void BLInvoiceItemsTreeController::insertTitlesAndSubtotals() {
    if (!canEditItems()) {
        return;
    }
    ManagedObjectContext* context = m_document.managedObjectContext();
    std::vector<BLItem*> items;
    for (BLItem* item : itemChildren(m_document)) {
        if (item->entityName() == "Title" || item->entityName() == "SubTotal") {
            context->deleteObject(item);
        } else {
            items.push_back(item);
        }
    }
    std::stable_sort(items.begin(), items.end(), [](BLItem* a, BLItem* b) { return groupNameOf(a) < groupNameOf(b); });
    std::vector<BLContainer*> ordered;
    for (size_t i = 0; i < items.size(); ++i) {
        std::string name = groupNameOf(items[i]);
        std::string label = stringByRemovingLeadingNumber(name);
        if (i == 0 || groupNameOf(items[i - 1]) != name) {
            auto* title = static_cast<BLItem*>(context->insertNewObjectForEntityForName("Title"));
            title->setName(label);
            title->setParent(&m_document);
            ordered.push_back(title);
        }
        ordered.push_back(items[i]);
        if (i + 1 == items.size() || groupNameOf(items[i + 1]) != name) {
            auto* subtotal = static_cast<BLItem*>(context->insertNewObjectForEntityForName("SubTotal"));
            subtotal->setName(label);
            subtotal->setParent(&m_document);
            ordered.push_back(subtotal);
        }
    }
    m_document.setChildsArray(ordered);
    m_document.resetCaches();
}

void BLInvoiceItemsTreeController::sortItems(std::string_view key, bool ascending) {
    if (!canEditItems()) {
        return;
    }
    SortDescriptor descriptor;
    descriptor.key = std::string(key);
    descriptor.ascending = ascending;
    sortChildren(m_document, descriptor);
}

std::vector<BLItem*> BLInvoiceItemsTreeController::insertClonedObjectsAtSelection(const std::vector<BLBase*>& objects) {
    std::vector<BLItem*> inserted;
    if (!canEditItems()) {
        return inserted;
    }
    for (BLBase* object : objects) {
        BLBase* copy = object->cloneWithEntityReplacements({{"CatalogItem", "Cost"}}, {"parent", "dateCreation"});
        if (copy == nullptr || !copy->isKindOfEntity("Item")) {
            continue;
        }
        auto* item = static_cast<BLItem*>(copy);
        addManagedObject(item, false);
        inserted.push_back(item);
    }
    if (!inserted.empty()) {
        m_selection = inserted;
    }
    return inserted;
}

bool BLInvoiceItemsTreeController::addEAN(const std::string& ean, bool editAfterInsert) {
    if (ean.empty() || !canEditItems()) {
        return false;
    }
    for (BLItem* item : itemChildren(m_document)) {
        if (item->entityName() == "Cost" && static_cast<BLCost*>(item)->ean().value_or("") == ean) {
            static_cast<BLCost*>(item)->incrementQuantity();
            return true;
        }
    }
    FetchRequest request("CatalogItem");
    std::string error;
    if (!request.setPredicateFormat("ean LIKE %@", {Value(ean)}, &error)) {
        logMessage("Items: EAN lookup failed: %@", error);
        return false;
    }
    std::optional<std::vector<ManagedObject*>> found = m_document.managedObjectContext()->executeFetchRequest(request);
    if (!found || found->empty()) {
        return false;
    }
    std::vector<BLItem*> inserted = insertClonedObjectsAtSelection({static_cast<BLBase*>(found->front())});
    (void)editAfterInsert;
    return !inserted.empty();
}

size_t BLInvoiceItemsTreeController::pasteText(const std::string& text) {
    if (!canEditItems() || text.find('\t') == std::string::npos) {
        return 0;
    }
    std::vector<std::string> rows;
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        if (!trimmed(line).empty()) {
            rows.push_back(line);
        }
    }
    if (rows.size() > kMaximumPastedRows) {
        logMessage("Items: %@ rows pasted, at most %@ are taken", static_cast<int64_t>(rows.size()),
                   static_cast<int64_t>(kMaximumPastedRows));
        return 0;
    }
    ManagedObjectContext* context = m_document.managedObjectContext();
    size_t made = 0;
    for (const std::string& row : rows) {
        std::vector<std::string> strings;
        std::vector<Decimal> numbers;
        std::vector<Date> dates;
        std::istringstream cells(row);
        for (std::string cell; std::getline(cells, cell, '\t');) {
            cell = trimmed(cell);
            if (cell.empty()) {
                continue;
            }
            Decimal number;
            Date date;
            switch (kindOf(cell, &number, &date)) {
                case CellKind::Number:
                    numbers.push_back(number);
                    break;
                case CellKind::Date:
                    dates.push_back(date);
                    break;
                case CellKind::Text:
                    strings.push_back(cell);
                    break;
            }
        }
        auto* cost = static_cast<BLCost*>(context->insertNewObjectForEntityForName("Cost"));
        cost->setup();
        size_t first = 0;
        if (strings.size() >= 3) {
            cost->setUnit(strings[0]);
            first = 1;
        }
        if (strings.size() > first) {
            cost->setName(strings[first]);
        }
        if (strings.size() > first + 1) {
            cost->setNotes(strings[first + 1]);
        }
        if (numbers.size() == 1) {
            cost->setUnitPrice(numbers[0]);
        } else if (numbers.size() >= 2) {
            cost->setQuantity(numbers[0]);
            cost->setUnitPrice(numbers[1]);
        }
        // Only the first date has a home on a line; an end date has no stored field here.
        if (!dates.empty()) {
            cost->setDateCreation(dates[0]);
        }
        addManagedObject(cost, false);
        ++made;
    }
    return made;
}

void BLInvoiceItemsTreeController::copySelection(ItemPasteboard& pasteboard) const {
    ManagedObjectContext* context = m_document.managedObjectContext();
    if (m_selection.empty() || context == nullptr) {
        return;
    }
    Value::Array uris;
    for (BLItem* item : m_selection) {
        if (!hasAncestorIn(item, m_selection)) {
            uris.emplace_back(item->URIString());
        }
    }
    Value::Dictionary record;
    record["storeIdentifier"] = Value(context->storeIdentifier());
    record["uris"] = Value(std::move(uris));
    pasteboard.clear();
    pasteboard.setValue(ItemPasteboard::kItemIdsType, Value(std::move(record)));
}

size_t BLInvoiceItemsTreeController::paste(const ItemPasteboard& pasteboard) {
    ManagedObjectContext* context = m_document.managedObjectContext();
    if (!canEditItems() || context == nullptr) {
        return 0;
    }
    std::vector<BLBase*> items;
    for (ManagedObject* object : context->objectsForURIStrings(pasteboard.itemURIsMatching(*context))) {
        auto* item = dynamic_cast<BLBase*>(object);
        if (item != nullptr && !item->isDeleted() && item->isKindOfEntity("Item")) {
            items.push_back(item);
        }
    }
    if (!items.empty()) {
        UndoStep step(context);
        size_t made = insertClonedObjectsAtSelection(items).size();
        m_document.resetCaches();
        return made;
    }
    const Value* text = pasteboard.value(ItemPasteboard::kTextType);
    if (text != nullptr && text->string() != nullptr) {
        UndoStep step(context);
        return pasteText(*text->string());
    }
    return 0;
}

bool BLInvoiceItemsTreeController::validateDrop(const std::vector<BLBase*>& dragged, const BLItem* target) const {
    if (!canEditItems() || dragged.empty()) {
        return false;
    }
    for (const BLBase* object : dragged) {
        // Objects of another document's context would have to be copied, not moved.
        if (object == nullptr || object->managedObjectContext() != m_document.managedObjectContext()) {
            return false;
        }
    }
    if (target == nullptr) {
        return true;
    }
    if (target->entityName() == "SummaryCost") {
        static const std::vector<std::string> allowed = {"CatalogItem", "Cost", "Note", "InternalNote", "DynamicCost"};
        return std::all_of(dragged.begin(), dragged.end(), [](const BLBase* object) {
            return std::find(allowed.begin(), allowed.end(), object->entityName()) != allowed.end();
        });
    }
    if (target->entityName() != "Group") {
        return false;
    }
    const std::string& kind = dragged.front()->entityName();
    if (kind != "Cost" && kind != "CatalogItem") {
        return false;
    }
    std::vector<const BLItemGroup*> groups;
    auto note = [&groups](const BLItemGroup* group) {
        if (std::find(groups.begin(), groups.end(), group) == groups.end()) {
            groups.push_back(group);
        }
    };
    for (const BLBase* object : dragged) {
        if (object->entityName() != kind) {
            return false;
        }
        note(static_cast<const BLCost*>(object)->itemGroup());
    }
    if (groups.size() > 1) {
        return false;
    }
    // The group is one line on one tax rule: what joins it must share its lines' item group.
    for (BLContainer* child : target->childsArray()) {
        if (child->isKindOfEntity("Cost") && static_cast<BLCost*>(child)->itemGroup() != groups.front()) {
            return false;
        }
    }
    return true;
}

void BLInvoiceItemsTreeController::remove() {
    if (!canEditItems()) {
        return;
    }
    ManagedObjectContext* context = m_document.managedObjectContext();
    {
        UndoStep step(context);
        for (BLItem* item : m_selection) {
            context->deleteObject(item);
        }
        m_selection.clear();
        m_document.resetCaches();
    }
    context->processPendingChanges();
}

}  // namespace brassline
