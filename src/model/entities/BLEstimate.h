#pragma once

#include "model/entities/gen/BLEstimate.h"

namespace brassline {

// An estimate: a sendable that may become an invoice.
class BLEstimate : public gen::BLEstimate {
public:
    void setup() override;
    BLBase* duplicate() override;
    int64_t addToDocumentsCount() const override { return 1; }
    std::vector<std::string> allowedDocuments() const override { return {"BLExternalFile", "BLExternalFileGroup"}; }
    bool allowsDocuments(const std::vector<BLDocument*>& candidates) const override;
};

}  // namespace brassline
