#include "layout/LayoutPackage.h"

#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include <fontconfig/fontconfig.h>
#include <sys/utsname.h>

#include "core/Localization.h"
#include "core/Log.h"
#include "layout/BLLayoutController.h"
#include "layout/LayoutStorageRules.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLLayoutStorage.h"

namespace brassline {

namespace fs = std::filesystem;

namespace {

constexpr const char* kOpenCompanyFirst = "Please open a company first. Then open the layout.";
// Font files larger than this are refused: no font we ship comes near it.
constexpr uintmax_t kMaxFontFileSize = 64 * 1024 * 1024;
constexpr uintmax_t kMaxDataSize = 256 * 1024 * 1024;

std::optional<Bytes> readBytes(const fs::path& path, uintmax_t limit) {
    std::error_code error;
    if (!fs::is_regular_file(path, error) || fs::file_size(path, error) > limit || error) {
        return std::nullopt;
    }
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        return std::nullopt;
    }
    return Bytes(std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>());
}

bool writeBytes(const fs::path& path, const Bytes& bytes) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
    return static_cast<bool>(stream);
}

// The file of a font by its PostScript or family name, through fontconfig; "" if none
// matches exactly (a fallback font is not the layout's font).
std::string fontFileFor(const std::string& name) {
    FcPattern* pattern = FcPatternCreate();
    FcPatternAddString(pattern, FC_POSTSCRIPT_NAME, reinterpret_cast<const FcChar8*>(name.c_str()));
    FcObjectSet* objects = FcObjectSetBuild(FC_FILE, FC_POSTSCRIPT_NAME, nullptr);
    FcFontSet* fonts = FcFontList(nullptr, pattern, objects);
    // Fonts registered from a package earlier in this process may be gone from disk.
    std::string file;
    for (int i = 0; fonts != nullptr && i < fonts->nfont && file.empty(); ++i) {
        FcChar8* path = nullptr;
        std::error_code error;
        if (FcPatternGetString(fonts->fonts[i], FC_FILE, 0, &path) == FcResultMatch && path != nullptr &&
            fs::is_regular_file(reinterpret_cast<const char*>(path), error)) {
            file = reinterpret_cast<const char*>(path);
        }
    }
    if (fonts != nullptr) {
        FcFontSetDestroy(fonts);
    }
    FcObjectSetDestroy(objects);
    FcPatternDestroy(pattern);
    return file;
}

std::string osVersion() {
    utsname system{};
    return uname(&system) == 0 ? std::string(system.sysname) + " " + system.release : std::string();
}

}  // namespace

bool looksLikeFontFile(const Bytes& head) {
    if (head.size() < 4) {
        return false;
    }
    const auto starts = [&](const char* magic, size_t length) { return std::memcmp(head.data(), magic, length) == 0; };
    return starts("\x00\x01\x00\x00", 4) || starts("OTTO", 4) || starts("true", 4) || starts("ttcf", 4) ||
           starts("wOFF", 4) || starts("wOF2", 4) || starts("typ1", 4) || starts("%!PS-AdobeFont", 4) ||
           (head[0] == 0x80 && head[1] == 0x01);
}

bool writeLayoutPackage(const std::string& path, const std::string& name, const std::string& paperFormat,
                        const Bytes& data, const std::vector<std::string>& fontNames, std::string* error) {
    const auto fail = [&](std::string message) {
        logMessage("%@", message);
        if (error != nullptr) {
            *error = std::move(message);
        }
        return false;
    };
    std::error_code failure;
    fs::remove_all(path, failure);
    fs::create_directories(fs::path(path) / "Fonts", failure);
    if (failure) {
        return fail("Cannot create the layout package " + path + ": " + failure.message());
    }
    const Value info(Value::Dictionary{{"type", Value("layout3")},
                                       {"paperFormat", Value(paperFormat)},
                                       {"name", Value(name.empty() ? localizedString("unitled") : name)},
                                       {"osVersion", Value(osVersion())},
                                       {"appVersion", Value("0.1 (1)")}});
    const std::string infoText = info.toXMLPropertyList();
    if (!writeBytes(fs::path(path) / "Info.plist", Bytes(infoText.begin(), infoText.end())) ||
        !writeBytes(fs::path(path) / "Data.plist", data)) {
        return fail("Cannot write the layout package " + path);
    }
    if (fontNames.empty()) {
        return true;
    }
    FcInit();
    for (const std::string& font : fontNames) {
        const std::string file = fontFileFor(font);
        if (file.empty()) {
            logMessage("Layout package: no file found for the font %@", font);
            continue;
        }
        fs::copy_file(file, fs::path(path) / "Fonts" / fs::path(file).filename(), fs::copy_options::overwrite_existing,
                      failure);
        if (failure) {
            return fail("Cannot copy the font " + file + ": " + failure.message());
        }
    }
    return true;
}

bool saveLayoutPackage(const BLLayout& layout, const std::string& path, std::string* error) {
    const BLLayoutStorage* storage = layout.storage();
    if (storage == nullptr || storage->data() == nullptr || storage->data()->empty()) {
        const std::string message = "The layout \"" + layout.name().value_or("") + "\" has no archive to export.";
        logMessage("%@", message);
        if (error != nullptr) {
            *error = message;
        }
        return false;
    }
    // Loading migrates and checks the archive; what is written is the controller's form.
    BLLayoutController controller;
    controller.loadGT3Layout(*storage->data());
    return writeLayoutPackage(path, layout.name().value_or(""),
                              layout.paperFormat().value_or(stringFromSize(controller.paperSize())),
                              controller.layoutData(), controller.fontNames(), error);
}

