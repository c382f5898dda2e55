#include "store/BLSetupDefaultsController.h"

#include <algorithm>
#include <fstream>
#include <iterator>
#include <mutex>

#include "core/Localization.h"
#include "core/Log.h"
#include "core/UniqueId.h"
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

// A table of a resource keyed by language: the current language's, else English.
std::optional<Value::Dictionary> tableInCurrentLanguage(std::string_view resource) {
    std::optional<Value::Dictionary> languages = BLSetupDefaultsController::resourceDictionary(resource);
    if (!languages) {
        return std::nullopt;
    }
    for (const std::string& language : {currentLanguage(), std::string("en")}) {
        auto found = languages->find(language);
        if (found != languages->end() && found->second.dictionary() != nullptr) {
            return *found->second.dictionary();
        }
    }
    logMessage("%@ has no English table", std::string(resource));
    return std::nullopt;
}

// A list of texts and token records as the archived value that patterns and terms are
// stored in, each token with the uid a token field would give it; nothing for a non-list.
std::optional<Value> archivedTokens(const Value& list) {
    const Value::Array* elements = list.array();
    if (elements == nullptr) {
        return std::nullopt;
    }
    Value::Array archived;
    for (const Value& element : *elements) {
        const Value::Dictionary* token = element.dictionary();
        if (token == nullptr) {
            archived.push_back(element);
            continue;
        }
        Value::Dictionary record = *token;
        if (record.find("uid") == record.end()) {
            record.emplace("uid", Value(uniqueBase64String()));
        }
        archived.emplace_back(std::move(record));
    }
    return Value(Value(std::move(archived)).toBinaryPropertyList());
}

bool hasTokenField(const Value& list, std::string_view field) {
    const Value::Array* elements = list.array();
    if (elements == nullptr) {
        return false;
    }
    return std::any_of(elements->begin(), elements->end(), [field](const Value& element) {
        return element.dictionary() != nullptr && element["field"].toString() == field;
    });
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

    // 12. and 13., with the number patterns before the resource defaults fill the rest.
    const Value& patterns = answer("patterns");
    setupNumberPatternsForManagedObjectContext(
        context, patterns.dictionary() != nullptr ? *patterns.dictionary() : Value::Dictionary{});
    setupPreferencesForManagedObjectContext(context);
    setupLanguageForManagedObjectContext(context);
    setupPaymentTermsForManagedObjectContext(context);

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

std::vector<std::string> BLSetupDefaultsController::setupNumberPatternsForManagedObjectContext(
    ManagedObjectContext& context, const Value::Dictionary& patterns) {
    std::vector<std::string> stored;
    std::optional<Value::Dictionary> defaults = tableInCurrentLanguage("NumberPatterns.plist");
    if (!defaults) {
        return stored;
    }
    const EntityDescription& entity = BLPreference::entityDescription();
    for (const auto& [kind, fallback] : *defaults) {
        // File name and folder patterns are keyed as they stand; the numbered kinds keep
        // theirs under "<kind>.numbering".
        const bool isPath = kind.starts_with("documents.");
        const std::string uid = std::string(kPreferenceUIDPrefix) + kind + (isPath ? "" : ".numbering");
        if (context.objectWithUid(entity, uid) != nullptr) {
            continue;
        }
        auto given = patterns.find(kind);
        const Value& chosen = given != patterns.end() ? given->second : fallback;
        std::optional<Value> archived = archivedTokens(chosen);
        if (!archived) {
            logMessage("The pattern for %@ is no list", kind);
            continue;
        }
        setPreference(context, uid, *archived);
        // A counter within the year starts again at 1 each year, as yearly numbers do; a
        // reset the user chose stays.
        if (!isPath && (kind == "invoice" || kind == "estimate") && hasTokenField(chosen, "year") &&
            hasTokenField(chosen, "increment")) {
            BLPreference* reset =
                preferenceWithUid(context, std::string(kPreferenceUIDPrefix) + kind + ".numberResetMode");
            const Value current = reset->payload();
            if (current.isNull() || (current.isNumber() && current.toInt64() == 0) || current == Value("never")) {
                reset->setPayload(Value("year"));
            }
        }
        stored.push_back(kind);
    }
    return stored;
}

void BLSetupDefaultsController::setupPaymentTermsForManagedObjectContext(ManagedObjectContext& context) {
    std::optional<Value::Dictionary> terms = tableInCurrentLanguage("PaymentTerms.plist");
    if (!terms) {
        return;
    }
    auto termsFor = [&terms](const char* kind) -> std::optional<Value> {
        auto found = terms->find(kind);
        return found != terms->end() ? archivedTokens(found->second) : std::nullopt;
    };
    // Invoices state how and when to pay.
    auto* bank = BLContainer::defaultItemForContext<BLPaymentType>(context);
    if (bank != nullptr && !bank->conditions()) {
        if (std::optional<Value> invoice = termsFor("invoice")) {
            bank->setConditions(*invoice->bytes());
        }
    }
    // Estimates state how long they hold, through a payment type of their own kind.
    FetchRequest request("PaymentType");
    request.setPredicateFormat("type == %@", {Value(kEstimatePaymentTypeName)});
    if (!context.executeFetchRequest(request).value_or(std::vector<ManagedObject*>{}).empty()) {
        return;
    }
    if (std::optional<Value> estimate = termsFor("estimate")) {
        auto* validity = BLPaymentType::insertInManagedObjectContext(context);
        validity->setName(localizedString("validity"));
        validity->setType(std::string(kEstimatePaymentTypeName));
        validity->setConditions(*estimate->bytes());
        validity->setIsDefault(true);
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
