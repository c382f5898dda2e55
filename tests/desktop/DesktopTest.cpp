#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QMimeData>
#include <QPushButton>
#include <QRegularExpression>
#include <QTableView>
#include <QTableWidget>
#include <QTemporaryDir>
#include <QTest>
#include <QTreeView>

#include "app/desktop/ClientEditor.h"
#include "app/desktop/CompanySetup.h"
#include "app/desktop/DesktopShell.h"
#include "app/desktop/DesktopText.h"
#include "app/desktop/DocumentEditor.h"
#include "app/desktop/DocumentSession.h"
#include "app/desktop/DocumentWindow.h"
#include "app/desktop/ItemTreeModel.h"
#include "app/desktop/NumberingText.h"
#include "app/desktop/ObjectTableModel.h"
#include "app/desktop/PagePreview.h"
#include "app/desktop/PreferencesDialog.h"
#include "app/desktop/SetupDialog.h"
#include "core/Date.h"
#include "core/Decimal.h"
#include "core/Localization.h"
#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLProfile.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTaxGroup.h"
#include "store/BLDoc.h"
#include "store/BLDocumentController.h"

using namespace brassline;
using namespace brassline::desktop;

namespace {

// Types into a cell of the item tree as a person does: select it, start editing, type,
// and confirm with Return (or leave with Escape).
void typeIntoCell(QTreeView* view, const QModelIndex& index, const QString& text, int finalKey = Qt::Key_Return) {
    view->setCurrentIndex(index);
    view->edit(index);
    auto* editor = qobject_cast<QLineEdit*>(QApplication::focusWidget());
    QVERIFY2(editor != nullptr, "no line editor opened on the cell");
    editor->selectAll();
    QTest::keyClicks(editor, text);
    QTest::keyClick(editor, static_cast<Qt::Key>(finalKey));
    // The view commits and closes its editor on the next turn of the event loop.
    QApplication::processEvents();
}

void typeIntoField(QLineEdit* field, const QString& text) {
    field->setFocus();
    field->selectAll();
    // Key events exist for ASCII only; other letters arrive as an input method's text.
    bool ascii = true;
    for (QChar c : text) {
        ascii = ascii && c.unicode() < 128;
    }
    if (ascii) {
        QTest::keyClicks(field, text);
    } else {
        field->insert(text);
    }
    QTest::keyClick(field, Qt::Key_Return);
    QApplication::processEvents();
}

QString cell(ItemTreeModel* model, int row, int column) {
    return model->data(model->index(row, column), Qt::DisplayRole).toString();
}

}  // namespace

class DesktopTest : public QObject {
    Q_OBJECT

private Q_SLOTS:
    void initTestCase();
    void cleanupTestCase();
    void init();
    void cleanup();

    void patternTextReadsOnlyTheKindsTokens();
    void qtsEventLoopDrivesTheRunLoop();
    void companyClientAndInvoiceWithThreeLines();
    void totalsFollowTheQuantityAsItIsTyped();
    void escapeTakesTypedValuesBack();
    void undoRestoresTheOldValueInOneStep();
    void issueGivesTheNumberAndLocksTheEditor();
    void deleteFollowsTheModelsRules();
    void dragAndDropMovesThroughTheDropRule();
    void catalogLookupInsertsTheItem();
    void listsSearchAndSortThroughFetches();
    void clientEditorRefusesAWrongIBAN();
    void numbersPreviewBeforeTheyAreStored();
    void previewWaitsForTheLayoutEngine();
    void launchReopensTheLastSessionsFile();
    void theWindowSpeaksTheSystemsLanguage();
    void setUpAnswersBecomeTheCompanysData();
    void aPatternThatDoesNotReadMakesNoFile();
    void conversionsAndDuplicatesOpenTheNewDraft();
    void taxRatesAndDiscountChangeTheTotals();
    void clientCountryFormatsTheAddress();
    void messagesOfTheCommandLayerReadPlainly();
    void everyKindOfItemTakesItsPlaceInTheTree();
    void taxColumnChoosesTheLinesTaxGroup();
    void deleteKeyInTheTreeRemovesTheSelectedLines();

private:
    // A company with a client and a draft invoice of three lines, made through the window.
    DocumentEditor* makeInvoice();

    QTemporaryDir* m_home = nullptr;
    DesktopShell* m_shell = nullptr;
    DocumentWindow* m_window = nullptr;
    int m_company = 0;
};

void DesktopTest::initTestCase() {
    Clock::setNow(Date::dateWithYear(2026, 11, 25));
}

void DesktopTest::cleanupTestCase() {
    Clock::setNow(std::nullopt);
}

void DesktopTest::init() {
    m_home = new QTemporaryDir;
    QVERIFY(m_home->isValid());
    qputenv("HOME", m_home->path().toLocal8Bit());
    m_shell = new DesktopShell;
    // The clock stands still in these tests: a recent list of this test's files only.
    m_shell->clearRecentFiles();
    SetupDialog setup;
    QTest::keyClicks(setup.field(QStringLiteral("company")), QStringLiteral("Atelier %1").arg(++m_company));
    setup.field(QStringLiteral("folder"))->setText(m_home->path());
    QTest::keyClicks(setup.field(QStringLiteral("street")), QStringLiteral("Hafenstraße 1"));
    QString error;
    m_window = m_shell->createCompany(setup.path(), setup.setup(), &error);
    QVERIFY2(m_window != nullptr, qPrintable(error));
    QVERIFY(QFileInfo::exists(setup.path()));
    m_window->show();
    m_window->activateWindow();
    QVERIFY(QTest::qWaitForWindowExposed(m_window));
}

