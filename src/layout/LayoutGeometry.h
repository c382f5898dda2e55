#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace brassline {

// Layout geometry in points, origin top left, y growing downwards.
struct Size {
    double width = 0.0;
    double height = 0.0;
    bool operator==(const Size&) const = default;
};

struct Rect {
    double x = 0.0;
    double y = 0.0;
    double width = 0.0;
    double height = 0.0;

    double right() const { return x + width; }
    double bottom() const { return y + height; }
    Size size() const { return {width, height}; }
    bool isEmpty() const { return width <= 0.0 || height <= 0.0; }
    // The smallest rectangle with whole-number edges that holds this one.
    Rect integral() const;
    Rect insetBy(double dx, double dy) const { return {x + dx, y + dy, width - 2 * dx, height - 2 * dy}; }
    bool operator==(const Rect&) const = default;
};

// The platform's text forms: "{w, h}" and "{{x, y}, {w, h}}", numbers in their shortest form.
std::string stringFromSize(Size size);
std::string stringFromRect(const Rect& rect);
// Tolerant of blanks; nothing for text that holds fewer numbers than the form needs.
std::optional<Size> sizeFromString(std::string_view text);
std::optional<Rect> rectFromString(std::string_view text);
// A number as the platform's geometry strings write it ("595", "10.5").
std::string shortNumber(double value);

// The paper fallback when a layout has no pages: A4.
inline constexpr Size kFallbackPaperSize{595.0, 842.0};

}  // namespace brassline
