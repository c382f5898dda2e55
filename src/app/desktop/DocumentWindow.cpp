#include "app/desktop/DocumentWindow.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QComboBox>
#include <QDateEdit>
#include <QDialog>
#include <QDialogButtonBox>
#include <QFileInfo>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMenuBar>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>
#include <QSplitter>
#include <QStackedWidget>
#include <QStatusBar>
#include <QTableView>
#include <QTimer>
#include <QToolBar>
#include <QToolButton>
#include <QTreeView>
#include <QVBoxLayout>

#include "app/desktop/ClientEditor.h"
#include "app/desktop/DesktopShell.h"
#include "app/desktop/DesktopText.h"
#include "app/desktop/DocumentEditor.h"
#include "app/desktop/DocumentSession.h"
#include "app/desktop/ObjectTableModel.h"
#include "app/desktop/PreferencesDialog.h"
#include "lifecycle/Conversions.h"
#include "lifecycle/SendableIssue.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTranscript.h"
#include "store/BLDoc.h"

namespace brassline::desktop {

namespace {

QDate toQDate(Date date) {
    return QDate(date.yearOfCommonEra(), date.monthOfYear(), date.dayOfMonth());
}

// The send sheet: the issue date (when the documents are drafts), the payment interval
// and how the documents leave. Nothing when the person cancels.
std::optional<IssueRequest> askIssue(QWidget* parent, const std::vector<BLSendable*>& documents,
                                     const SendSheet& sheet) {
    QDialog dialog(parent);
    dialog.setWindowTitle(loc("Issue"));
    auto* layout = new QVBoxLayout(&dialog);
    auto* text = new QLabel(
        documents.size() == 1
            ? loc("%1 gets its number and date now and is locked: changes afterwards need an unlock.",
                  qs(documents.front()->displayName()))
            : loc("%1 documents get their numbers and dates now and are locked.", QString::number(documents.size())),
        &dialog);
    text->setWordWrap(true);
    layout->addWidget(text);
    auto* form = new QFormLayout;
    auto* date = new QDateEdit(toQDate(sheet.date), &dialog);
    date->setCalendarPopup(true);
    date->setEnabled(sheet.dateEditable);
    auto* interval = new QSpinBox(&dialog);
    interval->setRange(0, 32767);
    interval->setValue(static_cast<int>(sheet.payInterval));
    interval->setSuffix(loc(" days"));
    auto* route = new QComboBox(&dialog);
    const std::pair<SendRoute, const char*> routes[] = {
        {SendRoute::Save, "Save"}, {SendRoute::Print, "Print"}, {SendRoute::Mail, "Mail"}};
    for (const auto& [value, name] : routes) {
        route->addItem(loc(name), static_cast<int>(value));
    }
    route->setCurrentIndex(std::max(0, route->findData(static_cast<int>(sheet.buttons.main))));
    form->addRow(loc("Issue date"), date);
    form->addRow(sheet.intervalLabel.empty() ? loc("Payment terms") : loc(sheet.intervalLabel), interval);
    form->addRow(loc("Delivery"), route);
    layout->addLayout(form);
    if (sheet.prePaymentsWarning) {
        layout->addWidget(new QLabel(loc("Payments dated before the issue date exist."), &dialog));
    }
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, &dialog);
    buttons->button(QDialogButtonBox::Ok)->setText(loc("Issue"));
    QObject::connect(buttons, &QDialogButtonBox::accepted, &dialog, &QDialog::accept);
    QObject::connect(buttons, &QDialogButtonBox::rejected, &dialog, &QDialog::reject);
    layout->addWidget(buttons);
    if (dialog.exec() != QDialog::Accepted) {
        return std::nullopt;
    }
    IssueRequest request;
    request.documents = documents;
    const QDate chosen = date->date();
    request.date = sheet.dateEditable ? Date::dateWithYear(chosen.year(), chosen.month(), chosen.day()) : sheet.date;
    request.payInterval = interval->value();
    request.route = static_cast<SendRoute>(route->currentData().toInt());
    return request;
}

}  // namespace

DocumentWindow::DocumentWindow(DesktopShell& shell, BLDoc& document, QWidget* parent)
    : QMainWindow(parent), m_shell(shell), m_session(new DocumentSession(document)) {
    setWindowTitle(QStringLiteral("%1 — Brassline").arg(qs(document.displayName())));
    resize(1280, 800);
    m_refreshTimer = new QTimer(this);
    m_refreshTimer->setSingleShot(true);
    m_refreshTimer->setInterval(0);
    connect(m_refreshTimer, &QTimer::timeout, this, &DocumentWindow::refresh);
    connect(m_session, &DocumentSession::changed, m_refreshTimer, qOverload<>(&QTimer::start));
    connect(m_session, &DocumentSession::saveFailed, this,
            [this](const QString& error) { tell(loc("The company file can't be saved"), error); });
    connect(&m_shell, &DesktopShell::recentFilesChanged, this, &DocumentWindow::rebuildRecentMenu);
    buildActions();
    buildMenus();
    buildCentre();
    showSource(Source::Invoices);
}