void DesktopTest::cleanup() {
    delete m_shell;
    m_shell = nullptr;
    m_window = nullptr;
    BLDocumentController::resetSharedForTesting();
    delete m_home;
    m_home = nullptr;
}

DocumentEditor* DesktopTest::makeInvoice() {
    m_window->action(QStringLiteral("newClient"))->trigger();
    ClientEditor* client = m_window->clientEditor();
    if (client == nullptr) {
        return nullptr;
    }
    typeIntoField(client->field("organization"), QStringLiteral("Miller & Sons"));
    m_window->action(QStringLiteral("newInvoice"))->trigger();
    DocumentEditor* editor = m_window->documentEditor();
    if (editor == nullptr) {
        return nullptr;
    }
    const struct {
        const char* name;
        const char* quantity;
        const char* price;
    } lines[] = {{"Design", "10", "85"}, {"Hosting", "12", "19.99"}, {"Domain", "1", "12"}};
    for (const auto& line : lines) {
        editor->addItem("Cost");
        auto* nameEditor = qobject_cast<QLineEdit*>(QApplication::focusWidget());
        if (nameEditor == nullptr) {
            return nullptr;
        }
        QTest::keyClicks(nameEditor, QString::fromLatin1(line.name));
        QTest::keyClick(nameEditor, Qt::Key_Return);
        QApplication::processEvents();
        const int row = editor->itemModel()->rowCount() - 1;
        typeIntoCell(editor->itemView(), editor->itemModel()->index(row, ItemTreeModel::Quantity),
                     QString::fromLatin1(line.quantity));
        typeIntoCell(editor->itemView(), editor->itemModel()->index(row, ItemTreeModel::Price),
                     QString::fromLatin1(line.price));
    }
    return editor;
}

void DesktopTest::patternTextReadsOnlyTheKindsTokens() {
    std::optional<NumberPattern> invoice = parsePatternText("RE-{Year}-{Increment3}", "invoice");
    QVERIFY(invoice.has_value());
    QCOMPARE(invoice->size(), size_t{4});
    QCOMPARE(QString::fromStdString((*invoice)[1].field), QStringLiteral("year"));
    QCOMPARE(QString::fromStdString(patternText(*invoice)), QStringLiteral("RE-{Year}-{Increment3}"));
    std::string error;
    // An estimate counts on its own counter; a client number knows no year.
    QVERIFY(!parsePatternText("AN-{Increment3}", "estimate", &error));
    QVERIFY(error.find("{Increment3}") != std::string::npos);
    QVERIFY(parsePatternText("AN-{EstimateIncrement3}", "estimate").has_value());
    QVERIFY(!parsePatternText("{Year}", "client"));
    QVERIFY(!parsePatternText("RE-{Year", "invoice"));
    QVERIFY(!parsePatternText("RE-}", "invoice"));
    QCOMPARE(parsePatternText("", "invoice")->size(), size_t{0});
}

void DesktopTest::qtsEventLoopDrivesTheRunLoop() {
    // Work the model posts and its timers run while Qt waits for the person.
    bool performed = false;
    bool delayed = false;
    RunLoop::main().perform([&performed] { performed = true; });
    RunLoop::main().performAfterDelay(0.05, [&delayed] { delayed = true; });
    QTRY_VERIFY_WITH_TIMEOUT(performed, 2000);
    QTRY_VERIFY_WITH_TIMEOUT(delayed, 2000);
    // Changes made outside a step of the window close their undo group at the end of the
    // turn, so the window's own next step is a step of its own.
    UndoManager* undo = m_window->session().undoManager();
    QVERIFY(undo != nullptr);
    m_window->action(QStringLiteral("newClient"))->trigger();
    BLClient& client = m_window->clientEditor()->client();
    client.setCity(std::string("Lübeck"));
    QTRY_VERIFY_WITH_TIMEOUT(undo->groupingLevel() == 0, 2000);
    typeIntoField(m_window->clientEditor()->field("zip"), QStringLiteral("23552"));
    m_window->action(QStringLiteral("undo"))->trigger();
    QCOMPARE(QString::fromStdString(client.city().value_or("")), QString::fromUtf8("Lübeck"));
    QVERIFY(!client.zip().has_value());
}

void DesktopTest::companyClientAndInvoiceWithThreeLines() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    BLSendable& invoice = editor->document();
    QVERIFY(invoice.client() != nullptr);
    QCOMPARE(QString::fromStdString(invoice.client()->organization().value_or("")), QStringLiteral("Miller & Sons"));
    QCOMPARE(editor->itemModel()->rowCount(), 3);
    QCOMPARE(cell(editor->itemModel(), 1, ItemTreeModel::Name), QStringLiteral("Hosting"));
    // 10 × 85 + 12 × 19.99 + 1 × 12 = 850 + 239.88 + 12 = 1,101.88 net; 19 % of it is
    // 209.3572, 209.36 rounded; 1,311.24 in all.
    QCOMPARE(invoice.cost().toString(), std::string("1101.88"));
    QCOMPARE(invoice.costWithTaxes().toString(), std::string("1311.24"));
    QVERIFY2(editor->totalsLabel()->text().contains(QStringLiteral("1,311.24")),
             qPrintable(editor->totalsLabel()->text()));
    // The invoice shows in the list as a draft of that client.
    m_window->showSource(Source::Invoices);
    QCOMPARE(m_window->listModel()->rowCount(), 1);
    QCOMPARE(m_window->listModel()->data(m_window->listModel()->index(0, 6), Qt::DisplayRole).toString(),
             QStringLiteral("Draft"));
}

