#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "DocumentTestSupport.h"
#include "core/Date.h"
#include "model/BLSyncHelper.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/RunLoop.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLContainer.h"
#include "model/entities/BLCurrency.h"
#include "model/entities/BLInvoice.h"
#include "model/entities/ModelHooks.h"
#include "store/BLApplication.h"
#include "store/BLDataObserver.h"
#include "store/BLDoc.h"
#include "store/BLDocumentController.h"
#include "store/BLMaintenance.h"
#include "store/BLPreferenceController.h"
#include "store/BLStateController.h"
#include "store/BLUserDefaults.h"
#include "store/CompanyPackage.h"
#include "store/DocumentHooks.h"
#include "store/SQLiteStore.h"
#include "store/URLCommands.h"

namespace brassline {
namespace {

namespace fs = std::filesystem;

class DocumentLifeCycleTest : public storetest::DocumentProcessTest {
protected:
    // A saved company file with the first-run objects, not left open.
    std::string makeFile(const std::string& name) {
        std::string path = m_folder / (name + ".brassline");
        std::string error;
        std::unique_ptr<BLDoc> document = BLDoc::create(path, {{"taxable", Value(true)}}, &error);
        EXPECT_TRUE(document) << error;
        return path;
    }
    BLDoc* open(const std::string& path) {
        std::string error;
        BLDoc* document = BLDocumentController::shared().openDocumentWithContentsOfURL(path, &error);
        EXPECT_NE(document, nullptr) << error;
        return document;
    }
    static URLResult run(BLDoc* document, const std::string& url) {
        std::optional<URLRequest> request = URLRequest::parse(url);
        EXPECT_TRUE(request) << url;
        return request ? handleURL(BLDocumentController::shared(), document, *request) : URLResult::failed("unparsed");
    }
    static std::vector<ManagedObject*> fetch(BLDoc& document, const std::string& entity) {
        return storetest::fetchAll(document.managedObjectContext(), entity);
    }
    static ManagedObject* insert(BLDoc& document, const std::string& entity, const std::string& uid) {
        ManagedObject* object = document.managedObjectContext().insertNewObjectForEntityForName(entity);
        object->setValueForKey(Value(uid), "uid");
        return object;
    }
};

TEST_F(DocumentLifeCycleTest, URLsParseIntoCommandAndDecodedQuery) {
    struct Case {
        std::string url;
        bool parses;
        std::string command;
        std::string key;
        std::string value;
    } cases[] = {
        {"brassline://Show?uid=a%2Fb%20c", true, "show", "uid", "a/b c"},
        {"BRASSLINE://fixzombies", true, "fixzombies", "", ""},
        {"brassline://open?path=/x/A+B.brassline&document=D", true, "open", "path", "/x/A+B.brassline"},
        {"brassline://help?query=100%", true, "help", "query", "100%"},  // A broken escape stays.
        {"brassline://userdefaults?key=k&value", true, "userdefaults", "value", ""},
        {"brassline://?uid=x", false, "", "", ""},
        {"http://show?uid=x", false, "", "", ""},
        {"brass", false, "", "", ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.url);
        std::string error;
        std::optional<URLRequest> request = URLRequest::parse(c.url, &error);
        ASSERT_EQ(request.has_value(), c.parses);
        if (!c.parses) {
            EXPECT_FALSE(error.empty());
            continue;
        }
        EXPECT_EQ(request->command, c.command);
        if (!c.key.empty()) {
            EXPECT_TRUE(request->has(c.key));
            EXPECT_EQ(request->value(c.key), c.value);
        }
    }
}

TEST_F(DocumentLifeCycleTest, CommandsRunInOrderAndMissingSubsystemsChangeNothing) {
    BLDoc* document = open(makeFile("Acme"));
    ASSERT_NE(document, nullptr);
    ASSERT_TRUE(document->save());

    URLResult unknown = run(document, "brassline://frobnicate");
    EXPECT_EQ(unknown.status, URLResult::Status::NotSupported);
    EXPECT_EQ(unknown.message, "The command frobnicate is not supported");

    // Context and application commands whose subsystem is missing: reported, no change.
    for (const char* url :
         {"brassline://fixtaxrules", "brassline://updatelayouts", "brassline://installplugin", "brassline://crash"}) {
        SCOPED_TRACE(url);
        URLResult result = run(document, url);
        EXPECT_EQ(result.status, URLResult::Status::NotAvailable);
        EXPECT_NE(result.message.find("nothing was changed"), std::string::npos);
        EXPECT_FALSE(document->managedObjectContext().hasChanges());
    }

    // An installed hook runs with the document and the query.
    std::string seen;
    documentHooks().urlCommands["fixtaxrules"] = [&seen](BLDoc* doc, const URLRequest& request, std::string& message) {
        seen = (doc != nullptr ? doc->displayName() : "none") + "/" + request.value("mode");
        message = "rules fixed";
        return true;
    };
    URLResult hooked = run(document, "brassline://FixTaxRules?mode=all");
    EXPECT_EQ(hooked.status, URLResult::Status::Done);
    EXPECT_EQ(hooked.message, "rules fixed");
    EXPECT_EQ(seen, "Acme/all");

    // show finds any object by uid; a missing uid fails.
    EXPECT_EQ(run(document, "brassline://show?uid=default.profile").message, "Profile default.profile");
    EXPECT_EQ(run(document, "brassline://show?uid=nope").status, URLResult::Status::Failed);

    // overview posts its notice with the selected uid.
    std::string selected;
    NotificationCenter::defaultCenter().addObserver(
        "updateOverviewAndSelectUID", nullptr,
        [&selected](const Notification& notification) { selected = notification.userInfo.at("uid").toString(); });
    EXPECT_EQ(run(document, "brassline://overview?select=abc").status, URLResult::Status::Done);
    EXPECT_EQ(selected, "abc");

    // userdefaults writes typed values and removes without a value.
    run(document, "brassline://userdefaults?key=notificationsDue&value=yes");
    run(document, "brassline://userdefaults?key=limit&value=12");
    EXPECT_EQ(UserDefaults::standard().objectForKey("notificationsDue"), Value(true));
    EXPECT_EQ(UserDefaults::standard().objectForKey("limit"), Value(int64_t{12}));
    run(document, "brassline://userdefaults?key=limit");
    EXPECT_TRUE(UserDefaults::standard().objectForKey("limit").isNull());
}

TEST_F(DocumentLifeCycleTest, OpenDocumentsObserveTheirChanges) {
    BLDoc* document = open(makeFile("Acme"));
    ASSERT_NE(document, nullptr);
    ManagedObject* invoice = insert(*document, "Invoice", "inv");
    RunLoop::main().runUntilIdle();
    uint64_t sent = document->dataObserver().sentNotifications();
    uint64_t refreshes = document->stateController().refreshCount();
    // A settled invoice changes the state figures: the observer asks and the state
    // controller refreshes.
    invoice->setValueForKey(Value(int64_t{1}), "completeMode");
    document->managedObjectContext().processPendingChanges();
    RunLoop::main().runUntilIdle();
    EXPECT_GT(document->dataObserver().sentNotifications(), sent);
    // The refresh runs on the overview queue; one still running when asked reruns a
    // second later, so wait for it rather than for an idle loop.
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return document->stateController().refreshCount() > refreshes; }, 10.0));
}

