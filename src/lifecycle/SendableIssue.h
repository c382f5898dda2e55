#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "core/Date.h"
#include "core/Value.h"

namespace brassline {

class BLSendable;
class BLTranscript;
class ManagedObjectContext;

// The result codes of the send sheet, also the delivery routes of an issue.
enum class SendRoute : int { Cancel = -1, Mail = 0, Print = 1, Save = 3, Network = 4 };
// "mail", "print", "save", "network", "cancel".
const char* sendRouteName(SendRoute route);
std::optional<SendRoute> parseSendRoute(std::string_view text);

// A message for the user: a title, a text and, for lists of numbers or errors, a table.
struct IssueAlert {
    std::string title;
    std::string text;
    std::vector<std::string> table;
};

// A problem the sync service reports before a send; a local store has none.
struct ServiceProblem {
    enum class Kind { NoInternet, NotRunning, Other };
    Kind kind = Kind::Other;
    std::string serviceName;
};

// The plug-in that sends a client's e-invoices through the network, as far as the send
// needs it: its uid and whether it declares "sendMethod" or "sendFunction".
struct SendPluginInfo {
    std::string uid;
    bool hasSendMethod = false;
    bool hasSendFunction = false;
};

// What a step of a later subsystem answers: nothing when it went well, else the reason.
using StepFailure = std::optional<std::string>;

// The steps of later subsystems inside an issue. Each is empty until its subsystem
// installs it; an empty check lets the send go on, an empty output step is skipped.
// Main thread; resettable in tests.
struct IssueHooks {
    // Plug-ins of type "WillSendDocument", asked about the first document; false stops.
    std::function<bool(BLSendable&)> willSendDocument;
    // E-invoices: validateDocument; false stops (its own window names what is missing).
    std::function<bool(BLSendable&)> validateDocument;
    // Sync: checkServiceIsRunning and the document's hasError.
    std::function<std::optional<ServiceProblem>(BLSendable&)> checkServiceIsRunning;
    std::function<bool(BLSendable&)> hasError;
    // Payments: whether payments dated before `date` exist (the sheet warns).
    std::function<bool(BLSendable&, Date date)> hasPrePaymentsForDate;
    // Plug-ins of type "com.orvane.stripe.paymentlink" for a layout with a Stripe code.
    std::function<StepFailure(BLSendable&)> stripePaymentLink;
    // Layout: the PDF bytes of the document (PDFDocument) into `pdf`.
    std::function<StepFailure(BLSendable&, Bytes& pdf)> pdfDocument;
    // The filing copy (writeDocument with overwrite on).
    std::function<StepFailure(BLSendable&)> writeDocument;
    // Delivery. SEPA queue entry; mail (false: no mail made); print of all documents
    // (false: cancelled or impossible); the e-invoice beside a saved document.
    std::function<void(BLSendable&)> addToSepaQueue;
    std::function<bool(BLSendable&)> createMail;
    std::function<bool(const std::vector<BLSendable*>&)> print;
    std::function<void(BLSendable&)> saveElectronicInvoice;
    // Network: the client's send plug-in, and the job that runs its "sendFunction" off the
    // main thread and hands the result dictionary back through `done` on the main run loop.
    std::function<std::optional<SendPluginInfo>(BLSendable&)> sendPlugin;
    std::function<void(BLSendable&, const SendPluginInfo&, std::function<void(std::optional<Value::Dictionary>)> done)>
        runSendFunction;
    // Plug-ins of type "documentSent" with all documents.
    std::function<void(const std::vector<BLSendable*>&)> documentSent;
    // Shows a message (undone numbers, a network result). Empty: logged only.
    std::function<void(const IssueAlert&)> showAlert;
};

IssueHooks& issueHooks();
void resetIssueHooks();
// Installs the steps this subsystem serves itself: the PDF (the frozen storage or a new
// layout; none yet is no failure) and the filing copy (a failed write is one).
void installIssueHooks();

// The two buttons of the send sheet; `second` is absent for the network route.
struct SendButtons {
    SendRoute main = SendRoute::Mail;
    std::optional<SendRoute> second;
    std::string reason;  // Which rule chose them, for the command line.
};

// The default route of a document (in order: its deliveryType, the client's e-invoice
// plug-in, the client's earlier documents of the same entity, the client's e-mail).
SendButtons defaultSendButtons(BLSendable& sendable);

// The start of an issue: the checks on the first document and the sheet's data.
struct SendSheet {
    bool proceed = false;
    std::optional<IssueAlert> alert;  // Why it stopped, when the user is told.
    Date date;
    int64_t payInterval = 30;
    bool dateEditable = true;  // False for a re-send: only the send buttons.
    bool prePaymentsWarning = false;
    std::string intervalLabel;  // "validity" for an estimate.
    SendButtons buttons;
};

// Runs the checks of share: and builds the sheet. The date is now, the recurring
// invoice's dateCreation, the first document's dateSent on a re-send, or the date kept at
// its unlock ("unlockDates.<uid>"), in rising precedence.
SendSheet startIssue(const std::vector<BLSendable*>& documents);

struct IssueRequest {
    std::vector<BLSendable*> documents;
    Date date;
    int64_t payInterval = 30;
    SendRoute route = SendRoute::Mail;
};

struct [[nodiscard]] IssueResult {
    bool issued = false;               // Numbers, dates and storage are in place.
    std::string message;               // Why it failed, when it did.
    std::vector<std::string> numbers;  // Numbers drawn by this issue, in list order.
    std::vector<std::string> notes;    // Delivery steps that were not made.
    bool networkPending = false;       // A send function runs; its result comes later.
    bool saved = false;
};

// The issue proper, one undo group on the first document's context. When the first
// document is a draft all get dateSent = date, dateDue = day start + interval days and the
// interval; then each draws its number (list order), freezes its PDF and writes its
// filing copy. A failure after the first change restores every document and counter as
// they were and answers the reason. Then delivery by route, save, "BLDocumentSent" a
// second later and the "documentSent" plug-ins. Main thread.
IssueResult issueDocuments(const IssueRequest& request);

// The undo action of an issue that drew numbers: tells the user they are free again.
IssueAlert undoneNumbersAlert(const std::vector<std::string>& numbers);

// A network send's result from the send plug-in: stored as a meta value under
// the plug-in's uid (not cloned); "onServer" false returns the document to draft with its
// number. Answers the message to show; nothing for a nil or empty result.
std::optional<IssueAlert> applyNetworkSendResult(BLSendable& sendable, const std::string& pluginUid,
                                                 const std::optional<Value::Dictionary>& result);

// Unlocks an issued document: keeps its dateSent under "unlockDates.<uid>" in the user
// defaults (so that a re-issue starts on that date), then the model's unlock. Null for a
// draft.
BLTranscript* unlockSendable(BLSendable& sendable);

}  // namespace brassline