void DesktopTest::totalsFollowTheQuantityAsItIsTyped() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    const QString before = editor->totalsLabel()->text();
    QTreeView* view = editor->itemView();
    const QModelIndex quantity = editor->itemModel()->index(0, ItemTreeModel::Quantity);
    view->setCurrentIndex(quantity);
    view->edit(quantity);
    auto* field = qobject_cast<QLineEdit*>(QApplication::focusWidget());
    QVERIFY(field != nullptr);
    field->selectAll();
    // Still typing, nothing confirmed: 20 × 85 = 1,700 net in the first line, so
    // 1,700 + 239.88 + 12 = 1,951.88 net, 370.8572 tax, 2,322.74 in all.
    QTest::keyClicks(field, QStringLiteral("20"));
    QVERIFY(editor->totalsLabel()->text() != before);
    QVERIFY2(editor->totalsLabel()->text().contains(QStringLiteral("2,322.74")),
             qPrintable(editor->totalsLabel()->text()));
    QCOMPARE(cell(editor->itemModel(), 0, ItemTreeModel::Total), QStringLiteral("1,700.00"));
    QTest::keyClick(field, Qt::Key_Return);
    QApplication::processEvents();
    QVERIFY(editor->totalsLabel()->text().contains(QStringLiteral("2,322.74")));
    QCOMPARE(static_cast<BLCost*>(editor->itemModel()->itemAt(quantity))->quantity()->toString(), std::string("20"));
}

void DesktopTest::escapeTakesTypedValuesBack() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    const QString before = editor->totalsLabel()->text();
    const QModelIndex quantity = editor->itemModel()->index(1, ItemTreeModel::Quantity);
    typeIntoCell(editor->itemView(), quantity, QStringLiteral("99"), Qt::Key_Escape);
    QCOMPARE(cell(editor->itemModel(), 1, ItemTreeModel::Quantity), QStringLiteral("12"));
    QCOMPARE(editor->totalsLabel()->text(), before);
    // Half a number changes nothing while it doesn't read.
    typeIntoCell(editor->itemView(), quantity, QStringLiteral("abc"));
    QCOMPARE(cell(editor->itemModel(), 1, ItemTreeModel::Quantity), QStringLiteral("12"));
}

void DesktopTest::undoRestoresTheOldValueInOneStep() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    QAction* undo = m_window->action(QStringLiteral("undo"));
    QAction* redo = m_window->action(QStringLiteral("redo"));
    // Two keys typed into the quantity are one step: one undo brings back 10, not 1.
    typeIntoCell(editor->itemView(), editor->itemModel()->index(0, ItemTreeModel::Quantity), QStringLiteral("25"));
    QCOMPARE(cell(editor->itemModel(), 0, ItemTreeModel::Quantity), QStringLiteral("25"));
    undo->trigger();
    QApplication::processEvents();
    editor = m_window->documentEditor();
    QCOMPARE(cell(editor->itemModel(), 0, ItemTreeModel::Quantity), QStringLiteral("10"));
    QVERIFY(editor->totalsLabel()->text().contains(QStringLiteral("1,311.24")));
    redo->trigger();
    QApplication::processEvents();
    QCOMPARE(cell(editor->itemModel(), 0, ItemTreeModel::Quantity), QStringLiteral("25"));

    typeIntoField(editor->subjectField(), QStringLiteral("Online shop"));
    QCOMPARE(QString::fromStdString(editor->document().subject().value_or("")), QStringLiteral("Online shop"));
    QVERIFY(undo->text().contains(QStringLiteral("Subject")));
    undo->trigger();
    QApplication::processEvents();
    QVERIFY(!editor->document().subject().has_value());
    QCOMPARE(editor->subjectField()->text(), QString());
}

void DesktopTest::issueGivesTheNumberAndLocksTheEditor() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    QVERIFY(!editor->isLocked());
    QVERIFY(m_window->issueCurrent(false));
    QApplication::processEvents();
    BLSendable& invoice = editor->document();
    QCOMPARE(QString::fromStdString(invoice.name().value_or("")), QStringLiteral("INV-2026-001"));
    QVERIFY(m_window->lastMessage().contains(QStringLiteral("INV-2026-001")));
    QVERIFY(editor->isLocked());
    QVERIFY(!editor->subjectField()->isEnabled());
    const QModelIndex quantity = editor->itemModel()->index(0, ItemTreeModel::Quantity);
    QVERIFY(!(editor->itemModel()->flags(quantity) & Qt::ItemIsEditable));
    QVERIFY(!editor->itemModel()->setData(quantity, QStringLiteral("3"), Qt::EditRole));
    QCOMPARE(cell(editor->itemModel(), 0, ItemTreeModel::Quantity), QStringLiteral("10"));
    QVERIFY(!m_window->action(QStringLiteral("issue"))->isEnabled());
    QVERIFY(m_window->action(QStringLiteral("unlock"))->isEnabled());
    // Its state in word and colour follows the closing mark the person sets.
    QCOMPARE(statusBadge(invoice).word, QStringLiteral("Open"));
    QVERIFY(m_window->settleCurrent(2));
    QCOMPARE(statusBadge(invoice).word, QStringLiteral("Canceled"));
    QVERIFY(m_window->settleCurrent(0));
    QCOMPARE(statusBadge(invoice).word, QStringLiteral("Open"));
    // Unlocked it is a draft again with its number kept.
    QVERIFY(m_window->unlockCurrent());
    QVERIFY(!editor->isLocked());
    QCOMPARE(QString::fromStdString(invoice.name().value_or("")), QStringLiteral("INV-2026-001"));
}

