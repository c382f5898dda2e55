#include "app/desktop/ItemTreeModel.h"

#include <QComboBox>
#include <QFont>
#include <QLineEdit>
#include <QMimeData>
#include <algorithm>

#include "app/desktop/DesktopText.h"
#include "app/desktop/DocumentSession.h"
#include "app/desktop/ObjectTableModel.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"
#include "money/BLInvoiceItemsTreeController.h"

namespace brassline::desktop {

namespace {

bool isNumberColumn(int column) {
    return column == ItemTreeModel::Quantity || column == ItemTreeModel::Price || column == ItemTreeModel::Discount;
}

QString taxGroupLabel(const BLTaxGroup* group) {
    if (group == nullptr) {
        return {};
    }
    QString name = qs(group->name());
    // The set-up names a group by its rate: "19" reads better as "19 %".
    return parseNumber(name) ? name + QStringLiteral(" %") : name;
}

QString columnTitle(int column) {
    switch (column) {
        case ItemTreeModel::Position:
            return loc("Pos.");
        case ItemTreeModel::Name:
            return loc("Description");
        case ItemTreeModel::Quantity:
            return loc("Quantity");
        case ItemTreeModel::Unit:
            return loc("Unit");
        case ItemTreeModel::Price:
            return loc("Price");
        case ItemTreeModel::Discount:
            return loc("Discount %");
        case ItemTreeModel::Tax:
            return loc("Tax");
        case ItemTreeModel::Total:
            return loc("Total");
        default:
            return {};
    }
}

QString itemKindName(const BLItem& item) {
    const std::string entity = item.entityName();
    if (entity == "PageBreak") {
        return loc("Page break");
    }
    if (entity == "SubTotal") {
        return loc("Subtotal");
    }
    return {};
}

}  // namespace

ItemTreeModel::ItemTreeModel(DocumentSession& session, BLSendable& document, BLInvoiceItemsTreeController& controller,
                             QObject* parent)
    : QAbstractItemModel(parent), m_session(session), m_document(document), m_controller(controller) {}

ItemTreeModel::~ItemTreeModel() = default;

BLContainer* ItemTreeModel::containerAt(const QModelIndex& index) const {
    return index.isValid() ? static_cast<BLContainer*>(itemAt(index)) : static_cast<BLContainer*>(&m_document);
}

BLItem* ItemTreeModel::itemAt(const QModelIndex& index) const {
    return index.isValid() ? static_cast<BLItem*>(index.internalPointer()) : nullptr;
}

QModelIndex ItemTreeModel::index(int row, int column, const QModelIndex& parent) const {
    if (row < 0 || column < 0 || column >= ColumnCount || (parent.isValid() && parent.column() != 0)) {
        return {};
    }
    BLContainer* container = containerAt(parent);
    if (container == nullptr || static_cast<size_t>(row) >= container->childs().size()) {
        return {};
    }
    return createIndex(row, column, static_cast<BLItem*>(container->childs()[static_cast<size_t>(row)]));
}

QModelIndex ItemTreeModel::parent(const QModelIndex& child) const {
    BLItem* item = itemAt(child);
    if (item == nullptr) {
        return {};
    }
    BLContainer* container = item->parent();
    if (container == nullptr || container == &m_document) {
        return {};
    }
    return indexOf(static_cast<BLItem*>(container), Position);
}

QModelIndex ItemTreeModel::indexOf(const BLItem* item, int column) const {
    if (item == nullptr || item->parent() == nullptr) {
        return {};
    }
    const auto& siblings = item->parent()->childs().objects();
    auto found = std::find(siblings.begin(), siblings.end(), item);
    if (found == siblings.end()) {
        return {};
    }
    return createIndex(static_cast<int>(found - siblings.begin()), column, const_cast<BLItem*>(item));
}

int ItemTreeModel::rowCount(const QModelIndex& parent) const {
    if (parent.isValid() && parent.column() != 0) {
        return 0;
    }
    BLContainer* container = containerAt(parent);
    if (parent.isValid() && static_cast<BLItem*>(container)->isLeaf()) {
        return 0;
    }
    return container != nullptr ? static_cast<int>(container->childs().size()) : 0;
}

int ItemTreeModel::columnCount(const QModelIndex&) const {
    return ColumnCount;
}

QVariant ItemTreeModel::data(const QModelIndex& index, int role) const {
    BLItem* item = itemAt(index);
    if (item == nullptr || item->isDeleted()) {
        return {};
    }
    auto* cost = dynamic_cast<BLCost*>(item);
    const bool title = BLItem::itemIsTitle(item);
    if (role == Qt::FontRole && (title || BLItem::itemIsContainer(item))) {
        QFont font;
        font.setBold(true);
        return font;
    }
    if (role == Qt::TextAlignmentRole) {
        return index.column() >= Quantity && index.column() != Unit && index.column() != Tax
                   ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                   : QVariant(Qt::AlignLeft | Qt::AlignVCenter);
    }
    if (role != Qt::DisplayRole && role != Qt::EditRole) {
        return {};
    }
    const bool edit = role == Qt::EditRole;
    switch (index.column()) {
        case Position:
            return qs(item->fullIndex());
        case Name: {
            QString kind = itemKindName(*item);
            QString name = qs(item->name());
            if (!kind.isEmpty() && !edit) {
                return name.isEmpty() ? QStringLiteral("— %1 —").arg(kind) : QStringLiteral("%1: %2").arg(kind, name);
            }
            return name;
        }
        case Quantity:
            if (cost != nullptr) {
                return formatQuantity(cost->lineQuantity());
            }
            return {};
        case Unit:
            return cost != nullptr ? qs(cost->unit()) : QVariant();
        case Price:
            if (cost != nullptr) {
                return formatAmount(cost->lineUnitPrice());
            }
            return {};
        case Discount:
            if (cost != nullptr) {
                std::optional<Decimal> discount = cost->discount();
                return discount && !discount->isZero() ? formatQuantity(*discount) : QString();
            }
            return {};
        case Tax:
            if (cost != nullptr && cost->taxRule() != nullptr) {
                return taxGroupLabel(cost->taxRule()->taxGroup());
            }
            return {};
        case Total:
            if (title || item->entityName() == "PageBreak") {
                return {};
            }
            if (item->entityName() == "SubTotal") {
                return formatAmount(item->sum());
            }
            // The line's own amount, before the document's discount, as the person priced it.
            return formatAmount(item->cost());
        default:
            return {};
    }
}

QVariant ItemTreeModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal) {
        return {};
    }
    if (role == Qt::DisplayRole) {
        return columnTitle(section);
    }
    if (role == Qt::TextAlignmentRole && section >= Quantity && section != Unit && section != Tax) {
        return QVariant(Qt::AlignRight | Qt::AlignVCenter);
    }
    return {};
}

