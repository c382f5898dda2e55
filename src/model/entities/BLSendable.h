#pragma once

#include "model/entities/gen/BLSendable.h"

namespace brassline {

class BLProject;

// A document that is issued: draft while dateSent is absent, issued once it is set.
class BLSendable : public gen::BLSendable {
public:
    using BLBase::cloneWithEntityReplacements;
    static void setupClass(EntityDescription& entity);

    // The project above (the stored text of the same name is the legacy project name).
    BLProject* project() const { return BLDocument::project(); }
    std::optional<std::string> legacyProjectName() const { return gen::BLSendable::project(); }
    bool isSent() const override { return dateSent().has_value(); }
    bool canDelete() const override { return BLDocument::canDelete() && !dateSent(); }
    // The lines whose "cost" is not 0.
    std::vector<BLContainer*> costsArray() const override;

    void setParentDocument(brassline::BLDocument* value) override;
    void setup() override;
    void fixMissingValues() override;
    BLBase* clone() override;
    BLBase* cloneWithEntityReplacements(const EntityReplacements& replacements,
                                        const std::vector<std::string>& skip) override;

protected:
    // The duplicate of invoices and estimates: a fresh draft beside the original.
    BLBase* duplicateAsDraft(const std::vector<std::string>& skip);
};

}  // namespace brassline
