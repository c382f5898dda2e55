#include "app/desktop/DocumentEditor.h"

#include <QComboBox>
#include <QCompleter>
#include <QDateEdit>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QShortcut>
#include <QSpinBox>
#include <QSplitter>
#include <QStringListModel>
#include <QTimer>
#include <QToolButton>
#include <QTreeView>
#include <QVBoxLayout>

#include "app/desktop/DesktopText.h"
#include "app/desktop/DocumentSession.h"
#include "app/desktop/ItemTreeModel.h"
#include "app/desktop/ObjectTableModel.h"
#include "app/desktop/PagePreview.h"
#include "app/desktop/Sources.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLCatalogItem.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLItem.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTaxDetails.h"
#include "model/entities/BLTaxRule.h"
#include "money/BLInvoiceItemsTreeController.h"

namespace brassline::desktop {

namespace {

// Runs `action` when the watched widget loses the focus: multi-line fields commit then.
class FocusOutFilter : public QObject {
public:
    FocusOutFilter(QObject* parent, std::function<void()> action) : QObject(parent), m_action(std::move(action)) {}
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::FocusOut) {
            m_action();
        }
        return QObject::eventFilter(watched, event);
    }

private:
    std::function<void()> m_action;
};

// The item tree, telling whether a cell is being edited.
class ItemView : public QTreeView {
public:
    using QTreeView::QTreeView;
    bool isEditing() const { return state() == EditingState; }
};

QDate toQDate(std::optional<Date> date) {
    return date ? QDate(date->yearOfCommonEra(), date->monthOfYear(), date->dayOfMonth()) : QDate();
}

Date fromQDate(const QDate& date) {
    return Date::dateWithYear(date.year(), date.month(), date.day());
}

std::vector<BLClient*> sortedClients(ManagedObjectContext& context) {
    return fetchSorted<BLClient>(context, "Client", "displayName");
}

QString currencySuffix(BLSendable& document) {
    const BLCurrency* currency = document.currency();
    if (currency == nullptr) {
        return {};
    }
    return QLatin1Char(' ') + qs(currency->symbol().value_or(currency->name().value_or("")));
}

QToolButton* itemButton(QWidget* parent, const QString& text, const QString& tip) {
    auto* button = new QToolButton(parent);
    button->setText(text);
    button->setToolTip(tip);
    button->setAutoRaise(false);
    button->setToolButtonStyle(Qt::ToolButtonTextOnly);
    return button;
}

}  // namespace

DocumentEditor::DocumentEditor(DocumentSession& session, BLSendable& document, QWidget* parent)
    : QWidget(parent),
      m_session(session),
      m_document(document),
      m_controller(std::make_unique<BLInvoiceItemsTreeController>(document)) {
    buildForm();
    m_previewTimer = new QTimer(this);
    m_previewTimer->setSingleShot(true);
    m_previewTimer->setInterval(150);
    connect(m_previewTimer, &QTimer::timeout, this, [this] { m_preview->showDocument(&m_document); });
    reload();
    m_preview->showDocument(&m_document);
}

DocumentEditor::~DocumentEditor() = default;