DocumentWindow::~DocumentWindow() {
    // The editors go before the session: a field that commits as it loses the focus still
    // finds the session it calls.
    delete takeCentralWidget();
    delete m_session;
}

QAction* DocumentWindow::makeAction(const QString& name, const QString& text, Glyph glyph, bool withIcon) {
    auto* action = withIcon ? new QAction(glyphIcon(glyph), text, this) : new QAction(text, this);
    action->setObjectName(name);
    m_actions.push_back(action);
    addAction(action);
    return action;
}

QAction* DocumentWindow::action(const QString& name) const {
    for (QAction* action : m_actions) {
        if (action->objectName() == name) {
            return action;
        }
    }
    return nullptr;
}

void DocumentWindow::buildActions() {
    auto connectTo = [this](QAction* action, auto function) { connect(action, &QAction::triggered, this, function); };
    QAction* a = makeAction(QStringLiteral("newInvoice"), loc("New Invoice"), Glyph::Invoice);
    a->setShortcut(QKeySequence::New);
    connectTo(a, [this] { newObject("Invoice"); });
    a = makeAction(QStringLiteral("newEstimate"), loc("New Estimate"), Glyph::Estimate);
    a->setShortcut(QKeySequence(Qt::CTRL | Qt::ALT | Qt::Key_N));
    connectTo(a, [this] { newObject("Estimate"); });
    a = makeAction(QStringLiteral("newClient"), loc("New Client"), Glyph::Client);
    a->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_N));
    connectTo(a, [this] { newObject("Client"); });
    a = makeAction(QStringLiteral("newCatalogItem"), loc("New Catalog Item"), Glyph::Catalog);
    connectTo(a, [this] { newObject("CatalogItem"); });
    a = makeAction(QStringLiteral("issue"), loc("Issue…"), Glyph::Issue);
    a->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_I));
    a->setToolTip(loc("Give the document its number and date and lock it (Ctrl+I)"));
    connectTo(a, [this] { issueCurrent(); });
    a = makeAction(QStringLiteral("unlock"), loc("Unlock"), Glyph::Unlock);
    a->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_U));
    connectTo(a, [this] { unlockCurrent(); });
    a = makeAction(QStringLiteral("duplicate"), loc("Duplicate"), Glyph::Duplicate);
    a->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_D));
    connectTo(a, [this] { duplicateCurrent(); });
    a = makeAction(QStringLiteral("toInvoice"), loc("Into an Invoice"), Glyph::Convert, false);
    connectTo(a, [this] { convertCurrent("invoice"); });
    a = makeAction(QStringLiteral("toEstimate"), loc("Into an Estimate"), Glyph::Convert, false);
    connectTo(a, [this] { convertCurrent("estimate"); });
    a = makeAction(QStringLiteral("toCreditNote"), loc("Into a Credit Note"), Glyph::Convert, false);
    connectTo(a, [this] { convertCurrent("credit-note"); });
    a = makeAction(QStringLiteral("settleOpen"), loc("Open"), Glyph::Settle, false);
    connectTo(a, [this] { settleCurrent(0); });
    a = makeAction(QStringLiteral("settleSettled"), loc("Settled"), Glyph::Settle, false);
    a->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_S));
    connectTo(a, [this] { settleCurrent(1); });
    a = makeAction(QStringLiteral("settleCanceled"), loc("Canceled"), Glyph::Settle, false);
    connectTo(a, [this] { settleCurrent(2); });
    a = makeAction(QStringLiteral("delete"), loc("Delete"), Glyph::Delete);
    a->setShortcut(QKeySequence::Delete);
    connectTo(a, [this] { deleteCurrent(); });
    a = makeAction(QStringLiteral("undo"), loc("Undo"), Glyph::Convert, false);
    a->setShortcut(QKeySequence::Undo);
    connectTo(a, [this] { m_session->undo(); });
    a = makeAction(QStringLiteral("redo"), loc("Redo"), Glyph::Convert, false);
    a->setShortcut(QKeySequence::Redo);
    connectTo(a, [this] { m_session->redo(); });
    a = makeAction(QStringLiteral("exportPDF"), loc("Export PDF…"), Glyph::Preview, false);
    a->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_E));
    a->setEnabled(false);
    a->setToolTip(loc("PDF export comes with the layout engine."));
    a = makeAction(QStringLiteral("print"), loc("Print…"), Glyph::Preview, false);
    a->setShortcut(QKeySequence::Print);
    a->setEnabled(false);
    a->setToolTip(loc("Printing comes with the layout engine."));
    a = makeAction(QStringLiteral("preferences"), loc("Preferences…"), Glyph::Layout, false);
    a->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    connectTo(a, [this] { openPreferences(); });
    a = makeAction(QStringLiteral("find"), loc("Find"), Glyph::Preview, false);
    a->setShortcut(QKeySequence::Find);
    connectTo(a, [this] {
        showList();
        m_search->setFocus();
        m_search->selectAll();
    });
    a = makeAction(QStringLiteral("save"), loc("Save"), Glyph::Preview, false);
    a->setShortcut(QKeySequence::Save);
    connectTo(a, [this] {
        QString error;
        if (!m_session->save(&error)) {
            tell(loc("The company file can't be saved"), error);
        } else {
            statusBar()->showMessage(loc("Saved."), 3000);
        }
    });
    a = makeAction(QStringLiteral("newCompany"), loc("New Company…"), Glyph::Add, false);
    connectTo(a, [this] { m_shell.chooseNewCompany(this); });
    a = makeAction(QStringLiteral("open"), loc("Open…"), Glyph::Preview, false);
    a->setShortcut(QKeySequence::Open);
    connectTo(a, [this] { m_shell.chooseFileToOpen(this); });
    a = makeAction(QStringLiteral("close"), loc("Close"), Glyph::Preview, false);
    a->setShortcut(QKeySequence::Close);
    connectTo(a, [this] { close(); });
    a = makeAction(QStringLiteral("quit"), loc("Quit"), Glyph::Preview, false);
    a->setShortcut(QKeySequence::Quit);
    connectTo(a, [this] { m_shell.quit(); });
    for (size_t n = 0; n < std::size(kAllSources); ++n) {
        const Source source = kAllSources[n];
        a = makeAction(QStringLiteral("source%1").arg(n + 1), sourceTitle(source), sourceGlyph(source));
        a->setShortcut(QKeySequence(Qt::CTRL | static_cast<Qt::Key>(Qt::Key_1 + static_cast<int>(n))));
        connectTo(a, [this, source] { showSource(source); });
    }
}

