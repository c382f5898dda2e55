#include "layout/BLLayoutTextView.h"

#include <algorithm>
#include <cctype>

#include "layout/BLLayoutTableSectionView.h"

namespace brassline {

namespace {

std::string lowerASCII(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return result;
}

bool containsTag(std::string_view text, std::string_view key) {
    return lowerASCII(text).find("<" + lowerASCII(key) + "/>") != std::string::npos;
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && (text.front() == ' ' || text.front() == '\r')) {
        text.remove_prefix(1);
    }
    while (!text.empty() && (text.back() == ' ' || text.back() == '\r')) {
        text.remove_suffix(1);
    }
    return text;
}

bool isAllUpperCase(std::string_view text) {
    bool hasLetter = false;
    for (const unsigned char c : text) {
        if (std::islower(c)) {
            return false;
        }
        hasLetter = hasLetter || std::isupper(c);
    }
    return hasLetter;
}

// The fields of a text that translation works on: the pieces between line breaks, tabs,
// brackets and colons, blanks at their ends left out. Offsets are bytes into the text.
struct TextField {
    size_t start;
    std::string_view text;
};

std::vector<TextField> textFields(std::string_view text) {
    std::vector<TextField> fields;
    size_t start = 0;
    for (size_t i = 0; i <= text.size(); ++i) {
        if (i == text.size() || text[i] == '\n' || text[i] == '\t' || text[i] == '[' || text[i] == ']' ||
            text[i] == ':') {
            const std::string_view piece = text.substr(start, i - start);
            const std::string_view inner = trimmed(piece);
            if (!inner.empty()) {
                fields.push_back({start + static_cast<size_t>(inner.data() - piece.data()), inner});
            }
            start = i + 1;
        }
    }
    return fields;
}

}  // namespace

BLLayoutTextView::BLLayoutTextView(std::string className)
    : BLView(std::move(className)), m_text(std::make_shared<BLAttributedString>()) {}

void BLLayoutTextView::encodeWithCoder(KeyedEncoder& coder) const {
    BLView::encodeWithCoder(coder);
    coder.encodeObject(m_text.get(), "NSTextStorage");
    if (!m_script.empty()) {
        coder.encodeString(m_script, "script");
    }
    if (!m_uiWidth.isNull()) {
        coder.encodeValue(m_uiWidth, "UIWidth");
    }
    if (!m_url.empty()) {
        coder.encodeString(m_url, "URL");
    }
    coder.encodeBool(m_hyphenate, "hyphenate");
    coder.encodeBool(m_frameLocked, "frameLocked");
    coder.encodeBool(m_shiftSiblings, "shiftSiblings");
    coder.encodeBool(m_useLinkColor, "useLinkColor");
    coder.encodeBool(m_useLinkBold, "useLinkBold");
    coder.encodeBool(m_useLinkItalic, "useLinkItalic");
    coder.encodeBool(m_generalScript, "generalScript");
    coder.encodeInt(m_pageMode, "pageMode");
    if (m_linkColor) {
        coder.encodeObject(m_linkColor.get(), "linkColor");
    }
    coder.encodeValue(Value(layoutInfoDictionary()), "layoutInfoDictionary");
    if (!m_exclusionPaths.empty()) {
        std::vector<const KeyedArchivable*> paths;
        for (const auto& path : m_exclusionPaths) {
            paths.push_back(path.get());
        }
        coder.encodeObjects(paths, "exclusionPaths");
    }
}

void BLLayoutTextView::initWithCoder(KeyedDecoder& coder) {
    BLView::initWithCoder(coder);
    if (auto text = std::dynamic_pointer_cast<BLAttributedString>(coder.decodeObjectForKey("NSTextStorage"))) {
        m_text = std::move(text);
    }
    m_script = coder.decodeStringForKey("script");
    m_uiWidth = coder.decodeValueForKey("UIWidth");
    m_url = coder.decodeStringForKey("URL");
    m_hyphenate = coder.decodeBoolForKey("hyphenate");
    m_frameLocked = coder.decodeBoolForKey("frameLocked");
    m_shiftSiblings = coder.decodeBoolForKey("shiftSiblings");
    m_useLinkColor = coder.decodeBoolForKey("useLinkColor");
    m_useLinkBold = coder.decodeBoolForKey("useLinkBold");
    m_useLinkItalic = coder.decodeBoolForKey("useLinkItalic");
    m_generalScript = coder.decodeBoolForKey("generalScript") || m_script.find("topay") != std::string::npos;
    m_pageMode = coder.decodeIntForKey("pageMode");
    m_linkColor = decodeColor(coder, "linkColor");
    m_layoutInfo = coder.decodeValueForKey("layoutInfoDictionary");
    m_exclusionPaths.clear();
    for (const auto& object : coder.decodeObjectsForKey("exclusionPaths")) {
        if (auto path = std::dynamic_pointer_cast<BLBezierPath>(object)) {
            m_exclusionPaths.push_back(std::move(path));
        }
    }
}

