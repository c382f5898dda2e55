#include "store/BLSetupDefaultsController.h"

#include <fstream>
#include <iterator>
#include <mutex>

#include "core/Localization.h"
#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLFollowUpType.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLLanguage.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLPaymentType.h"
#include "model/entities/BLPreference.h"
#include "model/entities/BLProfile.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"
#include "model/entities/ModelStrings.h"
#include "store/DocumentHooks.h"

namespace brassline {

namespace {

std::mutex& resourcesMutex() {
    static std::mutex mutex;
    return mutex;
}

std::string& resourcesOverride() {
    static std::string path;
    return path;
}

template <typename T>
T* insertWithUid(ManagedObjectContext& context, const std::string& uid) {
    return static_cast<T*>(BLBase::insertInManagedObjectContext(context, T::entityDescription().name(), uid));
}

// The stored preference with this uid, made when missing.
BLPreference* preferenceWithUid(ManagedObjectContext& context, const std::string& uid) {
    return insertWithUid<BLPreference>(context, uid);
}

void setPreference(ManagedObjectContext& context, const std::string& uid, const Value& value) {
    preferenceWithUid(context, uid)->setPayload(value);
}

BLTaxGroup* makeTaxGroup(ManagedObjectContext& context, const std::string& uid, const std::string& name,
                         const std::string& shortName) {
    BLTaxGroup* group = insertWithUid<BLTaxGroup>(context, uid);
    group->setName(name);
    group->setShortName(shortName);
    group->setup();
    return group;
}

// The default layout with its storage; the layout subsystem's hook fills the archive, so a
// new file can print at once.
BLLayout* setupDefaultLayout(ManagedObjectContext& context) {
    auto* storage = BLBase::insertInManagedObjectContext(context, "LayoutStorage", kDefaultLayoutStorageUID);
    auto* layout = insertWithUid<BLLayout>(context, kDefaultLayoutUID);
    layout->setName(localizedString("layout"));
    layout->setPaperFormat(std::string("{595, 842}"));
    layout->setValueForKey(Value(static_cast<Object*>(storage)), "storage");
    if (const auto& hook = documentHooks().setupDefaultLayout) {
        hook(*layout);
    }
    return layout;
}

}  // namespace

void BLSetupDefaultsController::setResourcesDirectory(std::string path) {
    std::lock_guard lock(resourcesMutex());
    resourcesOverride() = std::move(path);
}

std::string BLSetupDefaultsController::resourcesDirectory() {
    std::lock_guard lock(resourcesMutex());
    return resourcesOverride().empty() ? std::string(BRASSLINE_RESOURCES_DIR) : resourcesOverride();
}

std::optional<Value::Dictionary> BLSetupDefaultsController::resourceDictionary(std::string_view name) {
    std::string path = resourcesDirectory() + "/" + std::string(name);
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        logMessage("Resource %@ is missing", path);
        return std::nullopt;
    }
    Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string error;
    std::optional<Value> value = Value::fromPropertyList(bytes, &error);
    if (!value || value->dictionary() == nullptr) {
        logMessage("Resource %@ is not a dictionary: %@", path, error);
        return std::nullopt;
    }
    return *value->dictionary();
}

