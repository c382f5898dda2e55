#include "layout/BLLayoutEditingView.h"

namespace brassline {

void BLLayoutEditingView::encodeWithCoder(KeyedEncoder& coder) const {
    BLView::encodeWithCoder(coder);
    if (!m_identifier.empty()) {
        coder.encodeString(m_identifier, "identifier");
    }
}

void BLLayoutEditingView::initWithCoder(KeyedDecoder& coder) {
    BLView::initWithCoder(coder);
    // Older archives hold numbers or other objects here; only text names a section.
    const Value identifier = coder.decodeValueForKey("identifier");
    m_identifier = identifier.string() != nullptr ? *identifier.string() : identifier.toString();
}

void BLLayoutTableView::encodeWithCoder(KeyedEncoder& coder) const {
    BLLayoutEditingView::encodeWithCoder(coder);
    if (m_backgroundColor) {
        coder.encodeObject(m_backgroundColor.get(), "backgroundColor");
    }
    coder.encodeBool(m_summaryAtBottom, "summaryAtBottom");
    coder.encodeBool(m_summarySeparated, "summarySeparated");
    coder.encodeBool(m_useBackground, "useBackground");
    coder.encodeBool(m_frameLocked, "frameLocked");
    coder.encodeFloat(m_lineInsetLeft, "lineInsetLeft");
    coder.encodeFloat(m_lineInsetRight, "lineInsetRight");
}

void BLLayoutTableView::initWithCoder(KeyedDecoder& coder) {
    BLLayoutEditingView::initWithCoder(coder);
    m_backgroundColor = decodeColor(coder, "backgroundColor");
    m_summaryAtBottom = coder.decodeBoolForKey("summaryAtBottom");
    m_summarySeparated = coder.decodeBoolForKey("summarySeparated");
    m_useBackground = coder.decodeBoolForKey("useBackground");
    m_frameLocked = coder.decodeBoolForKey("frameLocked");
    m_lineInsetLeft = coder.decodeFloatForKey("lineInsetLeft");
    m_lineInsetRight = coder.decodeFloatForKey("lineInsetRight");
}

Value::Dictionary BLLayoutTableView::compareDictionary() const {
    Value::Dictionary result = BLLayoutEditingView::compareDictionary();
    addColor(result, "backgroundColor", m_backgroundColor);
    result.emplace("summaryAtBottom", Value(m_summaryAtBottom));
    result.emplace("summarySeparated", Value(m_summarySeparated));
    result.emplace("useBackground", Value(m_useBackground));
    result.emplace("frameLocked", Value(m_frameLocked));
    result.emplace("lineInsetLeft", Value(m_lineInsetLeft));
    result.emplace("lineInsetRight", Value(m_lineInsetRight));
    return result;
}

void BLLayoutTableView::collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const {
    if (m_backgroundColor) {
        colors.push_back(m_backgroundColor);
    }
    BLLayoutEditingView::collectColors(colors);
}

void BLLayoutTableView::replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) {
    replaceColorIn(m_backgroundColor, match, replacement);
    BLLayoutEditingView::replaceColor(match, replacement);
}

void BLLayoutTableView::takeSettingsFrom(const BLLayoutTableView& other) {
    m_useBackground = other.m_useBackground;
    m_backgroundColor = other.m_backgroundColor;
    m_summaryAtBottom = other.m_summaryAtBottom;
    m_summarySeparated = other.m_summarySeparated;
    m_lineInsetLeft = other.m_lineInsetLeft;
    m_lineInsetRight = other.m_lineInsetRight;
}

}  // namespace brassline
