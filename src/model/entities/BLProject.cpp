#include "model/entities/BLProject.h"

#include "core/Localization.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

void BLProject::awakeFromCreate() {
    gen::BLProject::awakeFromCreate();
    nameUntitledIfNameless();
}

void BLProject::setup() {
    BLDocument::setup();
    if (!number() && modelHooks().createProjectNumber) {
        modelHooks().createProjectNumber(*this);
    }
}

BLBase* BLProject::duplicate() {
    auto* copy = static_cast<BLProject*>(cloneWithEntityReplacements({}, skippedPropertiesForDuplicate()));
    if (copy != nullptr) {
        copy->setName(name().value_or("") + " " + localizedString(kDuplicateText));
    }
    return copy;
}

std::vector<std::string> BLProject::allowedDocuments() const {
    return {"BLPayment", "BLInvoice", "BLEstimate", "BLProject", "BLExternalFile", "BLExternalFileGroup"};
}

}  // namespace brassline
