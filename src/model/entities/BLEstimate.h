#pragma once

#include "model/entities/gen/BLEstimate.h"

namespace brassline {

// An estimate: a sendable that may become an invoice.
class BLEstimate : public gen::BLEstimate {
public:
    void setup() override;
    // The sendable's rule; then, outside a sync and while a draft, the client's estimate
    // layout and the validity preference ("estimate.validity") as pay interval.
    void setParentDocument(brassline::BLDocument* value) override;
    BLBase* duplicate() override;
    int64_t addToDocumentsCount() const override { return 1; }
    std::vector<std::string> allowedDocuments() const override { return {"BLExternalFile", "BLExternalFileGroup"}; }
    bool allowsDocuments(const std::vector<BLDocument*>& candidates) const override;

    // The items without option sections (from an option up to the next plain title) and
    // without titles; the total and the tax table count only these.
    std::vector<BLItem*> nonOptionItems() const;
    std::vector<BLItem*> itemsForTotal() const override { return nonOptionItems(); }
    Decimal balanceForLayout() override { return costWithTaxes(); }

    // A stored -1 (older files' mark of a declined estimate) reads as 2.
    int16_t state() const override;
    void setCompleteMode(std::optional<int16_t> value) override;
    std::string label() override;
    std::string statusImage() override;
    std::string dueLabel() const override { return "validity"; }
    std::string entityNameForNumbering() const override { return "Estimate"; }
    std::string counterPreferenceKey() const override { return "prefsController.estimate.number"; }
    std::string mailPrefsKey() override { return "estimate"; }
    bool canAccept() const override { return true; }

protected:
    std::string statusKey(bool forDisplay) override;
};

}  // namespace brassline
