#include "app/cli/Commands.h"

#include <CLI/CLI.hpp>

#include <algorithm>
#include <iostream>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "core/Value.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLContact.h"
#include "store/BLDoc.h"

namespace brassline::cli {

namespace {

constexpr int kBadInput = 1;

std::unique_ptr<BLDoc> openCompany(const std::string& path, std::ostream& err) {
    std::string error;
    std::unique_ptr<BLDoc> document = BLDoc::open(path, &error);
    if (!document) {
        err << "brassline: " << error << "\n";
    }
    return document;
}

// The contact (client, profile, team member or sub-contact) with that uid; null and a
// message naming the uid otherwise.
BLContact* findContact(BLDoc& document, const std::string& uid, std::ostream& err) {
    ManagedObjectContext& context = document.managedObjectContext();
    const EntityDescription* base = context.entityNamed("Base");
    ManagedObject* object = base != nullptr ? context.objectWithUid(*base, uid) : nullptr;
    if (object == nullptr) {
        err << "brassline: no object with uid " << uid << "\n";
        return nullptr;
    }
    auto* contact = dynamic_cast<BLContact*>(object);
    if (contact == nullptr) {
        err << "brassline: " << uid << " is a " << object->entity().name() << ", not a contact\n";
    }
    return contact;
}

int printContactText(const std::string& path, const std::string& uid, std::string (BLContact::*text)() const) {
    std::unique_ptr<BLDoc> document = openCompany(path, std::cerr);
    if (!document) {
        return kBadInput;
    }
    BLContact* contact = findContact(*document, uid, std::cerr);
    if (contact == nullptr) {
        return kBadInput;
    }
    std::cout << (contact->*text)() << "\n";
    return 0;
}

int listClients(const std::string& path, bool json) {
    std::unique_ptr<BLDoc> document = openCompany(path, std::cerr);
    if (!document) {
        return kBadInput;
    }
    FetchRequest request("Client");
    std::string error;
    std::optional<std::vector<ManagedObject*>> clients = document->managedObjectContext().executeFetchRequest(request, &error);
    if (!clients) {
        std::cerr << "brassline: clients cannot be read: " << error << "\n";
        return kBadInput;
    }
    std::vector<BLClient*> sorted;
    for (ManagedObject* object : *clients) {
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
            std::cout << Value(std::move(line)).toJSON() << "\n";
        } else {
            std::cout << number << "\t" << client->displayName() << "\t" << client->balance() << "\n";
        }
    }
    return 0;
}

}  // namespace

// The vcard, address and clients commands register here.
void addContactCommands(CLI::App& app, int& exitCode) {
    {
        auto path = std::make_shared<std::string>();
        auto uid = std::make_shared<std::string>();
        CLI::App* command = app.add_subcommand("vcard", "Print a contact's vCard (3.0) text");
        command->add_option("path", *path, "The company file")->required();
        command->add_option("uid", *uid, "The contact's uid")->required();
        command->callback([path, uid, &exitCode] { exitCode = printContactText(*path, *uid, &BLContact::vCardString); });
    }
    {
        auto path = std::make_shared<std::string>();
        auto uid = std::make_shared<std::string>();
        CLI::App* command = app.add_subcommand(
            "address", "Print a contact's address as documents print it (non-breaking spaces inside lines)");
        command->add_option("path", *path, "The company file")->required();
        command->add_option("uid", *uid, "The contact's uid")->required();
        command->callback(
            [path, uid, &exitCode] { exitCode = printContactText(*path, *uid, &BLContact::formattedAddress); });
    }
    {
        auto path = std::make_shared<std::string>();
        auto json = std::make_shared<bool>(false);
        CLI::App* command = app.add_subcommand(
            "clients", "List the clients: number, display name and open balance by currency, tab-separated");
        command->add_option("path", *path, "The company file")->required();
        command->add_flag("--json", *json, "One JSON object per client (uid, number, displayName, balance)");
        command->callback([path, json, &exitCode] { exitCode = listClients(*path, *json); });
    }
}

}  // namespace brassline::cli
