#include "layout/BLLayoutElementView.h"

#include "core/Localization.h"
#include "core/Log.h"

namespace brassline {

void BLLayoutElementView::encodeWithCoder(KeyedEncoder& coder) const {
    BLView::encodeWithCoder(coder);
    coder.encodeBool(m_frameLocked, "frameLocked");
}

void BLLayoutElementView::initWithCoder(KeyedDecoder& coder) {
    BLView::initWithCoder(coder);
    m_frameLocked = coder.decodeBoolForKey("frameLocked");
}

namespace {

template <typename Type>
std::shared_ptr<Type> decodeTyped(KeyedDecoder& coder, std::string_view key) {
    return coder.containsValueForKey(key) ? std::dynamic_pointer_cast<Type>(coder.decodeObjectForKey(key)) : nullptr;
}

void encodeIfSet(KeyedEncoder& coder, const KeyedArchivable* object, std::string_view key) {
    if (object != nullptr) {
        coder.encodeObject(object, key);
    }
}

std::string pathText(const std::shared_ptr<BLBezierPath>& path) {
    return path ? md5Hex(path->fields().bytes("NSSegments")) : std::string();
}

}  // namespace

// Paths.

void BLLayoutPathView::encodeWithCoder(KeyedEncoder& coder) const {
    BLLayoutElementView::encodeWithCoder(coder);
    encodeIfSet(coder, path.get(), "path");
    encodeIfSet(coder, clippingPath.get(), "clippingPath");
    encodeIfSet(coder, fillColor.get(), "fillColor");
    encodeIfSet(coder, strokeColor.get(), "strokeColor");
    encodeIfSet(coder, image.get(), "image");
    coder.encodeFloat(spacing, "spacing");
    coder.encodeFloat(lineWidth, "lineWidth");
    coder.encodeBool(wrapText, "wrapText");
    coder.encodeBool(useFillColor, "useFillColor");
    coder.encodeBool(useStrokeColor, "useStrokeColor");
}

void BLLayoutPathView::initWithCoder(KeyedDecoder& coder) {
    BLLayoutElementView::initWithCoder(coder);
    path = decodeTyped<BLBezierPath>(coder, "path");
    clippingPath = decodeTyped<BLBezierPath>(coder, "clippingPath");
    fillColor = decodeColor(coder, "fillColor");
    strokeColor = decodeColor(coder, "strokeColor");
    image = decodeTyped<BLImage>(coder, "image");
    spacing = coder.decodeFloatForKey("spacing");
    lineWidth = coder.containsValueForKey("lineWidth") ? coder.decodeFloatForKey("lineWidth") : 1.0;
    wrapText = coder.decodeBoolForKey("wrapText");
    useFillColor = coder.decodeBoolForKey("useFillColor");
    useStrokeColor = coder.decodeBoolForKey("useStrokeColor");
    if (coder.containsValueForKey("pagesmith.stringData")) {
        legacyStringData = coder.decodeBytesForKey("pagesmith.stringData");
    }
}

Rect BLLayoutPathView::spacingRect() const {
    return wrapText ? frame().insetBy(-spacing, -spacing) : Rect{};
}

Value::Dictionary BLLayoutPathView::compareDictionary() const {
    Value::Dictionary result = BLLayoutElementView::compareDictionary();
    result.emplace("path", Value(pathText(path)));
    result.emplace("clippingPath", Value(pathText(clippingPath)));
    addColor(result, "fillColor", fillColor);
    addColor(result, "strokeColor", strokeColor);
    result.emplace("image", Value(image ? md5Hex(image->data()) : std::string()));
    result.emplace("spacing", Value(spacing));
    result.emplace("lineWidth", Value(lineWidth));
    result.emplace("wrapText", Value(wrapText));
    result.emplace("useFillColor", Value(useFillColor));
    result.emplace("useStrokeColor", Value(useStrokeColor));
    return result;
}

void BLLayoutPathView::collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const {
    for (const auto* color : {&fillColor, &strokeColor}) {
        if (*color) {
            colors.push_back(*color);
        }
    }
}

void BLLayoutPathView::replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) {
    replaceColorIn(fillColor, match, replacement);
    replaceColorIn(strokeColor, match, replacement);
}

// Rectangles.

void BLLayoutRectangleView::encodeWithCoder(KeyedEncoder& coder) const {
    BLLayoutElementView::encodeWithCoder(coder);
    encodeIfSet(coder, backgroundColor.get(), "backgroundColor");
}

void BLLayoutRectangleView::initWithCoder(KeyedDecoder& coder) {
    BLLayoutElementView::initWithCoder(coder);
    backgroundColor = decodeColor(coder, "backgroundColor");
}

Value::Dictionary BLLayoutRectangleView::compareDictionary() const {
    Value::Dictionary result = BLLayoutElementView::compareDictionary();
    addColor(result, "backgroundColor", backgroundColor);
    return result;
}

void BLLayoutRectangleView::collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const {
    if (backgroundColor) {
        colors.push_back(backgroundColor);
    }
}

void BLLayoutRectangleView::replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) {
    replaceColorIn(backgroundColor, match, replacement);
}

// SVG.