void DocumentEditor::buildForm() {
    auto* outer = new QHBoxLayout(this);
    outer->setContentsMargins(0, 0, 0, 0);
    auto* splitter = new QSplitter(Qt::Horizontal, this);
    outer->addWidget(splitter);

    auto* editor = new QWidget(splitter);
    auto* column = new QVBoxLayout(editor);
    column->setContentsMargins(18, 14, 12, 12);
    column->setSpacing(10);

    auto* heading = new QHBoxLayout;
    m_title = new QLabel(editor);
    QFont titleFont = m_title->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.5);
    titleFont.setBold(true);
    m_title->setFont(titleFont);
    m_status = new QLabel(editor);
    heading->addWidget(m_title);
    heading->addSpacing(8);
    heading->addWidget(m_status);
    heading->addStretch();
    column->addLayout(heading);

    m_lockBanner = new QLabel(editor);
    m_lockBanner->setWordWrap(true);
    m_lockBanner->setStyleSheet(QStringLiteral(
        "QLabel { background: #fff4e0; border: 1px solid #f0c987; border-radius: 4px; padding: 6px 10px; }"));
    column->addWidget(m_lockBanner);

    auto* fields = new QHBoxLayout;
    auto* left = new QFormLayout;
    auto* right = new QFormLayout;
    left->setLabelAlignment(Qt::AlignRight);
    right->setLabelAlignment(Qt::AlignRight);
    m_client = new QComboBox(editor);
    m_client->setMinimumWidth(220);
    m_subject = new QLineEdit(editor);
    m_subject->setPlaceholderText(loc("What the document is about"));
    m_date = new QDateEdit(editor);
    m_date->setCalendarPopup(true);
    m_date->setDisplayFormat(QLocale().dateFormat(QLocale::ShortFormat));
    m_issued = new QLabel(editor);
    m_payInterval = new QSpinBox(editor);
    m_payInterval->setRange(0, 32767);
    m_payInterval->setSuffix(loc(" days"));
    m_discount = new QLineEdit(editor);
    m_discount->setPlaceholderText(QStringLiteral("0"));
    m_discount->setMaximumWidth(90);
    left->addRow(loc("Client"), m_client);
    left->addRow(loc("Subject"), m_subject);
    right->addRow(loc("Date"), m_date);
    right->addRow(loc("Issued"), m_issued);
    right->addRow(loc("Payment terms"), m_payInterval);
    right->addRow(loc("Discount %"), m_discount);
    fields->addLayout(left, 3);
    fields->addSpacing(16);
    fields->addLayout(right, 2);
    column->addLayout(fields);

    m_lead = new QPlainTextEdit(editor);
    m_lead->setPlaceholderText(loc("Lead text, e.g. Dear <recipient.firstname/>, thank you for your order."));
    m_lead->setFixedHeight(54);
    column->addWidget(m_lead);

    m_itemButtons = new QWidget(editor);
    auto* buttons = new QHBoxLayout(m_itemButtons);
    buttons->setContentsMargins(0, 0, 0, 0);
    buttons->setSpacing(4);
    struct Entry {
        const char* entity;
        const char* title;
        const char* tip;
    };
    const Entry entries[] = {{"Cost", "+ Line", "Add a line (Ctrl+Return)"},
                             {"Group", "+ Group", "Add a group of lines"},
                             {"Title", "+ Title", "Add a title"},
                             {"SubTotal", "+ Subtotal", "Add a subtotal"},
                             {"Option", "+ Option", "Add an optional section"},
                             {"PageBreak", "+ Page break", "Start a new page here"}};
    for (const Entry& entry : entries) {
        QToolButton* button = itemButton(m_itemButtons, loc(entry.title), loc(entry.tip));
        const char* entity = entry.entity;
        connect(button, &QToolButton::clicked, this, [this, entity] { addItem(entity); });
        buttons->addWidget(button);
    }
    QToolButton* remove = itemButton(m_itemButtons, loc("Remove"), loc("Remove the selected items"));
    connect(remove, &QToolButton::clicked, this, &DocumentEditor::deleteSelectedItems);
    buttons->addWidget(remove);
    buttons->addStretch();
    m_catalog = new QLineEdit(m_itemButtons);
    m_catalog->setPlaceholderText(loc("Catalog: type to find an item"));
    m_catalog->setClearButtonEnabled(true);
    m_catalog->setMinimumWidth(220);
    auto* completer = new QCompleter(new QStringListModel(m_catalog), m_catalog);
    completer->setCaseSensitivity(Qt::CaseInsensitive);
    completer->setFilterMode(Qt::MatchContains);
    m_catalog->setCompleter(completer);
    connect(completer, qOverload<const QString&>(&QCompleter::activated), this,
            [this](const QString& name) { insertCatalogItem(name); });
    connect(m_catalog, &QLineEdit::returnPressed, this, [this] { insertCatalogItem(m_catalog->text()); });
    buttons->addWidget(m_catalog);
    column->addWidget(m_itemButtons);
    auto* addLine = new QShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return), this);
    connect(addLine, &QShortcut::activated, this, [this] { addItem("Cost"); });

    m_itemModel = new ItemTreeModel(m_session, m_document, *m_controller, this);
    m_itemView = new ItemView(editor);
    m_itemView->setModel(m_itemModel);
    m_itemView->setItemDelegate(new ItemDelegate(*m_itemModel, m_itemView));
    m_itemView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_itemView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_itemView->setDragDropMode(QAbstractItemView::InternalMove);
    m_itemView->setDefaultDropAction(Qt::MoveAction);
    m_itemView->setAlternatingRowColors(true);
    m_itemView->setUniformRowHeights(true);
    m_itemView->setStyleSheet(QStringLiteral("QTreeView::item { padding: 3px 2px; }"));
    m_itemView->setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed |
                                QAbstractItemView::AnyKeyPressed | QAbstractItemView::SelectedClicked);
    m_itemView->setMinimumHeight(200);
    QHeaderView* header = m_itemView->header();
    header->setStretchLastSection(false);
    header->setSectionResizeMode(ItemTreeModel::Name, QHeaderView::Stretch);
    const int widths[] = {54, 0, 80, 70, 96, 84, 84, 104};
    for (int section = 0; section < ItemTreeModel::ColumnCount; ++section) {
        if (widths[section] > 0) {
            header->resizeSection(section, widths[section]);
        }
    }
    column->addWidget(m_itemView, 1);
    connect(m_itemView->selectionModel(), &QItemSelectionModel::selectionChanged, this, [this] {
        std::vector<BLItem*> selection;
        for (const QModelIndex& index : m_itemView->selectionModel()->selectedRows()) {
            if (BLItem* item = m_itemModel->itemAt(index)) {
                selection.push_back(item);
            }
        }
        m_controller->setSelection(std::move(selection));
    });
    connect(m_itemView->itemDelegate(), &QAbstractItemDelegate::closeEditor, this,
            [this](QWidget*, QAbstractItemDelegate::EndEditHint hint) {
                m_session.endLongStep(hint != QAbstractItemDelegate::RevertModelCache);
                updateTotals();
            });
    // A reset drops the view's selection without telling: the controller forgets it too,
    // so it never holds an item that an undo has taken away.
    connect(m_itemModel, &QAbstractItemModel::modelReset, this, [this] { m_controller->setSelection({}); });
    connect(m_itemModel, &ItemTreeModel::amountsChanged, this, [this] {
        updateTotals();
        schedulePreview();
    });

    auto* bottom = new QHBoxLayout;
    m_footnote = new QPlainTextEdit(editor);
    m_footnote->setPlaceholderText(loc("Closing text, e.g. Please pay by <document.due/>."));
    m_footnote->setFixedHeight(70);
    bottom->addWidget(m_footnote, 3);
    m_totals = new QLabel(editor);
    m_totals->setTextFormat(Qt::RichText);
    m_totals->setAlignment(Qt::AlignRight | Qt::AlignTop);
    m_totals->setMinimumWidth(250);
    bottom->addWidget(m_totals, 2);
    column->addLayout(bottom);

    m_preview = new PagePreview(splitter);
    splitter->addWidget(editor);
    splitter->addWidget(m_preview);
    splitter->setStretchFactor(0, 3);
    splitter->setStretchFactor(1, 1);

    // Each field is one step when the person leaves it.
    connect(m_subject, &QLineEdit::editingFinished, this, [this] {
        if (m_loading || m_subject->text() == qs(m_document.subject())) {
            return;
        }
        m_session.perform(loc("Change Subject"), [this] { m_document.setSubject(optionalText(m_subject->text())); });
    });
    connect(m_discount, &QLineEdit::editingFinished, this, [this] {
        if (m_loading) {
            return;
        }
        std::optional<Decimal> discount = parseNumber(m_discount->text());
        if (!discount && !m_discount->text().trimmed().isEmpty()) {
            m_discount->setStyleSheet(QStringLiteral("QLineEdit { border: 1px solid #c62828; }"));
            m_discount->setToolTip(loc("This is not a number."));
            return;
        }
        m_discount->setStyleSheet({});
        m_discount->setToolTip({});
        if (discount == m_document.discount()) {
            return;
        }
        m_session.perform(loc("Change Discount"), [this, discount] { m_document.setDiscount(discount); });
    });
    connect(m_client, qOverload<int>(&QComboBox::activated), this, [this](int index) {
        if (m_loading) {
            return;
        }
        auto* client =
            dynamic_cast<BLClient*>(m_session.context().objectForURIString(ss(m_client->itemData(index).toString())));
        if (client == nullptr || client == m_document.client()) {
            return;
        }
        m_session.perform(loc("Change Client"), [this, client] { m_document.setClient(client); });
    });
    connect(m_date, &QDateEdit::editingFinished, this, [this] {
        if (m_loading || m_date->date() == toQDate(m_document.dateCreation())) {
            return;
        }
        const Date date = fromQDate(m_date->date());
        m_session.perform(loc("Change Date"), [this, date] { m_document.setDateCreation(date); });
    });
    connect(m_payInterval, &QSpinBox::editingFinished, this, [this] {
        const auto days = static_cast<int16_t>(m_payInterval->value());
        if (m_loading || days == m_document.payIntervalValue()) {
            return;
        }
        m_session.perform(loc("Change Payment Terms"), [this, days] { m_document.setPayInterval(days); });
    });
    m_lead->installEventFilter(new FocusOutFilter(m_lead, [this] {
        const QString text = m_lead->toPlainText();
        if (!m_loading && !isLocked() && text != qs(m_document.lead())) {
            m_session.perform(loc("Change Lead Text"), [this, text] { m_document.setLead(optionalText(text)); });
        }
    }));
    m_footnote->installEventFilter(new FocusOutFilter(m_footnote, [this] {
        const QString text = m_footnote->toPlainText();
        if (!m_loading && !isLocked() && text != qs(m_document.footnote())) {
            m_session.perform(loc("Change Closing Text"), [this, text] { m_document.setFootnote(optionalText(text)); });
        }
    }));
}

