#include "store/BLBackup.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include <sys/utsname.h>

#include "core/Date.h"
#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "store/BLSetupDefaultsController.h"
#include "store/DocumentHooks.h"

namespace brassline {

namespace {

namespace fs = std::filesystem;

constexpr const char* kBundleVersion = "0.1";
constexpr const char* kTemplateName = "QLBackupTemplate.html";
// Copied into "QuickLook" when the resources hold them.
constexpr const char* kQuickLookResources[] = {"Icon.icns", "Preview.pdf", "Thumbnail.png"};

void replaceAll(std::string& text, std::string_view tag, const std::string& value) {
    for (size_t at = text.find(tag); at != std::string::npos; at = text.find(tag, at + value.size())) {
        text.replace(at, tag.size(), value);
    }
}

std::string escapedHTML(std::string_view text) {
    std::string result;
    for (char c : text) {
        switch (c) {
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '&':
                result += "&amp;";
                break;
            case '"':
                result += "&quot;";
                break;
            default:
                result.push_back(c);
        }
    }
    return result;
}

std::string osVersion() {
    struct utsname name {};
    if (::uname(&name) != 0) {
        return "unknown";
    }
    return std::string(name.sysname) + " " + name.release + " (" + name.version + ")";
}

std::string ownerName(ManagedObjectContext& context) {
    const EntityDescription* profile = context.entityNamed("Profile");
    ManagedObject* object = profile != nullptr ? context.objectWithUid(*profile, "default.profile") : nullptr;
    return object != nullptr ? object->valueForKey("organizationOrName").toString() : std::string();
}

bool fail(std::string* error, std::string message) {
    logMessage("Additional backups: %@", message);
    if (error != nullptr) {
        *error = std::move(message);
    }
    return false;
}

}  // namespace

std::string BLBackup::quickLookHTML(ManagedObjectContext& context) {
    std::ifstream in(BLSetupDefaultsController::resourcesDirectory() + "/" + kTemplateName, std::ios::binary);
    if (!in) {
        logMessage("The resource %@ is missing", kTemplateName);
        return {};
    }
    std::string html((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    std::string contents;
    for (const char* entity : {"Invoice", "Estimate", "Currency", "Client", "ClientGroup", "TaxGroup", "ItemGroup"}) {
        size_t count = context.countForFetchRequest(FetchRequest(entity)).value_or(0);
        contents += std::string(entity) + " (" + std::to_string(count) + ") <br/>\n";
    }
    replaceAll(html, "<owner/>", escapedHTML(ownerName(context)));
    replaceAll(html, "<blversion/>", kBundleVersion);
    replaceAll(html, "<osversion/>", escapedHTML(osVersion()));
    replaceAll(html, "<date/>", Date::now().iso8601String());
    replaceAll(html, "<contents/>", contents);
    return html;
}

bool BLBackup::createAdditionalBackups(const std::string& backupPath, ManagedObjectContext& context,
                                       std::string* error) {
    std::error_code code;
    std::string layouts = backupPath + "/Layouts";
    if (const auto& exportLayout = documentHooks().exportLayout) {
        fs::create_directories(layouts, code);
        if (code) {
            return fail(error, "can't make " + layouts + ": " + code.message());
        }
        for (ManagedObject* layout :
             context.executeFetchRequest(FetchRequest("Layout")).value_or(std::vector<ManagedObject*>{})) {
            if (!exportLayout(*layout, layouts)) {
                logMessage("Additional backups: layout %@ not exported", layout->valueForKey("uid").toString());
            }
        }
    } else {
        logMessage("Additional backups: no layout export installed; Layouts left out");
    }

    std::string quickLook = backupPath + "/QuickLook";
    fs::create_directories(quickLook, code);
    if (code) {
        return fail(error, "can't make " + quickLook + ": " + code.message());
    }
    std::string html = quickLookHTML(context);
    if (html.empty()) {
        return fail(error, std::string("the resource ") + kTemplateName + " is missing");
    }
    {
        std::ofstream out(quickLook + "/Preview.html", std::ios::binary | std::ios::trunc);
        out << html;
        if (!out) {
            return fail(error, "can't write " + quickLook + "/Preview.html");
        }
    }
    for (const char* name : kQuickLookResources) {
        std::string source = BLSetupDefaultsController::resourcesDirectory() + "/" + name;
        if (fs::exists(source, code)) {
            fs::copy_file(source, quickLook + "/" + name, fs::copy_options::overwrite_existing, code);
            if (code) {
                return fail(error, "can't copy " + std::string(name) + ": " + code.message());
            }
        }
    }
    return true;
}

}  // namespace brassline
