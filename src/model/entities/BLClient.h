#pragma once

#include <map>
#include <optional>
#include <string>

#include "model/entities/BLContact.h"
#include "model/entities/gen/BLClient.h"

namespace brassline {

// A client: the top of its documents, with its own defaults for new documents, its
// number and what it owes.
class BLClient : public gen::BLClient {
public:
    static void setupClass(EntityDescription& entity);

    void setup() override;
    void fixMissingValues() override;
    bool canDelete() const override;
    std::vector<std::string> allowedDocuments() const override;

    // The client's number: the one it has, else a new one from the numbering, which is
    // consumed at once. Nothing when numbering is unavailable or makes an empty number.
    std::optional<std::string> createNumber();
    // Advances the client counter "client.number" of the document by one.
    void incrementNumber();

    // Open amounts by currency ISO name: each issued open invoice below adds its balance;
    // drafts count only through their issued partial invoices.
    std::map<std::string, Decimal> collectBalance() const;
    // "EUR 12.50, USD 3.00": each currency whose sum is not 0.
    std::string balance() const;
    bool hasOpen() const { return !balance().empty(); }
    // The amount of the issued open invoices below in the default currency, each converted
    // by its currency's rate; nothing when there is none.
    std::optional<Decimal> openAmount() const;
    // Gives every sub-contact this client's street, city and postcode.
    void setAddressAsDefault();
};

}  // namespace brassline
