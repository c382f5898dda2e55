#include "store/URLCommands.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <charconv>
#include <utility>

#include "core/Log.h"
#include "model/ManagedObject.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "store/BLDoc.h"
#include "store/BLDocumentController.h"
#include "store/BLMaintenance.h"
#include "store/BLPreferenceController.h"
#include "store/BLSetupDefaultsController.h"
#include "store/BLUserDefaults.h"
#include "store/DocumentHooks.h"

namespace brassline {

namespace {

std::string lower(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

int hexDigit(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
}

// A malformed escape stays as written: a URL typed by hand should still run.
std::string percentDecoded(std::string_view text) {
    std::string result;
    result.reserve(text.size());
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '%' && i + 2 < text.size()) {
            int high = hexDigit(text[i + 1]);
            int low = hexDigit(text[i + 2]);
            if (high >= 0 && low >= 0) {
                result.push_back(static_cast<char>(high * 16 + low));
                i += 2;
                continue;
            }
        }
        result.push_back(text[i]);
    }
    return result;
}

// The commands whose work belongs to subsystems that install them later, with the
// subsystem named in the message while they are missing.
struct HookedCommand {
    std::string_view command;
    std::string_view owner;
};

constexpr std::array kContextHookedCommands{
    HookedCommand{"fixtaxes", "taxes"},
    HookedCommand{"fixtaxrulesifmissing", "taxes"},
    HookedCommand{"fixtaxrules", "taxes"},
    HookedCommand{"fixsyncconflicts", "device sync"},
    HookedCommand{"fixassigneddocuments", "payments"},
    HookedCommand{"fixstorage", "document life cycle"},
    HookedCommand{"showschedulednotifications", "notifications"},
    HookedCommand{"fixclientgroups", "clients"},
    HookedCommand{"fixhierarchy", "item tree"},
    HookedCommand{"fixpayments", "payments"},
    HookedCommand{"fixrelations", "device sync"},
    HookedCommand{"fixlayouts", "layouts"},
    HookedCommand{"fixcontacts", "contacts"},
    HookedCommand{"updatelayouts", "layouts"},
    HookedCommand{"migratelayoutsagain", "layouts"},
    HookedCommand{"fixcustomfields", "custom fields"},
    HookedCommand{"fixpaymenttypes", "payments"},
    HookedCommand{"fixcurrencies", "currencies"},
    HookedCommand{"createsampledata", "sample data"},
    HookedCommand{"uploadtosupport", "support upload"},
};

constexpr std::array kApplicationHookedCommands{
    HookedCommand{"consolidate", "store maintenance"},
    HookedCommand{"crash", "error reporter"},
    HookedCommand{"installplugin", "plug-ins"},
    HookedCommand{"openreference", "help viewer"},
    HookedCommand{"resetnotifications", "notifications"},
    HookedCommand{"removemailscripts", "mail"},
    HookedCommand{"loginmite", "time import"},
    HookedCommand{"help", "help viewer"},
    HookedCommand{"editmailscript", "mail"},
};

template <size_t N>
const HookedCommand* findHooked(const std::array<HookedCommand, N>& table, std::string_view command) {
    auto it = std::find_if(table.begin(), table.end(), [&](const HookedCommand& c) { return c.command == command; });
    return it != table.end() ? &*it : nullptr;
}

URLResult runHooked(const HookedCommand& hooked, BLDoc* document, const URLRequest& request) {
    const auto& hooks = documentHooks().urlCommands;
    auto it = hooks.find(hooked.command);
    if (it == hooks.end() || !it->second) {
        logMessage("URL command %@ needs %@, which is not installed", request.command, std::string(hooked.owner));
        return {URLResult::Status::NotAvailable,
                request.command + ": this build has no " + std::string(hooked.owner) + " yet; nothing was changed"};
    }
    std::string message;
    bool done = it->second(document, request, message);
    if (message.empty()) {
        message = request.command + (done ? ": done" : ": failed");
    }
    return {done ? URLResult::Status::Done : URLResult::Status::Failed, std::move(message)};
}

std::string counted(size_t count, std::string_view what) {
    return std::to_string(count) + " " + std::string(what);
}

// "yes"/"no"/"true"/"false" and integers keep their type; defaults are read as such.
Value userDefaultValue(const std::string& text) {
    std::string word = lower(text);
    if (word == "yes" || word == "true") {
        return Value(true);
    }
    if (word == "no" || word == "false") {
        return Value(false);
    }
    int64_t number = 0;
    auto [end, code] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (!text.empty() && code == std::errc() && end == text.data() + text.size()) {
        return Value(number);
    }
    return Value(text);
}

}  // namespace

