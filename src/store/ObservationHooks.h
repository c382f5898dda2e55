#pragma once

#include <functional>
#include <optional>
#include <string>

namespace brassline {

class BLInvoice;
class ManagedObject;
class ManagedObjectContext;

// The overview's badge as data: a label and a colour that a shell shows as it likes.
enum class BadgeColor { None, Blue, Red, Orange, Custom };
struct OverviewBadge {
    std::string label;
    BadgeColor color = BadgeColor::None;
    bool operator==(const OverviewBadge&) const = default;
};

// Calls from change observation into companions and subsystems built later (salutations,
// money, life cycle, SEPA). Each is empty until its owner installs it; an empty hook skips
// the step or answers "not known". Installed on the main thread; resettable in tests.
struct ObservationHooks {
    // The salutations controller of the context's document drops what it has cached.
    std::function<void(ManagedObjectContext&)> invalidateSalutations;
    // An object that its context reported as refreshed.
    std::function<void(ManagedObject&)> objectRefreshed;
    // Invoice states for the state controller, asked on its worker queue about objects of
    // its child context. Empty: the invoice's value for the key of the same name
    // ("balanced", "isDue", "isOverDue", "recurringNow"), absent read as no.
    std::function<bool(const BLInvoice&)> balanced;
    std::function<bool(const BLInvoice&)> isDue;
    std::function<bool(const BLInvoice&)> isOverDue;
    std::function<bool(const BLInvoice&)> recurringNow;
    // The SEPA controller's badge while documents wait for a direct-debit file; main thread.
    std::function<std::optional<OverviewBadge>(ManagedObjectContext&)> sepaBadge;
};

ObservationHooks& observationHooks();
void resetObservationHooks();

}  // namespace brassline
