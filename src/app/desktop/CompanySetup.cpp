#include "app/desktop/CompanySetup.h"

#include <optional>
#include <sstream>

#include "app/desktop/DesktopText.h"
#include "app/desktop/NumberingText.h"
#include "core/Localization.h"
#include "core/Value.h"
#include "lifecycle/Numbering.h"
#include "model/ManagedObjectContext.h"
#include "model/UndoManager.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLProfile.h"

namespace brassline::desktop {

namespace {

std::optional<std::string> nonEmpty(const std::string& text) {
    return text.empty() ? std::nullopt : std::optional<std::string>(text);
}

}  // namespace

CompanySetup defaultCompanySetup() {
    CompanySetup setup;
    // The prefixes are words of the language; the tokens are the same everywhere.
    setup.invoicePattern = localizedString("INV-") + "{Year}-{Increment3}";
    setup.estimatePattern = localizedString("EST-") + "{Year}-{EstimateIncrement3}";
    setup.clientPattern = "{ClientIncrement4}";
    return setup;
}

std::optional<CommandFile> createCompany(const std::string& path, const CompanySetup& setup, std::string* error) {
    struct Kind {
        const char* name;
        const std::string* text;
        std::optional<NumberPattern> pattern;
    };
    Kind kinds[] = {{"invoice", &setup.invoicePattern, {}},
                    {"estimate", &setup.estimatePattern, {}},
                    {"client", &setup.clientPattern, {}}};
    for (Kind& kind : kinds) {
        if (kind.text->empty()) {
            continue;
        }
        std::string reason;
        kind.pattern = parsePatternText(*kind.text, kind.name, &reason);
        if (!kind.pattern) {
            if (error != nullptr) {
                *error = "the " + std::string(kind.name) + " numbers can't be read: " + reason;
            }
            return std::nullopt;
        }
    }
    Value::Array taxes;
    for (const auto& [name, percent] : setup.taxes) {
        taxes.push_back(Value(Value::Dictionary{{"name", Value(name)}, {"value", Value(percent)}}));
    }
    const Value::Dictionary answers{{"vatID", Value(setup.vatID)},
                                    {"taxable", Value(setup.taxable)},
                                    {"useGrossPrices", Value(setup.useGrossPrices)},
                                    {"taxes", Value(std::move(taxes))}};
    std::ostringstream messages;
    std::optional<CommandFile> file = CommandFile::create(path, answers, messages);
    if (!file) {
        if (error != nullptr) {
            *error = commandMessage(messages.str()).toStdString();
        }
        return std::nullopt;
    }
    ManagedObjectContext& context = file->context();
    // The rest of the set-up is part of the new file, not a step the user could undo.
    UndoManager* undo = context.undoManager();
    if (undo != nullptr) {
        undo->disableUndoRegistration();
    }
    if (auto* profile = BLContainer::defaultItemForContext<BLProfile>(context)) {
        profile->setOrganization(nonEmpty(setup.companyName));
        profile->setAddress(nonEmpty(setup.street));
        profile->setZip(nonEmpty(setup.zip));
        profile->setCity(nonEmpty(setup.city));
        profile->setCountryCode(nonEmpty(setup.countryCode));
        profile->setEmail(nonEmpty(setup.email));
        profile->setIban(nonEmpty(setup.iban));
        profile->setBic(nonEmpty(setup.bic));
    }
    if (auto* bank = BLContainer::defaultItemForContext<BLPaymentType>(context)) {
        bank->setIban(nonEmpty(setup.iban));
        bank->setBic(nonEmpty(setup.bic));
    }
    Numbering numbering(context);
    for (const Kind& kind : kinds) {
        if (kind.pattern) {
            if (std::optional<NumberingKind> numberingKind = numberingKindForPrefsKey(kind.name)) {
                numbering.setPattern(*numberingKind, *kind.pattern);
            }
        }
    }
    context.processPendingChanges();
    if (undo != nullptr) {
        undo->enableUndoRegistration();
    }
    if (!file->save(messages)) {
        if (error != nullptr) {
            *error = commandMessage(messages.str()).toStdString();
        }
        return std::nullopt;  // The handle closes the file as it goes.
    }
    return file;
}

}  // namespace brassline::desktop