Qt::ItemFlags ItemTreeModel::flags(const QModelIndex& index) const {
    Qt::ItemFlags flags = QAbstractItemModel::flags(index);
    BLItem* item = itemAt(index);
    if (!m_controller.canEditItems()) {
        return flags;
    }
    flags |= Qt::ItemIsDropEnabled;
    if (item == nullptr) {
        return flags;
    }
    flags |= Qt::ItemIsDragEnabled;
    const bool cost = dynamic_cast<BLCost*>(item) != nullptr;
    const int column = index.column();
    const bool editable =
        column == Name ? item->entityName() != "PageBreak" : cost && column != Position && column != Total;
    if (editable) {
        flags |= Qt::ItemIsEditable;
    }
    return flags;
}

bool ItemTreeModel::applyValue(BLItem& item, int column, const QVariant& value) {
    auto* cost = dynamic_cast<BLCost*>(&item);
    const QString text = value.toString();
    switch (column) {
        case Name:
            item.setName(optionalText(text));
            return true;
        case Unit:
            if (cost == nullptr) {
                return false;
            }
            cost->setUnit(optionalText(text));
            return true;
        case Quantity:
        case Price:
        case Discount: {
            if (cost == nullptr) {
                return false;
            }
            std::optional<Decimal> number = parseNumber(text);
            if (!number && !text.trimmed().isEmpty()) {
                return false;  // Half a number: the line keeps its value until the text reads.
            }
            if (column == Quantity) {
                cost->setQuantity(number);
            } else if (column == Price) {
                cost->setUnitPrice(number);
            } else {
                cost->setDiscount(number);
            }
            return true;
        }
        case Tax: {
            if (cost == nullptr) {
                return false;
            }
            const std::vector<BLTaxGroup*> groups = taxGroups();
            const int chosen = value.toInt();
            if (chosen < 0 || static_cast<size_t>(chosen) >= groups.size()) {
                return false;
            }
            cost->taxRuleForTaxGroup(groups[static_cast<size_t>(chosen)]);
            return true;
        }
        default:
            return false;
    }
}

