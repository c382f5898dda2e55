#pragma once

#include "model/entities/gen/BLClient.h"

namespace brassline {

// A client: the top of its documents, with its own defaults for new documents.
class BLClient : public gen::BLClient {
public:
    void setup() override;
    void fixMissingValues() override;
    bool canDelete() const override;
    std::vector<std::string> allowedDocuments() const override;
};

}  // namespace brassline
