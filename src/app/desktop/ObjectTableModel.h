#pragma once

#include <QAbstractTableModel>
#include <QColor>
#include <QStyledItemDelegate>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "model/SortDescriptor.h"

namespace brassline {
class ManagedObject;
class ManagedObjectContext;
class BLSendable;
}  // namespace brassline

namespace brassline::desktop {

// The state of a document as a list shows it: the model's answer turned into a word and a
// colour (draft, open, due, overdue, paid, settled, canceled, credit note).
struct StatusBadge {
    QString word;
    QColor color;
};
StatusBadge statusBadge(BLSendable& sendable);

// One column of a list: its title, the key path it sorts by (empty: not sortable), how
// it is shown, and its text for an object.
struct ListColumn {
    enum class Kind { Text, Amount, Date, Status };
    QString title;
    std::string sortKey;
    Kind kind = Kind::Text;
    std::function<QString(ManagedObject&)> text;
    int width = 0;  // Pixels; 0 stretches.
};

// What a list shows: the objects of an entity that match a base predicate, the key paths
// a search looks through, the columns and the first order.
struct ListDefinition {
    std::string entity;
    std::string predicate;
    std::vector<std::string> searchKeys;
    std::vector<ListColumn> columns;
    int sortColumn = 0;
    bool ascending = true;
};

// A table over a fetch: sorting and searching are fetch requests (sort descriptors and a
// predicate of every word typed), so lists sort and match as the model's own fetches do.
// Rows hold object pointers until the next reload; the owner reloads after each change.
class ObjectTableModel : public QAbstractTableModel {
    Q_OBJECT
public:
    ObjectTableModel(ManagedObjectContext& context, ListDefinition definition, QObject* parent = nullptr);
    ~ObjectTableModel() override;

    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    void sort(int column, Qt::SortOrder order) override;

    const ListDefinition& definition() const { return m_definition; }
    void setSearchText(const QString& text);
    // Fetches again; a fetch the model refuses leaves the list empty and logged.
    void reload();
    ManagedObject* objectAt(int row) const;
    int rowOf(const ManagedObject* object) const;
    // The fetch's predicate text for the current search, as the model reads it.
    std::string predicateFormat() const;

private:
    ManagedObjectContext& m_context;
    ListDefinition m_definition;
    QString m_search;
    std::vector<ManagedObject*> m_objects;
};

// Paints a status column as a coloured badge with its word.
class StatusDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter* painter, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
};

// The objects of an entity in the order of one key path, as the editors' choices show
// them; empty (and logged) when the fetch fails.
std::vector<ManagedObject*> fetchSortedObjects(ManagedObjectContext& context, const std::string& entity,
                                               const std::string& key);
template <class T>
std::vector<T*> fetchSorted(ManagedObjectContext& context, const std::string& entity, const std::string& key) {
    std::vector<T*> objects;
    for (ManagedObject* object : fetchSortedObjects(context, entity, key)) {
        objects.push_back(static_cast<T*>(object));
    }
    return objects;
}

// The roles a status cell answers besides its word.
inline constexpr int kStatusColorRole = Qt::UserRole + 1;

}  // namespace brassline::desktop