bool ItemTreeModel::setData(const QModelIndex& index, const QVariant& value, int role) {
    BLItem* item = itemAt(index);
    if (item == nullptr || role != Qt::EditRole || !(flags(index) & Qt::ItemIsEditable)) {
        return false;
    }
    bool applied = false;
    if (m_session.isInLongStep()) {
        applied = applyValue(*item, index.column(), value);
        m_session.noteChange();
    } else {
        m_session.perform(loc("Change %1", columnTitle(index.column())),
                          [&] { applied = applyValue(*item, index.column(), value); });
    }
    if (applied) {
        touchAll({});
        Q_EMIT amountsChanged();
    }
    return applied;
}

void ItemTreeModel::applyTyping(const QModelIndex& index, const QString& text) {
    BLItem* item = itemAt(index);
    if (item == nullptr || !(flags(index) & Qt::ItemIsEditable)) {
        return;
    }
    m_session.beginLongStep(loc("Change %1", columnTitle(index.column())));
    if (applyValue(*item, index.column(), text)) {
        m_session.noteChange();
        // Only the amounts repaint: a reset would close the editor being typed into, and
        // a change reported for its own cell would write the formatted value back into it.
        touchColumn({}, Total);
        Q_EMIT amountsChanged();
    }
}

std::vector<BLTaxGroup*> ItemTreeModel::taxGroups() const {
    std::vector<BLTaxGroup*> groups = fetchSorted<BLTaxGroup>(*m_document.managedObjectContext(), "TaxGroup", "name");
    std::erase_if(groups, [](const BLTaxGroup* group) { return group->isArchived(); });
    return groups;
}

void ItemTreeModel::touchAll(const QModelIndex& parent) {
    const int rows = rowCount(parent);
    if (rows == 0) {
        return;
    }
    Q_EMIT dataChanged(index(0, 0, parent), index(rows - 1, ColumnCount - 1, parent), {Qt::DisplayRole});
    for (int row = 0; row < rows; ++row) {
        touchAll(index(row, 0, parent));
    }
}

void ItemTreeModel::touchColumn(const QModelIndex& parent, int column) {
    const int rows = rowCount(parent);
    if (rows == 0) {
        return;
    }
    Q_EMIT dataChanged(index(0, column, parent), index(rows - 1, column, parent), {Qt::DisplayRole});
    for (int row = 0; row < rows; ++row) {
        touchColumn(index(row, 0, parent), column);
    }
}

void ItemTreeModel::refresh() {
    beginResetModel();
    endResetModel();
}

Qt::DropActions ItemTreeModel::supportedDropActions() const {
    return Qt::MoveAction;
}

QStringList ItemTreeModel::mimeTypes() const {
    return {QString::fromLatin1(kMimeType)};
}

QMimeData* ItemTreeModel::mimeData(const QModelIndexList& indexes) const {
    // Items travel by their position in this model's process: the URIs of the objects.
    QStringList uris;
    for (const QModelIndex& index : indexes) {
        BLItem* item = itemAt(index);
        if (item != nullptr && index.column() == Position) {
            uris << qs(item->URIString());
        }
    }
    if (uris.isEmpty()) {
        for (const QModelIndex& index : indexes) {
            if (BLItem* item = itemAt(index); item != nullptr && !uris.contains(qs(item->URIString()))) {
                uris << qs(item->URIString());
            }
        }
    }
    auto* data = new QMimeData;
    data->setData(QString::fromLatin1(kMimeType), uris.join(QLatin1Char('\n')).toUtf8());
    return data;
}

