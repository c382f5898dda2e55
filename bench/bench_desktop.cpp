// The desktop window over a large company: how long until the window with its invoice
// list is ready, and how long from a key typed into a quantity to the repainted totals.
#include <QApplication>
#include <QLabel>
#include <QLineEdit>
#include <QTest>
#include <QTreeView>
#include <filesystem>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "app/desktop/CompanySetup.h"
#include "app/desktop/DesktopShell.h"
#include "app/desktop/DocumentEditor.h"
#include "app/desktop/DocumentWindow.h"
#include "app/desktop/ItemTreeModel.h"
#include "app/desktop/ObjectTableModel.h"
#include "core/Decimal.h"
#include "model/ManagedObjectContext.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLInvoice.h"
#include "store/BLDoc.h"
#include "store/BLDocumentController.h"

namespace {

using namespace brassline;
using namespace brassline::desktop;

constexpr int kInvoices = 10000;
constexpr int kClients = 250;
constexpr int kLinesPerInvoice = 3;
constexpr int kLongInvoiceLines = 100;

struct Company {
    std::filesystem::path folder;
    std::string path;
    std::string longInvoiceUid;
};

BLCost* addLine(ManagedObjectContext& context, BLInvoice& invoice, int n) {
    auto* line = static_cast<BLCost*>(context.insertNewObjectForEntityForName("Cost"));
    line->setup();
    line->setValueForKey(Value(static_cast<Object*>(&invoice)), "parent");
    line->setName("Line " + std::to_string(n));
    line->setQuantity(Decimal(1 + n % 7));
    line->setUnitPrice(*Decimal::parse(std::to_string(10 + n % 90) + ".50"));
    return line;
}

// Made once per run through the model, as the command line's insert would make it.
const Company& company() {
    static const std::unique_ptr<Company> made = [] {
        auto company = std::make_unique<Company>();
        company->folder =
            std::filesystem::temp_directory_path() / ("brassline-bench-desktop-" + std::to_string(getpid()));
        std::filesystem::create_directories(company->folder);
        company->path = (company->folder / "Large.brassline").string();
        CompanySetup setup = defaultCompanySetup();
        setup.companyName = "Large";
        setup.taxes = {{"VAT", Decimal(19)}};
        std::string error;
        std::optional<CommandFile> file = createCompany(company->path, setup, &error);
        if (!file) {
            std::fprintf(stderr, "bench_desktop: %s\n", error.c_str());
            std::exit(1);
        }
        BLDoc* document = &file->document();
        ManagedObjectContext& context = document->managedObjectContext();
        context.undoManager()->disableUndoRegistration();
        std::vector<BLClient*> clients;
        for (int c = 0; c < kClients; ++c) {
            auto* client = static_cast<BLClient*>(context.insertNewObjectForEntityForName("Client"));
            client->setup();
            client->setOrganization("Client " + std::to_string(c));
            clients.push_back(client);
        }
        for (int n = 0; n < kInvoices; ++n) {
            auto* invoice = static_cast<BLInvoice*>(context.insertNewObjectForEntityForName("Invoice"));
            invoice->setup();
            invoice->setParentDocument(clients[static_cast<size_t>(n % kClients)]);
            invoice->setSubject("Work of week " + std::to_string(n % 52));
            for (int line = 0; line < kLinesPerInvoice; ++line) {
                addLine(context, *invoice, n + line);
            }
        }
        auto* longInvoice = static_cast<BLInvoice*>(context.insertNewObjectForEntityForName("Invoice"));
        longInvoice->setup();
        longInvoice->setParentDocument(clients.front());
        for (int line = 0; line < kLongInvoiceLines; ++line) {
            addLine(context, *longInvoice, line);
        }
        company->longInvoiceUid = longInvoice->uid().value_or("");
        context.processPendingChanges();
        context.undoManager()->enableUndoRegistration();
        if (!document->save(&error)) {
            std::fprintf(stderr, "bench_desktop: %s\n", error.c_str());
            std::exit(1);
        }
        return company;  // The handle closes the file.
    }();
    return *made;
}

// From nothing open to the window showing the first rows of the invoice list, painted.
void BM_StartUpWithInvoiceList(benchmark::State& state) {
    const Company& large = company();
    DesktopShell shell;
    for (auto _ : state) {
        DocumentWindow* window = shell.openFile(QString::fromStdString(large.path));
        if (window == nullptr) {
            state.SkipWithError("the company file does not open");
            return;
        }
        window->showSource(Source::Invoices);
        window->repaint();
        benchmark::DoNotOptimize(window->listModel()->rowCount());
        state.PauseTiming();
        if (window->listModel()->rowCount() != kInvoices + 1) {
            state.SkipWithError("the list does not hold every invoice");
        }
        window->close();
        QApplication::processEvents();
        state.ResumeTiming();
    }
    state.counters["invoices"] = kInvoices;
}
BENCHMARK(BM_StartUpWithInvoiceList)->Unit(benchmark::kMillisecond)->Iterations(5);

// One key typed into a quantity of a 100-line invoice, until the totals label is painted
// again with the new figures.
void BM_QuantityKeyToTotals(benchmark::State& state) {
    const Company& large = company();
    DesktopShell shell;
    DocumentWindow* window = shell.openFile(QString::fromStdString(large.path));
    if (window == nullptr) {
        state.SkipWithError("the company file does not open");
        return;
    }
    window->show();
    window->activateWindow();
    if (!QTest::qWaitForWindowExposed(window)) {
        state.SkipWithError("the window does not show");
        return;
    }
    ManagedObject* invoice = nullptr;
    for (int row = 0; row < window->listModel()->rowCount() && invoice == nullptr; ++row) {
        ManagedObject* object = window->listModel()->objectAt(row);
        if (object->valueForKey("uid").toString() == large.longInvoiceUid) {
            invoice = object;
        }
    }
    if (invoice == nullptr || !window->showObject(invoice)) {
        state.SkipWithError("the long invoice is missing");
        return;
    }
    DocumentEditor* editor = window->documentEditor();
    const QModelIndex quantity = editor->itemModel()->index(kLongInvoiceLines / 2, ItemTreeModel::Quantity);
    editor->itemView()->setCurrentIndex(quantity);
    editor->itemView()->edit(quantity);
    auto* field = editor->itemView()->viewport()->findChild<QLineEdit*>();
    if (field == nullptr) {
        state.SkipWithError("no editor on the quantity");
        return;
    }
    field->selectAll();
    int key = 0;
    for (auto _ : state) {
        // Alternating digits so every key changes the amount.
        QTest::keyClick(field, static_cast<char>('1' + key % 9));
        editor->totalsLabel()->repaint();
        state.PauseTiming();
        field->selectAll();
        ++key;
        state.ResumeTiming();
    }
    QTest::keyClick(field, Qt::Key_Escape);
    QApplication::processEvents();
}
BENCHMARK(BM_QuantityKeyToTotals)->Unit(benchmark::kMillisecond);

}  // namespace

int main(int argc, char** argv) {
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    // Settings and the recent list stay in a folder of this run.
    const std::filesystem::path home =
        std::filesystem::temp_directory_path() / ("brassline-bench-desktop-home-" + std::to_string(getpid()));
    std::filesystem::create_directories(home);
    qputenv("HOME", home.string().c_str());
    qputenv("XDG_CONFIG_HOME", home.string().c_str());
    qputenv("XDG_STATE_HOME", home.string().c_str());
    QApplication application(argc, argv);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    std::error_code ignored;
    std::filesystem::remove_all(
        std::filesystem::temp_directory_path() / ("brassline-bench-desktop-" + std::to_string(getpid())), ignored);
    std::filesystem::remove_all(home, ignored);
    return 0;
}
