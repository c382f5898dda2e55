#include "app/desktop/PreferencesDialog.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFormLayout>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QTabWidget>
#include <QTableWidget>
#include <QVBoxLayout>

#include "app/desktop/DesktopText.h"
#include "app/desktop/DocumentSession.h"
#include "app/desktop/NumberingText.h"
#include "app/desktop/ObjectTableModel.h"
#include "lifecycle/NumberTokens.h"
#include "lifecycle/Numbering.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLProfile.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"

namespace brassline::desktop {

namespace {

const char* const kKinds[] = {"invoice", "estimate", "client"};

std::vector<BLTaxGroup*> taxGroups(ManagedObjectContext& context) {
    return fetchSorted<BLTaxGroup>(context, "TaxGroup", "name");
}

}  // namespace

PreferencesDialog::PreferencesDialog(DocumentSession& session, QWidget* parent) : QDialog(parent), m_session(session) {
    setWindowTitle(loc("Preferences"));
    resize(640, 520);
    auto* layout = new QVBoxLayout(this);
    auto* tabs = new QTabWidget(this);
    tabs->addTab(companyPage(), loc("Company"));
    tabs->addTab(numberingPage(), loc("Numbers"));
    tabs->addTab(taxesPage(), loc("Taxes"));
    auto* later = new QLabel(loc("Layouts (choose, import, export) come with the layout engine; plug-ins with the "
                                 "plug-in manager."),
                             this);
    later->setWordWrap(true);
    later->setAlignment(Qt::AlignCenter);
    tabs->addTab(later, loc("Layouts and plug-ins"));
    layout->addWidget(tabs);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::accept);
    layout->addWidget(buttons);
}

PreferencesDialog::~PreferencesDialog() = default;

QWidget* PreferencesDialog::companyPage() {
    auto* page = new QWidget(this);
    auto* form = new QFormLayout(page);
    BLProfile* profile = BLContainer::defaultItemForContext<BLProfile>(m_session.context());
    const std::pair<const char*, const char*> fields[] = {{"organization", "Company name"},
                                                          {"firstName", "First name"},
                                                          {"lastName", "Last name"},
                                                          {"address", "Street"},
                                                          {"zip", "ZIP"},
                                                          {"city", "City"},
                                                          {"countryCode", "Country code"},
                                                          {"email", "E-mail"},
                                                          {"phoneNumber", "Phone"},
                                                          {"taxID", "VAT ID"},
                                                          {"taxNumber", "Tax number"},
                                                          {"iban", "IBAN"},
                                                          {"bic", "BIC"}};
    for (const auto& [key, label] : fields) {
        auto* edit = new QLineEdit(page);
        if (profile != nullptr) {
            const Value value = profile->valueForKey(key);
            edit->setText(value.isNull() ? QString() : qs(value.toString()));
        }
        edit->setObjectName(QString::fromLatin1(key));
        form->addRow(loc(label), edit);
        const std::string keyName = key;
        const QString labelText = loc(label);
        connect(edit, &QLineEdit::editingFinished, this, [this, edit, keyName, labelText] {
            BLProfile* owner = BLContainer::defaultItemForContext<BLProfile>(m_session.context());
            if (owner == nullptr) {
                return;
            }
            const std::optional<std::string> value = optionalText(edit->text());
            const Value current = owner->valueForKey(keyName);
            if ((current.isNull() && !value) || (value && current.toString() == *value)) {
                return;
            }
            m_session.perform(loc("Change %1", labelText),
                              [&] { owner->setValueForKey(value ? Value(*value) : Value(), keyName); });
        });
    }
    return page;
}

