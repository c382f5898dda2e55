#include "lifecycle/LayoutScriptHooks.h"

namespace brassline {

LayoutScriptHooks& layoutScriptHooks() {
    static LayoutScriptHooks hooks;
    return hooks;
}

void resetLayoutScriptHooks() {
    layoutScriptHooks() = LayoutScriptHooks();
}

}  // namespace brassline
