#include "lifecycle/SendableIssue.h"

#include <algorithm>

#include "core/Localization.h"
#include "core/Log.h"
#include "lifecycle/FilingCopy.h"
#include "lifecycle/Numbering.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLSendableStorage.h"
#include "store/BLDoc.h"
#include "store/BLUserDefaults.h"

namespace brassline {

namespace {

constexpr const char* kDocumentSentNotification = "BLDocumentSent";
constexpr const char* kUnlockDatesPrefix = "unlockDates.";
constexpr const char* kStripeCodeClass = "BLLayoutStripeQRCodeView";
constexpr double kDocumentSentDelaySeconds = 1.0;
constexpr double kSecondsPerDay = 86400.0;
constexpr int64_t kDefaultPayInterval = 30;

std::string uidOf(const BLSendable& sendable) {
    return BLBase::fixedAttribute(sendable.uid());
}

void tell(const IssueAlert& alert) {
    logMessage("%@: %@", alert.title, alert.text);
    if (issueHooks().showAlert) {
        issueHooks().showAlert(alert);
    }
}

// The issue date kept when the document was unlocked.
std::optional<Date> unlockDate(const BLSendable& sendable) {
    Value kept = UserDefaults::standard().objectForKey(kUnlockDatesPrefix + uidOf(sendable));
    if (const Date* date = kept.date()) {
        return *date;
    }
    if (const std::string* text = kept.string()) {
        return Date::parseISO8601(*text);
    }
    if (kept.isNumber()) {
        return Date(kept.toDouble());
    }
    return std::nullopt;
}

SendButtons buttonsFor(SendRoute main, std::string reason) {
    SendButtons buttons;
    buttons.main = main;
    buttons.reason = std::move(reason);
    if (main == SendRoute::Mail) {
        buttons.second = SendRoute::Print;
    } else if (main != SendRoute::Network) {
        buttons.second = SendRoute::Mail;
    }
    return buttons;
}

// The state an issue may change, taken before its first change so that a failing step
// can put every document and counter back. Restoring is itself recorded in the open
// undo group, which then undoes to nothing.
class IssueSnapshot {
public:
    IssueSnapshot(const std::vector<BLSendable*>& documents, NumberingPreferences& preferences)
        : m_preferences(preferences) {
        for (BLSendable* document : documents) {
            DocumentState state;
            state.document = document;
            state.dateSent = document->dateSent();
            state.dateDue = document->dateDue();
            state.payInterval = document->payInterval();
            state.deliveryType = document->deliveryType();
            state.name = document->name();
            state.storage = document->storage();
            if (state.storage != nullptr && state.storage->data() != nullptr) {
                state.storageData = *state.storage->data();
            }
            m_documents.push_back(std::move(state));
            if (std::optional<NumberingKind> kind = numberingKindForObject(*document)) {
                keep(kind->counterKey);
                keep(kind->lastResetKey);
            }
        }
    }

    void noteInsertedStorage(BLSendableStorage* storage) { m_insertedStorages.push_back(storage); }

    void restore(ManagedObjectContext& context) {
        for (auto it = m_documents.rbegin(); it != m_documents.rend(); ++it) {
            BLSendable& document = *it->document;
            if (document.dateSent() != it->dateSent) {
                document.setDateSent(it->dateSent);
            }
            if (document.storage() != it->storage) {
                document.setStorage(it->storage);
            }
            if (it->storage != nullptr) {
                it->storage->setData(it->storageData);
            }
            if (document.dateDue() != it->dateDue) {
                document.setDateDue(it->dateDue);
            }
            if (document.payInterval() != it->payInterval) {
                document.setPayInterval(it->payInterval);
            }
            if (document.deliveryType() != it->deliveryType) {
                document.setDeliveryType(it->deliveryType);
            }
            if (document.name() != it->name) {
                document.setName(it->name);
            }
        }
        for (BLSendableStorage* storage : m_insertedStorages) {
            context.deleteObject(storage);
        }
        for (const auto& [key, value] : m_counters) {
            m_preferences.setValueForKeyPath(value, key);
        }
        context.processPendingChanges();
    }

private:
    struct DocumentState {
        BLSendable* document = nullptr;
        std::optional<Date> dateSent;
        std::optional<Date> dateDue;
        std::optional<int16_t> payInterval;
        std::optional<int16_t> deliveryType;
        std::optional<std::string> name;
        BLSendableStorage* storage = nullptr;
        std::optional<Bytes> storageData;
    };