void DocumentWindow::buildMenus() {
    QMenu* file = menuBar()->addMenu(loc("&File"));
    file->addAction(action(QStringLiteral("newCompany")));
    file->addAction(action(QStringLiteral("open")));
    m_recentMenu = file->addMenu(loc("Open Recent"));
    rebuildRecentMenu();
    file->addSeparator();
    file->addAction(action(QStringLiteral("save")));
    file->addAction(action(QStringLiteral("exportPDF")));
    file->addAction(action(QStringLiteral("print")));
    file->addSeparator();
    file->addAction(action(QStringLiteral("preferences")));
    file->addSeparator();
    file->addAction(action(QStringLiteral("close")));
    file->addAction(action(QStringLiteral("quit")));

    QMenu* edit = menuBar()->addMenu(loc("&Edit"));
    edit->addAction(action(QStringLiteral("undo")));
    edit->addAction(action(QStringLiteral("redo")));
    edit->addSeparator();
    edit->addAction(action(QStringLiteral("delete")));
    edit->addAction(action(QStringLiteral("find")));

    QMenu* documents = menuBar()->addMenu(loc("&Document"));
    for (const char* name : {"newInvoice", "newEstimate", "newClient", "newCatalogItem"}) {
        documents->addAction(action(QString::fromLatin1(name)));
    }
    documents->addSeparator();
    documents->addAction(action(QStringLiteral("issue")));
    documents->addAction(action(QStringLiteral("unlock")));
    documents->addAction(action(QStringLiteral("duplicate")));
    QMenu* convert = documents->addMenu(glyphIcon(Glyph::Convert), loc("Convert"));
    convert->setObjectName(QStringLiteral("convertMenu"));
    for (const char* name : {"toInvoice", "toEstimate", "toCreditNote"}) {
        convert->addAction(action(QString::fromLatin1(name)));
    }
    QMenu* settle = documents->addMenu(glyphIcon(Glyph::Settle), loc("Mark as"));
    settle->setObjectName(QStringLiteral("settleMenu"));
    for (const char* name : {"settleOpen", "settleSettled", "settleCanceled"}) {
        settle->addAction(action(QString::fromLatin1(name)));
    }

    QMenu* view = menuBar()->addMenu(loc("&View"));
    for (size_t n = 0; n < std::size(kAllSources); ++n) {
        view->addAction(action(QStringLiteral("source%1").arg(n + 1)));
    }

    QToolBar* toolbar = addToolBar(loc("Actions"));
    toolbar->setObjectName(QStringLiteral("actions"));
    toolbar->setMovable(false);
    toolbar->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
    toolbar->setIconSize(QSize(24, 24));
    toolbar->addAction(action(QStringLiteral("newInvoice")));
    toolbar->addAction(action(QStringLiteral("newClient")));
    toolbar->addSeparator();
    toolbar->addAction(action(QStringLiteral("issue")));
    toolbar->addAction(action(QStringLiteral("unlock")));
    toolbar->addAction(action(QStringLiteral("duplicate")));
    auto addMenuButton = [this, toolbar](QMenu* menu, Glyph glyph) {
        auto* button = new QToolButton(toolbar);
        button->setMenu(menu);
        button->setPopupMode(QToolButton::InstantPopup);
        button->setIcon(glyphIcon(glyph));
        button->setText(menu->title());
        button->setToolButtonStyle(Qt::ToolButtonTextUnderIcon);
        toolbar->addWidget(button);
    };
    addMenuButton(convert, Glyph::Convert);
    addMenuButton(settle, Glyph::Settle);
    toolbar->addSeparator();
    toolbar->addAction(action(QStringLiteral("delete")));
}

