#include "store/BLDoc.h"

#include <algorithm>
#include <vector>

#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/RunLoop.h"
#include "model/entities/BLContextState.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLProfile.h"
#include "model/entities/ModelHooks.h"
#include "model/entities/gen/BrasslineModel.h"
#include "store/BLPreferenceController.h"
#include "store/BLSetupDefaultsController.h"
#include "store/BLUserDefaults.h"
#include "store/SQLiteStore.h"

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
    if (m_context) {
        RunLoop::main().runUntilIdle();
        BLContextState::forgetContext(*m_context);
    }
    // Companions go before the context they hold.
    m_prefsController.reset();
    m_userDefaults.reset();
    m_context.reset();
}

void BLDoc::attach(std::unique_ptr<SQLiteStore> store, std::string path) {
    m_path = std::move(path);
    m_store = store.get();
    m_context = std::make_unique<ManagedObjectContext>(gen::brasslineModel(), std::move(store));
    m_userDefaults = std::make_unique<BLUserDefaultsProxy>(m_store->documentIdentifier());
    m_prefsController = std::make_unique<BLPreferenceController>(*m_context);
    openDocuments().push_back(this);
    installHooks();
}

std::unique_ptr<BLDoc> BLDoc::open(const std::string& path, std::string* error) {
    std::unique_ptr<SQLiteStore> store = SQLiteStore::open(path, gen::brasslineModel(), error);
    if (!store) {
        return nullptr;
    }
    std::unique_ptr<BLDoc> document(new BLDoc());
    document->attach(std::move(store), path);
    document->repair();
    return document;
}

std::unique_ptr<BLDoc> BLDoc::create(const std::string& path, const Value::Dictionary& setup, std::string* error) {
    std::unique_ptr<SQLiteStore> store = SQLiteStore::create(path, gen::brasslineModel(), error);
    if (!store) {
        return nullptr;
    }
    std::unique_ptr<BLDoc> document(new BLDoc());
    document->attach(std::move(store), path);
    BLSetupDefaultsController::setupWithObject(setup, document->managedObjectContext());
    if (!document->save(error)) {
        return nullptr;
    }
    return document;
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
    if (auto* layout = dynamic_cast<BLLayout*>(
            m_context->objectWithUid(BLLayout::entityDescription(), kDefaultLayoutUID))) {
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

bool BLDoc::save(std::string* error) {
    m_context->processPendingChanges();
    return m_context->save(error);
}

}  // namespace brassline