void BLSetupDefaultsController::setupWithObject(const Value::Dictionary& setup, ManagedObjectContext& context) {
    auto answer = [&setup](const char* key) -> const Value& {
        static const Value null;
        auto it = setup.find(key);
        return it != setup.end() ? it->second : null;
    };
    const bool taxable = answer("taxable").toBool();
    UndoManager* undo = context.undoManager();
    if (undo != nullptr) {
        undo->disableUndoRegistration();
    }

    // 1. The profile (no address card on this platform to fill it from).
    auto* profile = BLContainer::defaultItemForContext<BLProfile>(context);
    if (profile == nullptr) {
        profile = insertWithUid<BLProfile>(context, kDefaultProfileUID);
        profile->setup();
    }
    if (const std::string* vatID = answer("vatID").string(); vatID != nullptr && !vatID->empty()) {
        profile->setTaxID(*vatID);
    }
    BLContainer::defaultItemForContext<BLCurrency>(context);

    // 2. The payment type.
    // Set-up of the profile may have made the default payment type already.
    auto* bank = BLContainer::defaultItemForContext<BLPaymentType>(context);
    if (bank == nullptr) {
        bank = BLPaymentType::insertInManagedObjectContext(context);
        bank->setup();
    }
    bank->setName(localizedString("bank"));
    bank->setIsDefault(true);

    // 3. Client groups: the domestic one is the default.
    auto* foreign = insertWithUid<BLClientGroup>(context, kDefaultForeignClientGroupUID);
    foreign->setName(localizedString("aboard"));
    foreign->setIsDefault(false);
    auto* domestic = insertWithUid<BLClientGroup>(context, kDefaultClientGroupUID);
    domestic->setName(localizedString("domestic"));
    domestic->setIsDefault(true);

    // 4. and 5. Tax groups; set-up gives each a rule per client group.
    BLTaxGroup* noTax = makeTaxGroup(context, kDefaultTaxGroupNoTaxUID, localizedString("not taxable"), "0");
    BLTaxGroup* firstTax = nullptr;
    if (const Value::Array* taxes = answer("taxes").array()) {
        for (size_t n = 0; n < taxes->size(); ++n) {
            const Value& entry = (*taxes)[n];
            std::string name = entry["name"].toString();
            BLTaxGroup* group = makeTaxGroup(context, formatMessage(kDefaultTaxGroupTaxUIDFormat, static_cast<long>(n)),
                                             entry["value"].toString(), std::to_string(n + 1));
            for (BLTaxRule* rule : group->taxRules().toVector()) {
                if (rule->clientGroup() == domestic) {
                    rule->setTax1mode(int16_t{1});
                    rule->setTax1name(name);
                    rule->setTax1value(entry["value"].toDecimal());
                }
            }
            if (firstTax == nullptr) {
                firstTax = group;
                group->setIsDefault(true);
            }
        }
    }
    if (!taxable) {
        noTax->setIsDefault(true);
    }

    // 6. The item group.
    auto* itemGroup = insertWithUid<BLItemGroup>(context, kDefaultItemGroupUID);
    itemGroup->setName(localizedString("default"));
    itemGroup->setIsDefault(true);
    itemGroup->setTaxGroup(taxable ? firstTax : noTax);

    // 7. The follow-up type.
    auto* followUpType = insertWithUid<BLFollowUpType>(context, kDefaultFollowUpTypeUID);
    followUpType->setName(localizedString("reminder"));
    followUpType->setImageName(std::string("ReminderTemplate"));

    // 8. and 9. Preferences.
    if (std::optional<Value::Dictionary> defaults = resourceDictionary("defaults.data.plist")) {
        for (const auto& [uid, value] : *defaults) {
            setPreference(context, uid, value);
        }
    }
    const std::pair<const char*, Value> preferences[] = {
        {"BLPref.client.number", Value(1)},
        {"BLPref.invoice.label", Value(localizedString("invoice"))},
        {"BLPref.creditnote.label", Value(localizedString("credit note"))},
        {"BLPref.invoice.number", Value(1)},
        {"BLPref.invoice.payInterval", Value(30)},
        {"BLPref.invoice.overdueInterval", Value(10)},
        {"BLPref.group.separator", Value("\\n")},
        {"BLPref.importer.includeZeroCost", Value(true)},
        {"BLPref.estimate.label", Value(localizedString("estimate"))},
        {"BLPref.estimate.number", Value(1)},
        {"BLPref.estimate.validity", Value(30)},
    };
    for (const auto& [uid, value] : preferences) {
        setPreference(context, uid, value);
    }

    // 10. Gross prices, or for a German firm the electronic invoice by default.
    if (answer("useGrossPrices").toBool()) {
        setPreference(context, "BLPref.default.useGrossPrices", Value(true));
    } else if (profile->countryCode().value_or("") == "DE") {
        profile->setSendPluginIdentifier(std::string(kXRechnungPluginIdentifier));
    }

    // 11. The default layout; its archive comes with the layout subsystem.
    BLLayout* layout = setupDefaultLayout(context);
    followUpType->setLayout(layout);
    profile->setLayout(layout);
    profile->setEstimateLayout(layout);
    profile->setStatementLayout(layout);

    // 12. and 13.
    setupPreferencesForManagedObjectContext(context);
    setupLanguageForManagedObjectContext(context);

    context.processPendingChanges();
    if (undo != nullptr) {
        undo->enableUndoRegistration();
    }
}

void BLSetupDefaultsController::setupPreferencesForManagedObjectContext(ManagedObjectContext& context) {
    std::optional<Value::Dictionary> preferences = resourceDictionary("BLPref.plist");
    if (!preferences) {
        return;
    }
    const EntityDescription& entity = BLPreference::entityDescription();
    for (const auto& [uid, value] : *preferences) {
        if (context.objectWithUid(entity, uid) == nullptr) {
            setPreference(context, uid, value);
        }
    }
}

void BLSetupDefaultsController::setupLanguageForManagedObjectContext(ManagedObjectContext& context) {
    FetchRequest request("Client");
    request.setPredicateFormat("language == nil");
    std::vector<ManagedObject*> clients = context.executeFetchRequest(request).value_or(std::vector<ManagedObject*>{});
    if (clients.empty()) {
        return;
    }
    auto* language = BLContainer::defaultItemForContext<BLLanguage>(context);
    if (language == nullptr) {
        return;
    }
    for (ManagedObject* client : clients) {
        static_cast<BLClient*>(client)->setLanguage(language);
    }
}

}  // namespace brassline
