#include "layout/LayoutStorageRules.h"

#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "core/Localization.h"
#include "core/Log.h"
#include "layout/BLLayoutController.h"
#include "layout/DefaultLayout.h"
#include "layout/LayoutFiles.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/NotificationCenter.h"
#include "model/UndoManager.h"
#include "model/entities/BLContainer.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLLayoutStorage.h"
#include "model/entities/BLProfile.h"
#include "store/UndoSuspension.h"

namespace brassline {

namespace {

std::vector<ManagedObject*> fetch(ManagedObjectContext& context, const std::string& entity,
                                  const std::string& predicate = {}) {
    FetchRequest request(entity);
    request.setIncludesSubentities(true);
    if (!predicate.empty()) {
        request.setPredicateFormat(predicate);
    }
    return context.executeFetchRequest(request).value_or(std::vector<ManagedObject*>{});
}

bool companyUsesLetter(ManagedObjectContext* context) {
    if (context != nullptr) {
        if (auto* profile = BLContainer::defaultItemForContext<BLProfile>(*context)) {
            if (const auto country = profile->countryCode(); country && !country->empty()) {
                return paperUsesLetter(*country);
            }
        }
    }
    return paperUsesLetter(currentRegion());
}

std::string layoutsTablePath(std::string_view language) {
    return std::string(BRASSLINE_RESOURCES_DIR) + "/layouts/Localizable/" + std::string(language) + ".json";
}

// Runs `change` over every page and section view of the stored archive and stores it again.
void rewriteStoredViews(BLLayoutStorage& storage, const std::function<void(BLView&, bool isPage)>& change) {
    const Bytes* data = storage.data();
    std::string error;
    std::optional<LayoutArchive> archive = readLayoutArchive(data != nullptr ? *data : Bytes(), &error);
    if (!archive) {
        logMessage("%@", error);
        return;
    }
    for (LayoutRecord& record : archive->pages) {
        if (record.view) {
            change(*record.view, true);
        }
    }
    for (LayoutRecord& record : archive->tableSections) {
        if (record.view) {
            change(*record.view, false);
        }
    }
    setLayoutStorageData(storage, writeLayoutArchive(*archive));
}

}  // namespace

void setLayoutStorageData(BLLayoutStorage& storage, Bytes data) {
    if (ManagedObjectContext* context = storage.managedObjectContext();
        context != nullptr && context->undoManager() != nullptr) {
        context->undoManager()->removeAllActions();
    }
    storage.setData(std::move(data));
    NotificationCenter::defaultCenter().postNotificationName("BLSyncLayout", nullptr);
}

std::vector<std::string> layoutFontNames(const BLLayoutStorage& storage) {
    std::vector<std::string> names;
    const std::string notes = storage.notes().value_or("");
    size_t start = 0;
    while (start < notes.size()) {
        const size_t comma = notes.find(',', start);
        const size_t end = comma == std::string::npos ? notes.size() : comma;
        if (end > start) {
            names.push_back(notes.substr(start, end - start));
        }
        start = end + 1;
    }
    return names;
}

void setLayoutFontNames(BLLayoutStorage& storage, const std::vector<std::string>& names) {
    const UndoSuspension suspension(storage.managedObjectContext());
    std::string joined;
    for (const std::string& name : names) {
        joined += (joined.empty() ? "" : ",") + name;
    }
    storage.setNotes(joined);
}

void fillStorageWithDefaultLayout(BLLayout& layout, BLLayoutStorage& storage) {
    BLLayoutController controller;
    controller.loadGT3Layout(defaultLayoutData(companyUsesLetter(layout.managedObjectContext())).value_or(Bytes()));
    storage.setData(controller.layoutData());
    setLayoutFontNames(storage, controller.fontNames());
    localize(storage);
    layout.setPaperFormat(stringFromSize(controller.paperSize()));
    layout.setClasses(controller.collectClasses());
}

void createNewStorage(BLLayout& layout) {
    ManagedObjectContext* context = layout.managedObjectContext();
    auto* storage = context != nullptr
                        ? static_cast<BLLayoutStorage*>(context->insertNewObjectForEntityForName("LayoutStorage"))
                        : nullptr;
    if (storage == nullptr) {
        return;
    }
    layout.setStorage(storage);
    fillStorageWithDefaultLayout(layout, *storage);
}

void updateStorage(BLLayout& layout) {
    BLLayoutStorage* storage = layout.storage();
    if (storage == nullptr) {
        return;
    }
    BLLayoutController controller;
    controller.loadGT3Layout(storage->data() != nullptr ? *storage->data() : Bytes());
    setLayoutStorageData(*storage, controller.layoutData());
}

void updateLayouts(ManagedObjectContext& context) {
    for (ManagedObject* object : fetch(context, "Layout")) {
        updateStorage(*static_cast<BLLayout*>(object));
    }
}

bool migrateData(BLLayout& layout, const Bytes& legacy) {
    BLLayoutController controller;
    if (!controller.importGT2Layout(legacy)) {
        return false;
    }
    if (layout.storage() == nullptr) {
        if (ManagedObjectContext* context = layout.managedObjectContext()) {
            layout.setStorage(static_cast<BLLayoutStorage*>(context->insertNewObjectForEntityForName("LayoutStorage")));
        }
    }
    if (BLLayoutStorage* storage = layout.storage()) {
        setLayoutStorageData(*storage, controller.layoutData());
    }
    layout.setPaperFormat(stringFromSize(controller.paperSize()));
    return true;
}

void localizeFromTable(BLLayoutStorage& storage, const Value::Dictionary& table) {
    const std::optional<Value> current =
        Value::fromJSON(readWholeFile(layoutsTablePath(currentLanguage())).value_or("{}"));
    TranslationDictionary translations;
    for (const auto& [key, value] : table) {
        const Value& target = current ? (*current)[key] : Value();
        const std::string text = value.toString();
        if (target.string() == nullptr || text.empty()) {
            continue;
        }
        size_t words = 1;
        for (const char c : text) {
            words += c == ' ' ? 1 : 0;
        }
        // Long sentences aren't touched: their words may have been changed on purpose.
        if (words < 5) {
            translations.emplace(text, *target.string());
        }
    }
    rewriteStoredViews(storage, [&](BLView& view, bool isPage) {
        view.localizeWithDictionary(translations);
        view.migrateQuantity();
        if (isPage) {
            view.migrateLogoPlaceholder();
        }
    });
}

void localizeFromPath(BLLayoutStorage& storage, const std::string& path) {
    const std::optional<std::string> text = readWholeFile(path);
    const std::optional<Value> table = text ? Value::fromJSON(*text) : std::nullopt;
    if (!table || table->dictionary() == nullptr) {
        logMessage("Layout: no translation table at %@", path);
        return;
    }
    localizeFromTable(storage, *table->dictionary());
}

void localize(BLLayoutStorage& storage) {
    localizeFromPath(storage, layoutsTablePath("en"));
    localizeFromPath(storage, layoutsTablePath("de"));
}

void appendTranslationDictionary(const BLLayoutStorage& storage, TranslationDictionary& dictionary) {
    const Bytes* data = storage.data();
    const std::optional<LayoutArchive> archive = readLayoutArchive(data != nullptr ? *data : Bytes());
    if (!archive) {
        return;
    }
    for (const auto* records : {&archive->pages, &archive->tableSections}) {
        for (const LayoutRecord& record : *records) {
            if (record.view) {
                record.view->appendTranslationDictionary(dictionary);
            }
        }
    }
}

void setTranslationDictionary(BLLayoutStorage& storage, const TranslationDictionary& dictionary) {
    rewriteStoredViews(storage, [&](BLView& view, bool) { view.setTranslationDictionary(dictionary); });
}

bool exportLayoutJSON(const BLLayout& layout, const std::string& path) {
    const BLLayoutStorage* storage = layout.storage();
    const std::optional<LayoutArchive> archive =
        readLayoutArchive(storage != nullptr && storage->data() != nullptr ? *storage->data() : Bytes());
    if (!archive || archive->pages.empty() || !archive->pages.front().view) {
        return false;
    }
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << archive->pages.front().view->layoutDictionaryRepresentation().toJSON(true);
    return static_cast<bool>(stream);
}

void makeDefaultForField(BLLayout& layout, const std::string& field) {
    if (ManagedObjectContext* context = layout.managedObjectContext()) {
        for (ManagedObject* contact : fetch(*context, "Contact")) {
            contact->setValueForKey(Value(static_cast<Object*>(&layout)), field);
        }
    }
}

void makeDefaultForDocumentsOfEntity(BLLayout& layout, const std::string& entity) {
    if (ManagedObjectContext* context = layout.managedObjectContext()) {
        for (ManagedObject* document : fetch(*context, entity, "layout == nil")) {
            document->setValueForKey(Value(static_cast<Object*>(&layout)), "layout");
        }
    }
}

void makeDefaultForInvoices(BLLayout& layout) {
    makeDefaultForField(layout, "layout");
    makeDefaultForDocumentsOfEntity(layout, "Invoice");
}

void makeDefaultForEstimates(BLLayout& layout) {
    makeDefaultForField(layout, "estimateLayout");
    makeDefaultForDocumentsOfEntity(layout, "Estimate");
}

void makeDefaultForStatements(BLLayout& layout) {
    makeDefaultForField(layout, "statementLayout");
}

void makeDefaultForAdditionalDocuments(BLLayout& layout) {
    if (ManagedObjectContext* context = layout.managedObjectContext()) {
        for (ManagedObject* type : fetch(*context, "FollowUpType")) {
            type->setValueForKey(Value(static_cast<Object*>(&layout)), "layout");
        }
    }
    makeDefaultForDocumentsOfEntity(layout, "FollowUp");
}

void fixLayouts(ManagedObjectContext& context) {
    auto* profile = BLContainer::defaultItemForContext<BLProfile>(context);
    if (profile == nullptr) {
        return;
    }
    const Value layout = profile->valueForKey("layout");
    const Value estimateLayout = profile->valueForKey("estimateLayout");
    for (ManagedObject* invoice : fetch(context, "Invoice", "layout == nil")) {
        invoice->setValueForKey(layout, "layout");
    }
    for (ManagedObject* estimate : fetch(context, "Estimate", "layout == nil")) {
        estimate->setValueForKey(estimateLayout, "layout");
    }
}

Value::Dictionary layoutSubstitutionDictionary(const BLLayout& layout) {
    return {{"name", Value(layout.name().value_or(""))}, {"uid", Value(layout.uid().value_or(""))}};
}

// Papers.

namespace {

PathSetting& customPapers() {
    static PathSetting setting;
    return setting;
}

Value::Dictionary paperEntry(const std::string& name, const std::string& identifier, double widthMM, double heightMM) {
    const auto points = [](double mm) { return std::round(mm / 25.4 * 72.0); };
    return {{"paper_name", Value(name)},
            {"paper_identifier", Value(identifier)},
            {"paper_size", Value(stringFromSize({points(widthMM), points(heightMM)}))},
            {"printable_margins", Value(stringFromRect({18.0, 18.0, 18.0, 18.0}))}};
}

}  // namespace

std::string customPapersPath() {
    const char* config = std::getenv("XDG_CONFIG_HOME");
    const char* home = std::getenv("HOME");
    const std::string base = config != nullptr && *config != '\0' ? config
                             : home != nullptr                    ? std::string(home) + "/.config"
                                                                  : std::string(".");
    return customPapers().value(base + "/brassline/custompapers.plist");
}

void setCustomPapersPath(std::string path) {
    customPapers().set(std::move(path));
}

std::vector<Value::Dictionary> paperInfo() {
    std::vector<Value::Dictionary> papers;
    // ISO 216: A and B series from their defined millimetre sizes.
    const double aSeries[][2] = {{841, 1189}, {594, 841}, {420, 594}, {297, 420}, {210, 297}, {148, 210}, {105, 148}};
    const double bSeries[][2] = {{1000, 1414}, {707, 1000}, {500, 707}, {353, 500}, {250, 353}, {176, 250}, {125, 176}};
    for (int i = 0; i < 7; ++i) {
        const std::string index = std::to_string(i);
        papers.push_back(paperEntry("A" + index, "iso-a" + index, aSeries[i][0], aSeries[i][1]));
    }
    for (int i = 0; i < 7; ++i) {
        const std::string index = std::to_string(i);
        papers.push_back(paperEntry("B" + index, "iso-b" + index, bSeries[i][0], bSeries[i][1]));
    }
    papers.push_back(paperEntry("US Letter", "na-letter", 215.9, 279.4));
    papers.push_back(paperEntry("US Legal", "na-legal", 215.9, 355.6));
    papers.push_back(paperEntry("Envelope DL", "iso-dl", 110, 220));
    papers.push_back(paperEntry("Envelope C5", "iso-c5", 162, 229));
    papers.push_back(paperEntry("Envelope C4", "iso-c4", 229, 324));
    papers.push_back(paperEntry("Envelope #10", "na-number-10", 104.775, 241.3));
    if (const std::optional<std::string> text = readWholeFile(customPapersPath())) {
        const std::optional<Value> custom = Value::fromPropertyList(Bytes(text->begin(), text->end()));
        if (custom && custom->array() != nullptr) {
            for (const Value& entry : *custom->array()) {
                const double width = entry["width"].toDouble();
                const double height = entry["height"].toDouble();
                if (width > 0.0 && height > 0.0 && std::isfinite(width) && std::isfinite(height)) {
                    papers.push_back({{"paper_name", Value(entry["localised_paper_name"].toString())},
                                      {"paper_identifier", Value(entry["localised_paper_name"].toString())},
                                      {"paper_size", Value(stringFromSize({width, height}))},
                                      {"printable_margins", Value(stringFromRect({}))}});
                }
            }
        }
    }
    return papers;
}

std::string paperName(Size size) {
    const double width = std::round(size.width);
    const double height = std::round(size.height);
    for (const Value::Dictionary& paper : paperInfo()) {
        const std::optional<Size> paperSize = sizeFromString(paper.at("paper_size").toString());
        if (paperSize && std::abs(paperSize->width - width) <= 4.0 && std::abs(paperSize->height - height) <= 4.0) {
            return paper.at("paper_name").toString();
        }
    }
    return localizedString("custom");
}

std::optional<Size> paperSizeNamed(std::string_view nameOrSize) {
    if (!nameOrSize.empty() && nameOrSize.front() == '{') {
        const std::optional<Size> size = sizeFromString(nameOrSize);
        return size && size->width > 0.0 && size->height > 0.0 ? size : std::nullopt;
    }
    const auto folded = [](std::string_view text) {
        std::string result;
        for (const char c : text) {
            if (c != ' ' && c != '-' && c != '_') {
                result += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
            }
        }
        return result;
    };
    const std::string wanted = folded(nameOrSize);
    for (const Value::Dictionary& paper : paperInfo()) {
        if (folded(paper.at("paper_name").toString()) == wanted ||
            folded(paper.at("paper_identifier").toString()) == wanted ||
            folded(paper.at("paper_identifier").toString()) == "na" + wanted) {
            return sizeFromString(paper.at("paper_size").toString());
        }
    }
    return std::nullopt;
}

}  // namespace brassline
