#include "layout/BLLayoutController.h"

#include <algorithm>
#include <set>

#include "core/Localization.h"
#include "core/Log.h"
#include "core/UniqueId.h"
#include "layout/BLLayoutTextView.h"
#include "layout/DefaultLayout.h"
#include "layout/LayoutClasses.h"
#include "layout/LayoutStorageRules.h"
#include "model/ManagedObjectContext.h"
#include "model/UndoManager.h"
#include "model/entities/BLLayout.h"
#include "model/entities/BLLayoutStorage.h"
#include "store/UndoSuspension.h"

namespace brassline {

namespace {

constexpr const char* kSyncLayout = "BLSyncLayout";

// What a page request answers when no page matches: a large page that is all table.
std::shared_ptr<BLLayoutPageView> emptyPageView() {
    auto page = std::make_shared<BLLayoutPageView>();
    page->setFrame({0.0, 0.0, 800.0, 500.0});
    auto table = std::make_shared<BLLayoutTableView>();
    table->setFrame(page->frame());
    page->addSubview(std::move(table));
    return page;
}

}  // namespace

BLLayoutController::BLLayoutController() {
    registerLayoutClasses();
}

BLLayoutController::~BLLayoutController() {
    if (m_center != nullptr) {
        for (const NotificationCenter::Token token : m_tokens) {
            m_center->removeObserver(token);
        }
    }
}

const std::vector<std::string>& BLLayoutController::tableOrder() {
    static const std::vector<std::string> order = {"lead",           "header", "item",     "title",
                                                   "options",        "notes",  "subtotal", "discount",
                                                   "partialinvoice", "net",    "tax",      "totalBeforePayments",
                                                   "payment",        "total",  "footer"};
    return order;
}

void BLLayoutController::setLayout(BLLayout* layout) {
    if (layout != nullptr && m_layout != nullptr) {
        if (ManagedObjectContext* context = m_layout->managedObjectContext();
            context != nullptr && context->undoManager() != nullptr) {
            context->undoManager()->removeAllActions();
        }
        saveIfNeeded();
    }
    m_layout = layout;
    clearCache();
    if (layout == nullptr) {
        m_pageViews.clear();
        m_tableViews.clear();
        return;
    }
    if (BLLayoutStorage* storage = layout->storage()) {
        loadGT3Layout(storage->data() != nullptr ? *storage->data() : Bytes());
        return;
    }
    createNewStorage(*layout);
    BLLayoutStorage* storage = layout->storage();
    loadGT3Layout(storage != nullptr && storage->data() != nullptr ? *storage->data() : Bytes());
}

bool BLLayoutController::loadGT3Layout(const Bytes& data) {
    clearCache();
    RestoredLayout restored;
    {
        // The load's own changes (colours, migrations) are no step to undo.
        const UndoSuspension suspension(m_layout != nullptr ? m_layout->managedObjectContext() : nullptr);
        restored = restoreLayoutArchive(data);
    }
    m_lastError = std::move(restored.error);
    m_pageViews = std::move(restored.archive.pages);
    m_tableViews = std::move(restored.archive.tableSections);
    m_changed = m_editingMode;
    return m_lastError.empty();
}

bool BLLayoutController::importGT2Layout(const Bytes& data) {
    registerLayoutClasses();
    clearCache();
    std::string error;
    const std::optional<KeyedNode> root = KeyedUnarchiver::unarchiveNodeWithData(data, &error);
    if (!root || root->kind != KeyedNode::Kind::Array) {
        m_lastError = root ? "Layout: the older layout holds no list of pages" : error;
        logMessage("%@", m_lastError);
        return false;
    }
    std::vector<LayoutRecord> records = layoutRecordsFromNode(&*root);
    std::vector<LayoutRecord> sections;
    std::vector<LayoutRecord> pages;
    const BLLayoutTableView* tableSettings = nullptr;
    for (const LayoutRecord& record : records) {
        if (matchesLike(record.name, "table") && record.view) {
            tableSettings = dynamic_cast<const BLLayoutTableView*>(record.view.get());
            for (const ViewPtr& view : std::vector<ViewPtr>(record.view->subviews())) {
                if (auto section = std::dynamic_pointer_cast<BLLayoutTableSectionView>(view)) {
                    section->removeFromSuperview();
                    sections.push_back({section, section->identifier(), section->identifier(), {}, {}});
                }
            }
        }
    }
    const auto position = [](const LayoutRecord& record) {
        const auto& order = tableOrder();
        return std::find(order.begin(), order.end(), record.identifier) - order.begin();
    };
    std::stable_sort(sections.begin(), sections.end(),
                     [&](const LayoutRecord& a, const LayoutRecord& b) { return position(a) < position(b); });
    for (LayoutRecord& record : sections) {
        record.view->adjustToSubviews();
        record.view->setupDefaultsForDocument(nullptr);
    }
    for (LayoutRecord& record : records) {
        auto page = std::dynamic_pointer_cast<BLLayoutPageView>(record.view);
        if (matchesLike(record.name, "table") || !page) {
            continue;
        }
        page->migrateLegacy();
        page->setupDefaultsForDocument(nullptr);
        if (BLLayoutTableView* table = page->tableView()) {
            if (table->height() < 30.0) {
                table->removeFromSuperview();
            } else if (tableSettings != nullptr) {
                table->setUseBackground(tableSettings->useBackground());
                table->setBackgroundColor(tableSettings->backgroundColor());
                table->setSummaryAtBottom(tableSettings->summaryAtBottom());
                table->setSummarySeparated(tableSettings->summarySeparated());
            }
        }
        page->setIdentifier(record.name);
        record.identifier = record.name;
        pages.push_back(std::move(record));
    }
    m_pageViews = std::move(pages);
    m_tableViews = std::move(sections);
    m_changed = true;
    return true;
}

void BLLayoutController::loadDummy() {
    const std::optional<Bytes> data = defaultLayoutData(paperUsesLetter(currentRegion()));
    loadGT3Layout(data.value_or(Bytes()));
}

Bytes BLLayoutController::layoutData() const {
    return writeLayoutArchive({m_pageViews, m_tableViews});
}

std::vector<Value> BLLayoutController::compareList(const std::vector<LayoutRecord>& records) const {
    std::vector<Value> list;
    for (const LayoutRecord& record : records) {
        list.emplace_back(record.view ? Value(record.view->compareDictionary()) : Value());
    }
    return list;
}

bool BLLayoutController::sameToOldData() const {
    const BLLayoutStorage* storage = m_layout != nullptr ? m_layout->storage() : nullptr;
    if (storage == nullptr || storage->data() == nullptr || storage->data()->empty()) {
        return true;
    }
    const std::optional<LayoutArchive> stored = readLayoutArchive(*storage->data());
    if (!stored) {
        return false;
    }
    return compareList(stored->tableSections) == compareList(m_tableViews) &&
           compareList(stored->pages) == compareList(m_pageViews);
}

void BLLayoutController::saveIfNeeded() {
    if (!m_changed || m_layout == nullptr) {
        return;
    }
    if (sameToOldData()) {
        m_changed = false;
        return;
    }
    ManagedObjectContext* context = m_layout->managedObjectContext();
    UndoManager* undo = context != nullptr ? context->undoManager() : nullptr;
    if (undo != nullptr) {
        undo->setActionName(localizedString("layout modification"));
    }
    BLLayoutStorage* storage = m_layout->storage();
    if (storage == nullptr) {
        createNewStorage(*m_layout);
        storage = m_layout->storage();
    }
    if (storage != nullptr) {
        setLayoutStorageData(*storage, layoutData());
        setLayoutFontNames(*storage, fontNames());
    }
    m_layout->setClasses(collectClasses());
    NotificationCenter::defaultCenter().postNotificationName(kSyncLayout, this);
    m_changed = false;
}

void BLLayoutController::clearCache() {
    m_cachedPageViews.clear();
    m_cachedTableViews.clear();
}

void BLLayoutController::setPageViews(std::vector<LayoutRecord> records) {
    m_pageViews = std::move(records);
    clearCache();
}

void BLLayoutController::setTableViews(std::vector<LayoutRecord> records) {
    m_tableViews = std::move(records);
    clearCache();
}

ViewPtr BLLayoutController::cachedCopy(std::map<std::string, Value>& cache, const std::string& key,
                                       const std::function<const LayoutRecord*()>& find, bool asPage) {
    const auto copyOfArchive = [](const Value& plist) {
        return std::dynamic_pointer_cast<BLView>(KeyedUnarchiver::unarchiveArchivableWithPropertyList(plist));
    };
    if (const auto found = cache.find(key); found != cache.end()) {
        return copyOfArchive(found->second);
    }
    const LayoutRecord* record = find();
    if (record == nullptr || !record->view) {
        return nullptr;
    }
    // A page's copy carries the rendered backdrop and its form fields, not the PDF.
    auto* page = asPage ? dynamic_cast<BLLayoutPageView*>(record->view.get()) : nullptr;
    if (page != nullptr) {
        page->setEncodeImage(true);
    }
    const Bytes bytes = archiveOfView(*record->view);
    if (page != nullptr) {
        page->setEncodeImage(false);
    }
    std::optional<Value> plist = Value::fromPropertyList(bytes);
    if (!plist) {
        return nullptr;
    }
    ViewPtr copy = copyOfArchive(*plist);
    cache.insert_or_assign(key, std::move(*plist));
    return copy;
}

std::shared_ptr<BLLayoutPageView> BLLayoutController::pageViewForIdentifier(const std::string& identifier) {
    auto copy = std::dynamic_pointer_cast<BLLayoutPageView>(cachedCopy(
        m_cachedPageViews, identifier,
        [&]() -> const LayoutRecord* {
            for (const LayoutRecord& record : m_pageViews) {
                const auto* view = dynamic_cast<const BLLayoutEditingView*>(record.view.get());
                if (view != nullptr && matchesLike(view->identifier(), identifier)) {
                    return &record;
                }
            }
            return nullptr;
        },
        true));
    return copy ? copy : emptyPageView();
}

std::shared_ptr<BLLayoutPageView> BLLayoutController::pageViewForUID(const std::string& uid) {
    auto copy = std::dynamic_pointer_cast<BLLayoutPageView>(cachedCopy(
        m_cachedPageViews, "uid:" + uid,
        [&]() -> const LayoutRecord* {
            for (const LayoutRecord& record : m_pageViews) {
                if (matchesLike(record.uid, uid)) {
                    return &record;
                }
            }
            return nullptr;
        },
        true));
    return copy ? copy : emptyPageView();
}

std::shared_ptr<BLLayoutTableSectionView> BLLayoutController::tableSectionViewForIdentifier(
    const std::string& identifier) {
    auto copy = std::dynamic_pointer_cast<BLLayoutTableSectionView>(cachedCopy(
        m_cachedTableViews, identifier,
        [&]() -> const LayoutRecord* {
            for (const LayoutRecord& record : m_tableViews) {
                if (matchesLike(record.lookupIdentifier(), identifier)) {
                    return &record;
                }
            }
            return nullptr;
        },
        false));
    if (copy) {
        return copy;
    }
    auto section = std::make_shared<BLLayoutTableSectionView>();
    section->setFrame({0.0, 0.0, 40.0, 40.0});
    return section;
}

Size BLLayoutController::paperSize() const {
    for (const LayoutRecord& record : m_pageViews) {
        if (record.view) {
            return record.view->frame().size();
        }
    }
    return kFallbackPaperSize;
}

void BLLayoutController::setPaperSize(Size size) {
    for (const LayoutRecord& record : m_pageViews) {
        if (record.view) {
            Rect frame = record.view->frame();
            frame.width = size.width;
            frame.height = size.height;
            record.view->setFrame(frame);
        }
    }
    if (m_layout != nullptr) {
        m_layout->setPaperFormat(stringFromSize(size));
    }
    clearCache();
    m_changed = true;
}

void BLLayoutController::addPage() {
    clearCache();
    if (m_pageViews.empty() || !m_pageViews.front().view) {
        return;
    }
    auto page = std::make_shared<BLLayoutPageView>();
    page->setFrame(m_pageViews.front().view->frame());
    const std::string name = formatMessage("extrapage_%@", static_cast<int64_t>(m_pageViews.size()));
    page->setIdentifier(name);
    const std::string uid = uniqueBase64String();
    page->setUid(uid);
    m_pageViews.push_back({page, name, name, uid, {}});
    m_changed = true;
}

void BLLayoutController::deletePage(const std::string& identifier) {
    clearCache();
    std::erase_if(m_pageViews, [&](const LayoutRecord& record) {
        const auto* view = dynamic_cast<const BLLayoutEditingView*>(record.view.get());
        return view != nullptr && matchesLike(view->identifier(), identifier);
    });
    m_changed = true;
}

void BLLayoutController::setEditingMode(bool editing) {
    if (m_editingMode) {
        m_changed = true;
    }
    clearCache();
    m_editingMode = editing;
    m_preview = !editing;
    if (!editing) {
        if (m_layout != nullptr && m_layout->managedObjectContext() != nullptr &&
            m_layout->managedObjectContext()->undoManager() != nullptr) {
            m_layout->managedObjectContext()->undoManager()->removeAllActions();
        }
        saveIfNeeded();
    }
}

const std::vector<LayoutRecord>& BLLayoutController::displayObjects() const {
    static const std::vector<LayoutRecord> none;
    if (!m_editingMode) {
        return none;
    }
    return m_showTable ? m_tableViews : m_pageViews;
}

void BLLayoutController::forEachView(const std::function<void(BLView&)>& visit) const {
    for (const auto* records : {&m_pageViews, &m_tableViews}) {
        for (const LayoutRecord& record : *records) {
            if (record.view) {
                visit(*record.view);
            }
        }
    }
}

std::vector<std::shared_ptr<BLColor>> BLLayoutController::collectColors() const {
    std::vector<std::shared_ptr<BLColor>> colors;
    forEachView([&](BLView& view) { view.collectColors(colors); });
    return colors;
}

std::vector<std::shared_ptr<BLColor>> BLLayoutController::colorPalette() const {
    std::vector<std::shared_ptr<BLColor>> palette;
    std::set<std::string> seen;
    for (auto& color : collectColors()) {
        const std::string key = color->hexString();
        if (!key.empty() && seen.insert(key).second) {
            palette.push_back(std::move(color));
        }
    }
    return palette;
}

std::vector<std::string> BLLayoutController::allStrings() const {
    std::vector<std::string> strings;
    forEachView([&](BLView& view) { view.collectStrings(strings); });
    return strings;
}

std::string BLLayoutController::collectClasses() const {
    std::set<std::string> classes;
    forEachView([&](BLView& view) { view.collectClasses(classes); });
    std::string joined;
    for (const std::string& name : classes) {
        joined += (joined.empty() ? "" : ",") + name;
    }
    return joined;
}

std::vector<std::string> BLLayoutController::fontNames() const {
    std::set<std::string> fonts;
    forEachView([&](BLView& view) { view.addFonts(fonts); });
    return {fonts.begin(), fonts.end()};
}

void BLLayoutController::startObserving(NotificationCenter& center) {
    m_center = &center;
    for (const char* name :
         {"BLLayoutStoreChanged", "BLDocumentSent", "BLCustomValueChanged", "BLDocumentsChanged", "BLRefreshPreview",
          "BLItemChanged", "BLCustomFieldChanged", "WillSync", "BLToolBarTrigger", "BLSyncLayout", "UpdatePreview",
          "UpdatePreviewAfterImport", "ZPTokenFieldDidChange", "colorPaletteChanged"}) {
        m_tokens.push_back(center.addObserver(name, nullptr, [this](const Notification& note) { refresh(note); }));
    }
}

void BLLayoutController::refresh(const Notification& notification) {
    if (m_layout == nullptr || notification.object == this) {
        return;
    }
    if (notification.name == kSyncLayout) {
        // Another controller of the same layout saved: take its state.
        if (const auto* other = dynamic_cast<const BLLayoutController*>(notification.object);
            other != nullptr && other->m_layout == m_layout) {
            loadGT3Layout(other->layoutData());
        }
        return;
    }
    const BLLayoutStorage* storage = m_layout->storage();
    bool concernsUs = notification.userInfo.empty();
    for (const auto& [key, value] : notification.userInfo) {
        if (const Value::Array* objects = value.array()) {
            for (const Value& object : *objects) {
                concernsUs = concernsUs || object.object() == m_layout ||
                             (storage != nullptr && object.object() == static_cast<const Object*>(storage));
            }
        }
    }
    if (concernsUs && storage != nullptr && !m_editingMode) {
        loadGT3Layout(storage->data() != nullptr ? *storage->data() : Bytes());
    }
}

Value BLLayoutController::valueForKey(std::string_view key) const {
    if (key == "changed") {
        return Value(m_changed);
    }
    if (key == "editingMode") {
        return Value(m_editingMode);
    }
    return Value();
}

}  // namespace brassline
