#include "lifecycle/IssueCommands.h"

#include <ostream>

#include "core/Localization.h"
#include "lifecycle/CommandSupport.h"
#include "lifecycle/SendableIssue.h"
#include "lifecycle/Transcripts.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLSendableStorage.h"
#include "model/entities/BLTranscript.h"

namespace brassline::issuecommands {

namespace {

using exitcode::kBadInput;
using exitcode::kSaveFailed;

BLSendable* findSendable(CommandFile& file, const std::string& uid, std::ostream& err) {
    ManagedObject* object = file.objectWithUid(uid, err);
    if (object == nullptr) {
        return nullptr;
    }
    auto* sendable = dynamic_cast<BLSendable*>(object);
    if (sendable == nullptr) {
        err << "brassline: " << object->entityName() << " " << uid << " is not a document that can be issued\n";
    }
    return sendable;
}

int saveOrReport(CommandFile& file, std::ostream& err) {
    return file.save(err) ? 0 : kSaveFailed;
}

// The closing mark a word stands for on this document; estimates know two more words.
std::optional<int16_t> completeModeNamed(const BLSendable& sendable, const std::string& word) {
    const bool estimate = dynamic_cast<const BLEstimate*>(&sendable) != nullptr;
    if (word == "open") {
        return int16_t{0};
    }
    if (word == "settled" || (estimate && word == "accepted")) {
        return int16_t{1};
    }
    if (word == "canceled" || (estimate && word == "declined")) {
        return int16_t{2};
    }
    return std::nullopt;
}

}  // namespace

int issue(const std::string& path, const IssueOptions& options, std::ostream& out, std::ostream& err) {
    std::optional<Date> date;
    if (options.date) {
        date = Date::parseISO8601(*options.date);
        if (!date) {
            err << "brassline: \"" << *options.date << "\" is not a date (2024-03-01)\n";
            return kBadInput;
        }
    }
    if (options.payInterval && (*options.payInterval < 0 || *options.payInterval > 32767)) {
        err << "brassline: the payment interval must be between 0 and 32767 days\n";
        return kBadInput;
    }
    std::optional<SendRoute> route;
    if (options.deliver) {
        route = parseSendRoute(*options.deliver);
        if (!route) {
            err << "brassline: unknown delivery \"" << *options.deliver << "\" (mail, print, save, network)\n";
            return kBadInput;
        }
    }
    std::optional<CommandFile> file = openCommandDocument(path, err);
    if (!file) {
        return kBadInput;
    }
    std::vector<BLSendable*> documents;
    for (const std::string& uid : options.uids) {
        BLSendable* sendable = findSendable(*file, uid, err);
        if (sendable == nullptr) {
            return kBadInput;
        }
        documents.push_back(sendable);
    }
    SendSheet sheet = startIssue(documents);
    if (!sheet.proceed) {
        if (sheet.alert) {
            err << "brassline: " << sheet.alert->title << ": " << sheet.alert->text << "\n";
        } else {
            err << "brassline: the send was stopped before the issue\n";
        }
        return kBadInput;
    }
    if (sheet.prePaymentsWarning) {
        err << "brassline: note: payments dated before the issue date exist\n";
    }
    IssueRequest request;
    request.documents = documents;
    // A re-send offers no date: the documents keep theirs whatever was given.
    request.date = date && sheet.dateEditable ? *date : sheet.date;
    request.payInterval = options.payInterval.value_or(sheet.payInterval);
    request.route = route.value_or(sheet.buttons.main);
    if (!route) {
        out << "delivery: " << sendRouteName(request.route) << " (" << sheet.buttons.reason << ")\n";
    }
    IssueResult result = issueDocuments(request);
    if (!result.issued) {
        err << "brassline: " << result.message << "\n";
        return kBadInput;
    }
    for (const std::string& note : result.notes) {
        err << "brassline: " << note << "\n";
    }
    for (BLSendable* sendable : documents) {
        // Issued without a number when the stored pattern makes none: say so, not "draft".
        const std::string number = BLBase::fixedAttribute(sendable->name());
        out << BLBase::fixedAttribute(sendable->uid()) << " " << (number.empty() ? "(no number)" : number) << "\n";
    }
    if (!result.saved) {
        err << "brassline: " << result.message << "\n";
        return kSaveFailed;
    }
    return 0;
}

int unlock(const std::string& path, const std::string& uid, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = openCommandDocument(path, err);
    if (!file) {
        return kBadInput;
    }
    BLSendable* sendable = findSendable(*file, uid, err);
    if (sendable == nullptr) {
        return kBadInput;
    }
    BLTranscript* transcript = unlockSendable(*sendable);
    if (transcript == nullptr) {
        err << "brassline: " << uid << " is a draft: there is nothing to unlock\n";
        return kBadInput;
    }
    if (int code = saveOrReport(*file, err); code != 0) {
        return code;
    }
    out << "unlocked " << sendable->nameOrDraft() << "; transcript " << BLBase::fixedAttribute(transcript->uid())
        << "\n";
    return 0;
}

int settle(const std::string& path, const std::string& uid, const std::string& mode, std::ostream& out,
           std::ostream& err) {
    std::optional<CommandFile> file = openCommandDocument(path, err);
    if (!file) {
        return kBadInput;
    }
    BLSendable* sendable = findSendable(*file, uid, err);
    if (sendable == nullptr) {
        return kBadInput;
    }
    std::optional<int16_t> value = completeModeNamed(*sendable, mode);
    if (!value) {
        err << "brassline: unknown mark \"" << mode << "\" (open, settled, canceled"
            << (dynamic_cast<BLEstimate*>(sendable) != nullptr ? ", accepted, declined" : "") << ")\n";
        return kBadInput;
    }
    sendable->setCompleteMode(*value);
    if (int code = saveOrReport(*file, err); code != 0) {
        return code;
    }
    out << sendable->nameOrDraft() << ": " << mode << " (status " << sendable->status() << ")\n";
    return 0;
}

int transcripts(const std::string& path, const std::optional<std::string>& exportFolder, std::ostream& out,
                std::ostream& err) {
    std::optional<CommandFile> file = openCommandDocument(path, err);
    if (!file) {
        return kBadInput;
    }
    ManagedObjectContext& context = file->context();
    if (exportFolder) {
        TranscriptExport result = exportTranscripts(context, *exportFolder);
        if (!result.ok) {
            err << "brassline: " << result.message << "\n";
            return kBadInput;
        }
        out << result.folder << " (" << result.entries << (result.entries == 1 ? " entry" : " entries") << ")\n";
        return 0;
    }
    for (BLTranscript* transcript : sortedTranscripts(context)) {
        std::optional<Date> date = transcript->date();
        out << (date ? date->iso8601String() : std::string("-")) << "  "
            << localizedString(BLBase::fixedAttribute(transcript->operation())) << "  " << transcript->displayType()
            << "  " << (transcript->storage() != nullptr && transcript->storage()->data() != nullptr ? "PDF" : "no PDF")
            << "\n";
    }
    return 0;
}

}  // namespace brassline::issuecommands