void DocumentWindow::rebuildRecentMenu() {
    if (m_recentMenu == nullptr) {
        return;
    }
    m_recentMenu->clear();
    for (const QString& path : m_shell.recentFiles()) {
        QAction* entry = m_recentMenu->addAction(QFileInfo(path).completeBaseName());
        entry->setToolTip(path);
        entry->setEnabled(QFileInfo::exists(path));
        connect(entry, &QAction::triggered, this, [this, path] {
            QString error;
            if (m_shell.openFile(path, &error) == nullptr) {
                tell(loc("The company file can't be opened"), error);
            }
        });
    }
    m_recentMenu->addSeparator();
    connect(m_recentMenu->addAction(loc("Clear Menu")), &QAction::triggered, this,
            [this] { m_shell.clearRecentFiles(); });
}

void DocumentWindow::buildCentre() {
    auto* splitter = new QSplitter(Qt::Horizontal, this);
    m_sources = new QListWidget(splitter);
    m_sources->setIconSize(QSize(20, 20));
    m_sources->setFrameShape(QFrame::NoFrame);
    m_sources->setStyleSheet(
        QStringLiteral("QListWidget { background: #eef1f4; padding-top: 8px; }"
                       "QListWidget::item { padding: 6px 8px; }"
                       "QListWidget::item:selected { background: #d5e3f5; color: black; }"));
    for (Source source : kAllSources) {
        auto* item = new QListWidgetItem(glyphIcon(sourceGlyph(source)), sourceTitle(source), m_sources);
        item->setData(Qt::UserRole, static_cast<int>(source));
    }
    m_sources->setMaximumWidth(220);
    connect(m_sources, &QListWidget::currentRowChanged, this, [this](int row) {
        if (row >= 0 && static_cast<size_t>(row) < std::size(kAllSources) && kAllSources[row] != m_source) {
            showSource(kAllSources[row]);
        } else if (row >= 0) {
            showList();
        }
    });
    connect(m_sources, &QListWidget::itemClicked, this, [this] { showList(); });

    m_stack = new QStackedWidget(splitter);
    m_listPage = new QWidget(m_stack);
    auto* list = new QVBoxLayout(m_listPage);
    list->setContentsMargins(18, 14, 18, 8);
    auto* bar = new QHBoxLayout;
    m_listTitle = new QLabel(m_listPage);
    QFont titleFont = m_listTitle->font();
    titleFont.setPointSizeF(titleFont.pointSizeF() * 1.5);
    titleFont.setBold(true);
    m_listTitle->setFont(titleFont);
    m_listCount = new QLabel(m_listPage);
    m_listCount->setStyleSheet(QStringLiteral("QLabel { color: #606670; }"));
    m_search = new QLineEdit(m_listPage);
    m_search->setPlaceholderText(loc("Search"));
    m_search->setClearButtonEnabled(true);
    m_search->setMinimumWidth(260);
    bar->addWidget(m_listTitle);
    bar->addSpacing(10);
    bar->addWidget(m_listCount);
    bar->addStretch();
    bar->addWidget(m_search);
    list->addLayout(bar);
    m_listView = new QTableView(m_listPage);
    m_listView->setSortingEnabled(true);
    m_listView->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_listView->setSelectionMode(QAbstractItemView::ExtendedSelection);
    m_listView->setEditTriggers(QAbstractItemView::NoEditTriggers);
    m_listView->setAlternatingRowColors(true);
    m_listView->setShowGrid(false);
    m_listView->verticalHeader()->hide();
    m_listView->verticalHeader()->setDefaultSectionSize(30);
    m_listView->horizontalHeader()->setHighlightSections(false);
    m_listView->setWordWrap(false);
    list->addWidget(m_listView, 1);
    connect(m_search, &QLineEdit::textChanged, this, [this](const QString& text) {
        if (m_listModel != nullptr) {
            m_listModel->setSearchText(text);
            m_listCount->setText(loc("%1 shown", QString::number(m_listModel->rowCount())));
        }
    });
    connect(m_listView, &QTableView::activated, this,
            [this](const QModelIndex& index) { showObject(m_listModel->objectAt(index.row())); });
    m_stack->addWidget(m_listPage);

    m_editorPage = new QWidget(m_stack);
    auto* editorLayout = new QVBoxLayout(m_editorPage);
    editorLayout->setContentsMargins(0, 0, 0, 0);
    editorLayout->setSpacing(0);
    auto* back = new QToolButton(m_editorPage);
    back->setObjectName(QStringLiteral("back"));
    back->setAutoRaise(true);
    back->setArrowType(Qt::LeftArrow);
    back->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
    connect(back, &QToolButton::clicked, this, &DocumentWindow::showList);
    editorLayout->addWidget(back, 0, Qt::AlignLeft);
    m_stack->addWidget(m_editorPage);

    splitter->addWidget(m_sources);
    splitter->addWidget(m_stack);
    splitter->setStretchFactor(1, 1);
    splitter->setSizes({190, 1090});
    setCentralWidget(splitter);
    statusBar()->showMessage(qs(m_session->document().fileURL()));
}

