#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "core/KeyedArchive.h"
#include "layout/LayoutGeometry.h"

// The platform's value classes as layouts archive them: colours, fonts, paragraph styles,
// bezier paths, images and rich text. Each keeps every field it was read with, in order,
// and writes them back unchanged; the typed accessors read and write the fields that this
// program understands. So a colour space or a text attribute that we don't draw survives.

namespace brassline {

// The fields of one archived object, in the order they were read or set.
class ArchivedFields {
public:
    const KeyedNode* find(std::string_view key) const;
    void set(std::string key, KeyedNode node);
    void remove(std::string_view key);
    const std::vector<std::pair<std::string, KeyedNode>>& all() const { return m_fields; }

    // Typed reads: a missing or differently typed field gives the fallback.
    std::string string(std::string_view key) const;
    double number(std::string_view key, double fallback = 0.0) const;
    // Whole numbers convert safely, whatever the field held (a huge or NaN real gives a
    // bounded answer).
    int64_t integer(std::string_view key, int64_t fallback = 0) const;
    Bytes bytes(std::string_view key) const;

    void readAll(KeyedDecoder& coder);
    void writeAll(KeyedEncoder& coder) const;

private:
    std::vector<std::pair<std::string, KeyedNode>> m_fields;
};

class BLPlatformObject : public KeyedArchivable {
public:
    BLPlatformObject(std::string className, std::vector<std::string> superclasses)
        : m_className(std::move(className)), m_superclasses(std::move(superclasses)) {}
    std::string archivedClassName() const override { return m_className; }
    std::vector<std::string> archivedSuperclassNames() const override { return m_superclasses; }
    void encodeWithCoder(KeyedEncoder& coder) const override { m_fields.writeAll(coder); }
    ArchivedFields& fields() { return m_fields; }
    const ArchivedFields& fields() const { return m_fields; }
    // Takes the class name an archive gave (a mutable or immutable variant), with its chain.
    void setArchivedName(std::string name);

protected:
    std::string m_className;
    std::vector<std::string> m_superclasses;
    ArchivedFields m_fields;
};

struct RGBA {
    double red = 0.0;
    double green = 0.0;
    double blue = 0.0;
    double alpha = 1.0;
    bool operator==(const RGBA&) const = default;
};

// NSColor: "NSColorSpace" 1 calibrated and 2 device RGB ("NSRGB"), 3 calibrated and 4
// device white ("NSWhite"), 5 CMYK ("NSCMYK"), 6 catalog ("NSCatalogName", "NSColorName",
// "NSColor" as its stand-in). Components are text ("0.5 0.25 1") ending in a zero byte.
class BLColor : public BLPlatformObject {
public:
    BLColor() : BLPlatformObject("NSColor", {"NSObject"}) {}
    static std::shared_ptr<BLColor> colorWithRGBA(RGBA rgba);
    static std::shared_ptr<BLColor> colorWithWhite(double white, double alpha = 1.0);
    static std::shared_ptr<BLColor> catalogColor(std::string catalog, std::string name);
    static std::shared_ptr<BLColor> black() { return colorWithWhite(0.0); }