TEST_F(DocumentLifeCycleTest, FixZombiesDeletesOnlyUnsentDraftsWithoutClient) {
    BLDoc* document = open(makeFile("Acme"));
    ASSERT_NE(document, nullptr);
    auto* client = dynamic_cast<BLClient*>(insert(*document, "Client", "client"));
    ASSERT_NE(client, nullptr);
    struct Case {
        const char* uid;
        bool withClient;
        bool sent;
        bool survives;
    } cases[] = {
        {"orphan-draft", false, false, false},
        {"orphan-sent", false, true, true},
        {"client-draft", true, false, true},
        {"client-sent", true, true, true},
    };
    for (const Case& c : cases) {
        ManagedObject* invoice = insert(*document, "Invoice", c.uid);
        if (c.withClient) {
            invoice->setValueForKey(Value(static_cast<Object*>(client)), "contact");
        }
        if (c.sent) {
            invoice->setValueForKey(Value(Date::parseISO8601("2026-01-05").value()), "dateSent");
        }
    }
    URLResult result = run(document, "brassline://fixzombies");
    EXPECT_EQ(result.message, "fixzombies: 1 drafts without a client deleted");
    ManagedObjectContext& context = document->managedObjectContext();
    for (const Case& c : cases) {
        SCOPED_TRACE(c.uid);
        EXPECT_EQ(context.objectWithUid(*context.entityNamed("Invoice"), c.uid) != nullptr, c.survives);
    }
}