void DocumentWindow::showSource(Source source) {
    m_source = source;
    const int row =
        static_cast<int>(std::find(std::begin(kAllSources), std::end(kAllSources), source) - std::begin(kAllSources));
    if (m_sources->currentRow() != row) {
        QSignalBlocker block(m_sources);
        m_sources->setCurrentRow(row);
    }
    auto* model = new ObjectTableModel(m_session->context(), listDefinition(source), m_listView);
    m_listDirty = false;
    QAbstractItemModel* old = m_listModel;
    m_listModel = model;
    {
        QSignalBlocker block(m_search);
        m_search->clear();
    }
    m_listView->setModel(model);
    delete old;
    const ListDefinition& definition = model->definition();
    QHeaderView* header = m_listView->horizontalHeader();
    for (size_t column = 0; column < definition.columns.size(); ++column) {
        const ListColumn& entry = definition.columns[column];
        const int section = static_cast<int>(column);
        if (entry.width > 0) {
            header->setSectionResizeMode(section, QHeaderView::Interactive);
            header->resizeSection(section, entry.width);
        } else {
            header->setSectionResizeMode(section, QHeaderView::Stretch);
        }
        m_listView->setItemDelegateForColumn(
            section, entry.kind == ListColumn::Kind::Status ? new StatusDelegate(m_listView) : nullptr);
    }
    {
        // The model fetched in its first order already: the header only shows it.
        QSignalBlocker block(header);
        header->setSortIndicator(definition.sortColumn,
                                 definition.ascending ? Qt::AscendingOrder : Qt::DescendingOrder);
    }
    m_listTitle->setText(sourceTitle(source));
    m_listCount->setText(loc("%1 shown", QString::number(model->rowCount())));
    connect(m_listView->selectionModel(), &QItemSelectionModel::selectionChanged, this, &DocumentWindow::updateActions);
    showList();
}

void DocumentWindow::showList() {
    m_stack->setCurrentWidget(m_listPage);
    if (m_listDirty && m_listModel != nullptr) {
        m_listDirty = false;
        m_listModel->reload();
        m_listCount->setText(loc("%1 shown", QString::number(m_listModel->rowCount())));
    }
    updateActions();
}

bool DocumentWindow::showObject(ManagedObject* object) {
    QWidget* editor = nullptr;
    if (auto* client = dynamic_cast<BLClient*>(object)) {
        editor = new ClientEditor(*m_session, *client, m_editorPage);
    } else if (auto* sendable = dynamic_cast<BLSendable*>(object)) {
        editor = new DocumentEditor(*m_session, *sendable, m_editorPage);
    }
    if (editor == nullptr) {
        return false;
    }
    delete m_editor;
    m_editor = editor;
    m_editorPage->layout()->addWidget(editor);
    if (auto* back = m_editorPage->findChild<QToolButton*>(QStringLiteral("back"))) {
        back->setText(sourceTitle(m_source));
    }
    m_stack->setCurrentWidget(m_editorPage);
    updateActions();
    return true;
}

