#include "app/desktop/ObjectTableModel.h"

#include <QApplication>
#include <QPainter>
#include <QStringList>
#include <QStyle>

#include "app/desktop/DesktopText.h"
#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLSendable.h"

namespace brassline::desktop {

StatusBadge statusBadge(BLSendable& sendable) {
    // The list icon names the strongest state; an issued document without one is open.
    const std::string image = sendable.statusImage();
    if (image == "creditnote") {
        return {loc("credit note"), QColor(0x7b, 0x4f, 0xa8)};
    }
    // An estimate's closing marks read as its answer: accepted or declined.
    if (image == "completed") {
        return {loc(sendable.canAccept() ? "accepted" : "settled"), QColor(0x2e, 0x8b, 0x57)};
    }
    if (image == "cancelled") {
        return {loc(sendable.canAccept() ? "declined" : "canceled"), QColor(0x80, 0x80, 0x80)};
    }
    if (image == "paid") {
        return {loc("paid"), QColor(0x2e, 0x8b, 0x57)};
    }
    if (image == "overdue") {
        return {loc("overdue"), QColor(0xc6, 0x28, 0x28)};
    }
    if (image == "due") {
        return {loc("due"), QColor(0xe0, 0x8a, 0x00)};
    }
    if (sendable.isDraft()) {
        return {loc("draft"), QColor(0x9e, 0x9e, 0x9e)};
    }
    const int16_t mark = sendable.state();
    if (mark == 1) {
        return {loc(sendable.canAccept() ? "accepted" : "settled"), QColor(0x2e, 0x8b, 0x57)};
    }
    if (mark == 2) {
        return {loc(sendable.canAccept() ? "declined" : "canceled"), QColor(0x80, 0x80, 0x80)};
    }
    return {loc("open"), QColor(0x1e, 0x6f, 0xc8)};
}

std::vector<ManagedObject*> fetchSortedObjects(ManagedObjectContext& context, const std::string& entity,
                                               const std::string& key) {
    FetchRequest request(entity);
    request.setSortDescriptors({SortDescriptor{key, true, StringComparison::LocalizedStandard}});
    std::string error;
    std::optional<std::vector<ManagedObject*>> found = context.executeFetchRequest(request, &error);
    if (!found) {
        logMessage("The choice of %@ can't be fetched: %@", entity, error);
        return {};
    }
    return std::move(*found);
}

ObjectTableModel::ObjectTableModel(ManagedObjectContext& context, ListDefinition definition, QObject* parent)
    : QAbstractTableModel(parent), m_context(context), m_definition(std::move(definition)) {
    reload();
}

ObjectTableModel::~ObjectTableModel() = default;

int ObjectTableModel::rowCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_objects.size());
}

int ObjectTableModel::columnCount(const QModelIndex& parent) const {
    return parent.isValid() ? 0 : static_cast<int>(m_definition.columns.size());
}

QVariant ObjectTableModel::data(const QModelIndex& index, int role) const {
    if (!index.isValid() || index.row() >= rowCount() || index.column() >= columnCount()) {
        return {};
    }
    const ListColumn& column = m_definition.columns[static_cast<size_t>(index.column())];
    ManagedObject* object = m_objects[static_cast<size_t>(index.row())];
    if (object->isDeleted()) {
        return {};
    }
    if (column.kind == ListColumn::Kind::Status && (role == Qt::DisplayRole || role == kStatusColorRole)) {
        auto* sendable = dynamic_cast<BLSendable*>(object);
        if (sendable == nullptr) {
            return {};
        }
        StatusBadge badge = statusBadge(*sendable);
        return role == Qt::DisplayRole ? QVariant(badge.word) : QVariant(badge.color);
    }
    switch (role) {
        case Qt::DisplayRole:
        case Qt::ToolTipRole:
            return column.text(*object);
        case Qt::TextAlignmentRole:
            return column.kind == ListColumn::Kind::Amount ? QVariant(Qt::AlignRight | Qt::AlignVCenter)
                                                           : QVariant(Qt::AlignLeft | Qt::AlignVCenter);
        default:
            return {};
    }
}

QVariant ObjectTableModel::headerData(int section, Qt::Orientation orientation, int role) const {
    if (orientation != Qt::Horizontal || section < 0 || section >= columnCount()) {
        return {};
    }
    const ListColumn& column = m_definition.columns[static_cast<size_t>(section)];
    if (role == Qt::DisplayRole) {
        return column.title;
    }
    if (role == Qt::TextAlignmentRole && column.kind == ListColumn::Kind::Amount) {
        return QVariant(Qt::AlignRight | Qt::AlignVCenter);
    }
    return {};
}

