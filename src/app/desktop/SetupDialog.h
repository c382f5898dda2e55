#pragma once

#include <QDialog>

#include "app/desktop/CompanySetup.h"

class QCheckBox;
class QLabel;
class QLineEdit;
class QFormLayout;
class QPushButton;

namespace brassline::desktop {

// The short set-up of a new company file: where it goes, the firm's name and address,
// VAT ID, taxes, bank account and number patterns. OK stays off until a name is given.
class SetupDialog : public QDialog {
    Q_OBJECT
public:
    explicit SetupDialog(QWidget* parent = nullptr);
    // The package the answers make: <folder>/<company name>.brassline.
    QString path() const;
    CompanySetup setup() const;
    // For tests: the fields by name ("company", "folder", "vatID", "rate1", ...).
    QLineEdit* field(const QString& name) const;

private:
    QLineEdit* add(QFormLayout* form, const QString& name, const QString& label, const QString& text = {});
    void update();

    QCheckBox* m_taxable;
    QCheckBox* m_gross;
    QLabel* m_target;
    QPushButton* m_ok = nullptr;
};

}  // namespace brassline::desktop