    void keep(const std::string& key) {
        if (key.empty() || std::any_of(m_counters.begin(), m_counters.end(),
                                       [&key](const auto& entry) { return entry.first == key; })) {
            return;
        }
        m_counters.emplace_back(key, m_preferences.valueForKeyPath(key));
    }

    NumberingPreferences& m_preferences;
    std::vector<DocumentState> m_documents;
    std::vector<std::pair<std::string, Value>> m_counters;
    std::vector<BLSendableStorage*> m_insertedStorages;
};

// The issue steps up to the closed undo group: dates, numbers, frozen PDF, filing copy.
bool freezeDocuments(const IssueRequest& request, const std::vector<BLSendable*>& documents,
                     ManagedObjectContext& context, IssueResult& result) {
    IssueHooks& hooks = issueHooks();
    DocumentNumberingPreferences preferences(context);
    Numbering numbering(context, preferences);
    IssueSnapshot snapshot(documents, preferences);
    auto fail = [&](const BLSendable& document, const std::string& reason) {
        const std::string number = BLBase::fixedAttribute(document.name());
        snapshot.restore(context);
        result.numbers.clear();
        result.message = "Issuing " + number + " failed: " + reason + ". No document was issued.";
        logMessage("%@", result.message);
        return false;
    };

    // A re-send (first document issued) touches no date, not even of drafts later on.
    if (!documents.front()->dateSent()) {
        const Date due(request.date.dayStart().timeIntervalSinceReferenceDate() +
                       static_cast<double>(request.payInterval) * kSecondsPerDay);
        for (BLSendable* document : documents) {
            document->setDateDue(due);
            document->setDateSent(request.date);
            document->setPayInterval(static_cast<int16_t>(request.payInterval));
        }
    }
    for (BLSendable* document : documents) {
        if (BLBase::fixedAttribute(document->name()).empty()) {
            if (std::optional<std::string> number = numbering.createNumberForDate(*document, document->dateSent())) {
                result.numbers.push_back(*number);
            }
        }
        BLLayout* layout = document->layout();
        if (hooks.stripePaymentLink && layout != nullptr &&
            BLBase::fixedAttribute(layout->classes()).find(kStripeCodeClass) != std::string::npos) {
            if (StepFailure failure = hooks.stripePaymentLink(*document)) {
                return fail(*document, *failure);
            }
        }
        Bytes pdf;
        if (hooks.pdfDocument) {
            if (StepFailure failure = hooks.pdfDocument(*document, pdf)) {
                return fail(*document, *failure);
            }
        }
        // Until layouts can make a PDF the storage stays empty; the issue still numbers,
        // dates and records the document.
        if (document->storage() == nullptr) {
            BLSendableStorage* storage = BLSendableStorage::insertInManagedObjectContext(context);
            snapshot.noteInsertedStorage(storage);
            document->setStorage(storage);
        }
        if (!pdf.empty()) {
            document->storage()->setData(std::move(pdf));
        }
        if (hooks.writeDocument) {
            if (StepFailure failure = hooks.writeDocument(*document)) {
                return fail(*document, *failure);
            }
        }
    }
    return true;
}

void endSendInContext(ManagedObjectContext& context, IssueResult& result) {
    context.processPendingChanges();
    std::string error;
    if (BLDoc* document = BLDoc::documentForContext(context)) {
        result.saved = document->save(&error);
    } else {
        result.saved = context.save(&error);
    }
    if (!result.saved) {
        result.message = "The issued documents could not be saved: " + error;
        logMessage("%@", result.message);
    }
    RunLoop::main().performAfterDelay(kDocumentSentDelaySeconds, [] {
        NotificationCenter::defaultCenter().postNotificationName(kDocumentSentNotification);
    });
}

// The network route. Answers whether the common ending (documentSent) follows.
bool sendThroughNetwork(const std::vector<BLSendable*>& documents, ManagedObjectContext& context, IssueResult& result) {
    IssueHooks& hooks = issueHooks();
    for (BLSendable* document : documents) {
        std::optional<SendPluginInfo> plugin = hooks.sendPlugin ? hooks.sendPlugin(*document) : std::nullopt;
        if (!plugin || (!plugin->hasSendMethod && !plugin->hasSendFunction)) {
            result.notes.push_back("No send plug-in is installed for " + BLBase::fixedAttribute(document->name()) +
                                   ": the document is issued but was not sent.");
            return false;
        }
        if (plugin->hasSendFunction) {
            if (!hooks.runSendFunction) {
                result.notes.push_back("No script host is installed to run the send plug-in.");
                return false;
            }
            // Only this document goes: the job answers for one document at a time.
            const ObjectID id = document->objectID();
            const std::string pluginUid = plugin->uid;
            ManagedObjectContext* owner = &context;
            hooks.runSendFunction(*document, *plugin, [owner, id, pluginUid](std::optional<Value::Dictionary> answer) {
                auto* sent = dynamic_cast<BLSendable*>(owner->objectWithID(id));
                if (sent == nullptr) {
                    return;
                }
                if (std::optional<IssueAlert> alert = applyNetworkSendResult(*sent, pluginUid, answer)) {
                    tell(*alert);
                }
            });
            result.networkPending = true;
            return false;
        }
    }
    return true;
}

}  // namespace

IssueHooks& issueHooks() {
    static IssueHooks hooks;
    return hooks;
}

void resetIssueHooks() {
    issueHooks() = IssueHooks{};
}

void installIssueHooks() {
    IssueHooks& hooks = issueHooks();
    hooks.pdfDocument = [](BLSendable& sendable, Bytes& pdf) -> StepFailure {
        // Until layouts can draw, no PDF is made and the storage stays empty by design.
        if (std::optional<std::string> bytes = PDFDocument(sendable)) {
            pdf.assign(bytes->begin(), bytes->end());
        }
        return std::nullopt;
    };
    hooks.writeDocument = [](BLSendable& sendable) -> StepFailure {
        FilingResult written = writeDocument(sendable, true);
        if (written.outcome == FilingResult::Outcome::Failed) {
            return written.message.empty() ? std::string("the filing copy could not be written") : written.message;
        }
        return std::nullopt;
    };
}

const char* sendRouteName(SendRoute route) {
    switch (route) {
        case SendRoute::Mail:
            return "mail";
        case SendRoute::Print:
            return "print";
        case SendRoute::Save:
            return "save";
        case SendRoute::Network:
            return "network";
        case SendRoute::Cancel:
            break;
    }
    return "cancel";
}

std::optional<SendRoute> parseSendRoute(std::string_view text) {
    for (SendRoute route : {SendRoute::Mail, SendRoute::Print, SendRoute::Save, SendRoute::Network}) {
        if (text == sendRouteName(route)) {
            return route;
        }
    }
    return std::nullopt;
}

SendButtons defaultSendButtons(BLSendable& sendable) {
    switch (sendable.currentDeliveryType()) {
        case 1:
            return buttonsFor(SendRoute::Mail, "its last delivery was by mail");
        case 2:
            return buttonsFor(SendRoute::Print, "its last delivery was printed");
        case 3:
            return buttonsFor(SendRoute::Save, "its last delivery was saved");
        case 4:
            return buttonsFor(SendRoute::Network, "its last delivery went through the network");
        default:
            break;
    }
    BLClient* client = sendable.client();
    if (client == nullptr) {
        return buttonsFor(SendRoute::Print, "it has no client");
    }
    if (!BLBase::fixedAttribute(client->sendPluginIdentifier()).empty() && sendable.isInvoice()) {
        SendButtons buttons = buttonsFor(SendRoute::Mail, "the client receives e-invoices");
        buttons.second = SendRoute::Save;
        return buttons;
    }
    if (ManagedObjectContext* context = sendable.managedObjectContext()) {
        FetchRequest request(sendable.entityName());
        request.setIncludesSubentities(false);
        if (request.setPredicateFormat("deliveryType > 0")) {
            std::optional<std::vector<ManagedObject*>> found = context->executeFetchRequest(request);
            int64_t sum = 0;
            int64_t count = 0;
            for (ManagedObject* object : found.value_or(std::vector<ManagedObject*>{})) {
                auto* other = dynamic_cast<BLSendable*>(object);
                if (other != nullptr && other->client() == client) {
                    sum += other->deliveryTypeValue();
                    ++count;
                }
            }
            if (count > 0) {
                // The average of the types: mostly printed (2) or saved (3) chooses print.
                const bool print = static_cast<double>(sum) / static_cast<double>(count) > 1.5;
                return buttonsFor(
                    print ? SendRoute::Print : SendRoute::Mail,
                    "the client's earlier documents were mostly " + std::string(print ? "printed or saved" : "mailed"));
            }
        }
    }
    if (!BLBase::fixedAttribute(client->email()).empty()) {
        return buttonsFor(SendRoute::Mail, "the client has an e-mail address");
    }
    return buttonsFor(SendRoute::Print, "the client has no e-mail address");
}

SendSheet startIssue(const std::vector<BLSendable*>& documents) {
    SendSheet sheet;
    if (documents.empty() || documents.front() == nullptr) {
        return sheet;
    }
    BLSendable& first = *documents.front();
    IssueHooks& hooks = issueHooks();
    if (hooks.willSendDocument && !hooks.willSendDocument(first)) {
        return sheet;
    }
    if (hooks.validateDocument && !hooks.validateDocument(first)) {
        return sheet;
    }
    // A local store has no service to ask: nothing and no error, so the send goes on.
    if (hooks.checkServiceIsRunning) {
        if (std::optional<ServiceProblem> problem = hooks.checkServiceIsRunning(first)) {
            if (problem->kind == ServiceProblem::Kind::NoInternet) {
                sheet.alert = IssueAlert{
                    "No Internet Connection", "An internet connection is required for sending documents.", {}};
            } else if (problem->kind == ServiceProblem::Kind::NotRunning) {
                sheet.alert = IssueAlert{
                    formatMessage("%@ not running", problem->serviceName),
                    formatMessage("Please make sure %@ is running before sending documents.", problem->serviceName),
                    {}};
            }
            return sheet;
        }
    }
    // Two machines must not draw the same number while a sync is half done.
    if (hooks.hasError && hooks.hasError(first)) {
        sheet.alert = IssueAlert{"Document not ready",
                                 "This document is currently syncing. To avoid duplicate document numbers, you "
                                 "can't send documents right now",
                                 {}};
        return sheet;
    }
    sheet.date = Date::now();
    if (std::optional<int16_t> interval = first.payInterval()) {
        sheet.payInterval = *interval;
    } else {
        sheet.payInterval = kDefaultPayInterval;
    }
    if (auto* invoice = dynamic_cast<BLInvoice*>(&first); invoice != nullptr && invoice->recurringValue()) {
        if (std::optional<Date> created = invoice->dateCreation()) {
            sheet.date = *created;
        }
    }
    if (std::optional<Date> sent = first.dateSent()) {
        sheet.date = *sent;
        sheet.dateEditable = false;
    }
    if (std::optional<Date> kept = unlockDate(first)) {
        sheet.date = *kept;
    }
    sheet.intervalLabel = dynamic_cast<BLEstimate*>(&first) != nullptr ? "validity" : "payment interval";
    sheet.prePaymentsWarning = hooks.hasPrePaymentsForDate && hooks.hasPrePaymentsForDate(first, sheet.date);
    sheet.buttons = defaultSendButtons(first);
    sheet.proceed = true;
    return sheet;
}

IssueResult issueDocuments(const IssueRequest& request) {
    IssueResult result;
    std::vector<BLSendable*> documents;
    for (BLSendable* document : request.documents) {
        if (document != nullptr) {
            documents.push_back(document);
        }
    }
    if (documents.empty() || request.route == SendRoute::Cancel) {
        result.message = "Nothing to issue.";
        return result;
    }
    ManagedObjectContext* context = documents.front()->managedObjectContext();
    if (context == nullptr || std::any_of(documents.begin(), documents.end(), [context](BLSendable* document) {
            return document->managedObjectContext() != context;
        })) {
        result.message = "The documents to issue must belong to one open company file.";
        logMessage("%@", result.message);
        return result;
    }

    UndoManager* undo = context->undoManager();
    if (undo != nullptr) {
        undo->beginUndoGrouping();
    }
    const bool frozen = freezeDocuments(request, documents, *context, result);
    if (frozen && undo != nullptr && !result.numbers.empty()) {
        const std::vector<std::string> numbers = result.numbers;
        undo->registerUndo([numbers] { tell(undoneNumbersAlert(numbers)); }, "Send");
    }
    if (!frozen) {
        if (undo != nullptr) {
            undo->endUndoGrouping();
        }
        return result;
    }
    result.issued = true;
    // The delivery marks join the issue's group, so that one undo takes back the whole
    // send, as it does when the send runs inside one event.
    auto closeGroup = [&undo] {
        if (undo != nullptr) {
            undo->endUndoGrouping();
            undo = nullptr;
        }
    };

    IssueHooks& hooks = issueHooks();
    bool commonEnding = true;
    switch (request.route) {
        case SendRoute::Mail:
            for (BLSendable* document : documents) {
                if (hooks.addToSepaQueue) {
                    hooks.addToSepaQueue(*document);
                }
                if (!hooks.createMail) {
                    result.notes.push_back("No mail service is installed: " + BLBase::fixedAttribute(document->name()) +
                                           " is issued but was not mailed.");
                } else if (!hooks.createMail(*document)) {
                    result.notes.push_back("The mail for " + BLBase::fixedAttribute(document->name()) +
                                           " was not made.");
                }
            }
            break;
        case SendRoute::Print:
            // A print that is cancelled or can't be made leaves the documents issued, without
            // a SEPA entry, delivery type or "documentSent".
            if (!hooks.print || !hooks.print(documents)) {
                result.notes.push_back(hooks.print
                                           ? "The print was cancelled: the documents are issued."
                                           : "No printing is installed: the documents are issued but not printed.");
                closeGroup();
                endSendInContext(*context, result);
                return result;
            }
            for (BLSendable* document : documents) {
                if (hooks.addToSepaQueue) {
                    hooks.addToSepaQueue(*document);
                }
                document->setDeliveryType(int16_t{2});
            }
            break;
        case SendRoute::Save:
            for (BLSendable* document : documents) {
                if (hooks.addToSepaQueue) {
                    hooks.addToSepaQueue(*document);
                }
                document->setDeliveryType(int16_t{3});
                if (hooks.saveElectronicInvoice) {
                    hooks.saveElectronicInvoice(*document);
                }
            }
            break;
        case SendRoute::Network:
            commonEnding = sendThroughNetwork(documents, *context, result);
            break;
        case SendRoute::Cancel:
            break;
    }
    // The command line has no later autosave: the delivery types set above are saved with
    // the issue rather than after it.
    closeGroup();
    endSendInContext(*context, result);
    if (commonEnding && hooks.documentSent) {
        hooks.documentSent(documents);
    }
    return result;
}

IssueAlert undoneNumbersAlert(const std::vector<std::string>& numbers) {
    return IssueAlert{"Undone sending", "Please note that following document numbers are available again.", numbers};
}

std::optional<IssueAlert> applyNetworkSendResult(BLSendable& sendable, const std::string& pluginUid,
                                                 const std::optional<Value::Dictionary>& result) {
    if (!result || result->empty()) {
        return std::nullopt;
    }
    sendable.setMetaValue(Value(*result), pluginUid, true);
    auto entry = [&result](std::string_view key) -> const Value* {
        auto found = result->find(key);
        return found != result->end() && !found->second.isNull() ? &found->second : nullptr;
    };
    // A rejected document returns to draft and keeps its number for the next attempt.
    if (const Value* onServer = entry("onServer"); onServer != nullptr && !onServer->toBool()) {
        sendable.setDateSent(std::nullopt);
    }
    IssueAlert alert;
    const Value* success = entry("success");
    if (success != nullptr && success->toBool()) {
        alert.title = "E-Invoice Sent Successfully";
        std::vector<std::string> lines;
        if (const Value* id = entry("documentId")) {
            lines.push_back("Document ID: " + id->toString());
        }
        if (const Value* step = entry("step")) {
            lines.push_back("Status: " + step->toString());
        }
        for (const std::string& line : lines) {
            alert.text += (alert.text.empty() ? "" : "\n") + line;
        }
    } else {
        alert.title = "E-Invoice Send Failed";
        if (const Value* step = entry("step")) {
            alert.text = "Failed at step: " + step->toString();
        }
    }
    for (const char* key : {"errors", "messages"}) {
        if (const Value* list = entry(key)) {
            if (const Value::Array* items = list->array()) {
                for (const Value& item : *items) {
                    alert.table.push_back(item.toString());
                }
            } else {
                alert.table.push_back(list->toString());
            }
        }
    }
    return alert;
}

BLTranscript* unlockSendable(BLSendable& sendable) {
    std::optional<Date> sent = sendable.dateSent();
    if (!sent) {
        return nullptr;
    }
    UserDefaults::standard().setObject(Value(*sent), kUnlockDatesPrefix + uidOf(sendable));
    return sendable.unlockDocument();
}

}  // namespace brassline
