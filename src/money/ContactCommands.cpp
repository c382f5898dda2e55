#include "money/ContactCommands.h"

#include <algorithm>
#include <optional>
#include <ostream>
#include <utility>
#include <vector>

#include "core/Log.h"
#include "core/Value.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLContact.h"
#include "store/CommandFile.h"

namespace brassline::contactcommands {

namespace {

using exitcode::kBadInput;

// The contact (client, profile, team member or sub-contact) with that uid; null and a
// message naming the uid otherwise.
BLContact* findContact(CommandFile& file, const std::string& uid, std::ostream& err) {
    ManagedObject* object = file.objectWithUid(uid, err);
    if (object == nullptr) {
        return nullptr;
    }
    auto* contact = dynamic_cast<BLContact*>(object);
    if (contact == nullptr) {
        err << "brassline: " << uid << " is a " << object->entity().name() << ", not a contact\n";
    }
    return contact;
}

int printContactText(const std::string& path, const std::string& uid, std::string (BLContact::*text)() const,
                     std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = CommandFile::open(path, err);
    if (!file) {
        return kBadInput;
    }
    BLContact* contact = findContact(*file, uid, err);
    if (contact == nullptr) {
        return kBadInput;
    }
    out << (contact->*text)() << "\n";
    return 0;
}

}  // namespace

int vcard(const std::string& path, const std::string& uid, std::ostream& out, std::ostream& err) {
    return printContactText(path, uid, &BLContact::vCardString, out, err);
}

int address(const std::string& path, const std::string& uid, std::ostream& out, std::ostream& err) {
    return printContactText(path, uid, &BLContact::formattedAddress, out, err);
}

int clients(const std::string& path, bool json, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = CommandFile::open(path, err);
    if (!file) {
        return kBadInput;
    }
    FetchRequest request("Client");
    std::string error;
    std::optional<std::vector<ManagedObject*>> fetched = file->context().executeFetchRequest(request, &error);
    if (!fetched) {
        logMessage("clients cannot be read: %@", error);
        err << "brassline: clients cannot be read: " << error << "\n";
        return kBadInput;
    }
    std::vector<BLClient*> sorted;
    for (ManagedObject* object : *fetched) {
        if (auto* client = dynamic_cast<BLClient*>(object)) {
            sorted.push_back(client);
        }
    }
    // By number, then name: what a person scanning the list looks for.
    std::stable_sort(sorted.begin(), sorted.end(), [](const BLClient* a, const BLClient* b) {
        return std::make_pair(a->clientID().value_or(""), a->displayName()) <
               std::make_pair(b->clientID().value_or(""), b->displayName());
    });
    for (const BLClient* client : sorted) {
        const std::string number = client->clientID().value_or("");
        if (json) {
            Value::Dictionary line = {{"uid", Value(client->uid().value_or(""))},
                                      {"number", client->clientID() ? Value(number) : Value()},
                                      {"displayName", Value(client->displayName())},
                                      {"balance", Value(client->balance())}};
            out << Value(std::move(line)).toJSON() << "\n";
        } else {
            out << number << "\t" << client->displayName() << "\t" << client->balance() << "\n";
        }
    }
    return 0;
}

}  // namespace brassline::contactcommands