void DesktopTest::deleteFollowsTheModelsRules() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    BLSendable* issued = &editor->document();
    QVERIFY(m_window->issueCurrent(false));
    m_window->action(QStringLiteral("newInvoice"))->trigger();
    BLSendable* draft = &m_window->documentEditor()->document();
    m_window->showSource(Source::Invoices);
    QCOMPARE(m_window->listModel()->rowCount(), 2);
    // An issued invoice stays: the model refuses, the window says so.
    m_window->listView()->selectRow(m_window->listModel()->rowOf(issued));
    QVERIFY(!m_window->deleteCurrent());
    QVERIFY(!issued->isDeleted());
    QVERIFY(m_window->lastMessage().contains(QStringLiteral("can't be deleted")));
    m_window->listView()->selectRow(m_window->listModel()->rowOf(draft));
    QVERIFY(m_window->deleteCurrent());
    QCOMPARE(m_window->listModel()->rowCount(), 1);
    m_window->action(QStringLiteral("undo"))->trigger();
    QApplication::processEvents();
    QCOMPARE(m_window->listModel()->rowCount(), 2);
}

void DesktopTest::dragAndDropMovesThroughTheDropRule() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    ItemTreeModel* model = editor->itemModel();
    // Domain to the top: the rows read Domain, Design, Hosting.
    std::unique_ptr<QMimeData> domain(model->mimeData({model->index(2, ItemTreeModel::Position)}));
    QVERIFY(model->canDropMimeData(domain.get(), Qt::MoveAction, 0, 0, {}));
    model->dropMimeData(domain.get(), Qt::MoveAction, 0, 0, {});
    QCOMPARE(cell(model, 0, ItemTreeModel::Name), QStringLiteral("Domain"));
    QCOMPARE(cell(model, 1, ItemTreeModel::Name), QStringLiteral("Design"));
    QCOMPARE(cell(model, 2, ItemTreeModel::Name), QStringLiteral("Hosting"));
    // Into a group go lines; a title is refused there, and nothing goes into itself.
    editor->itemView()->clearSelection();
    editor->addItem("Group");
    QApplication::processEvents();
    const QModelIndex group = model->index(3, ItemTreeModel::Position);
    std::unique_ptr<QMimeData> design(model->mimeData({model->index(1, ItemTreeModel::Position)}));
    QVERIFY(model->canDropMimeData(design.get(), Qt::MoveAction, -1, 0, group));
    model->dropMimeData(design.get(), Qt::MoveAction, -1, 0, group);
    QCOMPARE(model->rowCount(), 3);
    QCOMPARE(model->rowCount(model->index(2, 0)), 1);
    editor->addItem("Title");
    QApplication::processEvents();
    std::unique_ptr<QMimeData> title(model->mimeData({model->index(3, ItemTreeModel::Position)}));
    QVERIFY(!model->canDropMimeData(title.get(), Qt::MoveAction, -1, 0, model->index(2, 0)));
    std::unique_ptr<QMimeData> groupData(model->mimeData({model->index(2, ItemTreeModel::Position)}));
    QVERIFY(!model->canDropMimeData(groupData.get(), Qt::MoveAction, -1, 0, model->index(2, 0)));
    // The totals are the same lines wherever they stand: 1,311.24.
    QVERIFY(editor->totalsLabel()->text().contains(QStringLiteral("1,311.24")));
    // Three steps back (the title, the move into the group, the group): Design is a line again.
    m_window->action(QStringLiteral("undo"))->trigger();
    m_window->action(QStringLiteral("undo"))->trigger();
    m_window->action(QStringLiteral("undo"))->trigger();
    QApplication::processEvents();
    QCOMPARE(cell(editor->itemModel(), 1, ItemTreeModel::Name), QStringLiteral("Design"));
}

void DesktopTest::catalogLookupInsertsTheItem() {
    m_window->action(QStringLiteral("newCatalogItem"))->trigger();
    ManagedObject* item = m_window->listModel()->objectAt(0);
    QVERIFY(item != nullptr);
    m_window->session().perform(QStringLiteral("Catalog"), [item] {
        item->setValueForKey(Value(std::string("Consulting")), "name");
        item->setValueForKey(Value(*Decimal::parse("120")), "unitPrice");
    });
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    QLineEdit* catalog = editor->catalogField();
    catalog->setFocus();
    QTest::keyClicks(catalog, QStringLiteral("consulting"));
    QTest::keyClick(catalog, Qt::Key_Return);
    QApplication::processEvents();
    QCOMPARE(editor->itemModel()->rowCount(), 4);
    QCOMPARE(catalog->text(), QString());
    bool found = false;
    for (int row = 0; row < 4; ++row) {
        found = found || (cell(editor->itemModel(), row, ItemTreeModel::Name) == QStringLiteral("Consulting") &&
                          cell(editor->itemModel(), row, ItemTreeModel::Price) == QStringLiteral("120.00"));
    }
    QVERIFY(found);
    // A name the catalog doesn't hold inserts nothing.
    QTest::keyClicks(catalog, QStringLiteral("nothing like it"));
    QTest::keyClick(catalog, Qt::Key_Return);
    QCOMPARE(editor->itemModel()->rowCount(), 4);
}

