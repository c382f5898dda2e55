#include "layout/LayoutHooks.h"

#include "layout/BackdropRendering.h"
#include "layout/LayoutPackage.h"
#include "layout/LayoutStorageRules.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLLayoutStorage.h"
#include "store/DocumentHooks.h"

namespace brassline {

void fillDefaultLayout(BLLayout& layout) {
    BLLayoutStorage* storage = layout.storage();
    if (storage == nullptr) {
        createNewStorage(layout);
        return;
    }
    if (storage->data() != nullptr && !storage->data()->empty()) {
        return;
    }
    fillStorageWithDefaultLayout(layout, *storage);
}

void installLayoutHooks() {
    installBackdropRendering();
    DocumentHooks& hooks = documentHooks();
    hooks.setupDefaultLayout = [](ManagedObject& layout) {
        if (auto* typed = dynamic_cast<BLLayout*>(&layout)) {
            fillDefaultLayout(*typed);
        }
    };
    hooks.exportLayout = [](ManagedObject& layout, const std::string& folder) {
        auto* typed = dynamic_cast<BLLayout*>(&layout);
        if (typed == nullptr) {
            return false;
        }
        const std::string name = typed->name().value_or("layout");
        std::string error;
        return saveLayoutPackage(*typed, folder + "/" + name + ".brassline", &error);
    };
}

}  // namespace brassline
