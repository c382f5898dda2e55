#pragma once

#include <QDialog>

class QLabel;
class QLineEdit;
class QTableWidget;

namespace brassline::desktop {

class DocumentSession;

// The company file's settings: the firm's data, the number patterns with a preview of the
// next number, and the tax rates. Every change is one undo step of the file.
class PreferencesDialog : public QDialog {
    Q_OBJECT
public:
    explicit PreferencesDialog(DocumentSession& session, QWidget* parent = nullptr);
    ~PreferencesDialog() override;

    // For tests: the pattern line of a kind ("invoice", "estimate", "client") and the
    // preview or reason shown under it.
    QLineEdit* patternField(const QString& kind) const;
    QString patternPreview(const QString& kind) const;
    QTableWidget* taxTable() const { return m_taxes; }

private:
    QWidget* companyPage();
    QWidget* numberingPage();
    QWidget* taxesPage();
    void reloadTaxes();
    void previewPattern(const QString& kind);
    void storePattern(const QString& kind);

    DocumentSession& m_session;
    QTableWidget* m_taxes = nullptr;
    bool m_loadingTaxes = false;
};

}  // namespace brassline::desktop
