#pragma once

#include <QWidget>
#include <memory>

class QComboBox;
class QDateEdit;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QSpinBox;
class QTimer;
class QToolButton;
class QTreeView;

namespace brassline {
class BLInvoiceItemsTreeController;
class BLSendable;
}  // namespace brassline

namespace brassline::desktop {

class DocumentSession;
class ItemTreeModel;
class PagePreview;

// The editor of one estimate, invoice or credit note: client, dates, subject, texts, the
// item tree with its totals, and the page preview. Every field calls the document's
// setters as one step of the undo manager; an issued document shows its values locked.
class DocumentEditor : public QWidget {
    Q_OBJECT
public:
    DocumentEditor(DocumentSession& session, BLSendable& document, QWidget* parent = nullptr);
    ~DocumentEditor() override;

    BLSendable& document() { return m_document; }
    // Reads every value from the model again (after undo, issue, an outside change).
    void reload();
    // Inserts a new item of the entity ("Cost", "Group", "Title", "SubTotal", "Option",
    // "PageBreak") by the tree controller's selection rule and starts editing its name.
    void addItem(const char* entityName);
    void deleteSelectedItems();
    bool isLocked() const;

    // For tests and the benchmark: the parts a person looks at and types into.
    QTreeView* itemView() const { return m_itemView; }
    ItemTreeModel* itemModel() const { return m_itemModel; }
    QLabel* totalsLabel() const { return m_totals; }
    QLineEdit* subjectField() const { return m_subject; }
    QComboBox* clientField() const { return m_client; }
    QLineEdit* catalogField() const { return m_catalog; }
    PagePreview* preview() const { return m_preview; }
    // Recomputes the totals now (they follow each change of an amount).
    void updateTotals();

private:
    void buildForm();
    void insertCatalogItem(const QString& name);
    void schedulePreview();
    void updateLockState();

    DocumentSession& m_session;
    BLSendable& m_document;
    std::unique_ptr<BLInvoiceItemsTreeController> m_controller;
    QLabel* m_title = nullptr;
    QLabel* m_status = nullptr;
    QLabel* m_lockBanner = nullptr;
    QComboBox* m_client = nullptr;
    QLineEdit* m_subject = nullptr;
    QDateEdit* m_date = nullptr;
    QLabel* m_issued = nullptr;
    QSpinBox* m_payInterval = nullptr;
    QLineEdit* m_discount = nullptr;
    QPlainTextEdit* m_lead = nullptr;
    QPlainTextEdit* m_footnote = nullptr;
    QLineEdit* m_catalog = nullptr;
    QWidget* m_itemButtons = nullptr;
    QTreeView* m_itemView = nullptr;
    ItemTreeModel* m_itemModel = nullptr;
    QLabel* m_totals = nullptr;
    PagePreview* m_preview = nullptr;
    QTimer* m_previewTimer = nullptr;
    bool m_loading = false;
};

}  // namespace brassline::desktop