TEST_F(DocumentLifeCycleTest, FixDefaultsKeepsOrChoosesTheMostUsed) {
    BLDoc* document = open(makeFile("Acme"));
    ASSERT_NE(document, nullptr);
    ManagedObjectContext& context = document->managedObjectContext();
    // Three currencies: "rare" used by 3 invoices, "common" by 6, "unused" by none. The
    // default currency that the first-run objects make for themselves holds fewer uses.
    auto currency = [&](const std::string& uid, int uses) {
        auto* object = dynamic_cast<BLCurrency*>(insert(*document, "Currency", uid));
        object->setDefault(false);
        for (int i = 0; i < uses; ++i) {
            insert(*document, "Invoice", uid + std::to_string(i))
                ->setValueForKey(Value(static_cast<Object*>(object)), "currency");
        }
        return object;
    };
    BLCurrency* rare = currency("rare", 3);
    BLCurrency* common = currency("common", 6);
    BLCurrency* unused = currency("unused", 0);

    struct Case {
        const char* name;
        std::vector<BLCurrency*> marked;
        BLCurrency* expected;
    } cases[] = {
        {"none marked: the most used", {}, common},
        {"several marked: the most used of them", {rare, unused}, rare},
        {"one marked: kept even if unused", {unused}, unused},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        // Any currency the set-up or the invoices made on their own takes part unmarked.
        for (ManagedObject* object : fetch(*document, "Currency")) {
            auto* each = static_cast<BLCurrency*>(object);
            each->setDefault(std::find(c.marked.begin(), c.marked.end(), each) != c.marked.end());
        }
        BLMaintenance::fixDefaults(context);
        for (ManagedObject* object : fetch(*document, "Currency")) {
            auto* each = static_cast<BLCurrency*>(object);
            EXPECT_EQ(each->isDefaultValue(), each == c.expected) << each->uid().value_or("");
        }
    }
}

TEST_F(DocumentLifeCycleTest, DuplicateUIDsAreRenamedOrDeleted) {
    BLDoc* document = open(makeFile("Acme"));
    ASSERT_NE(document, nullptr);
    ManagedObjectContext& context = document->managedObjectContext();
    ManagedObject* first = insert(*document, "Client", "twin");
    ManagedObject* second = insert(*document, "Client", "twin");
    ManagedObject* third = insert(*document, "Client", "twin");
    EXPECT_EQ(BLMaintenance::fixDuplicateUIDsForEntityName(context, "Client"), 2u);
    EXPECT_EQ(first->valueForKey("uid"), Value("twin"));  // The first made keeps its uid.
    EXPECT_NE(second->valueForKey("uid"), Value("twin"));
    EXPECT_NE(second->valueForKey("uid"), third->valueForKey("uid"));
    EXPECT_EQ(second->valueForKey("uid").toString().size(), 22u);

    // Deletion keeps the oldest by creation date, whatever the order of making.
    ManagedObject* newer = insert(*document, "Invoice", "dup");
    ManagedObject* older = insert(*document, "Invoice", "dup");
    newer->setValueForKey(Value(Date::parseISO8601("2026-03-01").value()), "dateCreation");
    older->setValueForKey(Value(Date::parseISO8601("2025-03-01").value()), "dateCreation");
    EXPECT_EQ(BLMaintenance::deleteDuplicateUIDsForEntityName(context, "Invoice"), 1u);
    std::vector<ManagedObject*> left;
    for (ManagedObject* invoice : fetch(*document, "Invoice")) {
        if (invoice->valueForKey("uid") == Value("dup")) {
            left.push_back(invoice);
        }
    }
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(left.front(), older);
}

