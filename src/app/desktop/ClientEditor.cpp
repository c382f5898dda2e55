#include "app/desktop/ClientEditor.h"

#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QLocale>
#include <QPlainTextEdit>
#include <QSpinBox>
#include <QVBoxLayout>
#include <algorithm>
#include <set>

#include "app/desktop/DesktopText.h"
#include "app/desktop/DocumentSession.h"
#include "app/desktop/ObjectTableModel.h"
#include "core/BLLocales.h"
#include "core/BLParser.h"
#include "core/Localization.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLCurrency.h"

namespace brassline::desktop {

namespace {

// Every country Qt knows a locale of, by ISO code, named through ICU in the current
// language and sorted by that name.
const std::vector<std::pair<QString, QString>>& countries() {
    static const std::vector<std::pair<QString, QString>> list = [] {
        std::set<QString> codes;
        for (const QLocale& locale :
             QLocale::matchingLocales(QLocale::AnyLanguage, QLocale::AnyScript, QLocale::AnyTerritory)) {
            const QString code = QLocale::territoryToCode(locale.territory());
            if (code.size() == 2) {
                codes.insert(code);
            }
        }
        std::vector<std::pair<QString, QString>> named;
        const std::string language = currentLanguage();
        for (const QString& code : codes) {
            std::optional<std::string> name = countryDisplayName(code.toStdString(), language);
            named.emplace_back(code, name ? qs(*name) : code);
        }
        std::sort(named.begin(), named.end(),
                  [](const auto& a, const auto& b) { return QString::localeAwareCompare(a.second, b.second) < 0; });
        return named;
    }();
    return list;
}

QGroupBox* section(QWidget* parent, const QString& title, QFormLayout*& form) {
    auto* box = new QGroupBox(title, parent);
    form = new QFormLayout(box);
    form->setLabelAlignment(Qt::AlignRight);
    form->setFieldGrowthPolicy(QFormLayout::ExpandingFieldsGrow);
    return box;
}

}  // namespace

ClientEditor::ClientEditor(DocumentSession& session, BLClient& client, QWidget* parent)
    : QWidget(parent), m_session(session), m_client(client) {
    auto* outer = new QVBoxLayout(this);
    outer->setContentsMargins(18, 14, 18, 14);
    outer->setSpacing(10);
    m_heading = new QLabel(this);
    QFont headingFont = m_heading->font();
    headingFont.setPointSizeF(headingFont.pointSizeF() * 1.5);
    headingFont.setBold(true);
    m_heading->setFont(headingFont);
    outer->addWidget(m_heading);

    auto* columns = new QHBoxLayout;
    auto* left = new QVBoxLayout;
    auto* right = new QVBoxLayout;
    columns->addLayout(left, 1);
    columns->addSpacing(12);
    columns->addLayout(right, 1);
    outer->addLayout(columns);

    QFormLayout* form = nullptr;
    left->addWidget(section(this, loc("Name"), form));
    addTextField(form, "organization", loc("Organization"));
    addTextField(form, "title", loc("Title"));
    addTextField(form, "firstName", loc("First name"));
    addTextField(form, "lastName", loc("Last name"));
    addTextField(form, "department", loc("Department"));
    addTextField(form, "clientID", loc("Client number"));

    left->addWidget(section(this, loc("Address"), form));
    m_address = new QPlainTextEdit(this);
    m_address->setFixedHeight(48);
    m_address->setPlaceholderText(loc("Street and number"));
    form->addRow(loc("Street"), m_address);
    addTextField(form, "zip", loc("ZIP"));
    addTextField(form, "city", loc("City"));
    addTextField(form, "state", loc("State or region"));
    m_country = new QComboBox(this);
    m_country->addItem(QString(), QString());
    for (const auto& [code, name] : countries()) {
        m_country->addItem(QStringLiteral("%1 (%2)").arg(name, code), code);
    }
    form->addRow(loc("Country"), m_country);
    m_postal = new QLabel(this);
    m_postal->setStyleSheet(QStringLiteral("QLabel { color: #606670; }"));
    m_postal->setTextInteractionFlags(Qt::TextSelectableByMouse);
    form->addRow(loc("On letters"), m_postal);
    left->addStretch();

    right->addWidget(section(this, loc("Contact"), form));
    addTextField(form, "email", loc("E-mail"));
    addTextField(form, "phoneNumber", loc("Phone"));
    addTextField(form, "taxID", loc("VAT ID"));

    right->addWidget(section(this, loc("Bank account"), form));
    addTextField(form, "iban", loc("IBAN"));
    addTextField(form, "bic", loc("BIC"));

    right->addWidget(section(this, loc("Invoicing"), form));
    m_group = new QComboBox(this);
    form->addRow(loc("Client group"), m_group);
    m_currency = new QComboBox(this);
    form->addRow(loc("Currency"), m_currency);
    m_payInterval = new QSpinBox(this);
    m_payInterval->setRange(0, 32767);
    m_payInterval->setSuffix(loc(" days"));
    form->addRow(loc("Payment terms"), m_payInterval);
    m_plugin = new QComboBox(this);
    m_plugin->setEditable(true);
    m_plugin->setMinimumWidth(260);
    m_plugin->setToolTip(loc("The plug-in that writes this client's electronic invoices"));
    form->addRow(loc("E-invoice"), m_plugin);
    m_balance = new QLabel(this);
    form->addRow(loc("Open"), m_balance);
    right->addStretch();
    outer->addStretch();

    connect(m_country, qOverload<int>(&QComboBox::activated), this, [this](int index) {
        const std::optional<std::string> code = optionalText(m_country->itemData(index).toString());
        if (!m_loading && code != m_client.countryCode()) {
            m_session.perform(loc("Change Country"), [this, code] { m_client.setCountryCode(code); });
        }
    });
    connect(m_group, qOverload<int>(&QComboBox::activated), this, [this](int index) {
        auto* group = dynamic_cast<BLClientGroup*>(
            m_session.context().objectForURIString(ss(m_group->itemData(index).toString())));
        if (!m_loading && group != nullptr && group != m_client.clientGroup()) {
            m_session.perform(loc("Change Client Group"), [this, group] { m_client.setClientGroup(group); });
        }
    });
    connect(m_currency, qOverload<int>(&QComboBox::activated), this, [this](int index) {
        auto* currency = dynamic_cast<BLCurrency*>(
            m_session.context().objectForURIString(ss(m_currency->itemData(index).toString())));
        if (!m_loading && currency != nullptr && currency != m_client.currency()) {
            m_session.perform(loc("Change Currency"), [this, currency] { m_client.setCurrency(currency); });
        }
    });
    connect(m_payInterval, &QSpinBox::editingFinished, this, [this] {
        const auto days = static_cast<int16_t>(m_payInterval->value());
        if (!m_loading && days != m_client.payIntervalValue()) {
            m_session.perform(loc("Change Payment Terms"), [this, days] { m_client.setPayInterval(days); });
        }
    });
    connect(m_plugin->lineEdit(), &QLineEdit::editingFinished, this, [this] {
        const std::optional<std::string> identifier = optionalText(m_plugin->currentText());
        if (!m_loading && identifier != m_client.sendPluginIdentifier()) {
            m_session.perform(loc("Change E-invoice"),
                              [this, identifier] { m_client.setSendPluginIdentifier(identifier); });
        }
    });
    m_address->installEventFilter(this);
    reload();
}

ClientEditor::~ClientEditor() = default;

QLineEdit* ClientEditor::addTextField(QFormLayout* form, const std::string& key, const QString& label) {
    auto* edit = new QLineEdit(this);
    auto* problem = new QLabel(this);
    problem->setStyleSheet(QStringLiteral("QLabel { color: #c62828; }"));
    problem->setWordWrap(true);
    problem->hide();
    auto* column = new QVBoxLayout;
    column->setSpacing(2);
    column->addWidget(edit);
    column->addWidget(problem);
    form->addRow(label, column);
    m_fields.push_back({key, label, edit, problem});
    const size_t index = m_fields.size() - 1;
    connect(edit, &QLineEdit::editingFinished, this, [this, index] { commit(m_fields[index]); });
    return edit;
}

QString ClientEditor::validate(const std::string& key, const QString& text) const {
    const std::string value = text.trimmed().toStdString();
    if (value.empty()) {
        return {};
    }
    if (key == "iban" && !hasValidIBANChecksum(value)) {
        std::string compact;
        for (char c : value) {
            if (c != ' ') {
                compact.push_back(c);
            }
        }
        const int length = ibanLengthForCountry(compact.substr(0, 2));
        if (length == 0) {
            return loc("An IBAN begins with the code of a country that has IBANs.");
        }
        if (compact.size() != static_cast<size_t>(length)) {
            return loc("An IBAN from %1 has %2 characters.", qs(compact.substr(0, 2)).toUpper(),
                       QString::number(length));
        }
        return loc("The check digits of this IBAN don't match: a character may be mistyped.");
    }
    if (key == "bic" && !isValidBIC(value)) {
        return loc("A BIC has 8 or 11 letters and digits, such as COBADEFFXXX.");
    }
    if (key == "email" && (text.count(QLatin1Char('@')) != 1 || text.trimmed().endsWith(QLatin1Char('@')) ||
                           text.trimmed().startsWith(QLatin1Char('@')) || text.trimmed().contains(QLatin1Char(' ')))) {
        return loc("This is not an e-mail address.");
    }
    return {};
}

void ClientEditor::commit(const TextField& field) {
    if (m_loading) {
        return;
    }
    const QString text = field.edit->text();
    const QString problem = validate(field.key, text);
    field.problem->setText(problem);
    field.problem->setVisible(!problem.isEmpty());
    field.edit->setStyleSheet(problem.isEmpty() ? QString()
                                                : QStringLiteral("QLineEdit { border: 1px solid #c62828; }"));
    if (!problem.isEmpty()) {
        return;  // The stored value stays until the typed one passes.
    }
    const Value current = m_client.valueForKey(field.key);
    const std::optional<std::string> value = optionalText(text);
    if ((current.isNull() && !value) || (value && current.toString() == *value)) {
        return;
    }
    m_session.perform(loc("Change %1", field.label),
                      [this, &field, &value] { m_client.setValueForKey(value ? Value(*value) : Value(), field.key); });
}

bool ClientEditor::eventFilter(QObject* watched, QEvent* event) {
    if (watched == m_address && event->type() == QEvent::FocusOut && !m_loading) {
        const std::optional<std::string> address = optionalText(m_address->toPlainText());
        if (address != m_client.address()) {
            m_session.perform(loc("Change Address"), [this, address] { m_client.setAddress(address); });
        }
    }
    return QWidget::eventFilter(watched, event);
}

QLineEdit* ClientEditor::field(const std::string& key) const {
    for (const TextField& field : m_fields) {
        if (field.key == key) {
            return field.edit;
        }
    }
    return nullptr;
}

QString ClientEditor::problem(const std::string& key) const {
    for (const TextField& field : m_fields) {
        if (field.key == key) {
            return field.problem->isHidden() ? QString() : field.problem->text();
        }
    }
    return {};
}

void ClientEditor::reload() {
    if (m_client.isDeleted()) {
        return;
    }
    m_loading = true;
    const QString name = qs(m_client.displayName());
    m_heading->setText(name.isEmpty() ? loc("new client") : name);
    for (const TextField& field : m_fields) {
        if (!field.problem->isHidden()) {
            continue;  // What was typed stays in view with its reason until it is fixed.
        }
        const Value value = m_client.valueForKey(field.key);
        field.edit->setText(value.isNull() ? QString() : qs(value.toString()));
    }
    m_address->setPlainText(qs(m_client.address()));
    m_country->setCurrentIndex(std::max(0, m_country->findData(qs(m_client.countryCode()).toUpper())));
    m_postal->setText(qs(m_client.postalAddress()));

    m_group->clear();
    for (BLClientGroup* group : fetchSorted<BLClientGroup>(m_session.context(), "ClientGroup", "name")) {
        m_group->addItem(qs(group->name()), qs(group->URIString()));
    }
    if (m_client.clientGroup() != nullptr) {
        m_group->setCurrentIndex(m_group->findData(qs(m_client.clientGroup()->URIString())));
    }
    m_currency->clear();
    for (BLCurrency* currency : fetchSorted<BLCurrency>(m_session.context(), "Currency", "name")) {
        m_currency->addItem(qs(currency->name()), qs(currency->URIString()));
    }
    if (m_client.currency() != nullptr) {
        m_currency->setCurrentIndex(m_currency->findData(qs(m_client.currency()->URIString())));
    }
    m_payInterval->setValue(m_client.payIntervalValue());
    m_plugin->clear();
    m_plugin->addItem(QString());
    if (std::optional<std::string> identifier = m_client.sendPluginIdentifier()) {
        m_plugin->addItem(qs(*identifier));
        m_plugin->setCurrentIndex(1);
    }
    const std::string balance = m_client.balance();
    m_balance->setText(balance.empty() ? loc("nothing") : qs(balance));
    m_loading = false;
}

}  // namespace brassline::desktop
