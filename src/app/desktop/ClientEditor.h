#pragma once

#include <QWidget>
#include <string>
#include <vector>

class QComboBox;
class QFormLayout;
class QLabel;
class QLineEdit;
class QPlainTextEdit;
class QSpinBox;

namespace brassline {
class BLClient;
}

namespace brassline::desktop {

class DocumentSession;

// The editor of one client: names, the address with the country's format, contact data,
// bank account (IBAN and BIC checked before they are stored), client group, currency,
// payment terms and the e-invoice plug-in. Each field is one undoable step through the
// client's setters; a value that fails its check is shown, not stored.
class ClientEditor : public QWidget {
    Q_OBJECT
public:
    ClientEditor(DocumentSession& session, BLClient& client, QWidget* parent = nullptr);
    ~ClientEditor() override;

    BLClient& client() { return m_client; }
    void reload();
    // For tests: a field by the key it edits ("organization", "iban", ...), and the
    // message shown beside it ("" while the value is fine).
    QLineEdit* field(const std::string& key) const;
    QString problem(const std::string& key) const;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    struct TextField {
        std::string key;
        QString label;
        QLineEdit* edit;
        QLabel* problem;
    };
    QLineEdit* addTextField(QFormLayout* form, const std::string& key, const QString& label);
    void commit(const TextField& field);
    // The reason a value can't be stored, or "".
    QString validate(const std::string& key, const QString& text) const;

    DocumentSession& m_session;
    BLClient& m_client;
    std::vector<TextField> m_fields;
    QLabel* m_heading = nullptr;
    QPlainTextEdit* m_address = nullptr;
    QLabel* m_postal = nullptr;
    QComboBox* m_country = nullptr;
    QComboBox* m_group = nullptr;
    QComboBox* m_currency = nullptr;
    QSpinBox* m_payInterval = nullptr;
    QComboBox* m_plugin = nullptr;
    QLabel* m_balance = nullptr;
    bool m_loading = false;
};

}  // namespace brassline::desktop