bool DocumentEditor::isLocked() const {
    return !m_controller->canEditItems();
}

void DocumentEditor::reload() {
    if (m_document.isDeleted()) {
        return;
    }
    m_loading = true;
    m_title->setText(qs(m_document.label()) + QLatin1Char(' ') +
                     (m_document.name() ? qs(m_document.name()) : QStringLiteral("(%1)").arg(loc("draft"))));
    StatusBadge badge = statusBadge(m_document);
    m_status->setText(QStringLiteral("<span style='color:%1; font-weight:600'>● %2</span>")
                          .arg(badge.color.name(), badge.word.toHtmlEscaped()));

    m_client->clear();
    for (BLClient* client : sortedClients(m_session.context())) {
        m_client->addItem(qs(client->displayName()), qs(client->URIString()));
    }
    if (BLClient* client = m_document.client()) {
        m_client->setCurrentIndex(m_client->findData(qs(client->URIString())));
    } else {
        m_client->setCurrentIndex(-1);
        m_client->setPlaceholderText(loc("Choose a client"));
    }
    m_subject->setText(qs(m_document.subject()));
    m_date->setDate(toQDate(m_document.dateCreation().value_or(Date::now())));
    m_issued->setText(m_document.dateSent()
                          ? loc("%1, due %2", formatDate(m_document.dateSent()), formatDate(m_document.dateDue()))
                          : loc("not yet"));
    m_payInterval->setValue(m_document.payIntervalValue());
    std::optional<Decimal> discount = m_document.discount();
    m_discount->setText(discount && !discount->isZero() ? formatQuantity(*discount) : QString());
    m_lead->setPlainText(qs(m_document.lead()));
    m_footnote->setPlainText(qs(m_document.footnote()));

    QStringList names;
    FetchRequest catalog("CatalogItem");
    for (ManagedObject* object :
         m_session.context().executeFetchRequest(catalog).value_or(std::vector<ManagedObject*>{})) {
        names << qs(static_cast<BLCatalogItem*>(object)->name());
    }
    names.removeDuplicates();
    names.sort(Qt::CaseInsensitive);
    static_cast<QStringListModel*>(m_catalog->completer()->model())->setStringList(names);

    // A reset would close the cell being typed into; its own edits repaint the rows already.
    if (!static_cast<ItemView*>(m_itemView)->isEditing()) {
        m_itemModel->refresh();
        m_itemView->expandAll();
    }
    updateLockState();
    updateTotals();
    m_loading = false;
    schedulePreview();
}

