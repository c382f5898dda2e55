#include "model/entities/BLThread.h"

#include "model/ManagedObjectContext.h"

namespace brassline {

namespace {
constexpr double kAddDocumentDelaySeconds = 0.2;
}  // namespace

void BLThread::addDocument() {
    ManagedObjectContext* context = managedObjectContext();
    if (context == nullptr) {
        return;
    }
    // The thread is found again by its ID when the delay has passed: it may have been
    // deleted, or its deletion saved, in the meantime.
    const ObjectID id = objectID();
    context->schedule(
        [id](ManagedObjectContext& objects) {
            auto* thread = dynamic_cast<BLThread*>(objects.objectWithID(id));
            if (thread == nullptr || thread->isDeleted()) {
                return;
            }
            ManagedObject* invoice = objects.insertNewObjectForEntityForName("Invoice");
            if (auto* container = dynamic_cast<BLContainer*>(invoice)) {
                container->setParent(thread);
            }
        },
        {kAddDocumentDelaySeconds, {}});
}

}  // namespace brassline