DocumentEditor* DocumentWindow::documentEditor() const {
    return m_stack->currentWidget() == m_editorPage ? qobject_cast<DocumentEditor*>(m_editor) : nullptr;
}

ClientEditor* DocumentWindow::clientEditor() const {
    return m_stack->currentWidget() == m_editorPage ? qobject_cast<ClientEditor*>(m_editor) : nullptr;
}

ManagedObject* DocumentWindow::currentObject() const {
    if (DocumentEditor* editor = documentEditor()) {
        return &editor->document();
    }
    if (ClientEditor* editor = clientEditor()) {
        return &editor->client();
    }
    if (m_listModel != nullptr && m_listView->selectionModel() != nullptr) {
        const QModelIndexList rows = m_listView->selectionModel()->selectedRows();
        if (!rows.isEmpty()) {
            return m_listModel->objectAt(rows.front().row());
        }
    }
    return nullptr;
}

std::vector<BLSendable*> DocumentWindow::selectedSendables() const {
    std::vector<BLSendable*> sendables;
    if (DocumentEditor* editor = documentEditor()) {
        sendables.push_back(&editor->document());
        return sendables;
    }
    if (m_stack->currentWidget() != m_listPage || m_listModel == nullptr || m_listView->selectionModel() == nullptr) {
        return sendables;
    }
    QModelIndexList rows = m_listView->selectionModel()->selectedRows();
    std::sort(rows.begin(), rows.end(), [](const QModelIndex& a, const QModelIndex& b) { return a.row() < b.row(); });
    for (const QModelIndex& row : rows) {
        if (auto* sendable = dynamic_cast<BLSendable*>(m_listModel->objectAt(row.row()))) {
            sendables.push_back(sendable);
        }
    }
    return sendables;
}

void DocumentWindow::updateActions() {
    if (m_closed) {
        return;
    }
    const std::vector<BLSendable*> sendables = selectedSendables();
    BLSendable* first = sendables.empty() ? nullptr : sendables.front();
    auto enable = [this](const char* name, bool on) { action(QString::fromLatin1(name))->setEnabled(on); };
    enable("issue", first != nullptr && first->isDraft() && first->canSend());
    enable("unlock", first != nullptr && first->canUnlock());
    enable("duplicate", first != nullptr && (first->isInvoice() || dynamic_cast<BLEstimate*>(first) != nullptr));
    enable("toInvoice", dynamic_cast<BLEstimate*>(first) != nullptr);
    enable("toEstimate", dynamic_cast<BLInvoice*>(first) != nullptr);
    enable("toCreditNote", dynamic_cast<BLInvoice*>(first) != nullptr);
    for (const char* name : {"settleOpen", "settleSettled", "settleCanceled"}) {
        enable(name, first != nullptr && !first->isDraft());
    }
    if (first != nullptr && first->canAccept()) {
        action(QStringLiteral("settleSettled"))->setText(loc("Accepted"));
        action(QStringLiteral("settleCanceled"))->setText(loc("Declined"));
    } else {
        action(QStringLiteral("settleSettled"))->setText(loc("Settled"));
        action(QStringLiteral("settleCanceled"))->setText(loc("Canceled"));
    }
    enable("delete", currentObject() != nullptr);
    QAction* undo = action(QStringLiteral("undo"));
    undo->setEnabled(m_session->canUndo());
    undo->setText(m_session->canUndo() && !m_session->undoName().isEmpty() ? loc("Undo %1", m_session->undoName())
                                                                           : loc("Undo"));
    QAction* redo = action(QStringLiteral("redo"));
    redo->setEnabled(m_session->canRedo());
    redo->setText(m_session->canRedo() && !m_session->redoName().isEmpty() ? loc("Redo %1", m_session->redoName())
                                                                           : loc("Redo"));
}

