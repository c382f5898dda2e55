#pragma once

namespace brassline {

// Notification names and user info keys of the object runtime, spelled as posted.

// Posted by a context once per batch of changes (processPendingChanges). The object is the
// context; the user info holds arrays of object references under the keys below, and under
// kChangedKeysKey, parallel to kUpdatedObjectsKey, an array of the changed keys of each.
inline constexpr const char* kObjectsDidChangeNotification = "NSManagedObjectContextObjectsDidChangeNotification";
inline constexpr const char* kContextWillSaveNotification = "NSManagedObjectContextWillSaveNotification";
// Posted after a successful save with the saved objects under the same keys.
inline constexpr const char* kContextDidSaveNotification = "NSManagedObjectContextDidSaveNotification";

inline constexpr const char* kInsertedObjectsKey = "inserted";
inline constexpr const char* kUpdatedObjectsKey = "updated";
inline constexpr const char* kDeletedObjectsKey = "deleted";
inline constexpr const char* kRefreshedObjectsKey = "refreshed";
inline constexpr const char* kChangedKeysKey = "changedKeys";

// Breadcrumbs of work on the main context from another thread.
inline constexpr const char* kThreadFailSavedBreadcrumb = "Thread fail (saved 2)";
inline constexpr const char* kRequestInWrongThreadMessage = "Request called in wrong Thread %@";
inline constexpr const char* kThreadFailBreadcrumb = "Thread fail";
inline constexpr const char* kSaveInWrongThreadMessage = "Save called in wrong Thread";

}  // namespace brassline
