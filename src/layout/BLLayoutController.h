#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/KeyedArchive.h"
#include "layout/LayoutArchive.h"
#include "model/NotificationCenter.h"

namespace brassline {

class BLLayout;

// The working copy of one layout, without a window: its page and section records, the
// caches of archived copies that documents are set from, and page setup. Main thread.
// Saving writes the storage's bytes; saving the company file stays with the caller.
class BLLayoutController : public Object {
public:
    BLLayoutController();
    ~BLLayoutController() override;
    BLLayoutController(const BLLayoutController&) = delete;
    BLLayoutController& operator=(const BLLayoutController&) = delete;

    // The 15 section identifiers in table order.
    static const std::vector<std::string>& tableOrder();

    BLLayout* layout() const { return m_layout; }
    // Saves the previous layout if needed, then loads this one (a layout without storage
    // gets one with the default layout, localised).
    void setLayout(BLLayout* layout);
    // Restores an archive. False when the bytes didn't decode (`lastError` says why): the
    // layout is then empty, with the sections rebuilt and no pages.
    bool loadGT3Layout(const Bytes& data);
    // Converts the older "design" form (an archived list of page records, one of which,
    // "table", holds the sections as subviews). False when nothing could be read.
    bool importGT2Layout(const Bytes& data);
    // Loads the default layout for the paper of the current locale.
    void loadDummy();
    Bytes layoutData() const;
    // Writes the storage when `changed` and the content differs from the stored one.
    void saveIfNeeded();
    bool sameToOldData() const;
    void clearCache();
    const std::string& lastError() const { return m_lastError; }

    const std::vector<LayoutRecord>& pageViews() const { return m_pageViews; }
    const std::vector<LayoutRecord>& tableViews() const { return m_tableViews; }
    void setPageViews(std::vector<LayoutRecord> records);
    void setTableViews(std::vector<LayoutRecord> records);

    // Fresh private copies for a document; never nullptr (empty stand-ins when nothing
    // matches). The caller owns and may change them.
    std::shared_ptr<BLLayoutPageView> pageViewForIdentifier(const std::string& identifier);
    std::shared_ptr<BLLayoutPageView> pageViewForUID(const std::string& uid);
    std::shared_ptr<BLLayoutTableSectionView> tableSectionViewForIdentifier(const std::string& identifier);

    Size paperSize() const;
    void setPaperSize(Size size);
    void addPage();
    void deletePage(const std::string& identifier);

    bool changed() const { return m_changed; }
    void setChanged(bool changed) { m_changed = changed; }
    bool editingMode() const { return m_editingMode; }
    void setEditingMode(bool editing);
    bool showTable() const { return m_showTable; }
    void setShowTable(bool show) { m_showTable = show; }
    bool preview() const { return m_preview; }
    // In editing: the section records with `showTable`, else the page records; outside
    // editing the document's rows, which the pagination pass supplies (empty here).
    const std::vector<LayoutRecord>& displayObjects() const;

    std::vector<std::shared_ptr<BLColor>> collectColors() const;
    // The distinct colours, by their text.
    std::vector<std::shared_ptr<BLColor>> colorPalette() const;
    std::vector<std::string> allStrings() const;
    std::string collectClasses() const;
    std::vector<std::string> fontNames() const;

    // Listens to the notifications that lead to a refresh; stops in the destructor.
    void startObserving(NotificationCenter& center);
    // Reloads from the storage when a notification concerns this layout.
    void refresh(const Notification& notification);

    Value valueForKey(std::string_view key) const override;
    std::string_view className() const override { return "BLLayoutController"; }

private:
    void forEachView(const std::function<void(BLView&)>& visit) const;
    std::vector<Value> compareList(const std::vector<LayoutRecord>& records) const;
    ViewPtr cachedCopy(std::map<std::string, Value>& cache, const std::string& key,
                       const std::function<const LayoutRecord*()>& find, bool asPage);

    BLLayout* m_layout = nullptr;
    std::vector<LayoutRecord> m_pageViews;
    std::vector<LayoutRecord> m_tableViews;
    // The archives of the copies, kept as read property lists: a copy skips the parse.
    std::map<std::string, Value> m_cachedPageViews;
    std::map<std::string, Value> m_cachedTableViews;
    bool m_changed = false;
    bool m_editingMode = false;
    bool m_showTable = false;
    bool m_preview = true;
    std::string m_lastError;
    NotificationCenter* m_center = nullptr;
    std::vector<NotificationCenter::Token> m_tokens;
};

}  // namespace brassline