void DesktopTest::listsSearchAndSortThroughFetches() {
    for (const char* name : {"Weber GmbH", "Dupont SA", "Müller Bau"}) {
        m_window->action(QStringLiteral("newClient"))->trigger();
        typeIntoField(m_window->clientEditor()->field("organization"), QString::fromUtf8(name));
    }
    m_window->showSource(Source::Clients);
    ObjectTableModel* model = m_window->listModel();
    QCOMPARE(model->rowCount(), 3);
    // Sorted by name: Dupont, Müller, Weber; reversed by the header.
    QCOMPARE(model->data(model->index(0, 1), Qt::DisplayRole).toString(), QStringLiteral("Dupont SA"));
    m_window->listView()->sortByColumn(1, Qt::DescendingOrder);
    QCOMPARE(model->data(model->index(0, 1), Qt::DisplayRole).toString(), QStringLiteral("Weber GmbH"));
    // Every word must match somewhere, accents and case ignored.
    QTest::keyClicks(m_window->searchField(), QStringLiteral("muller"));
    QCOMPARE(model->rowCount(), 1);
    QCOMPARE(model->data(model->index(0, 1), Qt::DisplayRole).toString(), QString::fromUtf8("Müller Bau"));
    m_window->searchField()->clear();
    QTest::keyClicks(m_window->searchField(), QStringLiteral("gmbh dupont"));
    QCOMPARE(model->rowCount(), 0);
    m_window->searchField()->clear();
    QCOMPARE(model->rowCount(), 3);
    // Search text with quotes is an argument, never predicate syntax.
    QTest::keyClicks(m_window->searchField(), QStringLiteral("' OR 1 == 1"));
    QCOMPARE(model->rowCount(), 0);
}

void DesktopTest::clientEditorRefusesAWrongIBAN() {
    m_window->action(QStringLiteral("newClient"))->trigger();
    ClientEditor* editor = m_window->clientEditor();
    QVERIFY(editor != nullptr);
    typeIntoField(editor->field("iban"), QStringLiteral("DE88 3704 0044 0532 0130 00"));
    QVERIFY(editor->problem("iban").contains(QStringLiteral("check digits")));
    QVERIFY(!editor->client().iban().has_value());
    typeIntoField(editor->field("iban"), QStringLiteral("DE89 3704 0044 0532 0130"));
    QVERIFY(editor->problem("iban").contains(QStringLiteral("22")));
    typeIntoField(editor->field("iban"), QStringLiteral("DE89 3704 0044 0532 0130 00"));
    QCOMPARE(editor->problem("iban"), QString());
    QCOMPARE(QString::fromStdString(editor->client().iban().value_or("")),
             QStringLiteral("DE89 3704 0044 0532 0130 00"));
    typeIntoField(editor->field("bic"), QStringLiteral("COBADEF"));
    QVERIFY(!editor->problem("bic").isEmpty());
    QVERIFY(!editor->client().bic().has_value());
    typeIntoField(editor->field("email"), QStringLiteral("anna.example"));
    QVERIFY(!editor->problem("email").isEmpty());
    typeIntoField(editor->field("email"), QStringLiteral("anna@weber.example"));
    QCOMPARE(QString::fromStdString(editor->client().email().value_or("")), QStringLiteral("anna@weber.example"));
}

void DesktopTest::numbersPreviewBeforeTheyAreStored() {
    PreferencesDialog preferences(m_window->session());
    QLineEdit* field = preferences.patternField(QStringLiteral("invoice"));
    QVERIFY(field != nullptr);
    QCOMPARE(field->text(), QStringLiteral("INV-{Year}-{Increment3}"));
    QCOMPARE(preferences.patternPreview(QStringLiteral("invoice")), QStringLiteral("Next: INV-2026-001"));
    field->selectAll();
    QTest::keyClicks(field, QStringLiteral("R{ShortYear}/{Increment5"));
    QVERIFY(preferences.patternPreview(QStringLiteral("invoice")).contains(QStringLiteral("not closed")));
    QTest::keyClicks(field, QStringLiteral("}"));
    // The slash of a literal stays; token answers never carry one.
    QCOMPARE(preferences.patternPreview(QStringLiteral("invoice")), QStringLiteral("Next: R26/00001"));
    QTest::keyClick(field, Qt::Key_Return);
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    QVERIFY(m_window->issueCurrent(false));
    QCOMPARE(QString::fromStdString(editor->document().name().value_or("")), QStringLiteral("R26/00001"));
}

void DesktopTest::previewWaitsForTheLayoutEngine() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    QCOMPARE(editor->preview()->pageCount(), size_t{0});
    QVERIFY(editor->preview()->message().contains(QStringLiteral("layout engine")));
    // Once an engine is installed, the preview draws the pages it lays out.
    PageRendererHooks& hooks = pageRendererHooks();
    hooks.layoutPages = [](BLSendable&) {
        return std::optional<std::vector<std::pair<double, double>>>({{595.0, 842.0}, {595.0, 842.0}});
    };
    hooks.drawPage = [](BLSendable&, size_t, double, uint8_t* pixels, int, int height, int stride) {
        pixels[static_cast<size_t>(stride) * static_cast<size_t>(height / 2)] = 0;
        return true;
    };
    editor->preview()->showDocument(&editor->document());
    QCOMPARE(editor->preview()->pageCount(), size_t{2});
    hooks = PageRendererHooks{};
}

