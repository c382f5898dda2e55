#include "model/entities/BLFollowUpType.h"

#include "core/Localization.h"
#include "core/Log.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLProfile.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

void BLFollowUpType::awakeFromCreate() {
    gen::BLFollowUpType::awakeFromCreate();
    ManagedObjectContext* context = managedObjectContext();
    if (!name()) {
        setPrimitiveName(localizedString(kUntitledText));
        if (!isSyncing() && context != nullptr) {
            if (BLProfile* profile = BLContainer::defaultItemForContext<BLProfile>(*context)) {
                setLayout(profile->layout());
            }
            // The mail texts start as the invoice's, from the application's defaults.
            const std::pair<const char*, const char*> texts[] = {
                {kFollowUpMailSubjectUIDFormat, kInvoiceMailSubjectDefaultKey},
                {kFollowUpMailBodyUIDFormat, kInvoiceMailBodyDefaultKey}};
            for (const auto& [format, defaultKey] : texts) {
                std::string prefUID = formatMessage(format, uid().value_or(""));
                auto* preference =
                    static_cast<BLPreference*>(BLBase::insertInManagedObjectContext(*context, "Preference", prefUID));
                if (preference != nullptr && modelHooks().applicationDefault) {
                    preference->setPayload(modelHooks().applicationDefault(defaultKey));
                }
            }
        }
    }
    if (modelHooks().createTokenClasses) {
        modelHooks().createTokenClasses(*this);
    }
}

void BLFollowUpType::awakeFromFetch() {
    gen::BLFollowUpType::awakeFromFetch();
    if (modelHooks().createTokenClasses) {
        modelHooks().createTokenClasses(*this);
    }
}

}  // namespace brassline