void DocumentEditor::updateLockState() {
    const bool locked = isLocked();
    m_lockBanner->setVisible(locked);
    if (locked) {
        m_lockBanner->setText(loc("This %1 is issued and locked. Unlock it to change it; the issued copy is kept.",
                                  qs(m_document.label())));
    }
    for (QWidget* field :
         std::initializer_list<QWidget*>{m_subject, m_date, m_payInterval, m_discount, m_itemButtons}) {
        field->setEnabled(!locked);
    }
    m_client->setEnabled(!m_document.cantChangeClient());
    m_lead->setReadOnly(locked);
    m_footnote->setReadOnly(locked);
}

void DocumentEditor::updateTotals() {
    // The figures are the model's: net, the tax of each rule over its summed lines (as the
    // document's tax is made), gross, the discount and what is still open.
    const QString suffix = currencySuffix(m_document);
    QString rows;
    auto row = [&rows, &suffix](const QString& label, const Decimal& amount, bool strong = false) {
        rows +=
            QStringLiteral("<tr><td style='padding-right:18px; color:%1'>%2</td><td align='right'>%3%4%5%6</td></tr>")
                .arg(strong ? QStringLiteral("palette(text)") : QStringLiteral("#606670"), label.toHtmlEscaped(),
                     strong ? QStringLiteral("<b>") : QString(), formatAmount(amount), suffix,
                     strong ? QStringLiteral("</b>") : QString());
    };
    const Decimal discount = m_document.discountAmount();
    if (!discount.isZero()) {
        row(loc("Before discount"), m_document.costBeforeDiscount());
        row(loc("Discount"), Decimal() - discount);
    }
    row(loc("Net"), m_document.cost());
    for (const TaxCollection::Entry& entry : m_document.collectTaxes().entries) {
        if (entry.rule == nullptr) {
            continue;
        }
        QString label = qs(entry.rule->taxNames());
        const QString rate = qs(entry.rule->taxRates());
        if (!rate.isEmpty()) {
            label += QLatin1Char(' ') + rate + (rate.contains(QLatin1Char('%')) ? QString() : QStringLiteral(" %"));
        }
        row(label.trimmed().isEmpty() ? loc("Tax") : label, entry.rule->taxForAmount(entry.amount, &m_document));
    }
    row(loc("Total"), m_document.costWithTaxes(), true);
    const Decimal balance = m_document.balance();
    if (m_document.dateSent() && balance != m_document.costWithTaxes()) {
        row(loc("Open"), balance, true);
    }
    m_totals->setText(QStringLiteral("<table cellspacing='2'>%1</table>").arg(rows));
}

