#pragma once

#include "model/entities/gen/BLInvoice.h"

namespace brassline {

// An invoice: counted among a client's documents, holds payments while money is open.
class BLInvoice : public gen::BLInvoice {
public:
    void awakeFromCreate() override;
    void setup() override;
    BLBase* duplicate() override;
    int64_t addToDocumentsCount() const override { return 1; }
    std::vector<std::string> allowedDocuments() const override;
    bool allowsDocuments(const std::vector<BLDocument*>& candidates) const override;
};

// The same draft rules for estimates.
bool sendableAcceptsFollowUpOfProject(const std::vector<BLDocument*>& candidates);

}  // namespace brassline