Value::Dictionary BLLayoutTextView::compareDictionary() const {
    Value::Dictionary result = BLView::compareDictionary();
    result.emplace("string", Value(m_text->string()));
    Value::Array runs;
    for (const BLAttributedString::Run& run : m_text->runs()) {
        Value::Dictionary described{{"length", Value(static_cast<int64_t>(run.length))}};
        if (const KeyedNode* font = run.attributes.member("NSFont")) {
            if (const auto* typed = dynamic_cast<const BLFont*>(font->object.get())) {
                described.emplace("font", Value(typed->fontName() + " " + shortNumber(typed->pointSize())));
            }
        }
        if (const KeyedNode* color = run.attributes.member("NSColor")) {
            if (const auto* typed = dynamic_cast<const BLColor*>(color->object.get())) {
                described.emplace("color", Value(typed->hexString()));
            }
        }
        if (const KeyedNode* style = run.attributes.member("NSParagraphStyle")) {
            if (const auto* typed = dynamic_cast<const BLParagraphStyle*>(style->object.get())) {
                described.emplace("alignment", Value(static_cast<int64_t>(typed->alignment())));
            }
        }
        runs.emplace_back(std::move(described));
    }
    result.emplace("runs", Value(std::move(runs)));
    if (!m_script.empty()) {
        result.emplace("script", Value(m_script));
    }
    if (!m_url.empty()) {
        result.emplace("URL", Value(m_url));
    }
    result.emplace("hyphenate", Value(m_hyphenate));
    result.emplace("shiftSiblings", Value(m_shiftSiblings));
    result.emplace("pageMode", Value(m_pageMode));
    addColor(result, "linkColor", m_linkColor);
    result.emplace("exclusionPaths", Value(static_cast<int64_t>(m_exclusionPaths.size())));
    return result;
}

void BLLayoutTextView::setString(std::string text) {
    m_text->replaceCharacters(0, m_text->string().size(), text);
}

void BLLayoutTextView::replaceText(std::string_view search, std::string_view replacement) {
    if (search.empty()) {
        return;
    }
    const std::string needle = lowerASCII(search);
    size_t from = 0;
    while (true) {
        const std::string haystack = lowerASCII(m_text->string());
        const size_t found = haystack.find(needle, from);
        if (found == std::string::npos) {
            return;
        }
        m_text->replaceCharacters(found, search.size(), replacement);
        from = found + replacement.size();
    }
}

void BLLayoutTextView::setScript(std::string script) {
    m_script = std::move(script);
    if (m_script.find("topay") != std::string::npos) {
        m_generalScript = true;
    }
}

void BLLayoutTextView::localizeWithDictionary(const TranslationDictionary& dictionary) {
    if (dictionary.empty()) {
        return;
    }
    std::map<std::string, const std::string*> folded;
    for (const auto& [key, translation] : dictionary) {
        if (!isAllUpperCase(key)) {
            folded.emplace(lowerASCII(key), &translation);
        }
    }
    // From the end, so that earlier offsets stay valid.
    const std::string text = m_text->string();
    std::vector<TextField> fields = textFields(text);
    for (auto field = fields.rbegin(); field != fields.rend(); ++field) {
        const auto found = folded.find(lowerASCII(field->text));
        if (found != folded.end() && *found->second != field->text) {
            m_text->replaceCharacters(field->start, field->text.size(), *found->second);
        }
    }
}

void BLLayoutTextView::appendTranslationDictionary(TranslationDictionary& dictionary) const {
    for (const TextField& field : textFields(m_text->string())) {
        if (field.text.find('<') == std::string_view::npos) {
            dictionary.emplace(std::string(field.text), std::string(field.text));
        }
    }
}

