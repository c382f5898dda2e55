#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

#include "layout/LayoutClasses.h"
#include "layout/RichText.h"
#include "layout/TextLayout.h"

namespace brassline {
namespace {

std::shared_ptr<BLAttributedString> throughArchive(const BLAttributedString& string) {
    registerLayoutClasses();
    const std::optional<Bytes> data = KeyedArchiver::archivedDataWithRootObject(string);
    if (!data) {
        return nullptr;
    }
    return std::dynamic_pointer_cast<BLAttributedString>(KeyedUnarchiver::unarchiveArchivableWithData(*data));
}

TEST(RichTextTest, RunAttributesAndParagraphStylesSurviveTheArchive) {
    TextAttributes emphasis;
    emphasis.fontFamily = "Liberation Serif";
    emphasis.fontSize = 14.5;
    emphasis.fontWeight = 700;
    emphasis.italic = true;
    emphasis.color = {1.0, 0.0, 0.0, 1.0};
    emphasis.underline = true;
    emphasis.link = "https://example.com/pay";
    emphasis.baselineOffset = 3;
    ParagraphStyle list;
    list.alignment = TextAlignment::Justified;
    list.lineHeightMultiple = 1.5;
    list.minimumLineHeight = 10;
    list.maximumLineHeight = 30;
    list.lineSpacing = 2;
    list.paragraphSpacing = 6;
    list.paragraphSpacingBefore = 4;
    list.firstLineHeadIndent = 0;
    list.headIndent = 24;
    list.tailIndent = -12;
    list.tabStops = {{24, TextAlignment::Left}, {300, TextAlignment::Right}};
    list.textListMarkerFormats = {"{decimal}."};

    RichText text = RichText::plain("Pay ", TextAttributes{}, list);
    text.append("now ✓", emphasis, list);
    text.append("\nthanks", TextAttributes{}, ParagraphStyle{});

    std::shared_ptr<BLAttributedString> back = throughArchive(*text.attributedString());
    ASSERT_NE(back, nullptr);
    const RichText read = RichText::fromAttributedString(*back);
    EXPECT_EQ(read.text(), text.text());
    ASSERT_EQ(read.runs().size(), 3U);
    for (size_t i = 0; i < 3; ++i) {
        SCOPED_TRACE(i);
        const TextRun& written = text.runs()[i];
        const TextRun& run = read.runs()[i];
        EXPECT_EQ(run.length, written.length);
        EXPECT_EQ(run.paragraphStyle, written.paragraphStyle);
        // The name is composed on writing; everything the name stands for comes back.
        TextAttributes expected = written.attributes;
        expected.fontName = run.attributes.fontName;
        EXPECT_EQ(run.attributes, expected);
    }
    EXPECT_EQ(read.runs()[1].attributes.fontName, "LiberationSerif-BoldItalic");
    // 14.5 goes through a 32-bit float exactly.
    EXPECT_EQ(read.runs()[1].attributes.fontSize, 14.5);
}

TEST(RichTextTest, UntouchedAttributesKeepTheirArchivedObjects) {
    // A catalog colour and a kerning value that the text layer doesn't draw.
    auto catalog = BLColor::catalogColor("System", "textColor");
    KeyedNode attributes = BLAttributedString::attributes(BLFont::fontWithName("ArialMT", 9), catalog, nullptr);
    attributes.keys.emplace_back("NSKern");
    attributes.elements.push_back(KeyedNode::fromValue(Value(1.5)));
    auto archived = BLAttributedString::stringWithAttributes("Total", attributes);
    std::shared_ptr<BLAttributedString> loaded = throughArchive(*archived);
    ASSERT_NE(loaded, nullptr);

    RichText text = RichText::fromAttributedString(*loaded);
    ASSERT_EQ(text.runs().size(), 1U);
    EXPECT_EQ(text.runs()[0].attributes.fontFamily, "Arial");
    EXPECT_EQ(text.runs()[0].attributes.fontSize, 9.0);

    // Unchanged: the very same colour and font objects go back.
    std::shared_ptr<BLAttributedString> same = text.attributedString();
    ASSERT_EQ(same->runs().size(), 1U);
    const KeyedNode& sameAttributes = same->runs()[0].attributes;
    EXPECT_EQ(sameAttributes.member("NSColor")->object, loaded->runs()[0].attributes.member("NSColor")->object);
    EXPECT_EQ(sameAttributes.member("NSFont")->object, loaded->runs()[0].attributes.member("NSFont")->object);

    // Underlined and set bold: the font gets a composed name, the colour stays the
    // catalog colour, and the kerning is still there.
    text.mutableRuns()[0].attributes.underline = true;
    text.mutableRuns()[0].attributes.fontWeight = 700;
    std::shared_ptr<BLAttributedString> changed = throughArchive(*text.attributedString());
    ASSERT_NE(changed, nullptr);
    const KeyedNode& changedAttributes = changed->runs()[0].attributes;
    ASSERT_NE(changedAttributes.member("NSKern"), nullptr);
    EXPECT_EQ(changedAttributes.member("NSKern")->value.toDouble(), 1.5);
    const auto* color = dynamic_cast<const BLColor*>(changedAttributes.member("NSColor")->object.get());
    ASSERT_NE(color, nullptr);
    EXPECT_EQ(color->colorName(), "textColor");
    const auto* font = dynamic_cast<const BLFont*>(changedAttributes.member("NSFont")->object.get());
    ASSERT_NE(font, nullptr);
    EXPECT_EQ(font->fontName(), "Arial-Bold");
    EXPECT_TRUE(RichText::fromAttributedString(*changed).runs()[0].attributes.underline);
}

TEST(RichTextTest, DamagedNumbersReadAsNotSetAndMeasureFinitely) {
    auto style = std::make_shared<BLParagraphStyle>();
    style->setValue("NSLineHeightMultiple", std::numeric_limits<double>::quiet_NaN());
    style->setValue("NSHeadIndent", std::numeric_limits<double>::infinity());
    style->setValue("NSMinLineHeight", 1.0e300);
    style->setValue("NSParagraphSpacing", -std::numeric_limits<double>::infinity());
    auto tab = std::make_shared<BLPlatformObject>("NSTextTab", std::vector<std::string>{"NSObject"});
    tab->fields().set("NSLocation", KeyedNode::fromValue(Value(std::numeric_limits<double>::quiet_NaN())));
    tab->fields().set("NSAlignment", KeyedNode::fromValue(Value(1.0e300)));
    style->fields().set("NSTabStops", KeyedNode::array({KeyedNode::fromObject(tab)}));
    auto archived = BLAttributedString::stringWithAttributes(
        "aaaa\taaaa\naaaa", BLAttributedString::attributes(BLFont::fontWithName("LiberationSans", 10), nullptr, style));
    const RichText text = RichText::fromAttributedString(*archived);
    ASSERT_EQ(text.runs().size(), 1U);
    const ParagraphStyle& read = text.runs()[0].paragraphStyle;
    EXPECT_EQ(read.lineHeightMultiple, 0.0);
    EXPECT_EQ(read.headIndent, 0.0);
    EXPECT_EQ(read.paragraphSpacing, 0.0);
    ASSERT_EQ(read.tabStops.size(), 1U);
    EXPECT_EQ(read.tabStops[0].location, 0.0);
    EXPECT_EQ(read.tabStops[0].alignment, TextAlignment::Left);
    // A minimum line height of 1e300 is a number, but no page holds it: each of the two
    // lines is bounded at a million points.
    const TextMeasure measure = measureText(text, 200);
    ASSERT_EQ(measure.lines.size(), 2U);
    EXPECT_TRUE(std::isfinite(measure.height));
    EXPECT_LE(measure.height, 2.0e6);
}

TEST(RichTextTest, PostScriptNamesReadAsFamilyWeightAndSlant) {
    struct Case {
        const char* name;
        FontTraits traits;
    };
    const Case cases[] = {
        {"LiberationSans", {"Liberation Sans", 400, false}},
        {"LiberationSans-BoldItalic", {"Liberation Sans", 700, true}},
        {"LiberationSerif-Italic", {"Liberation Serif", 400, true}},
        {"Helvetica-Bold", {"Helvetica", 700, false}},
        {"Helvetica-Oblique", {"Helvetica", 400, true}},
        {"ArialMT", {"Arial", 400, false}},
        {"TimesNewRomanPSMT", {"Times New Roman", 400, false}},
        // "SemiBold" is not "Bold"; "Light" with a slant.
        {"SourceSansPro-SemiBold", {"Source Sans Pro", 600, false}},
        {"Avenir-LightOblique", {"Avenir", 300, true}},
        {"OCRB", {"OCRB", 400, false}},
        {"Liberation Sans", {"Liberation Sans", 400, false}},
        {"", {"Helvetica", 400, false}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(fontTraitsFromName(c.name), c.traits);
    }
    EXPECT_EQ(postScriptFontName("Liberation Sans", 400, false), "LiberationSans");
    EXPECT_EQ(postScriptFontName("Liberation Sans", 700, true), "LiberationSans-BoldItalic");
    EXPECT_EQ(postScriptFontName("Source Sans Pro", 600, false), "SourceSansPro-SemiBold");
}

TEST(RichTextTest, ListMarkersCountInTheirFormats) {
    struct Case {
        const char* format;
        int64_t number;
        const char* marker;
    };
    const Case cases[] = {
        {"{disc}", 7, "\u2022"},     {"{decimal}.", 3, "3."},       {"({decimal})", 12, "(12)"},
        {"{lower-alpha})", 1, "a)"}, {"{lower-alpha})", 26, "z)"},  {"{lower-alpha})", 28, "ab)"},
        {"{upper-alpha}", 27, "AA"}, {"{lower-roman}", 4, "iv"},    {"{upper-roman}.", 1994, "MCMXCIV."},
        {"{hyphen}", 1, "\u2043"},   {"no braces", 2, "no braces"}, {"{decimal", 2, "{decimal"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.format) + " " + std::to_string(c.number));
        EXPECT_EQ(markerForItemNumber(c.format, c.number), c.marker);
    }
}

}  // namespace
}  // namespace brassline
