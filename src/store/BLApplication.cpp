#include "store/BLApplication.h"

#include <utility>

#include "core/Log.h"
#include "store/BLDocumentController.h"
#include "store/BLUserDefaults.h"

namespace brassline {

namespace {

bool entered = false;

constexpr std::pair<const char*, const char*> kMisspelledKeys[] = {
    {"noftificationsDue", "notificationsDue"},
    {"noftificationsEstimate", "notificationsEstimate"},
    {"noftificationsRecurring", "notificationsRecurring"},
    {"noftificationsOverdue", "notificationsOverdue"},
};

}  // namespace

void BLApplication::processEntry() {
    if (entered) {
        return;
    }
    entered = true;
    renameMisspelledDefaults();
    UserDefaults::standard().registerApplicationDefaults();
    // The decimal default behaviour of the platform (plain rounding, not-a-number instead
    // of exceptions) is the only behaviour of our Decimal, so there is nothing to set.
}

size_t BLApplication::renameMisspelledDefaults() {
    UserDefaults& defaults = UserDefaults::standard();
    size_t moved = 0;
    for (const auto& [wrong, right] : kMisspelledKeys) {
        Value value = defaults.objectForKey(wrong);
        if (value.isNull()) {
            continue;
        }
        // Registered defaults answer for unset keys; only a value the user set counts.
        if (defaults.objectForKey(right) == defaults.registeredDefault(right)) {
            defaults.setObject(value, right);
            ++moved;
        }
        defaults.removeObject(wrong);
    }
    if (moved > 0) {
        logMessage("Renamed %@ misspelled notification settings", moved);
    }
    return moved;
}

size_t BLApplication::applicationDidFinishLaunching() {
    BLDocumentController& controller = BLDocumentController::shared();
    controller.restoreFiles();
    std::string error;
    if (controller.openLastDocumentIfNeeded(&error) == nullptr && !error.empty()) {
        logMessage("No last document: %@", error);
    }
    return controller.documentCount();
}

void BLApplication::applicationWillTerminate() {
    BLDocumentController::shared().storeFiles();
}

void BLApplication::resetForTesting() {
    entered = false;
}

}  // namespace brassline
