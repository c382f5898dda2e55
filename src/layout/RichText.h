#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "core/KeyedArchive.h"
#include "layout/PlatformValues.h"

// The text of a text element as the text layer sees it: runs of character attributes and
// paragraph styles over UTF-8 text, read from and written to the archived rich text
// (BLAttributedString). Each run keeps the attribute dictionary it was read from, so that
// attributes this program doesn't draw (kerning, shadows, ...) and the very objects of
// untouched attributes are written back as they came.

namespace brassline {

// The character attributes that the text layer draws.
struct TextAttributes {
    // The archived PostScript name ("LiberationSans-Bold"); empty for a font set here,
    // which is written under a name composed from family, weight and slant.
    std::string fontName;
    std::string fontFamily = "Helvetica";
    double fontSize = 12.0;
    int fontWeight = 400;  // 100 to 900, as CSS and fontconfig count.
    bool italic = false;
    RGBA color;
    bool underline = false;
    std::string link;
    double baselineOffset = 0.0;  // Points, upwards.
    bool operator==(const TextAttributes&) const = default;
};

struct TabStop {
    double location = 0.0;  // Points from the text's left edge.
    TextAlignment alignment = TextAlignment::Left;
    bool operator==(const TabStop&) const = default;
};

// Paragraph styles: zero means "not set" for the line heights, as the archive has it. A
// positive tail indent counts from the left edge, zero or less from the right edge.
struct ParagraphStyle {
    TextAlignment alignment = TextAlignment::Natural;
    double lineHeightMultiple = 0.0;
    double minimumLineHeight = 0.0;
    double maximumLineHeight = 0.0;
    double lineSpacing = 0.0;
    double paragraphSpacing = 0.0;
    double paragraphSpacingBefore = 0.0;
    double firstLineHeadIndent = 0.0;
    double headIndent = 0.0;
    double tailIndent = 0.0;
    std::vector<TabStop> tabStops;
    // The marker formats of the text lists the paragraph lies in, outermost first
    // ("{disc}", "{decimal}.").
    std::vector<std::string> textListMarkerFormats;
    bool operator==(const ParagraphStyle&) const = default;
};

struct TextRun {
    size_t length = 0;  // UTF-8 bytes.
    TextAttributes attributes;
    ParagraphStyle paragraphStyle;
    KeyedNode archived;  // The dictionary the run was read from; null for runs made here.
};

// Family, weight and slant of a PostScript font name: "LiberationSans-BoldItalic" is
// "Liberation Sans" 700 italic, "ArialMT" is "Arial" 400. A name with spaces is a family.
struct FontTraits {
    std::string family;
    int weight = 400;
    bool italic = false;
    bool operator==(const FontTraits&) const = default;
};
FontTraits fontTraitsFromName(std::string_view postScriptName);
// The PostScript name of a family with a weight and slant: "LiberationSans-Bold".
std::string postScriptFontName(std::string_view family, int weight, bool italic);

// The marker of a list item: "{disc}" gives "•", "{decimal}." for 3 gives "3.", "{lower-alpha})"
// for 28 gives "ab)"; text outside the braces stays.
std::string markerForItemNumber(std::string_view format, int64_t number);

class RichText {
public:
    RichText() = default;
    static RichText plain(std::string text, TextAttributes attributes = {}, ParagraphStyle style = {});
    // Attributes the archive doesn't hold read as the defaults above: Helvetica 12, black.
    static RichText fromAttributedString(const BLAttributedString& string);
    // The archived form. Attributes unchanged since reading keep their archived objects.
    std::shared_ptr<BLAttributedString> attributedString() const;

    const std::string& text() const { return m_text; }
    const std::vector<TextRun>& runs() const { return m_runs; }
    // Run lengths must keep adding up to the text's length.
    std::vector<TextRun>& mutableRuns() { return m_runs; }
    void append(std::string_view text, TextAttributes attributes, ParagraphStyle style = {});
    // The run at a byte offset (the last run at the end); nullptr for an empty text.
    const TextRun* runAt(size_t offset) const;

private:
    std::string m_text;
    std::vector<TextRun> m_runs;
};

}  // namespace brassline
