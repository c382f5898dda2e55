#include "layout/LayoutGeometry.h"

#include <charconv>
#include <cmath>
#include <vector>

namespace brassline {

Rect Rect::integral() const {
    if (isEmpty()) {
        return {};
    }
    const double left = std::floor(x);
    const double top = std::floor(y);
    return {left, top, std::ceil(right()) - left, std::ceil(bottom()) - top};
}

std::string shortNumber(double value) {
    if (value == 0.0 || !std::isfinite(value)) {
        return "0";
    }
    char buffer[32];
    const auto result = std::to_chars(buffer, buffer + sizeof buffer, value);
    return std::string(buffer, result.ptr);
}

std::string stringFromSize(Size size) {
    return "{" + shortNumber(size.width) + ", " + shortNumber(size.height) + "}";
}

std::string stringFromRect(const Rect& rect) {
    return "{{" + shortNumber(rect.x) + ", " + shortNumber(rect.y) + "}, {" + shortNumber(rect.width) + ", " +
           shortNumber(rect.height) + "}}";
}

namespace {

// The numbers of a geometry string in order, whatever braces and blanks stand between them.
std::vector<double> numbersIn(std::string_view text, size_t wanted) {
    std::vector<double> numbers;
    size_t index = 0;
    while (index < text.size() && numbers.size() < wanted) {
        const char c = text[index];
        if ((c >= '0' && c <= '9') || c == '-' || c == '+' || c == '.') {
            double value = 0.0;
            const char* begin = text.data() + index + (c == '+' ? 1 : 0);
            const auto result = std::from_chars(begin, text.data() + text.size(), value);
            if (result.ec != std::errc() || !std::isfinite(value)) {
                return {};
            }
            numbers.push_back(value);
            index = static_cast<size_t>(result.ptr - text.data());
        } else {
            ++index;
        }
    }
    return numbers;
}

}  // namespace

std::optional<Size> sizeFromString(std::string_view text) {
    const std::vector<double> numbers = numbersIn(text, 2);
    if (numbers.size() < 2) {
        return std::nullopt;
    }
    return Size{numbers[0], numbers[1]};
}

std::optional<Rect> rectFromString(std::string_view text) {
    const std::vector<double> numbers = numbersIn(text, 4);
    if (numbers.size() < 4) {
        return std::nullopt;
    }
    return Rect{numbers[0], numbers[1], numbers[2], numbers[3]};
}

}  // namespace brassline
