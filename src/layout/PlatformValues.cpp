#include "layout/PlatformValues.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <map>

#include <glib.h>

#include "core/Log.h"

namespace brassline {

std::string md5Hex(const Bytes& bytes) {
    gchar* digest = g_compute_checksum_for_data(G_CHECKSUM_MD5, bytes.data(), bytes.size());
    std::string result = digest != nullptr ? digest : "";
    g_free(digest);
    return result;
}

// Fields.

const KeyedNode* ArchivedFields::find(std::string_view key) const {
    for (const auto& [name, node] : m_fields) {
        if (name == key) {
            return &node;
        }
    }
    return nullptr;
}

void ArchivedFields::set(std::string key, KeyedNode node) {
    for (auto& [name, existing] : m_fields) {
        if (name == key) {
            existing = std::move(node);
            return;
        }
    }
    m_fields.emplace_back(std::move(key), std::move(node));
}

void ArchivedFields::remove(std::string_view key) {
    std::erase_if(m_fields, [&](const auto& field) { return field.first == key; });
}

std::string ArchivedFields::string(std::string_view key) const {
    const KeyedNode* node = find(key);
    return node != nullptr && node->value.string() != nullptr ? *node->value.string() : std::string();
}

double ArchivedFields::number(std::string_view key, double fallback) const {
    const KeyedNode* node = find(key);
    return node != nullptr && node->value.isNumber() ? node->value.toDouble() : fallback;
}

int64_t ArchivedFields::integer(std::string_view key, int64_t fallback) const {
    const KeyedNode* node = find(key);
    return node != nullptr && node->value.isNumber() ? node->value.toInt64() : fallback;
}

Bytes ArchivedFields::bytes(std::string_view key) const {
    const KeyedNode* node = find(key);
    return node != nullptr && node->value.bytes() != nullptr ? *node->value.bytes() : Bytes();
}

void ArchivedFields::readAll(KeyedDecoder& coder) {
    for (const std::string& key : coder.allKeys()) {
        m_fields.emplace_back(key, coder.decodeNodeForKey(key));
        if (coder.hasFailed()) {
            return;
        }
    }
}

void ArchivedFields::writeAll(KeyedEncoder& coder) const {
    for (const auto& [key, node] : m_fields) {
        coder.encodeNode(node, key);
    }
}

void BLPlatformObject::setArchivedName(std::string name) {
    static const std::map<std::string, std::vector<std::string>, std::less<>> chains = {
        {"NSAttributedString", {"NSObject"}},
        {"NSMutableAttributedString", {"NSAttributedString", "NSObject"}},
        {"NSTextStorage", {"NSMutableAttributedString", "NSAttributedString", "NSObject"}},
        {"NSParagraphStyle", {"NSObject"}},
        {"NSMutableParagraphStyle", {"NSParagraphStyle", "NSObject"}}};
    const auto found = chains.find(name);
    m_superclasses = found != chains.end() ? found->second : std::vector<std::string>{"NSObject"};
    m_className = std::move(name);
}

namespace {

KeyedNode inlineNumber(double value) {
    KeyedNode node = KeyedNode::fromValue(Value(value));
    node.kind = KeyedNode::Kind::Inline;
    return node;
}

KeyedNode inlineInteger(int64_t value) {
    KeyedNode node = KeyedNode::fromValue(Value(value));
    node.kind = KeyedNode::Kind::Inline;
    return node;
}

KeyedNode componentText(const std::vector<double>& components) {
    std::string text;
    for (const double component : components) {
        if (!text.empty()) {
            text += ' ';
        }
        char buffer[32];
        std::snprintf(buffer, sizeof buffer, "%.6g", component);
        text += buffer;
    }
    Bytes bytes(text.begin(), text.end());
    bytes.push_back(0);
    return KeyedNode::fromValue(Value(std::move(bytes)));
}

std::vector<double> componentsOf(const Bytes& bytes) {
    std::vector<double> result;
    std::string text(bytes.begin(), std::find(bytes.begin(), bytes.end(), uint8_t{0}));
    const char* cursor = text.c_str();
    while (*cursor != '\0' && result.size() < 8) {
        char* end = nullptr;
        const double value = std::strtod(cursor, &end);
        if (end == cursor) {
            break;
        }
        result.push_back(std::isfinite(value) ? std::clamp(value, 0.0, 1.0) : 0.0);
        cursor = end;
    }
    return result;
}

}  // namespace

// Colours.

std::shared_ptr<BLColor> BLColor::colorWithRGBA(RGBA rgba) {
    auto color = std::make_shared<BLColor>();
    color->fields().set("NSColorSpace", inlineInteger(1));
    std::vector<double> components{rgba.red, rgba.green, rgba.blue};
    if (rgba.alpha != 1.0) {
        components.push_back(rgba.alpha);
    }
    color->fields().set("NSRGB", componentText(components));
    return color;
}

std::shared_ptr<BLColor> BLColor::colorWithWhite(double white, double alpha) {
    auto color = std::make_shared<BLColor>();
    color->fields().set("NSColorSpace", inlineInteger(3));
    std::vector<double> components{white};
    if (alpha != 1.0) {
        components.push_back(alpha);
    }
    color->fields().set("NSWhite", componentText(components));
    return color;
}

std::shared_ptr<BLColor> BLColor::catalogColor(std::string catalog, std::string name) {
    auto color = std::make_shared<BLColor>();
    color->fields().set("NSColorSpace", inlineInteger(6));
    color->fields().set("NSCatalogName", KeyedNode::fromValue(Value(std::move(catalog))));
    color->fields().set("NSColorName", KeyedNode::fromValue(Value(std::move(name))));
    return color;
}

std::optional<RGBA> BLColor::rgba() const {
    const int64_t space = colorSpace();
    if (space == 1 || space == 2) {
        const std::vector<double> c = componentsOf(m_fields.bytes("NSRGB"));
        if (c.size() < 3) {
            return std::nullopt;
        }
        return RGBA{c[0], c[1], c[2], c.size() > 3 ? c[3] : 1.0};
    }
    if (space == 3 || space == 4) {
        const std::vector<double> c = componentsOf(m_fields.bytes("NSWhite"));
        if (c.empty()) {
            return std::nullopt;
        }
        return RGBA{c[0], c[0], c[0], c.size() > 1 ? c[1] : 1.0};
    }
    if (space == 5) {
        const std::vector<double> c = componentsOf(m_fields.bytes("NSCMYK"));
        if (c.size() < 4) {
            return std::nullopt;
        }
        const double k = 1.0 - c[3];
        return RGBA{(1.0 - c[0]) * k, (1.0 - c[1]) * k, (1.0 - c[2]) * k, c.size() > 4 ? c[4] : 1.0};
    }
    const std::string name = colorName();
    if (name == "controlTextColor" || name == "textColor" || name == "labelColor") {
        return RGBA{0.0, 0.0, 0.0, 1.0};
    }
    if (name == "clearColor") {
        return RGBA{0.0, 0.0, 0.0, 0.0};
    }
    if (const KeyedNode* standIn = m_fields.find("NSColor")) {
        if (const auto* color = dynamic_cast<const BLColor*>(standIn->object.get());
            color != nullptr && color != this) {
            return color->rgba();
        }
    }
    return std::nullopt;
}

std::string BLColor::hexString() const {
    const std::optional<RGBA> c = rgba();
    if (!c) {
        return {};
    }
    const auto byte = [](double component) { return static_cast<int>(std::lround(component * 255.0)); };
    char buffer[16];
    if (c->alpha != 1.0) {
        std::snprintf(buffer, sizeof buffer, "#%02X%02X%02X%02X", byte(c->red), byte(c->green), byte(c->blue),
                      byte(c->alpha));
    } else {
        std::snprintf(buffer, sizeof buffer, "#%02X%02X%02X", byte(c->red), byte(c->green), byte(c->blue));
    }
    return buffer;
}

bool BLColor::isClear() const {
    const std::optional<RGBA> c = rgba();
    return c && c->alpha == 0.0;
}

// Fonts and paragraph styles.

std::shared_ptr<BLFont> BLFont::fontWithName(std::string name, double size) {
    auto font = std::make_shared<BLFont>();
    font->fields().set("NSName", KeyedNode::fromValue(Value(std::move(name))));
    font->fields().set("NSSize", inlineNumber(singlePrecision(size)));
    font->fields().set("NSfFlags", inlineInteger(16));
    return font;
}

std::shared_ptr<BLParagraphStyle> BLParagraphStyle::styleWithAlignment(TextAlignment alignment) {
    auto style = std::make_shared<BLParagraphStyle>();
    style->fields().set("NSAlignment", inlineInteger(static_cast<int64_t>(alignment)));
    return style;
}

TextAlignment BLParagraphStyle::alignment() const {
    const int64_t value = m_fields.integer("NSAlignment", 4);
    return value >= 0 && value <= 4 ? static_cast<TextAlignment>(value) : TextAlignment::Natural;
}

void BLParagraphStyle::setValue(std::string key, double value) {
    m_fields.set(std::move(key), inlineNumber(value));
}

bool BLParagraphStyle::hasTextLists() const {
    const KeyedNode* lists = m_fields.find("NSTextLists");
    return lists != nullptr && lists->kind == KeyedNode::Kind::Array && !lists->elements.empty();
}

// Paths.

namespace {

void appendDouble(Bytes& bytes, double value) {
    uint64_t bits = 0;
    std::memcpy(&bits, &value, sizeof bits);
    for (int i = 0; i < 8; ++i) {
        bytes.push_back(static_cast<uint8_t>(bits >> (8 * i)));
    }
}

double readDouble(const Bytes& bytes, size_t offset) {
    uint64_t bits = 0;
    for (int i = 0; i < 8; ++i) {
        bits |= static_cast<uint64_t>(bytes[offset + static_cast<size_t>(i)]) << (8 * i);
    }
    double value = 0.0;
    std::memcpy(&value, &bits, sizeof value);
    return value;
}

size_t pointCount(BLBezierPath::ElementType type) {
    switch (type) {
        case BLBezierPath::ElementType::MoveTo:
        case BLBezierPath::ElementType::LineTo:
            return 1;
        case BLBezierPath::ElementType::CurveTo:
            return 3;
        case BLBezierPath::ElementType::ClosePath:
            return 0;
    }
    return 0;
}

}  // namespace

std::shared_ptr<BLBezierPath> BLBezierPath::pathWithElements(const std::vector<Element>& elements) {
    Bytes segments;
    for (const Element& element : elements) {
        segments.push_back(static_cast<uint8_t>(element.type));
        for (size_t i = 0; i < pointCount(element.type); ++i) {
            const auto point = i < element.points.size() ? element.points[i] : std::pair<double, double>{};
            appendDouble(segments, point.first);
            appendDouble(segments, point.second);
        }
    }
    auto path = std::make_shared<BLBezierPath>();
    path->fields().set("NSWindingRule", inlineInteger(0));
    path->fields().set("NSLineWidth", inlineNumber(1.0));
    path->fields().set("NSSegments", KeyedNode::fromValue(Value(std::move(segments))));
    return path;
}

std::shared_ptr<BLBezierPath> BLBezierPath::pathWithRect(const Rect& rect) {
    return pathWithElements({{ElementType::MoveTo, {{rect.x, rect.y}}},
                             {ElementType::LineTo, {{rect.right(), rect.y}}},
                             {ElementType::LineTo, {{rect.right(), rect.bottom()}}},
                             {ElementType::LineTo, {{rect.x, rect.bottom()}}},
                             {ElementType::ClosePath, {}}});
}

std::optional<std::vector<BLBezierPath::Element>> BLBezierPath::elements() const {
    const Bytes segments = m_fields.bytes("NSSegments");
    std::vector<Element> result;
    size_t offset = 0;
    while (offset < segments.size()) {
        const uint8_t type = segments[offset++];
        if (type > 3) {
            return std::nullopt;
        }
        Element element{static_cast<ElementType>(type), {}};
        const size_t count = pointCount(element.type);
        if (segments.size() - offset < count * 16) {
            return std::nullopt;
        }
        for (size_t i = 0; i < count; ++i) {
            element.points.emplace_back(readDouble(segments, offset), readDouble(segments, offset + 8));
            offset += 16;
        }
        result.push_back(std::move(element));
    }
    return result;
}

Rect BLBezierPath::bounds() const {
    const auto list = elements();
    if (!list) {
        return {};
    }
    double left = std::numeric_limits<double>::infinity();
    double top = left;
    double right = -left;
    double bottom = -left;
    for (const Element& element : *list) {
        for (const auto& [x, y] : element.points) {
            left = std::min(left, x);
            top = std::min(top, y);
            right = std::max(right, x);
            bottom = std::max(bottom, y);
        }
    }
    return left <= right ? Rect{left, top, right - left, bottom - top} : Rect{};
}

// Images.

std::shared_ptr<BLImage> BLImage::imageWithData(Bytes data, Size size) {
    auto image = std::make_shared<BLImage>();
    image->fields().set("NSImageData", KeyedNode::fromValue(Value(std::move(data))));
    image->fields().set("NSSize", KeyedNode::fromValue(Value(stringFromSize(size))));
    return image;
}

Size BLImage::size() const {
    return sizeFromString(m_fields.string("NSSize")).value_or(Size{});
}

// Rich text.

size_t utf16Length(std::string_view text) {
    size_t units = 0;
    for (const char c : text) {
        const auto byte = static_cast<uint8_t>(c);
        if ((byte & 0xC0) != 0x80) {
            units += byte >= 0xF0 ? 2 : 1;
        }
    }
    return units;
}

size_t utf8LengthOfUTF16Prefix(std::string_view text, size_t units) {
    size_t offset = 0;
    while (offset < text.size() && units > 0) {
        const auto byte = static_cast<uint8_t>(text[offset]);
        const size_t length = byte < 0x80 ? 1 : byte >= 0xF0 ? 4 : byte >= 0xE0 ? 3 : byte >= 0xC0 ? 2 : 1;
        const size_t weight = byte >= 0xF0 ? 2 : 1;
        units = units >= weight ? units - weight : 0;
        offset = std::min(text.size(), offset + length);
    }
    return offset;
}

std::shared_ptr<BLAttributedString> BLAttributedString::stringWithAttributes(std::string text, KeyedNode attributes) {
    auto string = std::make_shared<BLAttributedString>();
    string->appendString(text, std::move(attributes));
    return string;
}

KeyedNode BLAttributedString::attributes(std::shared_ptr<BLFont> font, std::shared_ptr<BLColor> color,
                                         std::shared_ptr<BLParagraphStyle> style) {
    std::vector<std::string> keys;
    std::vector<KeyedNode> values;
    if (color) {
        keys.emplace_back("NSColor");
        values.push_back(KeyedNode::fromObject(std::move(color)));
    }
    if (font) {
        keys.emplace_back("NSFont");
        values.push_back(KeyedNode::fromObject(std::move(font)));
    }
    if (style) {
        keys.emplace_back("NSParagraphStyle");
        values.push_back(KeyedNode::fromObject(std::move(style)));
    }
    return KeyedNode::dictionary(std::move(keys), std::move(values));
}

bool BLAttributedString::load(std::string* error) {
    const auto failWith = [&](const char* reason) {
        if (error != nullptr) {
            *error = reason;
        }
        return false;
    };
    m_string = m_fields.string("NSString");
    m_runs.clear();
    const KeyedNode* attributes = m_fields.find("NSAttributes");
    if (attributes == nullptr || m_string.empty()) {
        if (!m_string.empty()) {
            m_runs.push_back({m_string.size(), KeyedNode()});
        }
        return true;
    }
    if (attributes->kind == KeyedNode::Kind::Dictionary) {
        m_runs.push_back({m_string.size(), *attributes});
        return true;
    }
    if (attributes->kind != KeyedNode::Kind::Array) {
        return failWith("the attributes of a text are neither a dictionary nor a list");
    }
    const Bytes info = m_fields.bytes("NSAttributeInfo");
    std::vector<uint64_t> numbers;
    uint64_t current = 0;
    int shift = 0;
    for (const uint8_t byte : info) {
        if (shift > 56) {
            return failWith("the attribute runs of a text are damaged");
        }
        current |= static_cast<uint64_t>(byte & 0x7F) << shift;
        shift += 7;
        if ((byte & 0x80) == 0) {
            numbers.push_back(current);
            current = 0;
            shift = 0;
        }
    }
    if (shift != 0 || numbers.size() % 2 != 0) {
        return failWith("the attribute runs of a text are damaged");
    }
    std::string_view rest = m_string;
    for (size_t i = 0; i < numbers.size(); i += 2) {
        if (numbers[i + 1] >= attributes->elements.size()) {
            return failWith("an attribute run of a text names no attributes");
        }
        const size_t bytes = utf8LengthOfUTF16Prefix(rest, numbers[i]);
        m_runs.push_back({bytes, attributes->elements[numbers[i + 1]]});
        rest.remove_prefix(bytes);
    }
    if (!rest.empty()) {
        // Runs shorter than the text: the rest takes the last attributes, as an editor would.
        m_runs.push_back({rest.size(), m_runs.empty() ? KeyedNode() : m_runs.back().attributes});
    }
    normalizeRuns();
    return true;
}

void BLAttributedString::encodeWithCoder(KeyedEncoder& coder) const {
    // The other fields go back as read; the text and its runs are written from the model.
    for (const auto& [key, node] : m_fields.all()) {
        if (key != "NSString" && key != "NSAttributes" && key != "NSAttributeInfo") {
            coder.encodeNode(node, key);
        }
    }
    coder.encodeString(m_string, "NSString");
    // One run is written as its dictionary alone, as the platform does.
    if (m_runs.size() == 1) {
        const KeyedNode& attributes = m_runs.front().attributes;
        coder.encodeNode(attributes.kind == KeyedNode::Kind::Dictionary ? attributes : KeyedNode::dictionary({}, {}),
                         "NSAttributes");
        return;
    }
    if (m_runs.empty()) {
        return;
    }
    std::vector<KeyedNode> dictionaries;
    Bytes info;
    std::string_view rest = m_string;
    for (size_t i = 0; i < m_runs.size(); ++i) {
        const auto appendVarint = [&info](uint64_t number) {
            do {
                uint8_t byte = number & 0x7F;
                number >>= 7;
                if (number != 0) {
                    byte |= 0x80;
                }
                info.push_back(byte);
            } while (number != 0);
        };
        const size_t length = std::min(m_runs[i].length, rest.size());
        appendVarint(utf16Length(rest.substr(0, length)));
        appendVarint(i);
        rest.remove_prefix(length);
        dictionaries.push_back(m_runs[i].attributes.kind == KeyedNode::Kind::Dictionary
                                   ? m_runs[i].attributes
                                   : KeyedNode::dictionary({}, {}));
    }
    coder.encodeNode(KeyedNode::array(std::move(dictionaries)), "NSAttributes");
    coder.encodeBytes(info, "NSAttributeInfo");
}

const KeyedNode* BLAttributedString::attributesAt(size_t offset) const {
    size_t start = 0;
    for (const Run& run : m_runs) {
        if (offset < start + run.length) {
            return &run.attributes;
        }
        start += run.length;
    }
    return m_runs.empty() ? nullptr : &m_runs.back().attributes;
}

void BLAttributedString::replaceCharacters(size_t start, size_t length, std::string_view text) {
    start = std::min(start, m_string.size());
    length = std::min(length, m_string.size() - start);
    const KeyedNode* found = attributesAt(start);
    const KeyedNode attributes = found != nullptr ? *found : KeyedNode();
    // Cut the runs at both ends of the range, then put one run for the new text between.
    std::vector<Run> runs;
    size_t position = 0;
    bool inserted = false;
    for (const Run& run : m_runs) {
        const size_t runEnd = position + run.length;
        if (runEnd <= start || position >= start + length) {
            if (!inserted && position >= start + length) {
                runs.push_back({text.size(), attributes});
                inserted = true;
            }
            runs.push_back(run);
        } else {
            if (position < start) {
                runs.push_back({start - position, run.attributes});
            }
            if (!inserted) {
                runs.push_back({text.size(), attributes});
                inserted = true;
            }
            if (runEnd > start + length) {
                runs.push_back({runEnd - (start + length), run.attributes});
            }
        }
        position = runEnd;
    }
    if (!inserted) {
        runs.push_back({text.size(), attributes});
    }
    m_string.replace(start, length, text);
    m_runs = std::move(runs);
    normalizeRuns();
}

void BLAttributedString::appendString(std::string_view text, KeyedNode attributes) {
    m_string.append(text);
    m_runs.push_back({text.size(), std::move(attributes)});
    normalizeRuns();
}

namespace {

// The same attributes: equal plain values and the very same objects.
bool sameNodes(const KeyedNode& a, const KeyedNode& b) {
    if (a.kind != b.kind || a.object != b.object || !(a.value == b.value) || a.keys != b.keys ||
        a.elements.size() != b.elements.size()) {
        return false;
    }
    for (size_t i = 0; i < a.elements.size(); ++i) {
        if (!sameNodes(a.elements[i], b.elements[i])) {
            return false;
        }
    }
    return true;
}

}  // namespace

void BLAttributedString::normalizeRuns() {
    std::erase_if(m_runs, [](const Run& run) { return run.length == 0; });
    std::vector<Run> merged;
    for (Run& run : m_runs) {
        if (!merged.empty() && sameNodes(merged.back().attributes, run.attributes)) {
            merged.back().length += run.length;
        } else {
            merged.push_back(std::move(run));
        }
    }
    m_runs = std::move(merged);
}

std::vector<std::shared_ptr<BLFont>> BLAttributedString::fonts() const {
    std::vector<std::shared_ptr<BLFont>> result;
    for (const Run& run : m_runs) {
        if (const KeyedNode* font = run.attributes.member("NSFont")) {
            if (auto typed = std::dynamic_pointer_cast<BLFont>(font->object)) {
                result.push_back(std::move(typed));
            }
        }
    }
    return result;
}

std::vector<std::shared_ptr<BLColor>> BLAttributedString::colors() const {
    std::vector<std::shared_ptr<BLColor>> result;
    for (const Run& run : m_runs) {
        if (const KeyedNode* color = run.attributes.member("NSColor")) {
            if (auto typed = std::dynamic_pointer_cast<BLColor>(color->object)) {
                result.push_back(std::move(typed));
            }
        }
    }
    return result;
}

void BLAttributedString::replaceColors(const std::function<bool(const BLColor&)>& match,
                                       const std::shared_ptr<BLColor>& replacement) {
    for (Run& run : m_runs) {
        KeyedNode& attributes = run.attributes;
        for (size_t i = 0; i < attributes.keys.size() && i < attributes.elements.size(); ++i) {
            if (attributes.keys[i] != "NSColor") {
                continue;
            }
            const auto* color = dynamic_cast<const BLColor*>(attributes.elements[i].object.get());
            if (color != nullptr && match(*color)) {
                attributes.elements[i] = KeyedNode::fromObject(replacement);
            }
        }
    }
}

// Registration.

namespace {

template <typename Type>
KeyedDecodeFunction decoderKeepingName(bool keepArchivedName) {
    return [keepArchivedName](KeyedDecoder& coder) -> std::shared_ptr<KeyedArchivable> {
        auto object = std::make_shared<Type>();
        object->fields().readAll(coder);
        if (coder.hasFailed()) {
            return nullptr;
        }
        if constexpr (std::is_same_v<Type, BLAttributedString>) {
            std::string reason;
            if (!object->load(&reason)) {
                coder.failWithError(reason);
                return nullptr;
            }
        }
        if (keepArchivedName) {
            object->setArchivedName(coder.className());
        }
        return object;
    };
}

}  // namespace

void registerPlatformValueClasses() {
    KeyedArchiveRegistry& registry = KeyedArchiveRegistry::shared();
    registry.registerClass("NSColor", decoderKeepingName<BLColor>(false));
    // Colours of later systems read as catalog colours.
    registry.registerClass("NSDynamicModifiedColor", decoderKeepingName<BLColor>(false));
    registry.registerClass("NSDynamicNamedColor", decoderKeepingName<BLColor>(false));
    registry.registerClass("NSFont", decoderKeepingName<BLFont>(false));
    registry.registerClass("NSParagraphStyle", decoderKeepingName<BLParagraphStyle>(true));
    registry.registerClass("NSMutableParagraphStyle", decoderKeepingName<BLParagraphStyle>(true));
    registry.registerClass("NSBezierPath", decoderKeepingName<BLBezierPath>(false));
    registry.registerClass("NSImage", decoderKeepingName<BLImage>(false));
    for (const char* name : {"NSAttributedString", "NSMutableAttributedString", "NSTextStorage"}) {
        registry.registerClass(name, decoderKeepingName<BLAttributedString>(true));
    }
    // Plain platform objects that stand inside those values: kept field for field.
    for (const char* name : {"NSFontDescriptor", "NSTextTab", "NSTextList", "NSColorSpace", "NSShadow", "NSURL",
                             "NSTextAttachment", "NSFileWrapper", "NSBitmapImageRep", "NSCustomImageRep"}) {
        registry.registerClass(name, [](KeyedDecoder& coder) -> std::shared_ptr<KeyedArchivable> {
            auto object = std::make_shared<BLPlatformObject>(coder.className(), std::vector<std::string>{"NSObject"});
            object->fields().readAll(coder);
            return coder.hasFailed() ? nullptr : object;
        });
    }
    // A font descriptor of the mobile platform reads as the desktop one.
    registry.registerClass("UIFontDescriptor", [](KeyedDecoder& coder) -> std::shared_ptr<KeyedArchivable> {
        auto object = std::make_shared<BLPlatformObject>("NSFontDescriptor", std::vector<std::string>{"NSObject"});
        object->fields().readAll(coder);
        return coder.hasFailed() ? nullptr : object;
    });
}

}  // namespace brassline
