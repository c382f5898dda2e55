#include "model/entities/ModelHooks.h"

namespace brassline {

ModelHooks& modelHooks() {
    static ModelHooks hooks;
    return hooks;
}

void resetModelHooks() {
    modelHooks() = ModelHooks();
}

bool userDefaultIsOn(std::string_view key) {
    const ModelHooks& hooks = modelHooks();
    return hooks.userDefaultBool && hooks.userDefaultBool(key);
}

void updateTaxRuleIfInstalled(BLDocument& document) {
    if (modelHooks().updateTaxRule) {
        modelHooks().updateTaxRule(document);
    }
}

}  // namespace brassline
