#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "core/Decimal.h"
#include "core/Value.h"

namespace brassline {

class BLCatalogItem;
class BLClient;
class BLDocument;
class BLDynamicCost;
class BLFollowUpType;
class BLInvoice;
class BLLanguage;
class BLProject;
class BLSendable;
class BLSendableTemplate;
class BLTaxGroup;
class ManagedObject;
class ManagedObjectContext;

// Calls from the entity classes into subsystems built later (taxes, numbering, money,
// documents, user defaults). Each is empty until its subsystem installs it; an empty hook
// means the step is skipped (or, for lookups, that nothing is known), never a made-up
// answer. Installed at start-up on the main thread; resettable in tests.
struct ModelHooks {
    // Taxes: re-derives the tax rule of a document or line.
    std::function<void(BLDocument&)> updateTaxRule;
    // Life cycle: payment type of a sendable from its client or the defaults.
    std::function<void(BLSendable&)> updatePaymentType;
    // Life cycle: writes the filing copy of an issued sendable (overwrite flag); storing a
    // frozen PDF calls it.
    std::function<void(BLSendable&, bool overwrite)> writeDocument;
    // Layouts: gives a sendable a usable layout.
    std::function<void(BLSendable&)> fixMissingLayout;
    // Numbering: the next client number or project number, nothing when none is made.
    std::function<std::optional<std::string>(BLClient&)> createClientNumber;
    std::function<std::optional<std::string>(BLProject&)> createProjectNumber;
    // Money: the open amount of an invoice; nothing while totals are unknown.
    std::function<std::optional<Decimal>(const BLInvoice&)> invoiceBalance;
    // Plug-ins: runs a dynamic cost's script over its input ("unitPrice", "factor",
    // "quantity", "dateCreation", "items") and answers its result dictionary.
    std::function<std::optional<Value::Dictionary>(BLDynamicCost&, const Value::Dictionary& input)> runDynamicCost;
    // Currencies: the document's converter reloads its rates.
    std::function<void(ManagedObjectContext&)> reloadCurrencyConverter;
    // Documents: the currency transformer cached for a document is dropped.
    std::function<void(BLDocument&)> resetCurrencyTransformer;
    // Money and life cycle steps that cloning, duplicating and set-up run.
    std::function<void(BLSendableTemplate&)> updateFromCatalogItemsIfNeeded;
    std::function<void(BLInvoice&)> updatePartialInvoices;
    // Scripts: evaluates a partial invoice's portion text (already prepared) and answers
    // its numeric result; when empty, plain decimal arithmetic evaluates it.
    std::function<std::optional<Decimal>(std::string_view text)> calculatePortion;
    std::function<void(BLTaxGroup&)> fixTaxRules;
    std::function<void(BLCatalogItem&)> setupUnitPriceGross;
    std::function<void(BLFollowUpType&)> createTokenClasses;
    std::function<void(ManagedObjectContext&)> resetCustomFieldManager;
    // The document's preference controller ("<group>.<key>"). When empty, the stored
    // BLPreference "BLPref.<group>.<key>" of the context is read directly.
    std::function<Value(ManagedObjectContext&, std::string_view key)> preferenceValue;
    // Plain user defaults (application settings); empty reads as off.
    std::function<bool(std::string_view key)> userDefaultBool;
    // The application's defaults file (keys such as "BLPref.invoice.mailSubject").
    std::function<Value(std::string_view key)> applicationDefault;
    // The document's readiness for default objects; when empty the per-context flag of
    // BLContextState decides.
    std::function<bool(const ManagedObjectContext&)> readyForDefaultValues;
    // Layouts: a text in the given language through its translation table; nothing when
    // the table has no entry.
    std::function<std::optional<std::string>(const BLLanguage&, std::string_view text)> translateWithLanguage;
    // Banking: takes a sendable out of the SEPA queue (unlock, a changed closing mark).
    std::function<void(BLSendable&)> removeFromSepaQueue;
    // E-invoices: the deliveryType that the client's send plug-in declares; nothing when
    // there is no plug-in or it declares none.
    std::function<std::optional<int16_t>(const BLInvoice&)> sendPluginDeliveryType;
    // Plug-ins: the interchange record of an object; nothing until records exist.
    std::function<std::optional<Value::Dictionary>(ManagedObject&)> interchangeRecord;
    // The port of the local document service; nothing while it does not run.
    std::function<std::optional<int64_t>()> documentServicePort;
};

ModelHooks& modelHooks();
// Empties every hook (tests).
void resetModelHooks();

// The two readings every caller makes of the hooks above: a user default is off while no
// user defaults are installed, and a tax rule stays as it is while no tax subsystem is.
bool userDefaultIsOn(std::string_view key);
void updateTaxRuleIfInstalled(BLDocument& document);

}  // namespace brassline
