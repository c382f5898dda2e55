#include "model/entities/BLPaymentType.h"

namespace brassline {

void BLPaymentType::setupClass(EntityDescription& entity) {
    DefaultBehaviour behaviour;
    // The plain default wins over a typed one.
    behaviour.filterDefaultItems = [](std::vector<BLContainer*> items) {
        for (BLContainer* item : items) {
            if (!static_cast<BLPaymentType*>(item)->type()) {
                return std::vector<BLContainer*>{item};
            }
        }
        return items;
    };
    registerDefaultBehaviour(entity, std::move(behaviour));
}

void BLPaymentType::awakeFromCreate() {
    gen::BLPaymentType::awakeFromCreate();
    nameUntitledIfNameless();
}

std::pair<std::string, std::vector<Value>> BLPaymentType::siblingsToRemoveDefaultPredicate() const {
    std::optional<std::string> ownType = type();
    return {"self != %@ AND type == %@",
            {Value(static_cast<Object*>(const_cast<BLPaymentType*>(this))), ownType ? Value(*ownType) : Value()}};
}

}  // namespace brassline
