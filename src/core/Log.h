#pragma once

#include <concepts>
#include <cstddef>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace brassline {

namespace detail {

// One formatting argument, reduced to a handful of kinds so that the formatting work
// happens once, in Log.cpp, and not in a template per call site.
struct LogArg {
    enum class Kind : unsigned char { Signed, Unsigned, Floating, Text, Pointer };

    Kind kind = Kind::Text;
    long long integer = 0;
    unsigned long long unsignedInteger = 0;
    double floating = 0.0;
    const void* pointer = nullptr;
    std::string_view text;  // Views the argument itself or `owned`.
    std::string owned;

    LogArg() = default;
    LogArg(const LogArg&) = delete;
    LogArg& operator=(const LogArg&) = delete;
};

template <typename T>
concept HasToString = requires(const T& value) {
    { value.toString() } -> std::convertible_to<std::string>;
};

template <typename T>
concept HasISO8601String = requires(const T& value) {
    { value.iso8601String() } -> std::convertible_to<std::string>;
};

template <typename T>
void fillLogArg(LogArg& arg, const T& value) {
    using Plain = std::remove_cvref_t<T>;
    if constexpr (std::is_null_pointer_v<Plain>) {
        arg.text = "(null)";
    } else if constexpr (std::is_same_v<Plain, bool>) {
        arg.kind = LogArg::Kind::Signed;
        arg.integer = value ? 1 : 0;
    } else if constexpr (std::is_enum_v<Plain>) {
        fillLogArg(arg, static_cast<std::underlying_type_t<Plain>>(value));
    } else if constexpr (std::is_integral_v<Plain> && std::is_signed_v<Plain>) {
        arg.kind = LogArg::Kind::Signed;
        arg.integer = value;
    } else if constexpr (std::is_integral_v<Plain>) {
        arg.kind = LogArg::Kind::Unsigned;
        arg.unsignedInteger = value;
    } else if constexpr (std::is_floating_point_v<Plain>) {
        arg.kind = LogArg::Kind::Floating;
        arg.floating = static_cast<double>(value);
    } else if constexpr (std::is_convertible_v<const T&, std::string_view>) {
        if constexpr (std::is_pointer_v<Plain>) {
            arg.text = value != nullptr ? std::string_view(value) : std::string_view("(null)");
        } else {
            arg.text = std::string_view(value);
        }
    } else if constexpr (std::is_pointer_v<Plain>) {
        arg.kind = LogArg::Kind::Pointer;
        arg.pointer = value;
    } else if constexpr (HasToString<Plain>) {
        arg.owned = value.toString();
        arg.text = arg.owned;
    } else if constexpr (HasISO8601String<Plain>) {
        arg.owned = value.iso8601String();
        arg.text = arg.owned;
    } else {
        static_assert(sizeof(Plain) == 0, "logMessage: no text for this argument type");
    }
}

void logFormatted(std::string_view format, const LogArg* args, std::size_t count);
std::string formatLogMessage(std::string_view format, const LogArg* args, std::size_t count);

}  // namespace detail

// Writes one line to standard error and to the log file, like the system log. `format`
// takes printf conversions (%d %ld %u %x %f %.2f %e %g %s %c %p %%) and `%@`, which prints
// any argument as text: strings, numbers, and values with toString() (Decimal, Value) or
// iso8601String() (Date). Arguments are converted to fit each conversion, never misread; a
// missing argument prints as "(null)". Thread-safe; never fails the caller.
template <typename... Args>
void logMessage(std::string_view format, const Args&... args) {
    if constexpr (sizeof...(Args) == 0) {
        detail::logFormatted(format, nullptr, 0);
    } else {
        detail::LogArg list[sizeof...(Args)];
        std::size_t index = 0;
        (detail::fillLogArg(list[index++], args), ...);
        detail::logFormatted(format, list, sizeof...(Args));
    }
}

// The text that logMessage would write, without the line's time and process prefix.
template <typename... Args>
std::string formatMessage(std::string_view format, const Args&... args) {
    if constexpr (sizeof...(Args) == 0) {
        return detail::formatLogMessage(format, nullptr, 0);
    } else {
        detail::LogArg list[sizeof...(Args)];
        std::size_t index = 0;
        (detail::fillLogArg(list[index++], args), ...);
        return detail::formatLogMessage(format, list, sizeof...(Args));
    }
}

// The log file: by default $XDG_STATE_HOME/brassline/brassline.log, else
// ~/.local/state/brassline/brassline.log; folders are created on the first line. An empty
// path writes no file. A file that cannot be written is reported once on standard error.
void setLogFilePath(std::string path);
std::string logFilePath();
// Whether lines also go to standard error (on by default; the command line turns it off).
void setLogEchoesToStandardError(bool echoes);

// A test seam: while a capture lives, every logged message (the text only, without the time
// prefix) is collected here instead of being written out. Captures nest; the newest one
// collects. Lines from any thread are collected.
class LogCapture {
public:
    LogCapture();
    ~LogCapture();
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    std::vector<std::string> lines() const;
    // Whether some line contains `fragment`.
    bool contains(std::string_view fragment) const;
    void clear();

private:
    friend void detail::logFormatted(std::string_view, const detail::LogArg*, std::size_t);
    LogCapture* m_outer = nullptr;
    std::vector<std::string> m_lines;
};

}  // namespace brassline