void DocumentWindow::refresh() {
    if (m_closed) {
        return;
    }
    if (m_editor != nullptr && m_stack->currentWidget() == m_editorPage) {
        if (auto* editor = qobject_cast<DocumentEditor*>(m_editor)) {
            if (editor->document().isDeleted()) {
                showList();
            } else if (!m_session->isInLongStep()) {
                editor->reload();
            }
        } else if (auto* editor = qobject_cast<ClientEditor*>(m_editor)) {
            if (editor->client().isDeleted()) {
                showList();
            } else {
                editor->reload();
            }
        }
    }
    // A large list is fetched again only when it shows: edits in an editor stay quick.
    m_listDirty = m_stack->currentWidget() != m_listPage;
    if (m_listModel != nullptr && !m_listDirty) {
        ManagedObject* selected = currentObject();
        m_listModel->reload();
        m_listCount->setText(loc("%1 shown", QString::number(m_listModel->rowCount())));
        if (const int row = m_listModel->rowOf(selected); row >= 0) {
            m_listView->selectRow(row);
        }
    }
    updateActions();
}

void DocumentWindow::tell(const QString& title, const QString& text) {
    m_lastMessage = text;
    statusBar()->showMessage(text, 8000);
    if (QApplication::platformName() == QStringLiteral("offscreen")) {
        return;  // Nobody could press the button: the status bar and the log carry it.
    }
    auto* box = new QMessageBox(QMessageBox::Warning, title, text, QMessageBox::Ok, this);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->open();
}

ManagedObject* DocumentWindow::newObject(const std::string& entity) {
    BLClient* client = nullptr;
    if (ManagedObject* current = currentObject()) {
        client = dynamic_cast<BLClient*>(current);
        if (client == nullptr) {
            if (auto* sendable = dynamic_cast<BLSendable*>(current)) {
                client = sendable->client();
            }
        }
    }
    BLBase* made = nullptr;
    const QString word = loc(entity == "CatalogItem" ? std::string_view("Catalog Item") : std::string_view(entity));
    m_session->perform(loc("New %1", word), [&] {
        made = dynamic_cast<BLBase*>(m_session->context().insertNewObjectForEntityForName(entity));
        if (made == nullptr) {
            return;
        }
        // As a person makes it: the set-up first, then the client it belongs to.
        made->setup();
        if (auto* sendable = dynamic_cast<BLSendable*>(made); sendable != nullptr && client != nullptr) {
            sendable->setParentDocument(client);
        }
    });
    if (made == nullptr) {
        tell(loc("Nothing was made"), loc("A %1 can't be made here.", word));
        return nullptr;
    }
    if (entity == "Client" && m_source != Source::Clients) {
        showSource(Source::Clients);
    } else if (entity == "Invoice" && m_source != Source::Invoices) {
        showSource(Source::Invoices);
    } else if (entity == "Estimate" && m_source != Source::Estimates) {
        showSource(Source::Estimates);
    } else if (entity == "CatalogItem" && m_source != Source::Catalog) {
        showSource(Source::Catalog);
    }
    m_listModel->reload();
    if (!showObject(made)) {
        m_listView->selectRow(m_listModel->rowOf(made));
    }
    return made;
}

bool DocumentWindow::issueCurrent(bool askFirst) {
    std::vector<BLSendable*> documents = selectedSendables();
    if (documents.empty()) {
        return false;
    }
    SendSheet sheet = startIssue(documents);
    if (!sheet.proceed) {
        tell(loc("The document can't be issued"),
             sheet.alert ? qs(sheet.alert->title + ": " + sheet.alert->text) : loc("The issue was stopped."));
        return false;
    }
    std::optional<IssueRequest> request;
    if (askFirst) {
        request = askIssue(this, documents, sheet);
        if (!request) {
            return false;
        }
    } else {
        request = IssueRequest{documents, sheet.date, sheet.payInterval, SendRoute::Save};
    }
    IssueResult result;
    m_session->perform(loc("Issue"), [&] { result = issueDocuments(*request); });
    if (!result.issued) {
        tell(loc("The document can't be issued"), qs(result.message));
        return false;
    }
    QStringList notes;
    for (const std::string& note : result.notes) {
        notes << qs(note);
    }
    QStringList numbers;
    for (const std::string& number : result.numbers) {
        numbers << qs(number);
    }
    m_lastMessage = numbers.isEmpty() ? loc("Issued.") : loc("Issued %1.", numbers.join(QStringLiteral(", ")));
    if (!notes.isEmpty()) {
        m_lastMessage += QLatin1Char(' ') + notes.join(QLatin1Char(' '));
    }
    statusBar()->showMessage(m_lastMessage, 8000);
    if (!result.saved) {
        tell(loc("The company file can't be saved"), qs(result.message));
    }
    refresh();
    return true;
}

bool DocumentWindow::unlockCurrent() {
    std::vector<BLSendable*> documents = selectedSendables();
    if (documents.empty()) {
        return false;
    }
    BLTranscript* transcript = nullptr;
    m_session->perform(loc("Unlock"), [&] { transcript = unlockSendable(*documents.front()); });
    if (transcript == nullptr) {
        tell(loc("Nothing to unlock"), loc("%1 is a draft.", qs(documents.front()->displayName())));
        return false;
    }
    statusBar()->showMessage(loc("Unlocked; the issued copy is kept in the transcript."), 8000);
    refresh();
    return true;
}