std::optional<URLRequest> URLRequest::parse(std::string_view url, std::string* error) {
    constexpr std::string_view scheme = "brassline://";
    if (url.size() < scheme.size() || lower(url.substr(0, scheme.size())) != scheme) {
        if (error != nullptr) {
            *error = "not a brassline:// URL: '" + std::string(url) + "'";
        }
        return std::nullopt;
    }
    URLRequest request;
    request.url = std::string(url);
    std::string_view rest = url.substr(scheme.size());
    size_t question = rest.find('?');
    request.command = lower(rest.substr(0, std::min(question, rest.find('/'))));
    if (request.command.empty()) {
        if (error != nullptr) {
            *error = "the URL '" + std::string(url) + "' names no command";
        }
        return std::nullopt;
    }
    if (question != std::string_view::npos) {
        std::string_view text = rest.substr(question + 1);
        while (!text.empty()) {
            std::string_view pair = text.substr(0, text.find('&'));
            size_t equals = pair.find('=');
            if (!pair.empty()) {
                request.query[percentDecoded(pair.substr(0, equals))] =
                    equals == std::string_view::npos ? std::string() : percentDecoded(pair.substr(equals + 1));
            }
            text.remove_prefix(std::min(text.size(), pair.size() + 1));
        }
    }
    return request;
}

std::string URLRequest::value(std::string_view key) const {
    auto it = query.find(key);
    return it != query.end() ? it->second : std::string();
}

std::optional<URLResult> handleContextURL(BLDoc& document, const URLRequest& request) {
    ManagedObjectContext& context = document.managedObjectContext();
    const std::string& command = request.command;
    if (command == "fixprofiles" || command == "fixeuro") {
        command == "fixprofiles" ? document.fixProfiles() : document.fixEuro();
        return URLResult::done(command + ": done");
    }
    if (command == "fixduplicates") {
        size_t changed = BLMaintenance::fixDuplicateUIDsForEntityName(context, "Base");
        return URLResult::done(command + ": " + counted(changed, "objects got a fresh uid"));
    }
    if (command == "fixclients" || command == "fixmissingvalues") {
        size_t count = BLMaintenance::fixMissingValues(context, command == "fixclients" ? "Client" : "Base");
        return URLResult::done(command + ": " + counted(count, "objects checked"));
    }
    if (command == "fixpreferences") {
        BLSetupDefaultsController::setupPreferencesForManagedObjectContext(context);
        document.prefsController().refresh();
        return URLResult::done(command + ": done");
    }
    if (command == "fixzombies") {
        size_t deleted = BLMaintenance::fixZombies(context);
        return URLResult::done(command + ": " + counted(deleted, "drafts without a client deleted"));
    }
    if (command == "fixcaches" || command == "rebuildcache") {
        size_t count = BLMaintenance::fixCaches(context);
        return URLResult::done(command + ": " + counted(count, "caches dropped"));
    }
    if (command == "show") {
        const EntityDescription* base = context.entityNamed("Base");
        std::string uid = request.value("uid");
        ManagedObject* object = base != nullptr && !uid.empty() ? context.objectWithUid(*base, uid) : nullptr;
        if (object == nullptr) {
            return URLResult::failed("no object with uid '" + uid + "'");
        }
        return URLResult::done(object->entityName() + " " + object->valueForKey("uid").toString());
    }
    if (command == "overview") {
        std::string uid = request.value("select");
        NotificationCenter::defaultCenter().postNotificationName("updateOverviewAndSelectUID", nullptr,
                                                                 {{"uid", Value(uid)}});
        return URLResult::done(command + ": select " + uid);
    }
    if (const HookedCommand* hooked = findHooked(kContextHookedCommands, command)) {
        return runHooked(*hooked, &document, request);
    }
    return std::nullopt;
}

URLResult handleApplicationURL(BLDocumentController& controller, BLDoc* document, const URLRequest& request) {
    const std::string& command = request.command;
    if (command == "fixdefaults") {
        if (document == nullptr) {
            return URLResult::failed(command + ": no company file is open");
        }
        size_t changed = BLMaintenance::fixDefaults(document->managedObjectContext());
        return URLResult::done(command + ": " + counted(changed, "default marks changed"));
    }
    if (command == "open") {
        std::string path = request.value("path");
        if (path.empty()) {
            return URLResult::failed(command + ": the URL has no \"path\"");
        }
        std::string error;
        BLDoc* opened = controller.openDocumentWithContentsOfURL(path, &error);
        if (opened == nullptr) {
            return URLResult::failed(error);
        }
        return URLResult::done("opened " + opened->displayName() + " (" + opened->documentIdentifier() + ")");
    }
    if (command == "userdefaults") {
        std::string key = request.value("key");
        if (key.empty()) {
            return URLResult::failed(command + ": the URL has no \"key\"");
        }
        if (!request.has("value")) {
            UserDefaults::standard().removeObject(key);
            return URLResult::done(command + ": " + key + " removed");
        }
        Value value = userDefaultValue(request.value("value"));
        UserDefaults::standard().setObject(value, key);
        return URLResult::done(command + ": " + key + " = " + value.toString());
    }
    if (const HookedCommand* hooked = findHooked(kApplicationHookedCommands, command)) {
        return runHooked(*hooked, document, request);
    }
    return {URLResult::Status::NotSupported, "The command " + command + " is not supported"};
}

URLResult handleURL(BLDocumentController& controller, BLDoc* document, const URLRequest& request) {
    logMessage("Calling %@", request.url);
    if (document != nullptr) {
        if (std::optional<URLResult> result = document->handleURL(request)) {
            return *result;
        }
    }
    return handleApplicationURL(controller, document, request);
}

}  // namespace brassline