QWidget* PreferencesDialog::numberingPage() {
    auto* page = new QWidget(this);
    auto* layout = new QVBoxLayout(page);
    auto* help = new QLabel(loc("Text stands as it is; tokens in braces are filled in when a number is drawn, such as "
                                "{Year} or {Increment3} (a counter with three digits)."),
                            page);
    help->setWordWrap(true);
    layout->addWidget(help);
    auto* form = new QFormLayout;
    Numbering numbering(m_session.context());
    const char* const titles[] = {"Invoices", "Estimates", "Clients"};
    for (size_t n = 0; n < std::size(kKinds); ++n) {
        const QString kind = QString::fromLatin1(kKinds[n]);
        std::optional<NumberingKind> numberingKind = numberingKindForPrefsKey(kKinds[n]);
        auto* edit = new QLineEdit(page);
        edit->setObjectName(kind + QStringLiteral("Pattern"));
        if (numberingKind) {
            if (std::optional<NumberPattern> pattern = numbering.pattern(*numberingKind)) {
                edit->setText(qs(patternText(*pattern)));
            }
        }
        auto* tokens = new QComboBox(page);
        tokens->addItem(loc("Insert token"));
        for (const auto& [option, tag] : offeredTokens(kKinds[n])) {
            QString name = qs(option).mid(2);
            std::optional<std::string> display = tokenDisplayName(option, nullptr);
            tokens->addItem(
                display ? QStringLiteral("{%1}  %2").arg(name, qs(*display)) : QStringLiteral("{%1}").arg(name), name);
        }
        connect(tokens, qOverload<int>(&QComboBox::activated), this, [this, tokens, edit, kind](int index) {
            if (index > 0) {
                edit->insert(QStringLiteral("{%1}").arg(tokens->itemData(index).toString()));
                tokens->setCurrentIndex(0);
                storePattern(kind);
            }
        });
        auto* counter = new QSpinBox(page);
        counter->setObjectName(kind + QStringLiteral("Counter"));
        counter->setRange(0, 999999999);
        counter->setPrefix(loc("next counter "));
        if (numberingKind) {
            counter->setValue(static_cast<int>(numbering.currentCounter(*numberingKind)));
        }
        connect(counter, &QSpinBox::editingFinished, this, [this, counter, kind] {
            std::optional<NumberingKind> numberingKind = numberingKindForPrefsKey(kind.toStdString());
            if (!numberingKind) {
                return;
            }
            Numbering numbers(m_session.context());
            if (numbers.currentCounter(*numberingKind) == counter->value()) {
                return;
            }
            m_session.perform(loc("Change Counter"),
                              [&] { numbers.setCurrentCounter(*numberingKind, counter->value()); });
            previewPattern(kind);
        });
        auto* row = new QHBoxLayout;
        row->addWidget(edit, 1);
        row->addWidget(tokens);
        row->addWidget(counter);
        form->addRow(loc(titles[n]), row);
        auto* preview = new QLabel(page);
        preview->setObjectName(kind + QStringLiteral("Preview"));
        form->addRow(QString(), preview);
        connect(edit, &QLineEdit::textEdited, this, [this, kind] { previewPattern(kind); });
        connect(edit, &QLineEdit::editingFinished, this, [this, kind] { storePattern(kind); });
        previewPattern(kind);
    }
    layout->addLayout(form);
    layout->addStretch();
    return page;
}

QLineEdit* PreferencesDialog::patternField(const QString& kind) const {
    return findChild<QLineEdit*>(kind + QStringLiteral("Pattern"));
}

QString PreferencesDialog::patternPreview(const QString& kind) const {
    auto* label = findChild<QLabel*>(kind + QStringLiteral("Preview"));
    return label != nullptr ? label->text() : QString();
}

void PreferencesDialog::previewPattern(const QString& kind) {
    auto* label = findChild<QLabel*>(kind + QStringLiteral("Preview"));
    QLineEdit* edit = patternField(kind);
    if (label == nullptr || edit == nullptr) {
        return;
    }
    std::string error;
    std::optional<NumberPattern> pattern = parsePatternText(edit->text().toStdString(), kind.toStdString(), &error);
    if (!pattern) {
        label->setStyleSheet(QStringLiteral("QLabel { color: #c62828; }"));
        label->setText(qs(error));
        return;
    }
    // The preview draws nothing: the counters are read, not moved.
    Numbering numbering(m_session.context());
    label->setStyleSheet(QStringLiteral("QLabel { color: #606670; }"));
    label->setText(loc("Next: %1", qs(numbering.transformedValue(&*pattern, nullptr).value_or(""))));
}

void PreferencesDialog::storePattern(const QString& kind) {
    QLineEdit* edit = patternField(kind);
    std::optional<NumberingKind> numberingKind = numberingKindForPrefsKey(kind.toStdString());
    if (edit == nullptr || !numberingKind) {
        return;
    }
    std::optional<NumberPattern> pattern = parsePatternText(edit->text().toStdString(), kind.toStdString());
    previewPattern(kind);
    if (!pattern) {
        return;  // The reason shows under the field; the stored pattern stays.
    }
    Numbering numbering(m_session.context());
    std::optional<NumberPattern> stored = numbering.pattern(*numberingKind);
    if (stored && patternText(*stored) == patternText(*pattern)) {
        return;
    }
    m_session.perform(loc("Change Numbers"), [&] { numbering.setPattern(*numberingKind, *pattern); });
}