BLSendable* DocumentWindow::duplicateCurrent() {
    std::vector<BLSendable*> documents = selectedSendables();
    if (documents.empty()) {
        return nullptr;
    }
    BLSendable* made = nullptr;
    m_session->perform(loc("Duplicate"), [&] { made = duplicateSendable(*documents.front()); });
    if (made == nullptr) {
        tell(loc("Nothing was made"), loc("%1 can't be duplicated.", qs(documents.front()->displayName())));
        return nullptr;
    }
    showObject(made);
    return made;
}

BLSendable* DocumentWindow::convertCurrent(const std::string& target) {
    std::vector<BLSendable*> documents = selectedSendables();
    if (documents.empty()) {
        return nullptr;
    }
    BLSendable* source = documents.front();
    BLSendable* made = nullptr;
    m_session->perform(loc("Convert"), [&] {
        if (auto* estimate = dynamic_cast<BLEstimate*>(source); estimate != nullptr && target == "invoice") {
            made = createInvoice(*estimate);
        } else if (auto* invoice = dynamic_cast<BLInvoice*>(source); invoice != nullptr && target == "estimate") {
            made = createEstimate(*invoice);
        } else if (invoice != nullptr && target == "credit-note") {
            made = createCreditNote(*invoice);
        }
    });
    if (made == nullptr) {
        tell(loc("Nothing was made"), loc("%1 can't be converted that way.", qs(source->displayName())));
        return nullptr;
    }
    showObject(made);
    return made;
}

bool DocumentWindow::settleCurrent(int16_t mode) {
    std::vector<BLSendable*> documents = selectedSendables();
    if (documents.empty()) {
        return false;
    }
    m_session->perform(loc("Mark"), [&] {
        for (BLSendable* sendable : documents) {
            sendable->setCompleteMode(mode);
        }
    });
    refresh();
    return true;
}

bool DocumentWindow::deleteCurrent() {
    if (DocumentEditor* editor = documentEditor(); editor != nullptr && editor->itemView()->hasFocus()) {
        editor->deleteSelectedItems();
        return true;
    }
    std::vector<ManagedObject*> objects;
    if (m_stack->currentWidget() == m_listPage && m_listModel != nullptr && m_listView->selectionModel() != nullptr) {
        for (const QModelIndex& row : m_listView->selectionModel()->selectedRows()) {
            objects.push_back(m_listModel->objectAt(row.row()));
        }
    } else if (ManagedObject* current = currentObject()) {
        objects.push_back(current);
    }
    if (objects.empty()) {
        return false;
    }
    QStringList refused;
    m_session->perform(loc("Delete"), [&] {
        for (ManagedObject* object : objects) {
            auto* base = dynamic_cast<BLBase*>(object);
            const QString name = base != nullptr ? qs(base->displayName()) : qs(object->entityName());
            std::string reason;
            if (base == nullptr || !base->canDelete()) {
                refused << loc("%1 can't be deleted.", name);
            } else if (!m_session->context().deleteObject(object, &reason)) {
                refused << loc("%1 can't be deleted: %2", name, qs(reason));
            }
        }
    });
    if (!refused.isEmpty()) {
        tell(loc("Not deleted"), refused.join(QLatin1Char('\n')));
    }
    showList();
    refresh();
    return refused.size() < static_cast<qsizetype>(objects.size());
}

void DocumentWindow::openPreferences() {
    PreferencesDialog dialog(*m_session, this);
    dialog.exec();
    refresh();
}

void DocumentWindow::closeEvent(QCloseEvent* event) {
    // The field being edited commits as it loses the focus, before the file is saved.
    if (QWidget* focused = QApplication::focusWidget(); focused != nullptr && isAncestorOf(focused)) {
        focused->clearFocus();
    }
    QString error;
    if (!m_session->flush(&error)) {
        tell(loc("The company file can't be saved"), error);
        event->ignore();
        return;
    }
    event->accept();
    // Nothing may point into the file once the controller closes it: the editor and the
    // list go now, not when the window is deleted later.
    showList();
    m_closed = true;
    m_refreshTimer->stop();
    m_session->disconnect(this);
    delete m_editor;
    m_editor = nullptr;
    m_listView->setModel(nullptr);
    delete m_listModel;
    m_listModel = nullptr;
    Q_EMIT closed();
}

}  // namespace brassline::desktop