void DesktopTest::launchReopensTheLastSessionsFile() {
    const QString path = QString::fromStdString(m_window->session().document().fileURL());
    m_window->action(QStringLiteral("newClient"))->trigger();
    typeIntoField(m_window->clientEditor()->field("organization"), QStringLiteral("Weber GmbH"));
    QVERIFY(m_shell->quit());
    QVERIFY(m_shell->windows().empty());
    QCOMPARE(BLDocumentController::shared().documentCount(), size_t{0});
    delete m_shell;
    m_shell = new DesktopShell;
    QCOMPARE(m_shell->launch(), size_t{1});
    DocumentWindow* window = m_shell->windows().front();
    QCOMPARE(QString::fromStdString(window->session().document().fileURL()), path);
    // What was typed before the quit was saved with the file.
    window->showSource(Source::Clients);
    QCOMPARE(window->listModel()->rowCount(), 1);
    QCOMPARE(window->listModel()->data(window->listModel()->index(0, 1), Qt::DisplayRole).toString(),
             QStringLiteral("Weber GmbH"));
    // One window per file: opening it again brings the same window.
    QCOMPARE(m_shell->openFile(path), window);
    // The clock stands still in these tests, so every record is equally new: it is listed.
    QVERIFY(m_shell->recentFiles().contains(path));
    QString error;
    QVERIFY(m_shell->openFile(m_home->filePath(QStringLiteral("Nothing.brassline")), &error) == nullptr);
    QVERIFY(!error.isEmpty());
    m_window = window;
}

void DesktopTest::theWindowSpeaksTheSystemsLanguage() {
    // The language comes from the environment at start; here it is set as a German
    // system would set it, for a window opened afterwards.
    setCurrentLanguage("de_DE.UTF-8");
    const QString path = QString::fromStdString(m_window->session().document().fileURL());
    m_window->close();
    QApplication::processEvents();
    DocumentWindow* window = m_shell->openFile(path);
    QVERIFY(window != nullptr);
    QCOMPARE(window->action(QStringLiteral("newInvoice"))->text(), QStringLiteral("Neue Rechnung"));
    QCOMPARE(window->action(QStringLiteral("issue"))->text(), QString::fromUtf8("Ausstellen …"));
    window->action(QStringLiteral("newInvoice"))->trigger();
    DocumentEditor* editor = window->documentEditor();
    QVERIFY(editor != nullptr);
    QCOMPARE(statusBadge(editor->document()).word, QStringLiteral("Entwurf"));
    QCOMPARE(editor->itemModel()->headerData(ItemTreeModel::Quantity, Qt::Horizontal, Qt::DisplayRole).toString(),
             QStringLiteral("Menge"));
    setCurrentLanguage("");
    m_window = window;
}

void DesktopTest::setUpAnswersBecomeTheCompanysData() {
    SetupDialog setup;
    QPushButton* ok = nullptr;
    for (QPushButton* button : setup.findChildren<QPushButton*>()) {
        if (button->text() == QStringLiteral("Create")) {
            ok = button;
        }
    }
    QVERIFY(ok != nullptr);
    QVERIFY(!ok->isEnabled());  // No name, no file.
    setup.field(QStringLiteral("company"))->insert(QString::fromUtf8("Kraft/Söhne"));
    QVERIFY(ok->isEnabled());
    setup.field(QStringLiteral("folder"))->setText(m_home->path());
    // A slash in the name would make a folder: the file takes a dash instead.
    QCOMPARE(QFileInfo(setup.path()).fileName(), QString::fromUtf8("Kraft-Söhne.brassline"));
    QTest::keyClicks(setup.field(QStringLiteral("iban")), QStringLiteral("DE89370400440532013000"));
    setup.field(QStringLiteral("rate2"))->setText(QStringLiteral("7,5"));
    CompanySetup answers = setup.setup();
    QCOMPARE(answers.taxes.size(), size_t{2});
    QCOMPARE(answers.taxes[0].second.toString(), std::string("19"));
    // "7,5" reads as the lenient form of 7.5, as a German keyboard types it.
    QCOMPARE(answers.taxes[1].second.toString(), std::string("7.5"));
    QString error;
    DocumentWindow* window = m_shell->createCompany(setup.path(), answers, &error);
    QVERIFY2(window != nullptr, qPrintable(error));
    ManagedObjectContext& context = window->session().context();
    BLProfile* profile = BLContainer::defaultItemForContext<BLProfile>(context);
    QCOMPARE(QString::fromStdString(profile->organization().value_or("")), QString::fromUtf8("Kraft/Söhne"));
    QCOMPARE(QString::fromStdString(BLContainer::defaultItemForContext<BLPaymentType>(context)->iban().value_or("")),
             QStringLiteral("DE89370400440532013000"));
    // The set-up is part of the new file: nothing of it can be undone.
    QVERIFY(!window->session().canUndo());
    // A second company of the same name is refused, the first one untouched.
    QVERIFY(m_shell->createCompany(setup.path(), answers, &error) == nullptr);
    QVERIFY(error.contains(QStringLiteral("exists already")));
    // Without taxes the rates are not asked for.
    SetupDialog untaxed;
    untaxed.findChild<QCheckBox*>()->setChecked(false);
    QVERIFY(!untaxed.field(QStringLiteral("rate1"))->isEnabled());
    QVERIFY(untaxed.setup().taxes.empty());
}

void DesktopTest::aPatternThatDoesNotReadMakesNoFile() {
    CompanySetup answers = defaultCompanySetup();
    answers.companyName = "Broken";
    answers.invoicePattern = "RE-{Year";
    const QString path = m_home->filePath(QStringLiteral("Broken.brassline"));
    QString error;
    QVERIFY(m_shell->createCompany(path, answers, &error) == nullptr);
    QVERIFY(error.contains(QStringLiteral("invoice")));
    QVERIFY(!QFileInfo::exists(path));
}

