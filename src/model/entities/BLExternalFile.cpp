#include "model/entities/BLExternalFile.h"

#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"

namespace brassline {

void BLExternalFile::awakeFromCreate() {
    gen::BLExternalFile::awakeFromCreate();
    nameUntitledIfNameless();
    if (!isSyncing()) {
        setDateCreation(Date::now());
    }
}

void BLExternalFile::setup() {
    BLDocument::setup();
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return;
    }
    FetchRequest request(entityName());
    request.setIncludesSubentities(false);
    std::optional<std::vector<ManagedObject*>> files = context->executeFetchRequest(request);
    if (!files) {
        return;
    }
    size_t others = 0;
    size_t mailed = 0;
    for (ManagedObject* object : *files) {
        if (object == this) {
            continue;
        }
        ++others;
        if (static_cast<BLExternalFile*>(object)->mailWithParentDocumentValue()) {
            ++mailed;
        }
    }
    // The user's habit decides: more than half of the other files go out with their document.
    if (others > 0 && mailed * 2 > others) {
        setMailWithParentDocument(true);
    }
}

std::vector<std::string> BLExternalFile::allowedDocuments() const {
    if (hasParentDocumentOfClass("BLExternalFileGroup")) {
        return {};
    }
    return {"BLExternalFile"};
}

}  // namespace brassline
