#pragma once

#include <QAbstractItemModel>
#include <QStyledItemDelegate>
#include <vector>

namespace brassline {
class BLContainer;
class BLInvoiceItemsTreeController;
class BLItem;
class BLSendable;
class BLTaxGroup;
}  // namespace brassline

namespace brassline::desktop {

class DocumentSession;

// The item tree of one document as rows and columns. Edits call the items' setters: a
// finished edit is one undo step; typing into a number field changes the line at every
// key inside one step of its own, so the totals follow as the person types. Moves by drag
// and drop go through the tree controller's drop rule. Reset after each outside change.
class ItemTreeModel : public QAbstractItemModel {
    Q_OBJECT
public:
    enum Column { Position, Name, Quantity, Unit, Price, Discount, Tax, Total, ColumnCount };
    static constexpr const char* kMimeType = "application/x-brassline-items";

    ItemTreeModel(DocumentSession& session, BLSendable& document, BLInvoiceItemsTreeController& controller,
                  QObject* parent = nullptr);
    ~ItemTreeModel() override;

    QModelIndex index(int row, int column, const QModelIndex& parent = {}) const override;
    QModelIndex parent(const QModelIndex& child) const override;
    int rowCount(const QModelIndex& parent = {}) const override;
    int columnCount(const QModelIndex& parent = {}) const override;
    QVariant data(const QModelIndex& index, int role) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role) const override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role) override;

    Qt::DropActions supportedDropActions() const override;
    QStringList mimeTypes() const override;
    QMimeData* mimeData(const QModelIndexList& indexes) const override;
    bool canDropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                         const QModelIndex& parent) const override;
    bool dropMimeData(const QMimeData* data, Qt::DropAction action, int row, int column,
                      const QModelIndex& parent) override;

    BLItem* itemAt(const QModelIndex& index) const;
    QModelIndex indexOf(const BLItem* item, int column = Name) const;
    // A value typed but not yet confirmed: applied at once inside the typing step.
    void applyTyping(const QModelIndex& index, const QString& text);
    // The tax groups a line may choose, in the order of the choice.
    std::vector<BLTaxGroup*> taxGroups() const;
    void refresh();

Q_SIGNALS:
    // A line's amounts changed: totals and preview follow.
    void amountsChanged();

private:
    BLContainer* containerAt(const QModelIndex& index) const;
    bool applyValue(BLItem& item, int column, const QVariant& value);
    std::vector<BLItem*> draggedItems(const QMimeData* data) const;
    // Every row's values may have moved (positions, sums): the views repaint them.
    void touchAll(const QModelIndex& parent);
    void touchColumn(const QModelIndex& parent, int column);

    DocumentSession& m_session;
    BLSendable& m_document;
    BLInvoiceItemsTreeController& m_controller;
};

// Editors of the item tree: a text field that reports each key for number columns, a
// choice of tax groups for the tax column.
class ItemDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit ItemDelegate(ItemTreeModel& model, QObject* parent = nullptr);
    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    void setEditorData(QWidget* editor, const QModelIndex& index) const override;
    void setModelData(QWidget* editor, QAbstractItemModel* model, const QModelIndex& index) const override;

private:
    ItemTreeModel& m_model;
};

}  // namespace brassline::desktop
