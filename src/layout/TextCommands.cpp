#include "layout/TextCommands.h"

#include <cmath>
#include <cstdio>
#include <ostream>

#include "core/Value.h"
#include "layout/TextLayout.h"
#include "store/CommandFile.h"

namespace brassline::textcommands {

namespace {

// Heights print to the hundredth of a point: finer differences are font rounding.
double hundredths(double value) {
    return std::round(value * 100.0) / 100.0;
}

}  // namespace

int renderText(const std::string& text, double widthPoints, const std::string& font, bool hyphenate, bool json,
               std::ostream& out, std::ostream& err) {
    if (!std::isfinite(widthPoints) || widthPoints <= 0.0) {
        err << "brassline: the width must be a positive number of points\n";
        return exitcode::kBadInput;
    }
    TextAttributes attributes;
    if (!font.empty()) {
        const std::optional<TextAttributes> parsed = parseFontDescription(font);
        if (!parsed) {
            err << "brassline: \"" << font << "\" is no font description such as \"Liberation Sans 12\"\n";
            return exitcode::kBadInput;
        }
        attributes = *parsed;
    }
    TextLayoutOptions options;
    options.hyphenate = hyphenate;
    const TextMeasure measure = measureText(RichText::plain(text, attributes), widthPoints, options);
    if (json) {
        Value::Array lines;
        for (const TextLine& line : measure.lines) {
            lines.emplace_back(line.text);
        }
        Value::Dictionary result;
        result.emplace("height", Value(hundredths(measure.height)));
        result.emplace("lines", Value(std::move(lines)));
        out << Value(std::move(result)).toJSON() << "\n";
        return exitcode::kSuccess;
    }
    char height[32];
    std::snprintf(height, sizeof height, "%.2f", measure.height);
    out << "height " << height << "\n";
    for (const TextLine& line : measure.lines) {
        out << line.text << "\n";
    }
    return exitcode::kSuccess;
}

}  // namespace brassline::textcommands
