#include "store/ObservationHooks.h"

namespace brassline {

ObservationHooks& observationHooks() {
    static ObservationHooks hooks;
    return hooks;
}

void resetObservationHooks() {
    observationHooks() = ObservationHooks{};
}

}  // namespace brassline
