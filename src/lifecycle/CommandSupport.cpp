#include "lifecycle/CommandSupport.h"

#include <ostream>

#include "lifecycle/LifecycleHooks.h"
#include "model/ManagedObjectContext.h"
#include "store/BLDoc.h"

namespace brassline {

std::unique_ptr<BLDoc> openCommandDocument(const std::string& path, std::ostream& err) {
    installLifecycleHooks();
    std::string error;
    std::unique_ptr<BLDoc> document = BLDoc::open(path, &error);
    if (!document) {
        err << "brassline: " << error << "\n";
    }
    return document;
}

ManagedObject* commandObjectWithUid(BLDoc& document, const std::string& uid, std::ostream& err) {
    ManagedObjectContext& context = document.managedObjectContext();
    const EntityDescription* base = context.entityNamed("Base");
    ManagedObject* object = base != nullptr ? context.objectWithUid(*base, uid) : nullptr;
    if (object == nullptr) {
        err << "brassline: no object has the uid " << uid << "\n";
    }
    return object;
}

bool saveCommandDocument(BLDoc& document, std::ostream& err) {
    std::string error;
    if (!document.save(&error)) {
        err << "brassline: the company file can't be saved: " << error << "\n";
        return false;
    }
    return true;
}

}  // namespace brassline