void BLLayoutTextView::setTranslationDictionary(const TranslationDictionary& dictionary) {
    localizeWithDictionary(dictionary);
}

void BLLayoutTextView::migrateLegacy() {
    replaceText("<invoice.", "<document.");
}

void BLLayoutTextView::migrateQuantity() {
    replaceText("<quantity/>", "<shortquantity/>");
}

void BLLayoutTextView::hideItemsWithKey(std::string_view key) {
    if (containsTag(m_text->string(), key)) {
        setHidden(true);
    }
}

void BLLayoutTextView::collectColors(std::vector<std::shared_ptr<BLColor>>& colors) const {
    for (auto& color : m_text->colors()) {
        colors.push_back(std::move(color));
    }
    if (m_linkColor) {
        colors.push_back(m_linkColor);
    }
}

void BLLayoutTextView::collectStrings(std::vector<std::string>& strings) const {
    if (!m_text->string().empty()) {
        strings.push_back(m_text->string());
    }
}

void BLLayoutTextView::addFonts(std::set<std::string>& fonts) const {
    for (const auto& font : m_text->fonts()) {
        if (!font->fontName().empty()) {
            fonts.insert(font->fontName());
        }
    }
}

void BLLayoutTextView::replaceColor(const ColorMatch& match, const std::shared_ptr<BLColor>& replacement) {
    m_text->replaceColors([&](const BLColor& color) { return match(&color); }, replacement);
    if (!match(nullptr)) {
        return;
    }
    // Text without a colour of its own takes the replacement.
    for (BLAttributedString::Run& run : m_text->mutableRuns()) {
        if (run.attributes.kind != KeyedNode::Kind::Dictionary) {
            run.attributes = KeyedNode::dictionary({}, {});
        }
        if (run.attributes.member("NSColor") == nullptr) {
            run.attributes.keys.emplace_back("NSColor");
            run.attributes.elements.push_back(KeyedNode::fromObject(replacement));
        }
    }
}

// Images.

void BLLayoutImageView::encodeWithCoder(KeyedEncoder& coder) const {
    BLView::encodeWithCoder(coder);
    if (!m_data.empty()) {
        coder.encodeValue(Value(m_data), "data");
    }
    if (!m_script.empty()) {
        coder.encodeString(m_script, "script");
    }
    if (!m_url.empty()) {
        coder.encodeString(m_url, "URL");
    }
    if (!m_qrCode.empty()) {
        coder.encodeString(m_qrCode, "QRCode");
    }
    for (const auto& [key, value] : m_flags) {
        coder.encodeBool(value, key);
    }
    coder.encodeFloat(m_spacing, "spacing");
    coder.encodeInt(m_imageAlign, "imageAlign");
}

void BLLayoutImageView::initWithCoder(KeyedDecoder& coder) {
    BLView::initWithCoder(coder);
    m_data = coder.decodeBytesForKey("data");
    m_script = coder.decodeStringForKey("script");
    m_url = coder.decodeStringForKey("URL");
    m_qrCode = coder.decodeStringForKey("QRCode");
    for (auto& [key, value] : m_flags) {
        value = coder.decodeBoolForKey(key);
    }
    m_spacing = coder.decodeFloatForKey("spacing");
    m_imageAlign = coder.decodeIntForKey("imageAlign");
}

bool BLLayoutImageView::flag(const std::string& key) const {
    const auto found = m_flags.find(key);
    return found != m_flags.end() && found->second;
}

Rect BLLayoutImageView::spacingRect() const {
    return flag("wrapText") ? frame().insetBy(-m_spacing, -m_spacing) : Rect{};
}

Value::Dictionary BLLayoutImageView::compareDictionary() const {
    Value::Dictionary result = BLView::compareDictionary();
    result.emplace("data", Value(md5Hex(m_data)));
    result.emplace("script", Value(m_script));
    result.emplace("URL", Value(m_url));
    result.emplace("QRCode", Value(m_qrCode));
    for (const auto& [key, value] : m_flags) {
        result.emplace(key, Value(value));
    }
    result.emplace("spacing", Value(m_spacing));
    result.emplace("imageAlign", Value(m_imageAlign));
    return result;
}

}  // namespace brassline