QWidget* PreferencesDialog::taxesPage() {
    auto* page = new QWidget(this);
    auto* layout = new QVBoxLayout(page);
    auto* help =
        new QLabel(loc("The rates of your own country's clients. A line takes its rate from its item group."), page);
    help->setWordWrap(true);
    layout->addWidget(help);
    m_taxes = new QTableWidget(0, 3, page);
    m_taxes->setHorizontalHeaderLabels({loc("Tax group"), loc("Tax"), loc("Rate %")});
    m_taxes->horizontalHeader()->setSectionResizeMode(0, QHeaderView::Stretch);
    m_taxes->verticalHeader()->hide();
    layout->addWidget(m_taxes, 1);
    auto* add = new QPushButton(loc("Add a rate"), page);
    layout->addWidget(add, 0, Qt::AlignLeft);
    connect(add, &QPushButton::clicked, this, [this] {
        ManagedObjectContext& context = m_session.context();
        m_session.perform(loc("Add Tax Rate"), [&] {
            auto* group = static_cast<BLTaxGroup*>(context.insertNewObjectForEntityForName("TaxGroup"));
            if (group == nullptr) {
                return;
            }
            group->setName(loc("new").toStdString());
            group->setup();
        });
        reloadTaxes();
    });
    connect(m_taxes, &QTableWidget::cellChanged, this, [this](int row, int column) {
        if (m_loadingTaxes) {
            return;
        }
        std::vector<BLTaxGroup*> groups = taxGroups(m_session.context());
        if (row < 0 || static_cast<size_t>(row) >= groups.size()) {
            return;
        }
        BLTaxGroup* group = groups[static_cast<size_t>(row)];
        const QString text = m_taxes->item(row, column)->text();
        BLClientGroup* domestic = BLContainer::defaultItemForContext<BLClientGroup>(m_session.context());
        BLTaxRule* rule = BLTaxRule::matrixCell(domestic, group);
        if (column == 0) {
            m_session.perform(loc("Change Tax Group"), [&] { group->setName(optionalText(text)); });
        } else if (rule != nullptr && column == 1) {
            m_session.perform(loc("Change Tax"), [&] { rule->setTax1name(optionalText(text)); });
        } else if (rule != nullptr && column == 2) {
            std::optional<Decimal> rate = parseNumber(text);
            if (!rate) {
                reloadTaxes();  // Not a number: the stored rate shows again.
                return;
            }
            m_session.perform(loc("Change Tax Rate"), [&] {
                if (rule->tax1modeValue() == 0) {
                    rule->setTax1mode(int16_t{1});
                }
                rule->setTax1value(*rate);
            });
        }
        reloadTaxes();
    });
    reloadTaxes();
    return page;
}

void PreferencesDialog::reloadTaxes() {
    m_loadingTaxes = true;
    BLClientGroup* domestic = BLContainer::defaultItemForContext<BLClientGroup>(m_session.context());
    std::vector<BLTaxGroup*> groups = taxGroups(m_session.context());
    m_taxes->setRowCount(static_cast<int>(groups.size()));
    for (size_t n = 0; n < groups.size(); ++n) {
        const int row = static_cast<int>(n);
        BLTaxRule* rule = BLTaxRule::matrixCell(domestic, groups[n]);
        m_taxes->setItem(row, 0, new QTableWidgetItem(qs(groups[n]->name())));
        m_taxes->setItem(row, 1, new QTableWidgetItem(rule != nullptr ? qs(rule->tax1name()) : QString()));
        auto* rate = new QTableWidgetItem(rule != nullptr && rule->tax1modeValue() != 0
                                              ? formatQuantity(rule->tax1value().value_or(Decimal()))
                                              : QStringLiteral("0"));
        rate->setTextAlignment(Qt::AlignRight | Qt::AlignVCenter);
        m_taxes->setItem(row, 2, rate);
        const bool editable = groups[n]->canEditTax() && rule != nullptr;
        for (int column = 1; column < 3; ++column) {
            QTableWidgetItem* item = m_taxes->item(row, column);
            item->setFlags(editable ? item->flags() | Qt::ItemIsEditable : item->flags() & ~Qt::ItemIsEditable);
        }
    }
    m_loadingTaxes = false;
}

}  // namespace brassline::desktop
