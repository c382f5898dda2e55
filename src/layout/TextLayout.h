#pragma once

#include <optional>
#include <string>
#include <vector>

#include "layout/LayoutGeometry.h"
#include "layout/RichText.h"

using cairo_t = struct _cairo;

// Measuring and drawing rich text: Pango shapes and breaks the lines with fonts that
// fontconfig finds, cairo paints them. The same lines go to a PDF page, an image and the
// preview, so a text breaks alike wherever it is drawn. Measures are in points at 72 dpi
// with unhinted metrics. Each thread has its own font map; calls from any thread.

namespace brassline {

struct TextLayoutOptions {
    // Breaks at soft hyphens and inside words too long for a line, with a visible hyphen.
    bool hyphenate = false;
};

struct TextLine {
    std::string text;  // Trailing spaces dropped; a hyphen added where the line breaks a word.
    double x = 0.0;    // The left edge of the line's text, from the text's left edge.
    double y = 0.0;    // The top of the line.
    double width = 0.0;
    double height = 0.0;
    double baseline = 0.0;  // From the text's top.
};

// Where a link's text stands, from the text's top left: what a PDF page makes a link of.
struct TextLink {
    std::string url;
    Rect rect;
};

struct TextMeasure {
    double height = 0.0;  // The used height; 0 for an empty text.
    std::vector<TextLine> lines;
    std::vector<TextLink> links;  // One per link run and line, in text order.
};

// The lines of `text` broken at `widthPoints`.
TextMeasure measureText(const RichText& text, double widthPoints, const TextLayoutOptions& options = {});
// Draws `text` broken at the rectangle's width, its first line at the rectangle's top.
void drawText(cairo_t* cairo, const RichText& text, const Rect& rect, const TextLayoutOptions& options = {});

// A font description as a person writes it ("Liberation Serif 11", "Helvetica Bold 9"):
// family, optional style words, size in points. Nothing without a size.
std::optional<TextAttributes> parseFontDescription(const std::string& description);

}  // namespace brassline