TEST_F(DocumentLifeCycleTest, RepetitionDuplicatesKeepTheOneWithDocumentsElseTheLatest) {
    BLDoc* document = open(makeFile("Acme"));
    ASSERT_NE(document, nullptr);
    ManagedObjectContext& context = document->managedObjectContext();
    auto repetition = [&](const std::string& uid, int sequence, const char* created) {
        ManagedObject* object = insert(*document, "PermanentInvoiceRepetition", uid);
        object->setValueForKey(Value(int64_t{sequence}), "sequence");
        object->setValueForKey(Value(Date::parseISO8601(created).value()), "dateCreation");
        return object;
    };
    // Group "a": no documents; sequence 2 beats 1, and of the two at 2 the later date wins.
    repetition("a", 1, "2026-05-01");
    repetition("a", 2, "2026-01-01");
    ManagedObject* keptA = repetition("a", 2, "2026-02-01");
    // Group "b": the one with a document stays although its sequence is lower.
    ManagedObject* keptB = repetition("b", 1, "2026-01-01");
    repetition("b", 5, "2026-01-01");
    insert(*document, "Invoice", "child")->setValueForKey(Value(static_cast<Object*>(keptB)), "parentDocument");
    ASSERT_TRUE(document->save());
    int64_t keptANumber = keptA->objectID().number;
    int64_t keptBNumber = keptB->objectID().number;

    int64_t changeSetsBefore = document->store().changeSetCount();
    // A preference changed behind the controller's back shows after the merge notice.
    document->prefsController().setValueForKeyPath(Value(int64_t{30}), "invoice.payInterval");
    context.objectWithUid(*context.entityNamed("Preference"), "BLPref.invoice.payInterval")
        ->setValueForKey(Value(int64_t{45}), "payload");
    NotificationCenter::defaultCenter().postNotificationName(
        BLDoc::kObjectsDidChangeExternallyNotification, &context,
        {{"inserted", Value(Value::Array{Value(static_cast<Object*>(keptA))})}});
    EXPECT_EQ(document->prefsController().valueForKeyPath("invoice.payInterval").toInt64(), 45);
    // The clean-up saves, so it waits for the merge's write transaction to end.
    RunLoop::main().runUntilIdle();
    std::vector<int64_t> left;
    for (ManagedObject* object : fetch(*document, "PermanentInvoiceRepetition")) {
        left.push_back(object->objectID().number);
    }
    std::sort(left.begin(), left.end());
    std::vector<int64_t> expected{keptANumber, keptBNumber};
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(left, expected);
    EXPECT_FALSE(context.hasChanges());  // Saved through to the file.
    EXPECT_EQ(document->store().changeSetCount(), changeSetsBefore + 1);
}

TEST_F(DocumentLifeCycleTest, RecentDocumentsAreLoggedRewrittenAndReopened) {
    std::string acme = makeFile("Acme");
    std::string beta = makeFile("Beta");
    BLDocumentController& controller = BLDocumentController::shared();
    // A record of an older version, keyed by URL.
    std::string legacy = m_folder / "Old Firm.brassline";
    fs::create_directory(legacy);
    UserDefaults::standard().setObject(
        Value(Value::Dictionary{
            {"file://" + (m_folder / "Old%20Firm.brassline"), Value(Value::Dictionary{{"File Exists", Value(true)}})}}),
        BLDocumentController::kRecentDocumentsKey);
    EXPECT_EQ(controller.recentDocumentDictionaries().count(legacy), 1u);

    Clock::setNow(Date::parseISO8601("2026-01-01T10:00:00Z"));
    BLDoc* first = open(acme);
    Clock::setNow(Date::parseISO8601("2026-01-01T11:00:00Z"));
    BLDoc* second = open(beta);
    ASSERT_TRUE(first && second);
    Value::Dictionary records = controller.recentDocumentDictionaries();
    const Value& record = records[acme];
    EXPECT_EQ(record["Document Info"]["DocumentIdentifier"].toString(), first->documentIdentifier());
    EXPECT_TRUE(record["File Exists"].toBool());
    EXPECT_EQ(controller.recentDocumentURLs().front(), beta);
    EXPECT_EQ(controller.lastDocumentName(), "Beta");
    EXPECT_EQ(controller.lastDocumentUID(), second->documentIdentifier());

    // Opening an open path gives the same document, and making one gives none.
    EXPECT_EQ(open(acme + "/"), first);
    EXPECT_EQ(controller.documentCount(), 2u);
    std::string error;
    EXPECT_FALSE(controller.makeDocumentWithContentsOfURL(acme, &error));
    EXPECT_NE(error.find("open already"), std::string::npos);

    // The newest file vanishes: openLastDocument skips it, and "File Exists" follows.
    std::string documentUID = first->documentIdentifier();
    controller.closeAllDocuments();
    fs::remove_all(beta);
    BLDoc* last = controller.openLastDocument(&error);
    ASSERT_NE(last, nullptr) << error;
    EXPECT_EQ(last->fileURL(), acme);
    EXPECT_FALSE(controller.recentDocumentDictionaries()[beta]["File Exists"].toBool());
    controller.closeAllDocuments();
    EXPECT_EQ(controller.documentWithUID(documentUID, &error)->fileURL(), acme);
}