void BLLayoutSVGView::encodeWithCoder(KeyedEncoder& coder) const {
    BLLayoutElementView::encodeWithCoder(coder);
    if (!source.empty()) {
        coder.encodeString(source, "source");
    }
    if (!substitutes.isNull()) {
        coder.encodeValue(substitutes, "substitutes");
    }
}

void BLLayoutSVGView::initWithCoder(KeyedDecoder& coder) {
    BLLayoutElementView::initWithCoder(coder);
    source = coder.decodeStringForKey("source");
    substitutes = coder.decodeValueForKey("substitutes");
}

Value::Dictionary BLLayoutSVGView::compareDictionary() const {
    Value::Dictionary result = BLLayoutElementView::compareDictionary();
    result.emplace("source", Value(source));
    result.emplace("substitutes", substitutes);
    return result;
}

// Form fields.

void BLLayoutElementFormView::encodeWithCoder(KeyedEncoder& coder) const {
    BLLayoutElementView::encodeWithCoder(coder);
    coder.encodeBool(showOnInvoices, "showOnInvoices");
}

void BLLayoutElementFormView::initWithCoder(KeyedDecoder& coder) {
    BLLayoutElementView::initWithCoder(coder);
    showOnInvoices = coder.decodeBoolForKey("showOnInvoices");
}

Value::Dictionary BLLayoutElementFormView::compareDictionary() const {
    Value::Dictionary result = BLLayoutElementView::compareDictionary();
    result.emplace("showOnInvoices", Value(showOnInvoices));
    return result;
}

// Payment codes.

void BLLayoutQRCodeView::encodeWithCoder(KeyedEncoder& coder) const {
    BLLayoutElementView::encodeWithCoder(coder);
    coder.encodeValue(settings.isNull() ? Value(Value::Array{}) : settings, "settings");
    encodeIfSet(coder, color.get(), "color");
    coder.encodeFloat(spacing, "spacing");
    coder.encodeBool(wrapText, "wrapText");
    coder.encodeBool(useColor, "useColor");
    coder.encodeBool(hideOnDirectDebit, "hideOnDirectDebit");
    coder.encodeInt(m_pageMode, "pageMode");
}

void BLLayoutQRCodeView::initWithCoder(KeyedDecoder& coder) {
    BLLayoutElementView::initWithCoder(coder);
    settings = coder.decodeValueForKey("settings");
    color = decodeColor(coder, "color");
    spacing = coder.decodeFloatForKey("spacing");
    wrapText = coder.decodeBoolForKey("wrapText");
    useColor = coder.decodeBoolForKey("useColor");
    hideOnDirectDebit = coder.decodeBoolForKey("hideOnDirectDebit");
    m_pageMode = coder.decodeIntForKey("pageMode");
}

Rect BLLayoutQRCodeView::spacingRect() const {
    return wrapText ? frame().insetBy(-spacing, -spacing) : Rect{};
}

Value::Dictionary BLLayoutQRCodeView::compareDictionary() const {
    Value::Dictionary result = BLLayoutElementView::compareDictionary();
    result.emplace("settings", settings);
    addColor(result, "color", color);
    result.emplace("spacing", Value(spacing));
    result.emplace("wrapText", Value(wrapText));
    result.emplace("useColor", Value(useColor));
    result.emplace("hideOnDirectDebit", Value(hideOnDirectDebit));
    result.emplace("pageMode", Value(m_pageMode));
    return result;
}

void BLLayoutQRCodeView::collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const {
    if (color) {
        colors.push_back(color);
    }
}

void BLLayoutQRCodeView::replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) {
    replaceColorIn(color, match, replacement);
}

// Missing elements.

std::vector<std::string> BLLayoutMissingElementView::archivedSuperclassNames() const {
    return m_superclasses.empty() ? BLLayoutElementView::archivedSuperclassNames() : m_superclasses;
}

void BLLayoutMissingElementView::encodeWithCoder(KeyedEncoder& coder) const {
    m_archivedValues.writeAll(coder);
}

void BLLayoutMissingElementView::initWithCoder(KeyedDecoder& coder) {
    m_superclasses = coder.archivedSuperclassNames();
    m_archivedValues.readAll(coder);
    if (coder.hasFailed()) {
        return;
    }
    // Geometry and subviews as the base view reads them, so that the element stands where
    // it stood; the archived values stay the truth when it is written back.
    if (const std::optional<Rect> rect = rectFromString(m_archivedValues.string("NSFrame"))) {
        m_frame = *rect;
    }
    if (const KeyedNode* subviews = m_archivedValues.find("NSSubviews")) {
        for (const KeyedNode& element : subviews->elements) {
            if (auto view = std::dynamic_pointer_cast<BLView>(element.object); view && view->superview() == nullptr) {
                addSubview(std::move(view));
            }
        }
    }
}

Value::Dictionary BLLayoutMissingElementView::compareDictionary() const {
    Value::Dictionary result = BLLayoutElementView::compareDictionary();
    Value::Array keys;
    for (const auto& [key, node] : m_archivedValues.all()) {
        keys.emplace_back(key);
    }
    result.emplace("archivedKeys", Value(std::move(keys)));
    return result;
}

std::string BLLayoutMissingElementView::missingMessage() const {
    return formatMessage(localizedString("This version of Brassline is too old to support %@"), className());
}

}  // namespace brassline
