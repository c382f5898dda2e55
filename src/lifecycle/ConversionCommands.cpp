#include "lifecycle/ConversionCommands.h"

#include <optional>
#include <ostream>

#include "lifecycle/CommandSupport.h"
#include "lifecycle/Conversions.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLEstimate.h"
#include "model/entities/BLInvoice.h"

namespace brassline::conversioncommands {

namespace {

using exitcode::kBadInput;
using exitcode::kSaveFailed;

BLSendable* findSendable(CommandFile& file, const std::string& uid, std::ostream& err) {
    ManagedObject* object = file.objectWithUid(uid, err);
    if (object == nullptr) {
        return nullptr;
    }
    auto* sendable = dynamic_cast<BLSendable*>(object);
    if (sendable == nullptr || !(object->isKindOfEntity("Invoice") || object->isKindOfEntity("Estimate"))) {
        err << "brassline: " << object->entityName() << " " << uid << " is neither an invoice nor an estimate\n";
        return nullptr;
    }
    return sendable;
}

int saveAndPrint(CommandFile& file, BLSendable& made, std::ostream& out, std::ostream& err) {
    if (!file.save(err)) {
        return kSaveFailed;
    }
    out << made.uid().value_or("") << "\n";
    return 0;
}

}  // namespace

int convert(const std::string& path, const std::string& uid, const std::string& target, std::ostream& out,
            std::ostream& err) {
    if (target != "invoice" && target != "estimate" && target != "credit-note") {
        err << "brassline: unknown target \"" << target << "\" (invoice, estimate, credit-note)\n";
        return kBadInput;
    }
    std::optional<CommandFile> file = openCommandDocument(path, err);
    if (!file) {
        return kBadInput;
    }
    BLSendable* source = findSendable(*file, uid, err);
    if (source == nullptr) {
        return kBadInput;
    }
    BLSendable* made = nullptr;
    auto* estimate = dynamic_cast<BLEstimate*>(source);
    auto* invoice = dynamic_cast<BLInvoice*>(source);
    if (target == "invoice") {
        if (estimate == nullptr) {
            err << "brassline: only an estimate becomes an invoice\n";
            return kBadInput;
        }
        made = createInvoice(*estimate);
    } else if (invoice == nullptr) {
        err << "brassline: only an invoice becomes " << (target == "estimate" ? "an estimate" : "a credit note")
            << "\n";
        return kBadInput;
    } else {
        made = target == "estimate" ? static_cast<BLSendable*>(createEstimate(*invoice))
                                    : static_cast<BLSendable*>(createCreditNote(*invoice));
    }
    if (made == nullptr) {
        err << "brassline: the conversion of " << uid << " failed\n";
        return kBadInput;
    }
    return saveAndPrint(*file, *made, out, err);
}

int duplicate(const std::string& path, const std::string& uid, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = openCommandDocument(path, err);
    if (!file) {
        return kBadInput;
    }
    BLSendable* source = findSendable(*file, uid, err);
    if (source == nullptr) {
        return kBadInput;
    }
    BLSendable* made = duplicateSendable(*source);
    if (made == nullptr) {
        err << "brassline: " << uid << " can't be duplicated\n";
        return kBadInput;
    }
    return saveAndPrint(*file, *made, out, err);
}

}  // namespace brassline::conversioncommands