TEST_F(DocumentLifeCycleTest, LocationsLimitsAndReopening) {
    struct Case {
        const char* path;
        bool valid;
    } cases[] = {
        {"/Users/a/Acme.brassline", true},
        {"/System/Volumes/Update/mnt1/Users/a/Acme.brassline", false},
        {"/tmp/msu-target/Acme.brassline", false},
        {"/System/Volumes/Data/Acme.brassline", true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(BLDoc::isValidLocation(c.path), c.valid);
    }
    BLDocumentController& controller = BLDocumentController::shared();
    std::string error;
    EXPECT_EQ(controller.openDocumentWithContentsOfURL("/tmp/msu-target/Acme.brassline", &error), nullptr);
    EXPECT_NE(error.find("snapshot"), std::string::npos);

    controller.setMaximumRecentDocumentCount(2);
    EXPECT_EQ(controller.maximumRecentDocumentCount(), 5u);
    std::vector<std::string> paths;
    for (int i = 0; i < 7; ++i) {
        Clock::setNow(Date(1000.0 * i));
        paths.push_back(makeFile("F" + std::to_string(i)));
        controller.logURL(paths.back());
    }
    std::vector<std::string> expected{paths[6], paths[5], paths[4], paths[3], paths[2]};
    EXPECT_EQ(controller.recentDocumentURLs(), expected);
    EXPECT_EQ(controller.recentDocumentDictionaries().size(), 5u);

    // Stored at quit, reopened at launch: a vanished file is skipped.
    open(paths[6]);
    open(paths[5]);
    controller.storeFiles();
    controller.closeAllDocuments();
    fs::remove_all(paths[5]);
    EXPECT_EQ(BLApplication::applicationDidFinishLaunching(), 1u);
    EXPECT_EQ(controller.currentDocument()->fileURL(), paths[6]);
}

TEST_F(DocumentLifeCycleTest, SettingsFollowTheIdentifierAndMisspelledKeysAreRenamed) {
    BLDoc* document = open(makeFile("Acme"));
    ASSERT_NE(document, nullptr);
    document->userDefaults().setObject(Value("wide"), "windowMode");
    std::string old = document->documentIdentifier();
    ASSERT_TRUE(document->setDocumentIdentifier("NEW-ID"));
    EXPECT_EQ(document->userDefaults().identifier(), "NEW-ID");
    EXPECT_EQ(document->userDefaults().objectForKey("windowMode"), Value("wide"));
    EXPECT_EQ(CompanyPackage::inspect(document->fileURL())->documentIdentifier, "NEW-ID");
    EXPECT_EQ(BLUserDefaultsProxy(old).objectForKey("windowMode"), Value("wide"));

    UserDefaults& defaults = UserDefaults::standard();
    defaults.setObject(Value(true), "noftificationsDue");
    defaults.setObject(Value(false), "noftificationsOverdue");
    defaults.setObject(Value(true), "notificationsOverdue");  // Set by a newer version: kept.
    BLApplication::resetForTesting();
    BLApplication::processEntry();
    EXPECT_EQ(defaults.objectForKey("notificationsDue"), Value(true));
    EXPECT_EQ(defaults.objectForKey("notificationsOverdue"), Value(true));
    EXPECT_TRUE(defaults.objectForKey("noftificationsDue").isNull());
    EXPECT_TRUE(defaults.objectForKey("noftificationsOverdue").isNull());
    BLApplication::resetForTesting();
}

TEST_F(DocumentLifeCycleTest, NewDocumentsMigrateGlobalSettings) {
    UserDefaults::standard().setObject(Value(int64_t{3}), "overview.range.length");
    UserDefaults::standard().setObject(Value("x"), "unrelated");
    std::string error;
    std::unique_ptr<BLDoc> document = BLDoc::create(m_folder / "New.brassline", {}, &error);
    ASSERT_TRUE(document) << error;
    EXPECT_EQ(document->userDefaults().dictionary(), (Value::Dictionary{{"overview.range.length", Value(int64_t{3})}}));
    EXPECT_EQ(document->managedObjectContext().undoManager() == nullptr ||
                  !document->managedObjectContext().undoManager()->canUndo(),
              true);
}

}  // namespace
}  // namespace brassline
