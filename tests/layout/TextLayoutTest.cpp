#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include <cairo.h>
#include <gtest/gtest.h>

#include "core/Log.h"
#include "layout/RichText.h"
#include "layout/TextCommands.h"
#include "layout/TextLayout.h"

namespace brassline {
namespace {

// The figures below come from the fonts' own tables (units per em 2048), not from the
// code under test. Liberation Sans: "a" and every digit advance 1139, space 569, hyphen
// 682; ascent 1854 + descent 434 = 2288, so one line of 10 points is 11.171875 high.
// Liberation Serif: digits 1024, space 512; ascent 1825 + descent 443 = 2268, a line of
// 12 points 13.2890625.
constexpr double kSansLine10 = 2288.0 / 2048.0 * 10.0;
constexpr double kSerifLine12 = 2268.0 / 2048.0 * 12.0;
constexpr double kSansA10 = 1139.0 / 2048.0 * 10.0;  // 5.5615 points.

TextAttributes textFont(const std::string& family, double size) {
    TextAttributes attributes;
    attributes.fontFamily = family;
    attributes.fontSize = size;
    return attributes;
}

std::vector<std::string> lineTexts(const TextMeasure& measure) {
    std::vector<std::string> texts;
    for (const TextLine& line : measure.lines) {
        texts.push_back(line.text);
    }
    return texts;
}

TEST(TextLayoutTest, KnownTextsBreakWhereTheirWidthsSay) {
    struct Case {
        const char* text;
        const char* family;
        double size;
        double width;
        std::vector<std::string> lines;
        double height;
    };
    // "aaaa" is 4 x 5.5615 = 22.246; "aaaa aaaa" 22.246 + 2.778 + 22.246 = 47.270 points.
    // Liberation Serif 12: "2222" is 4 x 6 = 24, "2222 3333" 24 + 3 + 24 = 51 points (not "1111":
    // the font kerns "11").
    const Case cases[] = {
        {"aaaa aaaa aaaa", "Liberation Sans", 10, 50, {"aaaa aaaa", "aaaa"}, 2 * kSansLine10},
        {"aaaa aaaa aaaa", "Liberation Sans", 10, 47.3, {"aaaa aaaa", "aaaa"}, 2 * kSansLine10},
        {"aaaa aaaa aaaa", "Liberation Sans", 10, 47.2, {"aaaa", "aaaa", "aaaa"}, 3 * kSansLine10},
        {"aaaa aaaa aaaa", "Liberation Sans", 10, 200, {"aaaa aaaa aaaa"}, kSansLine10},
        {"aaaa\naaaa", "Liberation Sans", 10, 200, {"aaaa", "aaaa"}, 2 * kSansLine10},
        // A closing line break opens an empty last line, which counts in the height.
        {"aaaa\n", "Liberation Sans", 10, 200, {"aaaa", ""}, 2 * kSansLine10},
        {"", "Liberation Sans", 10, 200, {}, 0.0},
        {"2222 3333", "Liberation Serif", 12, 51.1, {"2222 3333"}, kSerifLine12},
        {"2222 3333", "Liberation Serif", 12, 50.9, {"2222", "3333"}, 2 * kSerifLine12},
        // Twelve "a" are 66.7 points: a word wider than the line breaks between letters.
        {"aaaaaaaaaaaa", "Liberation Sans", 10, 30, {"aaaaa", "aaaaa", "aa"}, 3 * kSansLine10},
        // Bytes that are no UTF-8 are drawn as "?" and move nothing after them.
        {"aa\xff\xfe a\xc3", "Liberation Sans", 10, 200, {"aa?? a?"}, kSansLine10},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " at " + std::to_string(c.width));
        const TextMeasure measure = measureText(RichText::plain(c.text, textFont(c.family, c.size)), c.width);
        EXPECT_EQ(lineTexts(measure), c.lines);
        EXPECT_NEAR(measure.height, c.height, 0.01);
    }
}

TEST(TextLayoutTest, HyphenationShowsHyphensOnlyWhenAsked) {
    struct Case {
        const char* text;
        bool hyphenate;
        std::vector<std::string> lines;
    };
    // At 30 points five "a" (27.8) fit, but four and a hyphen (22.2 + 3.3 = 25.6) is all
    // that fits once the break shows a hyphen: "aaaaa-" would be 31.1.
    const Case cases[] = {
        {"aaaaaaaaaaaa", false, {"aaaaa", "aaaaa", "aa"}},
        {"aaaaaaaaaaaa", true, {"aaaa-", "aaaa-", "aaaa"}},
        // A soft hyphen is a break; it shows only with hyphenation and is never text.
        {"aaaa\u00ADaaaa", true, {"aaaa-", "aaaa"}},
        {"aaaa\u00ADaaaa", false, {"aaaa", "aaaa"}},
        {"aa\u00ADaa", true, {"aaaa"}},
        // Breaking at a space shows no hyphen either way.
        {"aaaa aaaa", true, {"aaaa", "aaaa"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.text) + (c.hyphenate ? " hyphenated" : ""));
        TextLayoutOptions options;
        options.hyphenate = c.hyphenate;
        const TextMeasure measure = measureText(RichText::plain(c.text, textFont("Liberation Sans", 10)), 30, options);
        EXPECT_EQ(lineTexts(measure), c.lines);
    }
}

TEST(TextLayoutTest, AlignmentAndIndentsMoveTheLines) {
    struct Case {
        const char* name;
        ParagraphStyle style;
        std::vector<double> xs;  // Of each line of "aaaa aaaa" at 100 points.
    };
    const double word = 4 * kSansA10;  // 22.246
    ParagraphStyle right;
    right.alignment = TextAlignment::Right;
    ParagraphStyle center;
    center.alignment = TextAlignment::Center;
    ParagraphStyle hanging;
    hanging.headIndent = 15;
    hanging.firstLineHeadIndent = 5;
    ParagraphStyle firstIndented;
    firstIndented.firstLineHeadIndent = 15;
    firstIndented.headIndent = 5;
    ParagraphStyle tailFromRight;
    tailFromRight.alignment = TextAlignment::Right;
    tailFromRight.tailIndent = -10;
    ParagraphStyle tailFromLeft;
    tailFromLeft.alignment = TextAlignment::Right;
    tailFromLeft.tailIndent = 35;
    // At 40 points "aaaa aaaa" (47.3) breaks into "aaaa" and "aaaa" in every case: each
    // line keeps at least 25 points, more than a word's 22.2, so x is all that differs.
    const Case cases[] = {
        {"left", {}, {0, 0}},
        {"right", right, {40 - word, 40 - word}},
        {"center", center, {(40 - word) / 2, (40 - word) / 2}},
        {"hanging indent", hanging, {5, 15}},
        {"first line indent", firstIndented, {15, 5}},
        // A tail indent of -10 puts the right edge at 40 - 10 = 30; one of 35 at 35.
        {"tail from the right", tailFromRight, {30 - word, 30 - word}},
        {"tail from the left", tailFromLeft, {35 - word, 35 - word}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const TextMeasure measure =
            measureText(RichText::plain("aaaa aaaa", textFont("Liberation Sans", 10), c.style), 40);
        ASSERT_EQ(measure.lines.size(), c.xs.size());
        for (size_t i = 0; i < c.xs.size(); ++i) {
            EXPECT_NEAR(measure.lines[i].x, c.xs[i], 0.05) << "line " << i;
        }
    }
}

TEST(TextLayoutTest, LineHeightsFollowTheParagraphStyle) {
    struct Case {
        const char* name;
        const char* text;
        ParagraphStyle style;
        double height;
    };
    ParagraphStyle doubled;
    doubled.lineHeightMultiple = 2;
    ParagraphStyle minimum;
    minimum.minimumLineHeight = 20;
    ParagraphStyle maximum;
    maximum.maximumLineHeight = 8;
    ParagraphStyle spaced;
    spaced.lineSpacing = 5;
    ParagraphStyle paragraphs;
    paragraphs.paragraphSpacing = 6;
    paragraphs.paragraphSpacingBefore = 4;
    const Case cases[] = {
        {"multiple", "aaaa", doubled, 2 * kSansLine10},
        {"minimum", "aaaa", minimum, 20},
        {"maximum", "aaaa", maximum, 8},
        // Line spacing goes between lines, not after the last one.
        {"spacing one line", "aaaa", spaced, kSansLine10},
        {"spacing two lines", "aaaa aaaa aaaa", spaced, 3 * kSansLine10 + 2 * 5},
        // Between two paragraphs: the first's spacing after and the second's before.
        {"paragraph spacing", "aaaa\naaaa", paragraphs, 2 * kSansLine10 + 6 + 4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const TextMeasure measure = measureText(RichText::plain(c.text, textFont("Liberation Sans", 10), c.style), 30);
        EXPECT_NEAR(measure.height, c.height, 0.01);
    }
}

TEST(TextLayoutTest, LinksGetARectanglePerLine) {
    // "aaaa " is 22.246 + 2.778 = 25.024 points. At 50 points "aaaa aaaa" fits on line 1,
    // so a link over the 2nd and 3rd word stands from 25.02 on line 1 and from 0 to 22.25
    // on line 2.
    TextAttributes plain;
    plain.fontFamily = "Liberation Sans";
    plain.fontSize = 10;
    TextAttributes link = plain;
    link.link = "https://example.com/pay";
    RichText text = RichText::plain("aaaa ", plain);
    text.append("aaaa aaaa", link);
    text.append(" aaaa", plain);
    const TextMeasure measure = measureText(text, 50);
    ASSERT_EQ(lineTexts(measure), (std::vector<std::string>{"aaaa aaaa", "aaaa aaaa"}));
    ASSERT_EQ(measure.links.size(), 2U);
    const double word = 4 * kSansA10;
    const double space = 569.0 / 2048.0 * 10.0;
    EXPECT_EQ(measure.links[0].url, "https://example.com/pay");
    EXPECT_NEAR(measure.links[0].rect.x, word + space, 0.05);
    // The space at the break belongs to line 1 but takes no room there: the rectangle ends
    // with the ink, at 2 x 22.246 + 2.778 = 47.27.
    EXPECT_NEAR(measure.links[0].rect.right(), 2 * word + space, 0.05);
    EXPECT_NEAR(measure.links[0].rect.y, 0.0, 0.01);
    EXPECT_NEAR(measure.links[1].rect.x, 0.0, 0.05);
    EXPECT_NEAR(measure.links[1].rect.width, word, 0.05);
    EXPECT_NEAR(measure.links[1].rect.y, kSansLine10, 0.01);
    EXPECT_NEAR(measure.links[1].rect.height, kSansLine10, 0.01);
}

TEST(TextLayoutTest, AMissingFontFallsBackAndIsLoggedOnce) {
    LogCapture capture;
    const TextAttributes missing = textFont("Brassline Nowhere Sans", 10);
    const TextMeasure first = measureText(RichText::plain("aaaa", missing), 100);
    const TextMeasure second = measureText(RichText::plain("aaaa aaaa", missing), 100);
    ASSERT_EQ(first.lines.size(), 1U);
    EXPECT_GT(first.height, 0.0);
    EXPECT_EQ(second.lines.size(), 1U);
    size_t mentions = 0;
    for (const std::string& line : capture.lines()) {
        mentions += line.find("Brassline Nowhere Sans") != std::string::npos ? 1 : 0;
    }
    EXPECT_EQ(mentions, 1U);
    EXPECT_FALSE(capture.contains("\"Liberation Sans\" is not installed"));
    measureText(RichText::plain("aaaa", textFont("Liberation Sans", 10)), 100);
    EXPECT_FALSE(capture.contains("\"Liberation Sans\" is not installed"));
}

// Dark pixels in a box of an ARGB image (device pixels).
int inkIn(cairo_surface_t* surface, int x0, int y0, int x1, int y1) {
    cairo_surface_flush(surface);
    const unsigned char* data = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    int ink = 0;
    for (int y = y0; y < y1; ++y) {
        const auto* row = reinterpret_cast<const uint32_t*>(data + y * stride);
        for (int x = x0; x < x1; ++x) {
            const uint32_t pixel = row[x];
            const int luminance = static_cast<int>(((pixel >> 16) & 0xFF) + ((pixel >> 8) & 0xFF) + (pixel & 0xFF));
            ink += luminance < 3 * 128 ? 1 : 0;
        }
    }
    return ink;
}

TEST(TextLayoutTest, ADrawnParagraphPutsInkWhereItsLinesAre) {
    // A right-aligned paragraph in red at (20, 10), 90 points wide, drawn at 2x: four words
    // are 4 x 22.25 + 3 x 2.78 = 97.3 points, so the fourth goes to a line of its own.
    ParagraphStyle style;
    style.alignment = TextAlignment::Right;
    TextAttributes attributes = textFont("Liberation Sans", 10);
    attributes.color = {0.8, 0.0, 0.0, 1.0};
    RichText text = RichText::plain("aaaa aaaa aaaa aaaa", attributes, style);
    text.append("\nMMMM", textFont("Liberation Serif", 12), ParagraphStyle{});
    const TextMeasure measure = measureText(text, 90);
    ASSERT_EQ(lineTexts(measure), (std::vector<std::string>{"aaaa aaaa aaaa", "aaaa", "MMMM"}));

    cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 280, 120);
    cairo_t* cairo = cairo_create(surface);
    cairo_set_source_rgb(cairo, 1, 1, 1);
    cairo_paint(cairo);
    cairo_scale(cairo, 2, 2);
    drawText(cairo, text, {20, 10, 90, 50});
    cairo_destroy(cairo);
    const std::filesystem::path png = std::filesystem::path(::testing::TempDir()) / "brassline-text-layout.png";
    EXPECT_EQ(cairo_surface_write_to_png(surface, png.c_str()), CAIRO_STATUS_SUCCESS);

    // Line 2 "aaaa" (22.25 points) ends at the right edge, 110: x 87.75 to 110, y 21.2 to
    // 32.3, nothing left of it. Line 3, "MMMM" in Serif 12 (4 x 1821 / 2048 x 12 = 42.7
    // points), starts at 20; its capitals stand on the baseline at 32.3 + 10.7 = 43.0.
    EXPECT_GT(inkIn(surface, 2 * 89, 2 * 23, 2 * 109, 2 * 31), 40);
    EXPECT_EQ(inkIn(surface, 2 * 20, 2 * 23, 2 * 85, 2 * 31), 0);
    EXPECT_GT(inkIn(surface, 2 * 21, 2 * 36, 2 * 60, 2 * 43), 40);
    EXPECT_EQ(inkIn(surface, 2 * 70, 2 * 35, 2 * 120, 2 * 44), 0);
    // Nothing below the measured height nor left of the rectangle.
    EXPECT_EQ(inkIn(surface, 0, static_cast<int>(2 * (10 + measure.height)) + 2, 280, 120), 0);
    EXPECT_EQ(inkIn(surface, 0, 0, 2 * 19, 120), 0);
    // The red of the first paragraph is red: sample the darkest pixel of line 1.
    cairo_surface_flush(surface);
    const unsigned char* data = cairo_image_surface_get_data(surface);
    const int stride = cairo_image_surface_get_stride(surface);
    uint32_t darkest = 0xFFFFFFFF;
    for (int y = 2 * 12; y < 2 * 20; ++y) {
        for (int x = 2 * 60; x < 2 * 109; ++x) {
            const uint32_t pixel = reinterpret_cast<const uint32_t*>(data + y * stride)[x];
            if ((pixel & 0xFF00) < (darkest & 0xFF00)) {
                darkest = pixel;
            }
        }
    }
    EXPECT_GT((darkest >> 16) & 0xFF, 150U);
    EXPECT_LT((darkest >> 8) & 0xFF, 60U);
    cairo_surface_destroy(surface);
}

TEST(TextLayoutTest, RenderTextCommandPrintsHeightAndLines) {
    struct Case {
        const char* text;
        double width;
        const char* font;
        bool json;
        int exitCode;
        const char* out;
    };
    const Case cases[] = {
        {"aaaa aaaa aaaa", 47.2, "Liberation Sans 10", true, 0,
         "{\"height\":33.52,\"lines\":[\"aaaa\",\"aaaa\",\"aaaa\"]}\n"},
        {"aaaa aaaa", 100, "Liberation Sans 10", false, 0, "height 11.17\naaaa aaaa\n"},
        {"aaaa", 0, "", false, 1, ""},
        {"aaaa", 100, "Liberation Sans", false, 1, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(std::string(c.text) + " " + c.font);
        std::ostringstream out;
        std::ostringstream err;
        EXPECT_EQ(textcommands::renderText(c.text, c.width, c.font, false, c.json, out, err), c.exitCode);
        EXPECT_EQ(out.str(), c.out);
        EXPECT_EQ(err.str().empty(), c.exitCode == 0);
    }
}

TEST(TextLayoutTest, FontDescriptionsReadFamilyStyleAndSize) {
    const std::optional<TextAttributes> serif = parseFontDescription("Liberation Serif Bold Italic 11.5");
    ASSERT_TRUE(serif);
    EXPECT_EQ(serif->fontFamily, "Liberation Serif");
    EXPECT_EQ(serif->fontWeight, 700);
    EXPECT_TRUE(serif->italic);
    EXPECT_DOUBLE_EQ(serif->fontSize, 11.5);
    EXPECT_FALSE(parseFontDescription("Liberation Serif"));
}

}  // namespace
}  // namespace brassline
