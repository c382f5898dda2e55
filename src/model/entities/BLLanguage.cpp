#include "model/entities/BLLanguage.h"

#include "core/Localization.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

void BLLanguage::setup() {
    if (!name()) {
        setName(localizedString(kUntitledText));
    }
}

void BLLanguage::setupDefault() {
    if (!name()) {
        setName(localizedString(kDefaultText));
    }
}

BLBase* BLLanguage::cloneWithEntityReplacements(const EntityReplacements& replacements,
                                                const std::vector<std::string>& skip) {
    std::vector<std::string> keys = skip;
    keys.emplace_back("isDefault");
    keys.emplace_back("contacts");
    auto* copy = static_cast<BLLanguage*>(BLBase::cloneWithEntityReplacements(replacements, keys));
    if (copy != nullptr) {
        copy->setName(localizedString(kUntitledText));
        copy->setDefault(false);
    }
    return copy;
}

}  // namespace brassline