    int64_t colorSpace() const { return m_fields.integer("NSColorSpace"); }
    std::string catalogName() const { return m_fields.string("NSCatalogName"); }
    std::string colorName() const { return m_fields.string("NSColorName"); }
    // sRGB components; a catalog colour its stand-in (system text colours black), CMYK
    // converted naively; nothing for a colour we can't read.
    std::optional<RGBA> rgba() const;
    // "#RRGGBB" or "#RRGGBBAA"; "" for an unreadable colour. What comparisons use.
    std::string hexString() const;
    bool isClear() const;
};

// NSFont: "NSName" (PostScript name), "NSSize", "NSfFlags".
class BLFont : public BLPlatformObject {
public:
    BLFont() : BLPlatformObject("NSFont", {"NSObject"}) {}
    static std::shared_ptr<BLFont> fontWithName(std::string name, double size);
    std::string fontName() const { return m_fields.string("NSName"); }
    double pointSize() const { return m_fields.number("NSSize", 12.0); }
};

enum class TextAlignment : int64_t { Left = 0, Right = 1, Center = 2, Justified = 3, Natural = 4 };

// NSParagraphStyle: "NSAlignment", "NSTabStops" (NSTextTab with "NSLocation"),
// "NSFirstLineHeadIndent", "NSHeadIndent", "NSTailIndent", "NSLineSpacing",
// "NSParagraphSpacing", "NSParagraphSpacingBefore", "NSMinLineHeight", "NSMaxLineHeight",
// "NSLineHeightMultiple", "NSTextLists".
class BLParagraphStyle : public BLPlatformObject {
public:
    BLParagraphStyle() : BLPlatformObject("NSMutableParagraphStyle", {"NSParagraphStyle", "NSObject"}) {}
    static std::shared_ptr<BLParagraphStyle> styleWithAlignment(TextAlignment alignment);
    TextAlignment alignment() const;
    double value(std::string_view key) const { return m_fields.number(key); }
    void setValue(std::string key, double value);
    bool hasTextLists() const;
};

// NSBezierPath in our segment form: "NSWindingRule", "NSLineWidth" and "NSSegments", data
// of one type byte per element (0 move, 1 line, 2 curve, 3 close) followed by its points as
// little-endian 64-bit floats (one point, one point, three points, none).
class BLBezierPath : public BLPlatformObject {
public:
    enum class ElementType : uint8_t { MoveTo = 0, LineTo = 1, CurveTo = 2, ClosePath = 3 };
    struct Element {
        ElementType type = ElementType::MoveTo;
        std::vector<std::pair<double, double>> points;
        bool operator==(const Element&) const = default;
    };
    BLBezierPath() : BLPlatformObject("NSBezierPath", {"NSObject"}) {}
    static std::shared_ptr<BLBezierPath> pathWithRect(const Rect& rect);
    static std::shared_ptr<BLBezierPath> pathWithElements(const std::vector<Element>& elements);
    // Nothing for a damaged segment list.
    std::optional<std::vector<Element>> elements() const;
    Rect bounds() const;
    double lineWidth() const { return m_fields.number("NSLineWidth", 1.0); }
};

// NSImage: our form holds the encoded file (PNG, JPEG, PDF) under "NSImageData" and its
// size under "NSSize"; other forms keep their fields.
class BLImage : public BLPlatformObject {
public:
    BLImage() : BLPlatformObject("NSImage", {"NSObject"}) {}
    static std::shared_ptr<BLImage> imageWithData(Bytes data, Size size);
    Bytes data() const { return m_fields.bytes("NSImageData"); }
    Size size() const;
};

// NSAttributedString (and NSMutableAttributedString, NSTextStorage): "NSString", and
// "NSAttributes" with "NSAttributeInfo" (unsigned varints, pairs of a run's length in
// UTF-16 units and its attribute dictionary's index), or one dictionary for a single run.
// Runs are kept here in UTF-8 bytes.
class BLAttributedString : public BLPlatformObject {
public:
    struct Run {
        size_t length = 0;  // UTF-8 bytes.
        KeyedNode attributes;
    };

    BLAttributedString()
        : BLPlatformObject("NSTextStorage", {"NSMutableAttributedString", "NSAttributedString", "NSObject"}) {}
    static std::shared_ptr<BLAttributedString> stringWithAttributes(std::string text, KeyedNode attributes);
    // Attributes with a font, a colour and a paragraph style.
    static KeyedNode attributes(std::shared_ptr<BLFont> font, std::shared_ptr<BLColor> color,
                                std::shared_ptr<BLParagraphStyle> style);
    // Reads the archived fields into text and runs; false (with the reason) when damaged.
    bool load(std::string* error);
    void encodeWithCoder(KeyedEncoder& coder) const override;

    const std::string& string() const { return m_string; }
    const std::vector<Run>& runs() const { return m_runs; }
    std::vector<Run>& mutableRuns() { return m_runs; }
    // The attributes in force at a byte offset (the last run's at the end); nullptr if none.
    const KeyedNode* attributesAt(size_t offset) const;
    // Replaces bytes [start, start + length) by `text` in the attributes found at `start`.
    void replaceCharacters(size_t start, size_t length, std::string_view text);
    void appendString(std::string_view text, KeyedNode attributes);

    // The objects behind the well-known attribute keys, over every run.
    std::vector<std::shared_ptr<BLFont>> fonts() const;
    std::vector<std::shared_ptr<BLColor>> colors() const;
    // Sets every colour attribute that `match` accepts to `replacement`.
    void replaceColors(const std::function<bool(const BLColor&)>& match, const std::shared_ptr<BLColor>& replacement);

private:
    void normalizeRuns();
    std::string m_string;
    std::vector<Run> m_runs;
};

// The MD5 of bytes in lower-case hex: how comparisons tell binary contents apart.
std::string md5Hex(const Bytes& bytes);

// Length of UTF-8 text in UTF-16 units, and the UTF-8 length of a UTF-16 prefix.
size_t utf16Length(std::string_view text);
size_t utf8LengthOfUTF16Prefix(std::string_view text, size_t units);

// Registers the decoders of these classes (and their legacy names) with the shared registry.
void registerPlatformValueClasses();

}  // namespace brassline