void DesktopTest::conversionsAndDuplicatesOpenTheNewDraft() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    BLSendable* invoice = &editor->document();
    QVERIFY(m_window->issueCurrent(false));
    // A credit note: the same lines negated, in its own list and not among the invoices.
    BLSendable* note = m_window->convertCurrent("credit-note");
    QVERIFY(note != nullptr);
    QCOMPARE(&m_window->documentEditor()->document(), note);
    QCOMPARE(note->costWithTaxes().toString(), std::string("-1311.24"));
    m_window->showSource(Source::CreditNotes);
    QCOMPARE(m_window->listModel()->rowCount(), 1);
    m_window->showSource(Source::Invoices);
    QCOMPARE(m_window->listModel()->rowCount(), 1);
    // An invoice is no estimate: the estimate's conversion is refused and nothing is made.
    m_window->listView()->selectRow(0);
    QVERIFY(m_window->convertCurrent("invoice") == nullptr);
    QVERIFY(!m_window->action(QStringLiteral("toInvoice"))->isEnabled());
    // A duplicate is a fresh draft with the same lines and no number.
    m_window->listView()->selectRow(m_window->listModel()->rowOf(invoice));
    BLSendable* copy = m_window->duplicateCurrent();
    QVERIFY(copy != nullptr && copy != invoice);
    QVERIFY(copy->isDraft());
    QVERIFY(!copy->name().has_value());
    QCOMPARE(copy->costWithTaxes().toString(), std::string("1311.24"));
    // An estimate made from the invoice becomes an invoice again and is marked accepted.
    m_window->showSource(Source::Invoices);
    m_window->listView()->selectRow(m_window->listModel()->rowOf(invoice));
    BLSendable* estimate = m_window->convertCurrent("estimate");
    QVERIFY(estimate != nullptr);
    QVERIFY(m_window->action(QStringLiteral("toInvoice"))->isEnabled());
    BLSendable* again = m_window->convertCurrent("invoice");
    QVERIFY(again != nullptr);
    QCOMPARE(estimate->state(), int16_t{1});
    QCOMPARE(statusBadge(*estimate).word, QStringLiteral("Accepted"));
    // Unlocking a draft is nothing to do, and the window says so.
    QVERIFY(!m_window->unlockCurrent());
    QVERIFY(m_window->lastMessage().contains(QStringLiteral("draft")));
}

void DesktopTest::taxRatesAndDiscountChangeTheTotals() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    // 10 % off 1,101.88 is 110.19 (110.188 rounded), 991.69 net; 19 % of it is
    // 188.4211, so 188.42, and 1,180.11 in all.
    QLineEdit* discount = editor->findChild<QLineEdit*>(QString(), Qt::FindChildrenRecursively);
    QVERIFY(discount != nullptr);
    for (QLineEdit* field : editor->findChildren<QLineEdit*>()) {
        if (field->placeholderText() == QStringLiteral("0")) {
            discount = field;
        }
    }
    typeIntoField(discount, QStringLiteral("ten"));
    QVERIFY(!editor->document().discount().has_value());
    QCOMPARE(discount->toolTip(), QStringLiteral("This is not a number."));
    typeIntoField(discount, QStringLiteral("10"));
    QCOMPARE(editor->document().costWithTaxes().toString(), std::string("1180.11"));
    QVERIFY(editor->totalsLabel()->text().contains(QStringLiteral("1,180.11")));
    QVERIFY(editor->totalsLabel()->text().contains(QStringLiteral("-110.19")));
    // The rate changed in the preferences reaches the draft's lines: 20 % of 991.69 is
    // 198.338, so 198.34, and 1,190.03 in all.
    PreferencesDialog preferences(m_window->session());
    QTableWidget* taxes = preferences.taxTable();
    int row = -1;
    for (int n = 0; n < taxes->rowCount(); ++n) {
        if (taxes->item(n, 2)->text() == QStringLiteral("19")) {
            row = n;
        }
    }
    QVERIFY(row >= 0);
    taxes->item(row, 2)->setText(QStringLiteral("twenty"));
    QCOMPARE(taxes->item(row, 2)->text(), QStringLiteral("19"));
    taxes->item(row, 2)->setText(QStringLiteral("20"));
    QApplication::processEvents();
    editor->updateTotals();
    QCOMPARE(QString::fromStdString(editor->document().costWithTaxes().toString()), QStringLiteral("1190.03"));
}

void DesktopTest::clientCountryFormatsTheAddress() {
    m_window->action(QStringLiteral("newClient"))->trigger();
    ClientEditor* editor = m_window->clientEditor();
    QVERIFY(editor != nullptr);
    typeIntoField(editor->field("organization"), QStringLiteral("Dupont SA"));
    typeIntoField(editor->field("zip"), QStringLiteral("75002"));
    typeIntoField(editor->field("city"), QStringLiteral("Paris"));
    auto* country = editor->findChild<QComboBox*>();
    QVERIFY(country != nullptr);
    for (QComboBox* combo : editor->findChildren<QComboBox*>()) {
        if (combo->findData(QStringLiteral("FR")) >= 0) {
            country = combo;
        }
    }
    // A new client starts in the firm's own country; undo brings that back.
    const std::optional<std::string> before = editor->client().countryCode();
    QVERIFY(before != std::optional<std::string>("FR"));
    const int france = country->findData(QStringLiteral("FR"));
    QVERIFY(france > 0);
    country->setCurrentIndex(france);
    Q_EMIT country->activated(france);
    QApplication::processEvents();
    QCOMPARE(QString::fromStdString(editor->client().countryCode().value_or("")), QStringLiteral("FR"));
    const QString postal = QString::fromStdString(editor->client().postalAddress());
    // The model may bind the code to the city with a non-breaking space.
    QVERIFY2(postal.simplified().contains(QStringLiteral("75002 Paris")), qPrintable(postal));
    // The window shows the model's own lines.
    bool shown = false;
    for (QLabel* label : editor->findChildren<QLabel*>()) {
        shown = shown || label->text() == postal;
    }
    QVERIFY(shown);
    m_window->action(QStringLiteral("undo"))->trigger();
    QApplication::processEvents();
    QCOMPARE(editor->client().countryCode(), before);
}