std::vector<BLItem*> ItemTreeModel::draggedItems(const QMimeData* data) const {
    std::vector<BLItem*> items;
    if (data == nullptr || !data->hasFormat(QString::fromLatin1(kMimeType))) {
        return items;
    }
    ManagedObjectContext& context = *m_document.managedObjectContext();
    for (const QString& uri : QString::fromUtf8(data->data(QString::fromLatin1(kMimeType))).split(QLatin1Char('\n'))) {
        if (auto* item = dynamic_cast<BLItem*>(context.objectForURIString(uri.toStdString()))) {
            items.push_back(item);
        }
    }
    return items;
}

bool ItemTreeModel::canDropMimeData(const QMimeData* data, Qt::DropAction action, int, int,
                                    const QModelIndex& parent) const {
    if (action != Qt::MoveAction) {
        return false;
    }
    std::vector<BLItem*> items = draggedItems(data);
    if (items.empty()) {
        return false;
    }
    BLItem* target = itemAt(parent);
    for (BLItem* item : items) {
        // Nothing goes into itself or below itself.
        for (BLContainer* above = target; above != nullptr; above = above->parent()) {
            if (above == item) {
                return false;
            }
        }
    }
    std::vector<BLBase*> dragged(items.begin(), items.end());
    return m_controller.validateDrop(dragged, target);
}

bool ItemTreeModel::dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                                 const QModelIndex& parent) {
    if (!canDropMimeData(data, action, row, column, parent)) {
        return false;
    }
    std::vector<BLItem*> items = draggedItems(data);
    BLContainer* target = containerAt(parent);
    m_session.perform(loc("Move Items"), [&] {
        size_t position = row < 0 ? target->childs().size() : static_cast<size_t>(row);
        for (BLItem* item : items) {
            BLContainer* from = item->parent();
            if (from == target) {
                const auto& siblings = target->childs().objects();
                const size_t at =
                    static_cast<size_t>(std::find(siblings.begin(), siblings.end(), item) - siblings.begin());
                const size_t to = at < position ? position - 1 : position;
                target->moveChildsAtIndexToIndex(at, std::min(to, siblings.size() - 1));
                position = std::min(to, siblings.size() - 1) + 1;
            } else {
                if (from != nullptr) {
                    from->removeChildsObject(item);
                }
                target->insertObjectInChildsAtIndex(item, std::min(position, target->childs().size()));
                ++position;
            }
        }
    });
    refresh();
    Q_EMIT amountsChanged();
    // The view must not remove the dragged rows itself: the move is done here.
    return false;
}

ItemDelegate::ItemDelegate(ItemTreeModel& model, QObject* parent) : QStyledItemDelegate(parent), m_model(model) {}

QWidget* ItemDelegate::createEditor(QWidget* parent, const QStyleOptionViewItem& option,
                                    const QModelIndex& index) const {
    if (index.column() == ItemTreeModel::Tax) {
        auto* combo = new QComboBox(parent);
        for (BLTaxGroup* group : m_model.taxGroups()) {
            combo->addItem(taxGroupLabel(group));
        }
        return combo;
    }
    QWidget* editor = QStyledItemDelegate::createEditor(parent, option, index);
    if (auto* line = qobject_cast<QLineEdit*>(editor); line != nullptr && isNumberColumn(index.column())) {
        line->setAlignment(Qt::AlignRight);
        const QPersistentModelIndex target(index);
        connect(line, &QLineEdit::textEdited, this, [this, target](const QString& text) {
            if (target.isValid()) {
                m_model.applyTyping(target, text);
            }
        });
    }
    return editor;
}

void ItemDelegate::setEditorData(QWidget* editor, const QModelIndex& index) const {
    if (auto* combo = qobject_cast<QComboBox*>(editor)) {
        combo->setCurrentText(index.data(Qt::DisplayRole).toString());
        return;
    }
    QStyledItemDelegate::setEditorData(editor, index);
}

void ItemDelegate::setModelData(QWidget* editor, QAbstractItemModel* model, const QModelIndex& index) const {
    if (auto* combo = qobject_cast<QComboBox*>(editor)) {
        model->setData(index, combo->currentIndex(), Qt::EditRole);
        return;
    }
    QStyledItemDelegate::setModelData(editor, model, index);
}

}  // namespace brassline::desktop