void DocumentEditor::addItem(const char* entityName) {
    if (isLocked()) {
        return;
    }
    BLItem* item = nullptr;
    m_session.perform(loc("Add Item"), [this, entityName, &item] { item = m_controller->addItem(entityName); });
    m_itemModel->refresh();
    m_itemView->expandAll();
    updateTotals();
    schedulePreview();
    if (item != nullptr) {
        const QModelIndex index = m_itemModel->indexOf(item, ItemTreeModel::Name);
        m_itemView->setCurrentIndex(index);
        if (m_itemModel->flags(index) & Qt::ItemIsEditable) {
            m_itemView->edit(index);
        }
    }
}

void DocumentEditor::deleteSelectedItems() {
    if (isLocked() || m_controller->selection().empty()) {
        return;
    }
    m_session.perform(loc("Remove Items"), [this] { m_controller->remove(); });
    m_controller->setSelection({});
    m_itemModel->refresh();
    m_itemView->expandAll();
    updateTotals();
    schedulePreview();
}

void DocumentEditor::insertCatalogItem(const QString& name) {
    if (isLocked() || name.trimmed().isEmpty()) {
        return;
    }
    FetchRequest request("CatalogItem");
    if (!request.setPredicateFormat("name ==[c] %@", {Value(ss(name.trimmed()))})) {
        return;
    }
    std::vector<ManagedObject*> found =
        m_session.context().executeFetchRequest(request).value_or(std::vector<ManagedObject*>{});
    if (found.empty()) {
        return;
    }
    std::vector<BLBase*> objects{static_cast<BLBase*>(found.front())};
    m_session.perform(loc("Insert from Catalog"),
                      [this, &objects] { m_controller->insertClonedObjectsAtSelection(objects); });
    m_catalog->clear();
    m_itemModel->refresh();
    m_itemView->expandAll();
    updateTotals();
    schedulePreview();
}

void DocumentEditor::schedulePreview() {
    m_previewTimer->start();
}

}  // namespace brassline::desktop
