#include "layout/TextLayout.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <mutex>

#include <fontconfig/fontconfig.h>
#include <pango/pangocairo.h>
#include <strings.h>

#include "core/Log.h"

namespace brassline {

namespace {

// Pango's font maps and contexts are not for sharing between threads, so each thread that
// lays out text keeps its own. Metrics are unhinted at 72 dpi: a line breaks on a PDF page
// exactly where it breaks in a 2x preview image.
class ThreadTextContext {
public:
    ThreadTextContext() {
        m_fontMap = pango_cairo_font_map_new();
        m_context = pango_font_map_create_context(m_fontMap);
        pango_cairo_context_set_resolution(m_context, 72.0);
        cairo_font_options_t* fontOptions = cairo_font_options_create();
        cairo_font_options_set_hint_metrics(fontOptions, CAIRO_HINT_METRICS_OFF);
        cairo_font_options_set_hint_style(fontOptions, CAIRO_HINT_STYLE_NONE);
        pango_cairo_context_set_font_options(m_context, fontOptions);
        cairo_font_options_destroy(fontOptions);
        pango_context_set_round_glyph_positions(m_context, FALSE);
    }
    ~ThreadTextContext() {
        g_object_unref(m_context);
        g_object_unref(m_fontMap);
    }
    ThreadTextContext(const ThreadTextContext&) = delete;
    ThreadTextContext& operator=(const ThreadTextContext&) = delete;
    PangoContext* context() const { return m_context; }

private:
    PangoFontMap* m_fontMap = nullptr;
    PangoContext* m_context = nullptr;
};

PangoContext* threadContext() {
    thread_local ThreadTextContext context;
    return context.context();
}

// A family that fontconfig doesn't have is drawn in what it substitutes; said once per
// family and process, since a layout asks for its fonts on every row.
void noteFontFamily(const std::string& family) {
    static std::mutex mutex;
    static std::map<std::string, bool, std::less<>> checked;
    {
        const std::lock_guard lock(mutex);
        if (!checked.emplace(family, true).second) {
            return;
        }
    }
    FcPattern* pattern = FcPatternCreate();
    FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(family.c_str()));
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result = FcResultNoMatch;
    FcPattern* match = FcFontMatch(nullptr, pattern, &result);
    bool found = false;
    std::string substitute;
    if (match != nullptr) {
        FcChar8* name = nullptr;
        for (int i = 0; FcPatternGetString(match, FC_FAMILY, i, &name) == FcResultMatch; ++i) {
            const char* text = reinterpret_cast<const char*>(name);
            if (i == 0) {
                substitute = text;
            }
            found = found || strcasecmp(text, family.c_str()) == 0;
        }
        FcPatternDestroy(match);
    }
    FcPatternDestroy(pattern);
    if (!found) {
        logMessage("Text: the font family \"%@\" is not installed; text in it is drawn in \"%@\"", family,
                   substitute.empty() ? std::string("the default font") : substitute);
    }
}

PangoFontDescription* fontDescription(const TextAttributes& attributes) {
    noteFontFamily(attributes.fontFamily);
    PangoFontDescription* description = pango_font_description_new();
    pango_font_description_set_family(description, attributes.fontFamily.c_str());
    pango_font_description_set_weight(description,
                                      static_cast<PangoWeight>(std::clamp(attributes.fontWeight, 100, 1000)));
    pango_font_description_set_style(description, attributes.italic ? PANGO_STYLE_ITALIC : PANGO_STYLE_NORMAL);
    const double size = std::isfinite(attributes.fontSize) && attributes.fontSize > 0.0 ? attributes.fontSize : 12.0;
    pango_font_description_set_absolute_size(description, std::min(size, 10000.0) * PANGO_SCALE);
    return description;
}

bool sameFace(const TextAttributes& a, const TextAttributes& b) {
    return a.fontFamily == b.fontFamily && a.fontSize == b.fontSize && a.fontWeight == b.fontWeight &&
           a.italic == b.italic;
}

// Lengths that styles set in code may carry, kept to what a page can hold so that sums of
// them stay finite.
constexpr double kLargestLength = 1.0e6;

double boundedLength(double points) {
    return std::isfinite(points) ? std::clamp(points, -kLargestLength, kLargestLength) : 0.0;
}

int pangoUnits(double points) {
    return std::isfinite(points) ? static_cast<int>(std::clamp(points, -1.0e6, 1.0e6) * PANGO_SCALE) : 0;
}

guint16 colorComponent(double value) {
    return static_cast<guint16>(std::lround(std::clamp(value, 0.0, 1.0) * 65535.0));
}

void insertAttribute(PangoAttrList* list, PangoAttribute* attribute, size_t start, size_t end) {
    attribute->start_index = static_cast<guint>(start);
    attribute->end_index = static_cast<guint>(end);
    pango_attr_list_insert(list, attribute);
}

PangoTabAlign tabAlignment(TextAlignment alignment) {
    switch (alignment) {
        case TextAlignment::Right:
            return PANGO_TAB_RIGHT;
        case TextAlignment::Center:
            return PANGO_TAB_CENTER;
        case TextAlignment::Justified:
        case TextAlignment::Natural:
            // A justified tab stop aligns decimal numbers at their separator.
            return alignment == TextAlignment::Justified ? PANGO_TAB_DECIMAL : PANGO_TAB_LEFT;
        case TextAlignment::Left:
            break;
    }
    return PANGO_TAB_LEFT;
}

// Without tab stops a tab goes to the next multiple of 28 points.
constexpr double kDefaultTabInterval = 28.0;

bool isWordByte(unsigned char c) {
    return std::isalnum(c) != 0 || c >= 0x80;
}

// One laid-out paragraph per Pango layout; lines placed by us, since line heights follow
// the paragraph style's multiple, minimum and maximum, which Pango doesn't know.
struct PlacedLine {
    PangoLayoutLine* line = nullptr;
    double originX = 0.0;  // Where Pango's line origin goes.
    TextLine info;
};

class LaidText {
public:
    LaidText() = default;
    LaidText(const LaidText&) = delete;
    LaidText& operator=(const LaidText&) = delete;
    ~LaidText() {
        for (PangoLayout* layout : m_layouts) {
            g_object_unref(layout);
        }
    }