LayoutImport importLayoutPackage(ManagedObjectContext* context, const std::string& path, bool replace) {
    LayoutImport result;
    const auto refuse = [&](std::string message) {
        result.outcome = LayoutImport::Outcome::Refused;
        result.message = std::move(message);
        logMessage("%@", result.message);
        return result;
    };
    if (context == nullptr) {
        return refuse(kOpenCompanyFirst);
    }
    const fs::path package(path);
    const std::optional<Bytes> infoBytes = readBytes(package / "Info.plist", 1024 * 1024);
    const std::optional<Value> info = infoBytes ? Value::fromPropertyList(*infoBytes) : std::nullopt;
    if (!info || info->dictionary() == nullptr) {
        return refuse(path + " is no layout package: its Info.plist is missing or unreadable.");
    }
    const std::string type = (*info)["type"].toString();
    std::string name = (*info)["name"].toString();
    std::string paperFormat = (*info)["paperFormat"].toString();
    BLLayoutController controller;
    Bytes data;
    if (type == "layout3") {
        const std::optional<Bytes> archive = readBytes(package / "Data.plist", kMaxDataSize);
        if (!archive || archive->empty()) {
            return refuse("The layout package " + path + " has no readable Data.plist.");
        }
        std::string reason;
        if (!readLayoutArchive(*archive, &reason)) {
            return refuse("The layout package " + path + " has a damaged Data.plist: " + reason);
        }
        // Every font is checked before the first is registered or anything is stored.
        std::vector<fs::path> fonts;
        std::error_code failure;
        const fs::path fontsFolder = package / "Fonts";
        if (fs::is_directory(fontsFolder, failure)) {
            const fs::path root = fs::weakly_canonical(fontsFolder, failure);
            for (const fs::directory_entry& entry : fs::directory_iterator(fontsFolder, failure)) {
                const fs::path real = fs::weakly_canonical(entry.path(), failure);
                const auto relative = real.lexically_relative(root);
                if (failure || relative.empty() || *relative.begin() == ".." || relative.has_parent_path()) {
                    return refuse("The layout package " + path +
                                  " refers to a file outside itself: " + entry.path().filename().string());
                }
                const std::optional<Bytes> head = readBytes(real, kMaxFontFileSize);
                if (!head || !looksLikeFontFile(*head)) {
                    return refuse("The layout package " + path +
                                  " holds a font file that is no font: " + entry.path().filename().string());
                }
                fonts.push_back(real);
            }
        }
        FcInit();
        for (const fs::path& font : fonts) {
            FcConfigAppFontAddFile(nullptr, reinterpret_cast<const FcChar8*>(font.c_str()));
        }
        controller.loadGT3Layout(*archive);
        data = *archive;
    } else if (type == "design") {
        const std::optional<Bytes> xml = readBytes(package / "data.xml", kMaxDataSize);
        const std::optional<Value> legacy = xml ? Value::fromPropertyList(*xml) : std::nullopt;
        const Bytes* bytes = legacy ? (*legacy)["data"].bytes() : nullptr;
        if (bytes == nullptr || !controller.importGT2Layout(*bytes)) {
            return refuse("The older layout " + path + " can't be read.");
        }
        data = controller.layoutData();
        name = package.stem().string();
        paperFormat = stringFromSize(controller.paperSize());
    } else {
        return refuse(path + " is no layout (its type is \"" + type + "\").");
    }
    if (name.empty()) {
        name = package.stem().string();
    }
    FetchRequest request("Layout");
    request.setPredicateFormat("name LIKE %@", {Value(name)});
    const std::vector<ManagedObject*> existing =
        context->executeFetchRequest(request).value_or(std::vector<ManagedObject*>{});
    BLLayout* layout = existing.empty() ? nullptr : static_cast<BLLayout*>(existing.front());
    if (layout != nullptr && !replace) {
        result.outcome = LayoutImport::Outcome::NameTaken;
        result.layout = layout;
        result.message = formatMessage(localizedString("replace the layout named \"%@\"?"), name);
        return result;
    }
    result.outcome = layout != nullptr ? LayoutImport::Outcome::Replaced : LayoutImport::Outcome::Imported;
    if (layout == nullptr) {
        layout = static_cast<BLLayout*>(context->insertNewObjectForEntityForName("Layout"));
    }
    BLLayoutStorage* storage = layout->storage();
    if (storage == nullptr) {
        storage = static_cast<BLLayoutStorage*>(context->insertNewObjectForEntityForName("LayoutStorage"));
    }
    layout->setName(name);
    layout->setPaperFormat(paperFormat.empty() ? stringFromSize(controller.paperSize()) : paperFormat);
    setLayoutStorageData(*storage, data);
    setLayoutFontNames(*storage, controller.fontNames());
    layout->setStorage(storage);
    layout->setClasses(controller.collectClasses());
    localize(*storage);
    NotificationCenter::defaultCenter().postNotificationName("BLSelectLayout", layout);
    NotificationCenter::defaultCenter().postNotificationName("UpdatePreviewAfterImport", nullptr);
    result.layout = layout;
    result.message = localizedString("installed");
    return result;
}

}  // namespace brassline
