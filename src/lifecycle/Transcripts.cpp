#include "lifecycle/Transcripts.h"

#include <algorithm>
#include <filesystem>
#include <fstream>

#include "core/Localization.h"
#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/StringFolding.h"
#include "model/entities/BLTranscript.h"
#include "store/BLSetupDefaultsController.h"

namespace brassline {

namespace {

namespace fs = std::filesystem;

constexpr const char* kCreator = "Brassline";
// The version of the program that wrote the export, read by an auditor beside the data.
constexpr const char* kCreatorVersion = "0.1";
constexpr const char* kInfoAddress = "https://brassline.app";
constexpr const char* kExplanationResource = "GoBD.rtf";

bool writeFile(const fs::path& path, const std::string& content) {
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(content.data(), static_cast<std::streamsize>(content.size()));
    out.close();
    return static_cast<bool>(out);
}

}  // namespace

std::vector<BLTranscript*> sortedTranscripts(ManagedObjectContext& context, const std::string& filter) {
    std::vector<BLTranscript*> result;
    std::optional<std::vector<ManagedObject*>> found = context.executeFetchRequest(FetchRequest("Transcript"));
    const std::string folded = foldedString(filter, kFoldCase | kFoldDiacritics);
    for (ManagedObject* object : found.value_or(std::vector<ManagedObject*>{})) {
        auto* transcript = dynamic_cast<BLTranscript*>(object);
        if (transcript == nullptr) {
            continue;
        }
        if (!folded.empty() &&
            foldedString(transcript->displayType(), kFoldCase | kFoldDiacritics).find(folded) == std::string::npos) {
            continue;
        }
        result.push_back(transcript);
    }
    // Rows without a date sort last; equal dates keep a fixed order by uid.
    std::sort(result.begin(), result.end(), [](const BLTranscript* a, const BLTranscript* b) {
        const double left = a->date() ? a->date()->timeIntervalSinceReferenceDate() : -1e300;
        const double right = b->date() ? b->date()->timeIntervalSinceReferenceDate() : -1e300;
        if (left != right) {
            return left > right;
        }
        return BLBase::fixedAttribute(a->uid()) < BLBase::fixedAttribute(b->uid());
    });
    return result;
}

TranscriptExport exportTranscripts(ManagedObjectContext& context, const std::string& parent, const std::string& name) {
    TranscriptExport result;
    const std::string folderName = name.empty() ? localizedString("Transcript") : name;
    if (folderName.find('/') != std::string::npos || folderName == "." || folderName == "..") {
        result.message = "The export folder name \"" + folderName + "\" is not a plain name.";
        return result;
    }
    const fs::path folder = fs::path(parent) / folderName;
    result.folder = folder.string();

    const std::string explanationPath = BLSetupDefaultsController::resourcesDirectory() + "/" + kExplanationResource;
    std::ifstream explanationFile(explanationPath, std::ios::binary);
    if (!explanationFile) {
        result.message = "The resource " + std::string(kExplanationResource) + " is missing.";
        logMessage("%@", result.message);
        return result;
    }
    const std::string explanation((std::istreambuf_iterator<char>(explanationFile)), std::istreambuf_iterator<char>());

    Value::Array entries;
    for (BLTranscript* transcript : sortedTranscripts(context)) {
        Value::Dictionary entry;
        entry["operation"] = Value(BLBase::fixedAttribute(transcript->operation()));
        entry["documentType"] = Value(BLBase::fixedAttribute(transcript->type()));
        entry["documentNumber"] = Value(BLBase::fixedAttribute(transcript->name()));
        if (std::optional<Date> date = transcript->date()) {
            entry["date"] = Value(*date);
        }
        if (std::optional<Value> record = transcript->record()) {
            entry["contents"] = *record;
        }
        entries.emplace_back(std::move(entry));
    }
    result.entries = entries.size();
    Value::Dictionary root;
    root["entries"] = Value(std::move(entries));
    root["date"] = Value(Date::now());
    root["creator"] = Value(kCreator);
    root["version"] = Value(kCreatorVersion);
    root["info"] = Value(kInfoAddress);

    std::error_code code;
    fs::remove_all(folder, code);
    if (code) {
        result.message = "The old folder " + folder.string() + " could not be removed: " + code.message();
        return result;
    }
    fs::create_directories(folder, code);
    if (code) {
        result.message = "The folder " + folder.string() + " could not be made: " + code.message();
        return result;
    }
    if (!writeFile(folder / (folderName + ".xml"), Value(std::move(root)).toXMLPropertyList()) ||
        !writeFile(folder / (folderName + ".rtf"), explanation)) {
        result.message = "The transcript files could not be written in " + folder.string() + ".";
        logMessage("%@", result.message);
        return result;
    }
    result.ok = true;
    return result;
}

}  // namespace brassline
