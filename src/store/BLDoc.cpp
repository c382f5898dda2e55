#include "store/BLDoc.h"

#include <algorithm>
#include <filesystem>
#include <vector>

#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLContextState.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLProfile.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/gen/BrasslineModel.h"
#include "store/BLDataObserver.h"
#include "store/BLMaintenance.h"
#include "store/BLPreferenceController.h"
#include "store/BLSetupDefaultsController.h"
#include "store/BLStateController.h"
#include "store/BLUserDefaults.h"
#include "store/CompanyPackage.h"
#include "store/DocumentHooks.h"
#include "store/SQLiteStore.h"
#include "store/StoreMessages.h"
#include "store/URLCommands.h"

namespace brassline {

namespace {

std::vector<BLDoc*>& openDocuments() {
    static std::vector<BLDoc*> documents;
    return documents;
}

}  // namespace

BLDoc::~BLDoc() {
    std::vector<BLDoc*>& documents = openDocuments();
    documents.erase(std::remove(documents.begin(), documents.end(), this), documents.end());
    if (m_externalChangeObserver != 0) {
        NotificationCenter::defaultCenter().removeObserver(m_externalChangeObserver);
    }
    if (m_context) {
        RunLoop::main().runUntilIdle();
        BLContextState::forgetContext(*m_context);
    }
    // Companions go before the context they hold, the data observer before the state
    // controller whose refreshes it asks for.
    if (m_dataObserver) {
        m_dataObserver->detach();
        m_dataObserver.reset();
    }
    if (m_stateController) {
        m_stateController->detach();
        m_stateController.reset();
    }
    m_prefsController.reset();
    m_userDefaults.reset();
    m_context.reset();
}

bool BLDoc::attach(std::unique_ptr<SQLiteStore> store, std::string path, std::string* error) {
    m_path = std::move(path);
    m_store = store.get();
    m_context = std::make_unique<ManagedObjectContext>(gen::brasslineModel(), std::move(store));
    if (!m_context->loadError().empty()) {
        if (error != nullptr) {
            *error = m_context->loadError();
        }
        return false;
    }
    m_userDefaults = std::make_unique<BLUserDefaultsProxy>(m_store->documentIdentifier());
    m_prefsController = std::make_unique<BLPreferenceController>(*m_context);
    m_stateController = std::make_unique<BLStateController>();
    m_stateController->attach(*m_context, UserDefaults::standard(), m_store->documentIdentifier(), m_path);
    m_dataObserver = std::make_unique<BLDataObserver>();
    m_dataObserver->attach(*m_context);
    openDocuments().push_back(this);
    installHooks();
    m_externalChangeObserver = NotificationCenter::defaultCenter().addObserver(
        kObjectsDidChangeExternallyNotification, m_context.get(), [this](const Notification& notification) {
            m_prefsController->refresh();
            std::vector<ManagedObject*> inserted;
            if (auto it = notification.userInfo.find("inserted");
                it != notification.userInfo.end() && it->second.array()) {
                for (const Value& value : *it->second.array()) {
                    if (auto* object = dynamic_cast<ManagedObject*>(value.object())) {
                        inserted.push_back(object);
                    }
                }
            }
            didMergeExternalChanges(inserted);
        });
    return true;
}

void BLDoc::awakeFromNib() {
    if (const auto& callPlugins = documentHooks().callPluginsOfType) {
        callPlugins(*this, "openDocument");
    }
    repair();
    updatePermanentInvoices();
}

std::unique_ptr<BLDoc> BLDoc::open(const std::string& path, std::string* error) {
    if (!isValidLocation(path)) {
        if (error != nullptr) {
            *error = "\"" + path + "\" lies in a system update snapshot and can't be opened.";
        }
        logMessage("Refusing to open %@: invalid location", path);
        return nullptr;
    }
    std::unique_ptr<SQLiteStore> store = SQLiteStore::open(path, gen::brasslineModel(), error);
    if (!store) {
        return nullptr;
    }
    std::unique_ptr<BLDoc> document(new BLDoc());
    if (!document->attach(std::move(store), path, error)) {
        return nullptr;
    }
    document->awakeFromNib();
    return document;
}

std::unique_ptr<BLDoc> BLDoc::create(const std::string& path, const Value::Dictionary& setup, std::string* error) {
    if (!isValidLocation(path)) {
        if (error != nullptr) {
            *error = "\"" + path + "\" lies in a system update snapshot; choose another place.";
        }
        return nullptr;
    }
    std::error_code code;
    if (std::filesystem::exists(std::filesystem::symlink_status(path, code))) {
        if (error != nullptr) {
            *error = formatMessage(kPackageExistsMessage, CompanyPackage::displayName(path));
        }
        return nullptr;
    }
    // The first-run set-up is part of making the file: the package is built and set up
    // under a hidden name and only then moved to its place, so a crash at any moment
    // leaves either no company or a whole one.
    const std::string building = SQLiteStore::temporaryPackagePath(path);
    {
        std::string reason;
        std::unique_ptr<SQLiteStore> store = SQLiteStore::create(building, gen::brasslineModel(), &reason);
        std::unique_ptr<BLDoc> document;
        if (store) {
            document.reset(new BLDoc());
        }
        if (!store || !document->attach(std::move(store), building, &reason) || !document->runSetup(setup, &reason)) {
            document.reset();
            std::filesystem::remove_all(building, code);
            if (error != nullptr) {
                // The hidden name means nothing to the user.
                const std::string hidden = CompanyPackage::displayName(building);
                for (size_t at = reason.find(hidden); at != std::string::npos; at = reason.find(hidden)) {
                    reason.replace(at, hidden.size(), CompanyPackage::displayName(path));
                }
                *error = reason;
            }
            return nullptr;
        }
    }
    if (!SQLiteStore::movePackageIntoPlace(building, path, error)) {
        return nullptr;
    }
    return open(path, error);
}

bool BLDoc::isValidLocation(std::string_view path) {
    return path.find("/System/Volumes/Update/mnt1/") == std::string_view::npos &&
           path.find("/tmp/msu-target") == std::string_view::npos;
}

bool BLDoc::setFileURL(const std::string& path) {
    if (!isValidLocation(path)) {
        logMessage("setFileURL: refusing %@", path);
        return false;
    }
    if (path != m_path) {
        logMessage("Document URL %@", path);
        m_path = path;
        m_stateController->attach(*m_context, UserDefaults::standard(), documentIdentifier(), m_path);
    }
    return true;
}

std::string BLDoc::displayName() const {
    return std::filesystem::path(m_path).stem().string();
}

BLDoc* BLDoc::documentForContext(const ManagedObjectContext& context) {
    const ManagedObjectContext* main = &context;
    while (main->parentContext() != nullptr) {
        main = main->parentContext();
    }
    for (BLDoc* document : openDocuments()) {
        if (document->m_context.get() == main) {
            return document;
        }
    }
    return nullptr;
}

const std::string& BLDoc::documentIdentifier() const {
    return m_store->documentIdentifier();
}

bool BLDoc::readyForDefaultValues() const {
    if (m_store->updating() && m_store->changeSetCount() == 0) {
        return false;
    }
    if (m_path.empty()) {
        return true;
    }
    return m_store->loadedAllChanges();
}

void BLDoc::installHooks() {
    ModelHooks& hooks = modelHooks();
    // A context without a document (a scratch context) has no set-up to wait for.
    hooks.readyForDefaultValues = [](const ManagedObjectContext& context) {
        BLDoc* document = documentForContext(context);
        return document == nullptr || document->readyForDefaultValues();
    };
    hooks.preferenceValue = [](ManagedObjectContext& context, std::string_view key) -> Value {
        if (BLDoc* document = documentForContext(context)) {
            return document->prefsController().valueForKeyPath(key);
        }
        return Value();
    };
    hooks.userDefaultBool = [](std::string_view key) { return UserDefaults::standard().boolForKey(key); };
    hooks.applicationDefault = [](std::string_view key) { return UserDefaults::standard().registeredDefault(key); };
}

void BLDoc::repair() {
    fixProfiles();
    fixEuro();
    // A file from before default patterns numbered nothing; it gets the defaults for each
    // kind it has no pattern for, and a pattern once stored is the user's.
    BLSetupDefaultsController::setupNumberPatternsForManagedObjectContext(*m_context);
    m_context->processPendingChanges();
}

void BLDoc::fixProfiles() {
    auto* profile = BLContainer::defaultItemForContext<BLProfile>(*m_context);
    if (profile == nullptr) {
        return;
    }
    if (!profile->countryCode() || profile->countryCode()->empty()) {
        profile->setup();
    }
    // A profile without layouts takes the default layout when the file has one.
    if (auto* layout =
            dynamic_cast<BLLayout*>(m_context->objectWithUid(BLLayout::entityDescription(), kDefaultLayoutUID))) {
        if (profile->layout() == nullptr) {
            profile->setLayout(layout);
        }
        if (profile->estimateLayout() == nullptr) {
            profile->setEstimateLayout(layout);
        }
        if (profile->statementLayout() == nullptr) {
            profile->setStatementLayout(layout);
        }
    }
}

void BLDoc::fixEuro() {
    FetchRequest request("Currency");
    request.setPredicateFormat("name == '€'");
    for (ManagedObject* object : m_context->executeFetchRequest(request).value_or(std::vector<ManagedObject*>{})) {
        auto* currency = static_cast<BLCurrency*>(object);
        currency->setName(std::string("EUR"));
        currency->setSymbol(std::string("€"));
    }
}

void BLDoc::updatePermanentInvoices() {
    if (const auto& update = documentHooks().updatePermanentInvoices) {
        update(*this);
    }
}

bool BLDoc::runSetup(const Value::Dictionary& setup, std::string* error) {
    migratePreferences();
    BLSetupDefaultsController::setupWithObject(setup, *m_context);
    return setupCompleted(error);
}

void BLDoc::migratePreferences() {
    std::optional<Value::Dictionary> keys =
        BLSetupDefaultsController::resourceDictionary("com.orvane.Brassline3.migrationKeys.plist");
    if (!keys) {
        return;
    }
    const Value& list = (*keys)["keys"];
    if (list.array() == nullptr) {
        return;
    }
    for (const Value& key : *list.array()) {
        Value value = UserDefaults::standard().objectForKey(key.toString());
        if (!value.isNull() && m_userDefaults->dictionary().count(key.toString()) == 0) {
            m_userDefaults->setObject(value, key.toString());
        }
    }
}

bool BLDoc::setupCompleted(std::string* error) {
    m_context->processPendingChanges();
    // The set-up is not something the user can take back step by step.
    if (UndoManager* undo = m_context->undoManager()) {
        undo->removeAllActions();
    }
    return save(error);
}

bool BLDoc::setDocumentIdentifier(const std::string& identifier, std::string* error) {
    std::string old = documentIdentifier();
    if (identifier == old) {
        return true;
    }
    if (!m_store->setDocumentIdentifier(identifier, error)) {
        return false;
    }
    m_userDefaults = std::make_unique<BLUserDefaultsProxy>(identifier);
    m_userDefaults->copySettingsFrom(old);
    m_stateController->attach(*m_context, UserDefaults::standard(), identifier, m_path);
    return true;
}

void BLDoc::didMergeExternalChanges(const std::vector<ManagedObject*>& inserted) {
    bool hasRepetition = std::any_of(inserted.begin(), inserted.end(), [](const ManagedObject* object) {
        return object->entityName() == "PermanentInvoiceRepetition";
    });
    if (hasRepetition) {
        // Merges arrive inside a save's write transaction; the clean-up saves on its own,
        // so it runs once that transaction is over.
        m_context->performBlock([this] { BLMaintenance::cleanupPermanentInvoiceRepetitionDuplicates(*m_context); });
    }
}

std::optional<URLResult> BLDoc::handleURL(const URLRequest& request) {
    return handleContextURL(*this, request);
}

bool BLDoc::save(std::string* error) {
    m_context->processPendingChanges();
    return m_context->save(error);
}

}  // namespace brassline