void ObjectTableModel::sort(int column, Qt::SortOrder order) {
    if (column < 0 || column >= columnCount() || m_definition.columns[static_cast<size_t>(column)].sortKey.empty()) {
        return;
    }
    m_definition.sortColumn = column;
    m_definition.ascending = order == Qt::AscendingOrder;
    reload();
}

void ObjectTableModel::setSearchText(const QString& text) {
    if (text == m_search) {
        return;
    }
    m_search = text;
    reload();
}

std::string ObjectTableModel::predicateFormat() const {
    // Every word typed must appear in one of the searched keys, case and accents ignored.
    QStringList terms;
    if (!m_definition.predicate.empty()) {
        terms << QStringLiteral("(%1)").arg(QString::fromStdString(m_definition.predicate));
    }
    const QStringList words = m_search.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (qsizetype word = 0; word < words.size() && !m_definition.searchKeys.empty(); ++word) {
        QStringList alternatives;
        for (const std::string& key : m_definition.searchKeys) {
            alternatives << QStringLiteral("%1 CONTAINS[cd] %@").arg(QString::fromStdString(key));
        }
        terms << QStringLiteral("(%1)").arg(alternatives.join(QStringLiteral(" OR ")));
    }
    return terms.join(QStringLiteral(" AND ")).toStdString();
}

void ObjectTableModel::reload() {
    FetchRequest request(m_definition.entity);
    std::vector<Value> arguments;
    for (const QString& word : m_search.split(QLatin1Char(' '), Qt::SkipEmptyParts)) {
        for (size_t key = 0; key < m_definition.searchKeys.size(); ++key) {
            arguments.emplace_back(word.toStdString());
        }
    }
    std::string format = predicateFormat();
    std::string error;
    bool ok = format.empty() || request.setPredicateFormat(format, arguments, &error);
    if (static_cast<size_t>(m_definition.sortColumn) < m_definition.columns.size()) {
        const ListColumn& column = m_definition.columns[static_cast<size_t>(m_definition.sortColumn)];
        if (!column.sortKey.empty()) {
            request.setSortDescriptors(
                {SortDescriptor{column.sortKey, m_definition.ascending, StringComparison::LocalizedStandard}});
        }
    }
    beginResetModel();
    m_objects.clear();
    if (ok) {
        if (auto found = m_context.executeFetchRequest(request, &error)) {
            m_objects = std::move(*found);
        } else {
            logMessage("List of %@: the fetch failed: %@", m_definition.entity, error);
        }
    } else {
        logMessage("List of %@: the search \"%@\" does not read: %@", m_definition.entity, format, error);
    }
    endResetModel();
}

ManagedObject* ObjectTableModel::objectAt(int row) const {
    return row >= 0 && row < rowCount() ? m_objects[static_cast<size_t>(row)] : nullptr;
}

int ObjectTableModel::rowOf(const ManagedObject* object) const {
    for (size_t row = 0; row < m_objects.size(); ++row) {
        if (m_objects[row] == object) {
            return static_cast<int>(row);
        }
    }
    return -1;
}

void StatusDelegate::paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const {
    // The cell's background and selection as the style draws them, without the word.
    QStyleOptionViewItem plain = option;
    initStyleOption(&plain, index);
    plain.text.clear();
    const QStyle* style = plain.widget != nullptr ? plain.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &plain, painter, plain.widget);
    const QString word = index.data(Qt::DisplayRole).toString();
    const QColor color = index.data(kStatusColorRole).value<QColor>();
    if (word.isEmpty()) {
        return;
    }
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    QFont font = option.font;
    font.setPointSizeF(font.pointSizeF() * 0.9);
    font.setBold(true);
    painter->setFont(font);
    const QFontMetrics metrics(font);
    const int width = metrics.horizontalAdvance(word) + 16;
    const int height = metrics.height() + 4;
    QRect badge(option.rect.left() + 6, option.rect.center().y() - height / 2, width, height);
    QColor fill = color;
    fill.setAlpha(40);
    if (option.state & QStyle::State_Selected) {
        fill = QColor(255, 255, 255, 230);  // The badge stays legible on the selection colour.
    }
    painter->setPen(Qt::NoPen);
    painter->setBrush(fill);
    painter->drawRoundedRect(badge, height / 2.0, height / 2.0);
    painter->setPen(color.darker(115));
    painter->drawText(badge, Qt::AlignCenter, word);
    painter->restore();
}

}  // namespace brassline::desktop
