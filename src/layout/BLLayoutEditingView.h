#pragma once

#include "layout/BLView.h"

namespace brassline {

class BLLayoutTableView;
class BLLayoutController;

// An element with an identifier ("identifier"): pages, sections and tables.
class BLLayoutEditingView : public BLView {
public:
    explicit BLLayoutEditingView(std::string className = "BLLayoutEditingView") : BLView(std::move(className)) {}
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;

    const std::string& identifier() const { return m_identifier; }
    void setIdentifier(std::string identifier) { m_identifier = std::move(identifier); }
    // Not stored.
    const std::string& uid() const { return m_uid; }
    void setUid(std::string uid) { m_uid = std::move(uid); }
    Object* representedObject() const { return m_representedObject; }
    void setRepresentedObject(Object* object) { m_representedObject = object; }

private:
    std::string m_identifier;
    std::string m_uid;
    Object* m_representedObject = nullptr;
};

// Pages and sections: elements can be pasted into them.
class BLLayoutPastingView : public BLLayoutEditingView {
public:
    explicit BLLayoutPastingView(std::string className) : BLLayoutEditingView(std::move(className)) {}
    int64_t layoutGrid() const { return m_layoutGrid; }
    void setLayoutGrid(int64_t grid) { m_layoutGrid = grid; }

private:
    int64_t m_layoutGrid = 0;
};

// The area of a page in which the document table runs, and its table-wide settings.
class BLLayoutTableView : public BLLayoutEditingView {
public:
    explicit BLLayoutTableView(std::string className = "BLLayoutTableView")
        : BLLayoutEditingView(std::move(className)) {}
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;
    Value::Dictionary compareDictionary() const override;
    void collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const override;
    void replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) override;

    const std::shared_ptr<BLColor>& backgroundColor() const { return m_backgroundColor; }
    void setBackgroundColor(std::shared_ptr<BLColor> color) { m_backgroundColor = std::move(color); }
    bool summaryAtBottom() const { return m_summaryAtBottom; }
    void setSummaryAtBottom(bool value) { m_summaryAtBottom = value; }
    bool summarySeparated() const { return m_summarySeparated; }
    void setSummarySeparated(bool value) { m_summarySeparated = value; }
    bool useBackground() const { return m_useBackground; }
    void setUseBackground(bool value) { m_useBackground = value; }
    bool frameLocked() const { return m_frameLocked; }
    void setFrameLocked(bool value) { m_frameLocked = value; }
    double lineInsetLeft() const { return m_lineInsetLeft; }
    void setLineInsetLeft(double value) { m_lineInsetLeft = value; }
    double lineInsetRight() const { return m_lineInsetRight; }
    void setLineInsetRight(double value) { m_lineInsetRight = value; }
    // The table-wide settings of another table (what a page's preview hands its table).
    void takeSettingsFrom(const BLLayoutTableView& other);

private:
    std::shared_ptr<BLColor> m_backgroundColor;
    bool m_summaryAtBottom = false;
    bool m_summarySeparated = false;
    bool m_useBackground = false;
    bool m_frameLocked = false;
    double m_lineInsetLeft = 0.0;
    double m_lineInsetRight = 0.0;
};

// The table area as a stored page holds it; in the editor it shows all sections stacked.
class BLLayoutTablePreviewView : public BLLayoutTableView {
public:
    explicit BLLayoutTablePreviewView(std::string className = "BLLayoutTablePreviewView")
        : BLLayoutTableView(std::move(className)) {}
};

}  // namespace brassline
