#pragma once

#include <string_view>
#include <vector>

namespace brassline {

class BLBase;
class ManagedObject;
class ManagedObjectContext;
class UndoManager;

// Suspends undo registration of a context's undo manager for its lifetime and restores it
// only if it was on: what is derived, not entered by the user, is no step to undo. A null
// context or one without an undo manager makes it a no-op.
class UndoSuspension {
public:
    explicit UndoSuspension(const ManagedObjectContext* context);
    ~UndoSuspension();
    UndoSuspension(const UndoSuspension&) = delete;
    UndoSuspension& operator=(const UndoSuspension&) = delete;

private:
    UndoManager* m_undoManager = nullptr;
};

// Inserts a new object that undo will not remove; null for an unknown or abstract entity.
ManagedObject* insertNewObjectWithoutUndoRecording(std::string_view entityName, ManagedObjectContext& context);

// Deletes the objects of a tree as one undo step, resetting the caches of `root` (which
// stays) inside that step. Answers false, and deletes nothing more, at the first object
// the delete rules refuse; the step then undoes what was deleted before.
bool deleteObjectsInTree(const std::vector<BLBase*>& objects, BLBase& root);

}  // namespace brassline
