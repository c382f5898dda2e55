#include "app/desktop/SetupDialog.h"

#include <QCheckBox>
#include <QDialogButtonBox>
#include <QDir>
#include <QFileDialog>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/desktop/DesktopText.h"

namespace brassline::desktop {

SetupDialog::SetupDialog(QWidget* parent) : QDialog(parent) {
    setWindowTitle(loc("New company"));
    const CompanySetup defaults = defaultCompanySetup();
    auto* layout = new QVBoxLayout(this);
    auto* intro = new QLabel(loc("A few answers and your company file is ready. Everything can be changed later in "
                                 "the preferences."),
                             this);
    intro->setWordWrap(true);
    layout->addWidget(intro);

    auto* firm = new QGroupBox(loc("Your company"), this);
    auto* form = new QFormLayout(firm);
    add(form, QStringLiteral("company"), loc("Company name"));
    add(form, QStringLiteral("street"), loc("Street"));
    add(form, QStringLiteral("zip"), loc("ZIP"));
    add(form, QStringLiteral("city"), loc("City"));
    add(form, QStringLiteral("country"), loc("Country code"), QLocale().name().section(QLatin1Char('_'), 1, 1));
    add(form, QStringLiteral("email"), loc("E-mail"));
    add(form, QStringLiteral("iban"), loc("IBAN"));
    add(form, QStringLiteral("bic"), loc("BIC"));
    layout->addWidget(firm);

    auto* taxes = new QGroupBox(loc("Taxes"), this);
    form = new QFormLayout(taxes);
    add(form, QStringLiteral("vatID"), loc("VAT ID"));
    m_taxable = new QCheckBox(loc("I charge VAT"), this);
    m_taxable->setChecked(true);
    form->addRow(QString(), m_taxable);
    m_gross = new QCheckBox(loc("I enter prices including VAT"), this);
    form->addRow(QString(), m_gross);
    add(form, QStringLiteral("rate1"), loc("Standard rate %"), QStringLiteral("19"));
    add(form, QStringLiteral("rate2"), loc("Reduced rate %"), QStringLiteral("7"));
    layout->addWidget(taxes);

    auto* numbers = new QGroupBox(loc("Numbers"), this);
    form = new QFormLayout(numbers);
    add(form, QStringLiteral("invoicePattern"), loc("Invoices"), qs(defaults.invoicePattern));
    add(form, QStringLiteral("estimatePattern"), loc("Estimates"), qs(defaults.estimatePattern));
    add(form, QStringLiteral("clientPattern"), loc("Clients"), qs(defaults.clientPattern));
    layout->addWidget(numbers);

    auto* place = new QHBoxLayout;
    QLineEdit* folder = new QLineEdit(QDir::homePath(), this);
    folder->setObjectName(QStringLiteral("folder"));
    auto* browse = new QPushButton(loc("Choose…"), this);
    place->addWidget(new QLabel(loc("Folder"), this));
    place->addWidget(folder, 1);
    place->addWidget(browse);
    layout->addLayout(place);
    m_target = new QLabel(this);
    m_target->setStyleSheet(QStringLiteral("QLabel { color: #606670; }"));
    layout->addWidget(m_target);
    connect(browse, &QPushButton::clicked, this, [this, folder] {
        const QString chosen = QFileDialog::getExistingDirectory(this, loc("Folder"), folder->text());
        if (!chosen.isEmpty()) {
            folder->setText(chosen);
        }
    });
    connect(folder, &QLineEdit::textChanged, this, &SetupDialog::update);

    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    m_ok = buttons->button(QDialogButtonBox::Ok);
    m_ok->setText(loc("Create"));
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    layout->addWidget(buttons);
    connect(m_taxable, &QCheckBox::toggled, this, &SetupDialog::update);
    update();
}

QLineEdit* SetupDialog::add(QFormLayout* form, const QString& name, const QString& label, const QString& text) {
    auto* edit = new QLineEdit(text, this);
    edit->setObjectName(name);
    form->addRow(label, edit);
    connect(edit, &QLineEdit::textChanged, this, &SetupDialog::update);
    return edit;
}

QLineEdit* SetupDialog::field(const QString& name) const {
    return findChild<QLineEdit*>(name);
}

QString SetupDialog::path() const {
    const QString name = field(QStringLiteral("company"))->text().trimmed();
    // A name with a slash would make folders: the file keeps the name without them.
    QString file = name;
    file.replace(QLatin1Char('/'), QLatin1Char('-'));
    return QDir(field(QStringLiteral("folder"))->text()).filePath(file + QStringLiteral(".brassline"));
}

void SetupDialog::update() {
    const bool named = !field(QStringLiteral("company"))->text().trimmed().isEmpty();
    if (m_ok != nullptr) {
        m_ok->setEnabled(named);
    }
    m_target->setText(named ? loc("The file: %1", path()) : loc("Give your company a name."));
    for (const char* rate : {"rate1", "rate2", "vatID"}) {
        field(QString::fromLatin1(rate))->setEnabled(m_taxable->isChecked());
    }
}

CompanySetup SetupDialog::setup() const {
    CompanySetup setup;
    auto text = [this](const char* name) { return field(QString::fromLatin1(name))->text().trimmed().toStdString(); };
    setup.companyName = text("company");
    setup.street = text("street");
    setup.zip = text("zip");
    setup.city = text("city");
    setup.countryCode = QString::fromStdString(text("country")).toUpper().toStdString();
    setup.email = text("email");
    setup.iban = text("iban");
    setup.bic = text("bic");
    setup.vatID = text("vatID");
    setup.taxable = m_taxable->isChecked();
    setup.useGrossPrices = m_gross->isChecked();
    if (setup.taxable) {
        const std::pair<const char*, const char*> rates[] = {{"rate1", "VAT"}, {"rate2", "VAT"}};
        for (const auto& [name, tax] : rates) {
            if (std::optional<Decimal> percent = parseNumber(field(QString::fromLatin1(name))->text())) {
                setup.taxes.emplace_back(loc(tax).toStdString(), *percent);
            }
        }
    }
    setup.invoicePattern = text("invoicePattern");
    setup.estimatePattern = text("estimatePattern");
    setup.clientPattern = text("clientPattern");
    return setup;
}

}  // namespace brassline::desktop