void DesktopTest::messagesOfTheCommandLayerReadPlainly() {
    QCOMPARE(commandMessage("brassline: the file is locked\n"), QStringLiteral("the file is locked"));
    QCOMPARE(commandMessage("no prefix"), QStringLiteral("no prefix"));
    QCOMPARE(commandMessage(""), QString());
}

void DesktopTest::everyKindOfItemTakesItsPlaceInTheTree() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    ItemTreeModel* model = editor->itemModel();
    editor->itemView()->clearSelection();
    for (const char* kind : {"Title", "SubTotal", "Option", "PageBreak"}) {
        editor->itemView()->clearSelection();
        editor->addItem(kind);
        QApplication::processEvents();
        if (auto* field = qobject_cast<QLineEdit*>(QApplication::focusWidget())) {
            QTest::keyClick(field, Qt::Key_Escape);
            QApplication::processEvents();
        }
    }
    QCOMPARE(model->rowCount(), 7);
    const QString kinds[] = {"Title", "SubTotal", "Option", "PageBreak"};
    for (int row = 3; row < 7; ++row) {
        QCOMPARE(QString::fromStdString(model->itemAt(model->index(row, 0))->entityName()), kinds[row - 3]);
        // No quantity, price or tax on any of them.
        QVERIFY(!(model->flags(model->index(row, ItemTreeModel::Quantity)) & Qt::ItemIsEditable));
    }
    // A page break has no name to edit and shows what it is.
    QVERIFY(!(model->flags(model->index(6, ItemTreeModel::Name)) & Qt::ItemIsEditable));
    QCOMPARE(cell(model, 6, ItemTreeModel::Name), QString::fromUtf8("— Page break —"));
    // The subtotal after three lines sums them: 850 + 239.88 + 12.
    QCOMPARE(cell(model, 4, ItemTreeModel::Total), QStringLiteral("1,101.88"));
    // None of them changes what the invoice costs.
    QCOMPARE(editor->document().costWithTaxes().toString(), std::string("1311.24"));
}

void DesktopTest::taxColumnChoosesTheLinesTaxGroup() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    ItemTreeModel* model = editor->itemModel();
    std::vector<BLTaxGroup*> groups = model->taxGroups();
    int reduced = -1;
    for (size_t n = 0; n < groups.size(); ++n) {
        if (groups[n]->name() == std::optional<std::string>("7")) {
            reduced = static_cast<int>(n);
        }
    }
    QVERIFY(reduced >= 0);
    // Hosting at 7 %: 850 + 12 at 19 % is 163.78; 239.88 at 7 % is 16.7916, so 16.79;
    // 1,101.88 + 180.57 = 1,282.45.
    QVERIFY(model->setData(model->index(1, ItemTreeModel::Tax), reduced, Qt::EditRole));
    QCOMPARE(cell(model, 1, ItemTreeModel::Tax), QStringLiteral("7 %"));
    QCOMPARE(editor->document().costWithTaxes().toString(), std::string("1282.45"));
    QVERIFY(editor->totalsLabel()->text().contains(QStringLiteral("VAT 7 %")));
    QVERIFY(!model->setData(model->index(1, ItemTreeModel::Tax), static_cast<int>(groups.size()), Qt::EditRole));
}

void DesktopTest::deleteKeyInTheTreeRemovesTheSelectedLines() {
    DocumentEditor* editor = makeInvoice();
    QVERIFY(editor != nullptr);
    QTreeView* view = editor->itemView();
    view->setFocus();
    view->selectionModel()->select(editor->itemModel()->index(0, 0),
                                   QItemSelectionModel::ClearAndSelect | QItemSelectionModel::Rows);
    view->selectionModel()->select(editor->itemModel()->index(2, 0),
                                   QItemSelectionModel::Select | QItemSelectionModel::Rows);
    m_window->action(QStringLiteral("delete"))->trigger();
    QApplication::processEvents();
    // The invoice stays; Design and Domain go, Hosting is left: 239.88 + 45.58 = 285.46.
    QVERIFY(!editor->document().isDeleted());
    QCOMPARE(editor->itemModel()->rowCount(), 1);
    QCOMPARE(cell(editor->itemModel(), 0, ItemTreeModel::Name), QStringLiteral("Hosting"));
    QVERIFY(editor->totalsLabel()->text().contains(QStringLiteral("285.46")));
    m_window->action(QStringLiteral("undo"))->trigger();
    QApplication::processEvents();
    QCOMPARE(m_window->documentEditor()->itemModel()->rowCount(), 3);
}

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    // English words and formats whatever the machine speaks; settings in a folder of the test.
    qputenv("LANG", "en_US.UTF-8");
    qputenv("LC_ALL", "en_US.UTF-8");
    QTemporaryDir config;
    qputenv("XDG_CONFIG_HOME", config.path().toLocal8Bit());
    qputenv("XDG_STATE_HOME", config.path().toLocal8Bit());
    QApplication application(argc, argv);
    DesktopTest test;
    return QTest::qExec(&test, argc, argv);
}

#include "DesktopTest.moc"
