#pragma once

#include "layout/BLLayoutEditingView.h"

namespace brassline {

// One row template of the document table. Its elements are its subviews; its height
// follows them. The stored defaults are those a section without the key takes.
class BLLayoutTableSectionView : public BLLayoutPastingView {
public:
    explicit BLLayoutTableSectionView(std::string className = "BLLayoutTableSectionView");
    void encodeWithCoder(KeyedEncoder& coder) const override;
    void initWithCoder(KeyedDecoder& coder) override;

    // The largest (top + displayHeight) of the subviews plus spaceAfterSize, rounded up
    // with a 32-bit ceil; 0 without subviews.
    double displayHeight() const override;
    Rect displayFrame() const override;
    void adjustToSubviews() override;
    void setHeight(double value) override;
    void addSubview(ViewPtr view) override;
    void addSubviewWithoutResizing(ViewPtr view);
    void verticalCenter();
    Value::Dictionary compareDictionary() const override;
    void collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const override;
    void replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) override;
    // Payment elements only in "total" and "footer".
    bool canTakeObject(const BLView& view) const;

    double lineBeforeSize() const { return m_lineBeforeSize; }
    void setLineBeforeSize(double value);
    void setLineBeforeSizeInternal(double value) { m_lineBeforeSize = value; }
    double lineAfterSize() const { return m_lineAfterSize; }
    void setLineAfterSize(double value);
    void setLineAfterSizeInternal(double value) { m_lineAfterSize = value; }
    double spaceAfterSize() const { return m_spaceAfterSize; }
    void setSpaceAfterSize(double value);
    const std::shared_ptr<BLColor>& lineBeforeColor() const { return m_lineBeforeColor; }
    void setLineBeforeColor(std::shared_ptr<BLColor> color) { m_lineBeforeColor = std::move(color); }
    const std::shared_ptr<BLColor>& lineAfterColor() const { return m_lineAfterColor; }
    void setLineAfterColor(std::shared_ptr<BLColor> color) { m_lineAfterColor = std::move(color); }
    const Value& lineBeforeStyle() const { return m_lineBeforeStyle; }
    void setLineBeforeStyle(Value dashes) { m_lineBeforeStyle = std::move(dashes); }
    const Value& lineAfterStyle() const { return m_lineAfterStyle; }
    void setLineAfterStyle(Value dashes) { m_lineAfterStyle = std::move(dashes); }
    bool alternate() const { return m_alternate; }
    void setAlternate(bool value) { m_alternate = value; }
    const std::shared_ptr<BLColor>& alternateColor() const { return m_alternateColor; }
    void setAlternateColor(std::shared_ptr<BLColor> color) { m_alternateColor = std::move(color); }
    const std::shared_ptr<BLColor>& backgroundColor() const { return m_backgroundColor; }
    void setBackgroundColor(std::shared_ptr<BLColor> color) { m_backgroundColor = std::move(color); }
    bool useBackground() const { return m_useBackground; }
    void setUseBackground(bool value) { m_useBackground = value; }
    bool pageBreakBefore() const { return m_pageBreakBefore; }
    void setPageBreakBefore(bool value) { m_pageBreakBefore = value; }
    bool verticalCenterContent() const { return m_verticalCenterContent; }
    void setVerticalCenterContent(bool value) { m_verticalCenterContent = value; }
    double lineInsetLeft() const { return m_lineInsets[0]; }
    double lineInsetRight() const { return m_lineInsets[1]; }
    double lineInsetTop() const { return m_lineInsets[2]; }
    double lineInsetBottom() const { return m_lineInsets[3]; }
    void setLineInsets(double left, double right, double top, double bottom) {
        m_lineInsets[0] = left;
        m_lineInsets[1] = right;
        m_lineInsets[2] = top;
        m_lineInsets[3] = bottom;
    }
    // Not stored.
    int64_t alternateIndex() const { return m_alternateIndex; }
    void setAlternateIndex(int64_t index) { m_alternateIndex = index; }
    bool disableResizing() const { return m_disableResizing; }
    void setDisableResizing(bool value) { m_disableResizing = value; }

private:
    double m_lineBeforeSize = 0.0;
    double m_lineAfterSize = 0.0;
    double m_spaceAfterSize = 5.0;
    std::shared_ptr<BLColor> m_lineBeforeColor;
    std::shared_ptr<BLColor> m_lineAfterColor;
    Value m_lineBeforeStyle;
    Value m_lineAfterStyle;
    bool m_alternate = false;
    std::shared_ptr<BLColor> m_alternateColor;
    std::shared_ptr<BLColor> m_backgroundColor;
    bool m_useBackground = false;
    bool m_pageBreakBefore = false;
    bool m_verticalCenterContent = false;
    double m_lineInsets[4] = {0.0, 0.0, 0.0, 0.0};
    int64_t m_alternateIndex = 0;
    bool m_disableResizing = false;
};

}  // namespace brassline
