#include "layout/BLLayoutTableSectionView.h"

#include <cmath>
#include <cstdio>

namespace brassline {

BLLayoutTableSectionView::BLLayoutTableSectionView(std::string className) : BLLayoutPastingView(std::move(className)) {}

void BLLayoutTableSectionView::encodeWithCoder(KeyedEncoder& coder) const {
    BLLayoutPastingView::encodeWithCoder(coder);
    coder.encodeFloat(m_lineBeforeSize, "lineBeforeSize");
    coder.encodeFloat(m_lineAfterSize, "lineAfterSize");
    coder.encodeFloat(m_spaceAfterSize, "spaceAfterSize");
    if (m_lineBeforeColor) {
        coder.encodeObject(m_lineBeforeColor.get(), "lineBeforeColor");
    }
    if (m_lineAfterColor) {
        coder.encodeObject(m_lineAfterColor.get(), "lineAfterColor");
    }
    if (!m_lineBeforeStyle.isNull()) {
        coder.encodeValue(m_lineBeforeStyle, "lineBeforeStyle");
    }
    if (!m_lineAfterStyle.isNull()) {
        coder.encodeValue(m_lineAfterStyle, "lineAfterStyle");
    }
    coder.encodeBool(m_alternate, "alternate");
    if (m_alternateColor) {
        coder.encodeObject(m_alternateColor.get(), "alternateColor");
    }
    if (m_backgroundColor) {
        coder.encodeObject(m_backgroundColor.get(), "backgroundColor");
    }
    coder.encodeBool(m_useBackground, "useBackground");
    coder.encodeBool(m_pageBreakBefore, "pageBreakBefore");
    coder.encodeBool(m_verticalCenterContent, "verticalCenterContent");
    coder.encodeFloat(m_lineInsets[0], "lineInsetLeft");
    coder.encodeFloat(m_lineInsets[1], "lineInsetRight");
    coder.encodeFloat(m_lineInsets[2], "lineInsetTop");
    coder.encodeFloat(m_lineInsets[3], "lineInsetBottom");
}

void BLLayoutTableSectionView::initWithCoder(KeyedDecoder& coder) {
    BLLayoutPastingView::initWithCoder(coder);
    m_lineBeforeSize = coder.decodeFloatForKey("lineBeforeSize");
    m_lineAfterSize = coder.decodeFloatForKey("lineAfterSize");
    m_spaceAfterSize = coder.containsValueForKey("spaceAfterSize") ? coder.decodeFloatForKey("spaceAfterSize") : 5.0;
    m_lineBeforeColor = decodeColor(coder, "lineBeforeColor");
    m_lineAfterColor = decodeColor(coder, "lineAfterColor");
    m_lineBeforeStyle = coder.decodeValueForKey("lineBeforeStyle");
    m_lineAfterStyle = coder.decodeValueForKey("lineAfterStyle");
    m_alternate = coder.decodeBoolForKey("alternate");
    m_alternateColor = decodeColor(coder, "alternateColor");
    m_backgroundColor = decodeColor(coder, "backgroundColor");
    m_useBackground = coder.decodeBoolForKey("useBackground");
    if (coder.containsValueForKey("pageBreakBefore")) {
        m_pageBreakBefore = coder.decodeBoolForKey("pageBreakBefore");
    }
    m_verticalCenterContent = coder.decodeBoolForKey("verticalCenterContent");
    m_lineInsets[0] = coder.decodeFloatForKey("lineInsetLeft");
    m_lineInsets[1] = coder.decodeFloatForKey("lineInsetRight");
    m_lineInsets[2] = coder.decodeFloatForKey("lineInsetTop");
    m_lineInsets[3] = coder.decodeFloatForKey("lineInsetBottom");
}

double BLLayoutTableSectionView::displayHeight() const {
    if (m_subviews.empty()) {
        return 0.0;
    }
    double lowest = 0.0;
    for (const ViewPtr& view : m_subviews) {
        lowest = std::max(lowest, view->top() + view->displayHeight());
    }
    return std::ceil(singlePrecision(lowest + m_spaceAfterSize));
}

Rect BLLayoutTableSectionView::displayFrame() const {
    // The space counts twice here; only the editor draws with this frame.
    return {0.0, 0.0, width(), displayHeight() + m_spaceAfterSize};
}

void BLLayoutTableSectionView::adjustToSubviews() {
    if (superview() == nullptr || m_disableResizing) {
        return;
    }
    const double wanted = m_subviews.empty() ? 20.0 : std::max(10.0, displayHeight() + m_spaceAfterSize);
    setHeight(wanted);
}

void BLLayoutTableSectionView::setHeight(double value) {
    BLLayoutPastingView::setHeight(value);
    if (m_verticalCenterContent) {
        verticalCenter();
    }
}

void BLLayoutTableSectionView::verticalCenter() {
    for (const ViewPtr& view : m_subviews) {
        view->setTop((height() - view->height()) * 0.5);
    }
}

void BLLayoutTableSectionView::addSubview(ViewPtr view) {
    BLLayoutPastingView::addSubview(std::move(view));
    adjustToSubviews();
}

void BLLayoutTableSectionView::addSubviewWithoutResizing(ViewPtr view) {
    BLLayoutPastingView::addSubview(std::move(view));
}

void BLLayoutTableSectionView::setLineBeforeSize(double value) {
    m_lineBeforeSize = value;
    adjustToSubviews();
}

void BLLayoutTableSectionView::setLineAfterSize(double value) {
    m_lineAfterSize = value;
    adjustToSubviews();
}

void BLLayoutTableSectionView::setSpaceAfterSize(double value) {
    m_spaceAfterSize = value;
    adjustToSubviews();
}

bool BLLayoutTableSectionView::canTakeObject(const BLView& view) const {
    if (!view.isKindOfClass("BLLayoutQRCodeView")) {
        return true;
    }
    return identifier() == "total" || identifier() == "footer";
}

Value::Dictionary BLLayoutTableSectionView::compareDictionary() const {
    Value::Dictionary result = BLLayoutPastingView::compareDictionary();
    addColor(result, "backgroundColor", m_backgroundColor);
    addColor(result, "alternateColor", m_alternateColor);
    addColor(result, "lineAfterColor", m_lineAfterColor);
    addColor(result, "lineBeforeColor", m_lineBeforeColor);
    const auto size = [](double value) {
        char buffer[32];
        std::snprintf(buffer, sizeof buffer, "%0.3f", value);
        return Value(std::string(buffer));
    };
    if (m_lineBeforeSize > 0.0) {
        result.emplace("lineBeforeSize", size(m_lineBeforeSize));
    }
    if (m_lineAfterSize > 0.0) {
        result.emplace("lineAfterSize", size(m_lineAfterSize));
    }
    const char* insetKeys[] = {"lineInsetLeft", "lineInsetRight", "lineInsetTop", "lineInsetBottom"};
    for (int i = 0; i < 4; ++i) {
        if (m_lineInsets[i] != 0.0) {
            result.emplace(insetKeys[i], Value(m_lineInsets[i]));
        }
    }
    result.emplace("useBackground", Value(m_useBackground));
    result.emplace("verticalCenterContent", Value(m_verticalCenterContent));
    result.emplace("lineAfterStyle", m_lineAfterStyle);
    result.emplace("lineBeforeStyle", m_lineBeforeStyle);
    return result;
}

void BLLayoutTableSectionView::collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const {
    for (const auto* color : {&m_backgroundColor, &m_alternateColor, &m_lineBeforeColor, &m_lineAfterColor}) {
        if (*color) {
            colors.push_back(*color);
        }
    }
    BLLayoutPastingView::collectColors(colors);
}

void BLLayoutTableSectionView::replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) {
    for (auto* color : {&m_backgroundColor, &m_alternateColor, &m_lineBeforeColor, &m_lineAfterColor}) {
        replaceColorIn(*color, match, replacement);
    }
    BLLayoutPastingView::replaceColor(match, replacement);
}

}  // namespace brassline