    void lay(const RichText& text, double width, const TextLayoutOptions& options);
    const std::vector<PlacedLine>& lines() const { return m_lines; }
    const std::vector<TextLink>& links() const { return m_links; }
    double height() const { return m_height; }

private:
    void layParagraph(const RichText& text, std::string_view string, size_t start, size_t end, double width,
                      const TextLayoutOptions& options, const ParagraphStyle*& previous);
    std::vector<PangoLayout*> m_layouts;
    void addLinks(const RichText& text, const PlacedLine& line, size_t lineStart, size_t lineEnd,
                  size_t paragraphStart);
    std::vector<PlacedLine> m_lines;
    std::vector<TextLink> m_links;
    double m_height = 0.0;
};

// Pango replaces bytes that are no UTF-8 by a longer character, which would shift every
// run and line offset after them; a byte for a byte keeps the offsets, so such bytes (and
// zero bytes, which Pango refuses too) become "?". Archived text never has them, input may.
std::string validUTF8(std::string text) {
    size_t offset = 0;
    while (offset < text.size()) {
        const gchar* end = nullptr;
        const char* start = text.data() + offset;
        if (g_utf8_validate(start, static_cast<gssize>(text.size() - offset), &end) != 0) {
            break;
        }
        offset = static_cast<size_t>(end - text.data());
        text[offset] = '?';
        ++offset;
    }
    return text;
}

void LaidText::lay(const RichText& text, double width, const TextLayoutOptions& options) {
    if (text.text().empty()) {
        return;
    }
    const std::string string = validUTF8(text.text());
    const ParagraphStyle* previous = nullptr;
    size_t start = 0;
    while (true) {
        const size_t newline = string.find('\n', start);
        const size_t end = newline == std::string::npos ? string.size() : newline;
        layParagraph(text, string, start, end, width, options, previous);
        if (newline == std::string::npos) {
            break;
        }
        start = newline + 1;
    }
}

void LaidText::layParagraph(const RichText& text, std::string_view string, size_t start, size_t end, double width,
                            const TextLayoutOptions& options, const ParagraphStyle*& previous) {
    const TextRun* first = text.runAt(start);
    const ParagraphStyle defaults;
    const ParagraphStyle& style = first != nullptr ? first->paragraphStyle : defaults;
    double y = m_height;
    if (previous != nullptr) {
        y += boundedLength(previous->lineSpacing) + boundedLength(previous->paragraphSpacing) +
             boundedLength(style.paragraphSpacingBefore);
    }

    PangoLayout* layout = pango_layout_new(threadContext());
    m_layouts.push_back(layout);
    const std::string_view paragraph = string.substr(start, end - start);
    pango_layout_set_text(layout, paragraph.data(), static_cast<int>(paragraph.size()));
    PangoFontDescription* baseFont = fontDescription(first != nullptr ? first->attributes : TextAttributes{});
    pango_layout_set_font_description(layout, baseFont);
    pango_font_description_free(baseFont);

    PangoAttrList* attributes = pango_attr_list_new();
    size_t runStart = 0;
    for (const TextRun& run : text.runs()) {
        const size_t runEnd = runStart + run.length;
        const size_t from = std::max(runStart, start);
        const size_t to = std::min(runEnd, end);
        runStart = runEnd;
        if (from >= to) {
            continue;
        }
        const size_t localStart = from - start;
        const size_t localEnd = to - start;
        const TextAttributes& a = run.attributes;
        // What the layout's own font and the drawing's black already say costs nothing to
        // leave out, and most runs of a document are just that.
        if (first == nullptr || !sameFace(a, first->attributes)) {
            PangoFontDescription* font = fontDescription(a);
            insertAttribute(attributes, pango_attr_font_desc_new(font), localStart, localEnd);
            pango_font_description_free(font);
        }
        if (a.color.red != 0.0 || a.color.green != 0.0 || a.color.blue != 0.0) {
            insertAttribute(attributes,
                            pango_attr_foreground_new(colorComponent(a.color.red), colorComponent(a.color.green),
                                                      colorComponent(a.color.blue)),
                            localStart, localEnd);
        }
        if (a.color.alpha < 1.0) {
            insertAttribute(attributes, pango_attr_foreground_alpha_new(colorComponent(a.color.alpha)), localStart,
                            localEnd);
        }
        if (a.underline) {
            insertAttribute(attributes, pango_attr_underline_new(PANGO_UNDERLINE_SINGLE), localStart, localEnd);
        }
        if (a.baselineOffset != 0.0) {
            insertAttribute(attributes, pango_attr_rise_new(pangoUnits(a.baselineOffset)), localStart, localEnd);
        }
    }
    insertAttribute(attributes, pango_attr_insert_hyphens_new(options.hyphenate ? TRUE : FALSE), 0, paragraph.size());
    pango_layout_set_attributes(layout, attributes);
    pango_attr_list_unref(attributes);

    const double left = std::min(style.firstLineHeadIndent, style.headIndent);
    const double right = style.tailIndent > 0.0 ? style.tailIndent : width + style.tailIndent;
    pango_layout_set_width(layout, pangoUnits(std::max(right - left, 1.0)));
    pango_layout_set_indent(layout, pangoUnits(style.firstLineHeadIndent - style.headIndent));
    // Words longer than a line break between characters rather than overflow the box.
    pango_layout_set_wrap(layout, PANGO_WRAP_WORD_CHAR);
    switch (style.alignment) {
        case TextAlignment::Right:
            pango_layout_set_alignment(layout, PANGO_ALIGN_RIGHT);
            break;
        case TextAlignment::Center:
            pango_layout_set_alignment(layout, PANGO_ALIGN_CENTER);
            break;
        case TextAlignment::Justified:
            pango_layout_set_justify(layout, TRUE);
            pango_layout_set_alignment(layout, PANGO_ALIGN_LEFT);
            break;
        case TextAlignment::Left:
        case TextAlignment::Natural:
            pango_layout_set_alignment(layout, PANGO_ALIGN_LEFT);
            break;
    }
    PangoTabArray* tabs = nullptr;
    if (style.tabStops.empty()) {
        tabs = pango_tab_array_new(2, FALSE);
        pango_tab_array_set_tab(tabs, 0, PANGO_TAB_LEFT, pangoUnits(kDefaultTabInterval));
        pango_tab_array_set_tab(tabs, 1, PANGO_TAB_LEFT, pangoUnits(2 * kDefaultTabInterval));
    } else {
        tabs = pango_tab_array_new(static_cast<gint>(style.tabStops.size()), FALSE);
        for (size_t i = 0; i < style.tabStops.size(); ++i) {
            pango_tab_array_set_tab(tabs, static_cast<gint>(i), tabAlignment(style.tabStops[i].alignment),
                                    pangoUnits(std::max(style.tabStops[i].location - left, 0.0)));
        }
    }
    pango_layout_set_tabs(layout, tabs);
    pango_tab_array_free(tabs);

    PangoLayoutIter* iterator = pango_layout_get_iter(layout);
    bool firstLine = true;
    do {
        PangoLayoutLine* line = pango_layout_iter_get_line_readonly(iterator);
        PangoRectangle logical;
        pango_layout_iter_get_line_extents(iterator, nullptr, &logical);
        PangoRectangle lineLogical;
        pango_layout_line_get_extents(line, nullptr, &lineLogical);
        const double natural = static_cast<double>(logical.height) / PANGO_SCALE;
        const double ascent = static_cast<double>(pango_layout_iter_get_baseline(iterator) - logical.y) / PANGO_SCALE;
        double lineHeight = natural;
        if (style.lineHeightMultiple > 0.0) {
            lineHeight *= style.lineHeightMultiple;
        }
        if (style.minimumLineHeight > 0.0) {
            lineHeight = std::max(lineHeight, style.minimumLineHeight);
        }
        if (style.maximumLineHeight > 0.0) {
            lineHeight = std::min(lineHeight, style.maximumLineHeight);
        }
        lineHeight = std::isfinite(lineHeight) ? std::clamp(lineHeight, 0.0, kLargestLength) : natural;
        if (!firstLine) {
            y += boundedLength(style.lineSpacing);
        }
        firstLine = false;
        // Extra height goes above the glyphs, as in the platform's text system.
        const double baseline = y + lineHeight - (natural - ascent);

        PlacedLine placed;
        placed.line = line;
        placed.originX = left + static_cast<double>(logical.x - lineLogical.x) / PANGO_SCALE;
        placed.info.x = left + static_cast<double>(logical.x) / PANGO_SCALE;
        placed.info.y = y;
        placed.info.width = static_cast<double>(logical.width) / PANGO_SCALE;
        placed.info.height = lineHeight;
        placed.info.baseline = baseline;
        const auto lineStart = static_cast<size_t>(line->start_index);
        const auto lineLength = static_cast<size_t>(line->length);
        placed.info.text = std::string(paragraph.substr(lineStart, lineLength));
        addLinks(text, placed, start + lineStart, start + lineStart + lineLength, start);
        m_lines.push_back(std::move(placed));
        y += lineHeight;
    } while (pango_layout_iter_next_line(iterator));
    pango_layout_iter_free(iterator);
    m_height = y;
    previous = &style;
}

// A link run gives one rectangle per line it covers, from its first character's leading
// edge to its last one's trailing edge, the line's height high.
void LaidText::addLinks(const RichText& text, const PlacedLine& line, size_t lineStart, size_t lineEnd,
                        size_t paragraphStart) {
    size_t runStart = 0;
    for (const TextRun& run : text.runs()) {
        const size_t from = std::max(runStart, lineStart);
        const size_t to = std::min(runStart + run.length, lineEnd);
        runStart += run.length;
        if (run.attributes.link.empty() || from >= to) {
            continue;
        }
        int left = 0;
        int right = 0;
        pango_layout_line_index_to_x(line.line, static_cast<int>(from - paragraphStart), FALSE, &left);
        pango_layout_line_index_to_x(line.line, static_cast<int>(to - paragraphStart), FALSE, &right);
        if (to == lineEnd) {
            PangoRectangle logical;
            pango_layout_line_get_extents(line.line, nullptr, &logical);
            right = logical.x + logical.width;
        }
        const double x = line.originX + static_cast<double>(std::min(left, right)) / PANGO_SCALE;
        m_links.push_back(
            {run.attributes.link,
             {x, line.info.y, static_cast<double>(std::abs(right - left)) / PANGO_SCALE, line.info.height}});
    }
}

constexpr std::string_view kSoftHyphen = "\u00AD";

// What a person reads on a line: soft hyphens vanish except where the line breaks at one,
// trailing spaces go, and a word broken at the line's end shows its hyphen.
void describeLines(std::vector<PlacedLine>& lines, const TextLayoutOptions& options) {
    for (size_t i = 0; i < lines.size(); ++i) {
        std::string& text = lines[i].info.text;
        const bool continues = i + 1 < lines.size() && lines[i + 1].line->is_paragraph_start == 0;
        bool hyphen = false;
        if (continues && options.hyphenate) {
            const std::string& next = lines[i + 1].info.text;
            hyphen = text.ends_with(kSoftHyphen) ||
                     (!text.empty() && !next.empty() && isWordByte(static_cast<unsigned char>(text.back())) &&
                      isWordByte(static_cast<unsigned char>(next.front())) && !next.starts_with(kSoftHyphen));
        }
        for (size_t at = text.find(kSoftHyphen); at != std::string::npos; at = text.find(kSoftHyphen, at)) {
            text.erase(at, kSoftHyphen.size());
        }
        while (!text.empty() && (text.back() == ' ' || text.back() == '\t' || text.back() == '\r')) {
            text.pop_back();
        }
        if (hyphen) {
            text += '-';
        }
    }
}

}  // namespace

