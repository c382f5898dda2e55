#include "model/entities/ModelHooks.h"

namespace brassline {

ModelHooks& modelHooks() {
    static ModelHooks hooks;
    return hooks;
}

void resetModelHooks() {
    modelHooks() = ModelHooks();
}

}  // namespace brassline
