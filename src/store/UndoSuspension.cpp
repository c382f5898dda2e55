#include "store/UndoSuspension.h"

#include "core/Log.h"
#include "model/ManagedObjectContext.h"
#include "model/UndoManager.h"
#include "model/entities/BLBase.h"

namespace brassline {

UndoSuspension::UndoSuspension(const ManagedObjectContext* context) {
    UndoManager* undo = context != nullptr ? context->undoManager() : nullptr;
    // Only a manager that records is switched off, so the destructor never turns on one
    // that somebody further out had switched off.
    if (undo != nullptr && undo->isUndoRegistrationEnabled()) {
        undo->disableUndoRegistration();
        m_undoManager = undo;
    }
}

UndoSuspension::~UndoSuspension() {
    if (m_undoManager != nullptr) {
        m_undoManager->enableUndoRegistration();
    }
}

ManagedObject* insertNewObjectWithoutUndoRecording(std::string_view entityName, ManagedObjectContext& context) {
    UndoSuspension suspension(&context);
    return context.insertNewObjectForEntityForName(entityName);
}

bool deleteObjectsInTree(const std::vector<BLBase*>& objects, BLBase& root) {
    ManagedObjectContext* context = root.managedObjectContext();
    if (context == nullptr) {
        logMessage("deleteObjectsInTree: the root has no context.");
        return false;
    }
    UndoManager* undo = context->undoManager();
    if (undo != nullptr) {
        undo->beginUndoGrouping();
    }
    bool deletedAll = true;
    for (BLBase* object : objects) {
        if (object == nullptr || object->isDeleted()) {
            continue;
        }
        std::string error;
        if (!context->deleteObject(object, &error)) {
            logMessage("deleteObjectsInTree: %@", error);
            deletedAll = false;
            break;
        }
    }
    // Inside the group, so that undoing the deletion and the totals it changed is one step.
    root.resetCaches();
    if (undo != nullptr) {
        undo->endUndoGrouping();
    }
    return deletedAll;
}

}  // namespace brassline