TextMeasure measureText(const RichText& text, double widthPoints, const TextLayoutOptions& options) {
    LaidText laid;
    laid.lay(text, widthPoints, options);
    std::vector<PlacedLine> lines = laid.lines();
    describeLines(lines, options);
    TextMeasure measure;
    measure.height = laid.height();
    measure.links = laid.links();
    for (PlacedLine& line : lines) {
        measure.lines.push_back(std::move(line.info));
    }
    return measure;
}

void drawText(cairo_t* cairo, const RichText& text, const Rect& rect, const TextLayoutOptions& options) {
    if (cairo == nullptr || cairo_status(cairo) != CAIRO_STATUS_SUCCESS) {
        return;
    }
    LaidText laid;
    laid.lay(text, rect.width, options);
    cairo_save(cairo);
    // Runs without a colour of their own are black.
    cairo_set_source_rgb(cairo, 0.0, 0.0, 0.0);
    for (const PlacedLine& line : laid.lines()) {
        cairo_move_to(cairo, rect.x + line.originX, rect.y + line.info.baseline);
        pango_cairo_show_layout_line(cairo, line.line);
    }
    cairo_restore(cairo);
}

std::optional<TextAttributes> parseFontDescription(const std::string& description) {
    PangoFontDescription* font = pango_font_description_from_string(description.c_str());
    const bool hasSize = (pango_font_description_get_set_fields(font) & PANGO_FONT_MASK_SIZE) != 0;
    std::optional<TextAttributes> attributes;
    const char* family = pango_font_description_get_family(font);
    if (hasSize && pango_font_description_get_size(font) > 0 && family != nullptr) {
        attributes.emplace();
        attributes->fontFamily = family;
        attributes->fontSize = static_cast<double>(pango_font_description_get_size(font)) / PANGO_SCALE;
        attributes->fontWeight = static_cast<int>(pango_font_description_get_weight(font));
        attributes->italic = pango_font_description_get_style(font) != PANGO_STYLE_NORMAL;
    }
    pango_font_description_free(font);
    return attributes;
}

}  // namespace brassline
