#include "layout/LayoutCommands.h"

#include <ostream>

#include "layout/BLLayoutController.h"
#include "layout/LayoutHooks.h"
#include "layout/LayoutPackage.h"
#include "layout/LayoutStorageRules.h"
#include "lifecycle/CommandSupport.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/SortDescriptor.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLLayoutStorage.h"

namespace brassline::layoutcommands {

namespace {

using exitcode::kBadInput;
using exitcode::kSaveFailed;
using exitcode::kSuccess;

std::optional<CommandFile> openFile(const std::string& path, std::ostream& err) {
    installLayoutHooks();
    return openCommandDocument(path, err);
}

BLLayout* layoutWithUid(CommandFile& file, const std::string& uid, std::ostream& err) {
    ManagedObject* object = file.objectWithUid(uid, err);
    auto* layout = dynamic_cast<BLLayout*>(object);
    if (object != nullptr && layout == nullptr) {
        err << "brassline: '" << uid << "' is no layout\n";
    }
    return layout;
}

Size paperOf(const BLLayout& layout) {
    return sizeFromString(layout.paperFormat().value_or("")).value_or(kFallbackPaperSize);
}

// Loads the layout's archive; a damaged one is reported and loads as the empty layout.
void load(BLLayoutController& controller, BLLayout& layout, std::ostream& err) {
    controller.setLayout(&layout);
    if (!controller.lastError().empty()) {
        err << "brassline: the layout's archive is damaged and loads empty (" << controller.lastError() << ")\n";
    }
}

void printTree(const Value& representation, const std::string& indent, std::ostream& out) {
    const Value& frame = representation["frame"];
    out << indent << representation["className"].toString() << " " << shortNumber(frame["x"].toDouble()) << " "
        << shortNumber(frame["y"].toDouble()) << " " << shortNumber(frame["width"].toDouble()) << " "
        << shortNumber(frame["height"].toDouble()) << "\n";
    if (const Value::Array* children = representation["subViews"].array()) {
        for (const Value& child : *children) {
            printTree(child, indent + "  ", out);
        }
    }
}

}  // namespace

int list(const std::string& path, bool json, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = openFile(path, err);
    if (!file) {
        return kBadInput;
    }
    FetchRequest request("Layout");
    request.setSortDescriptors({SortDescriptor{"name", true}});
    Value::Array records;
    for (ManagedObject* object : file->context().executeFetchRequest(request).value_or(std::vector<ManagedObject*>{})) {
        const auto& layout = static_cast<const BLLayout&>(*object);
        const Size size = paperOf(layout);
        records.push_back(
            Value(Value::Dictionary{{"uid", Value(layout.uid().value_or(""))},
                                    {"name", Value(layout.name().value_or(""))},
                                    {"paperSize", Value(stringFromSize(size))},
                                    {"paperName", Value(paperName(size))},
                                    {"usage", Value(static_cast<int64_t>(layout.usageObjects().size()))}}));
    }
    if (json) {
        out << Value(std::move(records)).toJSON() << "\n";
        return kSuccess;
    }
    for (const Value& record : records) {
        out << record["uid"].toString() << "  " << record["name"].toString() << "  " << record["paperSize"].toString()
            << " " << record["paperName"].toString() << "  used " << record["usage"].toString() << "\n";
    }
    return kSuccess;
}

int exportLayout(const std::string& path, const std::string& uid, const std::string& package, std::ostream& out,
                 std::ostream& err) {
    std::optional<CommandFile> file = openFile(path, err);
    BLLayout* layout = file ? layoutWithUid(*file, uid, err) : nullptr;
    if (layout == nullptr) {
        return kBadInput;
    }
    std::string error;
    if (!saveLayoutPackage(*layout, package, &error)) {
        err << "brassline: " << error << "\n";
        return kBadInput;
    }
    out << package << "\n";
    return kSuccess;
}

int importPackage(const std::string& path, const std::string& package, bool replace, std::ostream& out,
                  std::ostream& err) {
    std::optional<CommandFile> file = openFile(path, err);
    if (!file) {
        return kBadInput;
    }
    const LayoutImport result = importLayoutPackage(&file->context(), package, replace);
    switch (result.outcome) {
        case LayoutImport::Outcome::Refused:
            err << "brassline: " << result.message << "\n";
            return kBadInput;
        case LayoutImport::Outcome::NameTaken:
            err << "brassline: a layout named \"" << result.layout->name().value_or("")
                << "\" exists; --replace replaces it\n";
            return kBadInput;
        case LayoutImport::Outcome::Imported:
        case LayoutImport::Outcome::Replaced:
            break;
    }
    if (!file->save(err)) {
        return kSaveFailed;
    }
    out << result.layout->uid().value_or("") << " " << result.layout->name().value_or("")
        << (result.outcome == LayoutImport::Outcome::Replaced ? " replaced" : " imported") << "\n";
    return kSuccess;
}

int dump(const std::string& path, const std::string& uid, bool json, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = openFile(path, err);
    BLLayout* layout = file ? layoutWithUid(*file, uid, err) : nullptr;
    if (layout == nullptr) {
        return kBadInput;
    }
    BLLayoutController controller;
    load(controller, *layout, err);
    const auto records = [](const std::vector<LayoutRecord>& list) {
        Value::Array result;
        for (const LayoutRecord& record : list) {
            result.push_back(Value(
                Value::Dictionary{{"identifier", Value(record.lookupIdentifier())},
                                  {"name", Value(record.name)},
                                  {"view", record.view ? record.view->layoutDictionaryRepresentation() : Value()}}));
        }
        return result;
    };
    const Value::Array pages = records(controller.pageViews());
    const Value::Array sections = records(controller.tableViews());
    if (json) {
        out << Value(Value::Dictionary{{"pages", Value(pages)}, {"tableSections", Value(sections)}}).toJSON(true)
            << "\n";
        return kSuccess;
    }
    for (const auto& [title, list] :
         {std::pair<const char*, const Value::Array*>{"page", &pages}, {"section", &sections}}) {
        for (const Value& record : *list) {
            out << title << " " << record["identifier"].toString() << "\n";
            printTree(record["view"], "  ", out);
        }
    }
    return kSuccess;
}

int paper(const std::string& path, const std::string& uid, const std::string& sizeOrName, std::ostream& out,
          std::ostream& err) {
    std::optional<CommandFile> file = openFile(path, err);
    BLLayout* layout = file ? layoutWithUid(*file, uid, err) : nullptr;
    if (layout == nullptr) {
        return kBadInput;
    }
    if (!sizeOrName.empty()) {
        const std::optional<Size> size = paperSizeNamed(sizeOrName);
        if (!size) {
            err << "brassline: no paper named '" << sizeOrName << "' (a name such as A4 or letter, or \"{w, h}\")\n";
            return kBadInput;
        }
        BLLayoutController controller;
        load(controller, *layout, err);
        controller.setPaperSize(*size);
        controller.saveIfNeeded();
        if (!file->save(err)) {
            return kSaveFailed;
        }
    }
    const Size size = paperOf(*layout);
    out << stringFromSize(size) << " " << paperName(size) << "\n";
    return kSuccess;
}

}  // namespace brassline::layoutcommands
