#include "core/Log.h"

#include <cerrno>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <mutex>
#include <system_error>

#include <unistd.h>

namespace brassline {

namespace {

struct LogState {
    std::mutex mutex;
    std::string filePath;
    std::FILE* file = nullptr;
    bool fileFailed = false;
    bool echo = true;
    LogCapture* capture = nullptr;

    LogState() : filePath(defaultFilePath()) {}

    static std::string defaultFilePath() {
        const char* stateHome = std::getenv("XDG_STATE_HOME");
        if (stateHome != nullptr && stateHome[0] == '/') {
            return std::string(stateHome) + "/brassline/brassline.log";
        }
        const char* home = std::getenv("HOME");
        if (home != nullptr && home[0] != '\0') {
            return std::string(home) + "/.local/state/brassline/brassline.log";
        }
        return {};
    }
};

// Never destroyed: lines may still be logged from static destructors and detached threads.
LogState& state() {
    static LogState* instance = new LogState();
    return *instance;
}

std::string numberText(const detail::LogArg& arg) {
    char buffer[64];
    switch (arg.kind) {
        case detail::LogArg::Kind::Signed: {
            auto result = std::to_chars(buffer, buffer + sizeof buffer, arg.integer);
            return std::string(buffer, result.ptr);
        }
        case detail::LogArg::Kind::Unsigned: {
            auto result = std::to_chars(buffer, buffer + sizeof buffer, arg.unsignedInteger);
            return std::string(buffer, result.ptr);
        }
        case detail::LogArg::Kind::Floating: {
            // The shortest text that reads back to the same double: "0.1", not "0.100000".
            auto result = std::to_chars(buffer, buffer + sizeof buffer, arg.floating);
            return std::string(buffer, result.ptr);
        }
        case detail::LogArg::Kind::Pointer:
            std::snprintf(buffer, sizeof buffer, "%p", arg.pointer);
            return buffer;
        case detail::LogArg::Kind::Text:
            break;
    }
    return std::string(arg.text);
}

long long asSigned(const detail::LogArg& arg) {
    switch (arg.kind) {
        case detail::LogArg::Kind::Signed:
            return arg.integer;
        case detail::LogArg::Kind::Unsigned:
            return static_cast<long long>(arg.unsignedInteger);
        case detail::LogArg::Kind::Floating:
            return static_cast<long long>(arg.floating);
        case detail::LogArg::Kind::Pointer:
            return static_cast<long long>(reinterpret_cast<uintptr_t>(arg.pointer));
        case detail::LogArg::Kind::Text:
            break;
    }
    return 0;
}

double asDouble(const detail::LogArg& arg) {
    switch (arg.kind) {
        case detail::LogArg::Kind::Signed:
            return static_cast<double>(arg.integer);
        case detail::LogArg::Kind::Unsigned:
            return static_cast<double>(arg.unsignedInteger);
        case detail::LogArg::Kind::Floating:
            return arg.floating;
        default:
            break;
    }
    return 0.0;
}

// printf with a format assembled at run time from checked pieces: the conversion always
// matches the type handed over, so no argument is ever misread.
template <typename T>
void appendPrintf(std::string& out, const std::string& spec, T value) {
    char buffer[128];
    int length = std::snprintf(buffer, sizeof buffer, spec.c_str(), value);
    if (length < 0) {
        return;
    }
    if (static_cast<size_t>(length) < sizeof buffer) {
        out.append(buffer, static_cast<size_t>(length));
        return;
    }
    std::string large(static_cast<size_t>(length) + 1, '\0');
    std::snprintf(large.data(), large.size(), spec.c_str(), value);
    out.append(large.data(), static_cast<size_t>(length));
}

bool isFlag(char c) {
    return c == '-' || c == '+' || c == ' ' || c == '#' || c == '0' || c == '\'';
}
bool isDigit(char c) {
    return c >= '0' && c <= '9';
}
bool isLengthModifier(char c) {
    return c == 'h' || c == 'l' || c == 'q' || c == 'L' || c == 'z' || c == 'j' || c == 't';
}

}  // namespace

namespace detail {

std::string formatLogMessage(std::string_view format, const LogArg* args, std::size_t count) {
    std::string out;
    out.reserve(format.size() + 16 * count);
    std::size_t next = 0;
    auto takeArg = [&]() -> const LogArg* { return next < count ? &args[next++] : nullptr; };

    std::size_t i = 0;
    while (i < format.size()) {
        char c = format[i];
        if (c != '%') {
            out += c;
            ++i;
            continue;
        }
        std::size_t start = i++;
        std::string flags;
        while (i < format.size() && isFlag(format[i])) {
            flags += format[i++];
        }
        std::string width;
        if (i < format.size() && format[i] == '*') {
            const LogArg* arg = takeArg();
            width = std::to_string(arg != nullptr ? asSigned(*arg) : 0);
            ++i;
        }
        while (i < format.size() && isDigit(format[i])) {
            width += format[i++];
        }
        std::string precision;
        if (i < format.size() && format[i] == '.') {
            precision = ".";
            ++i;
            if (i < format.size() && format[i] == '*') {
                const LogArg* arg = takeArg();
                precision += std::to_string(arg != nullptr ? asSigned(*arg) : 0);
                ++i;
            }
            while (i < format.size() && isDigit(format[i])) {
                precision += format[i++];
            }
        }
        while (i < format.size() && isLengthModifier(format[i])) {
            ++i;
        }
        if (i >= format.size()) {
            out.append(format.substr(start));
            break;
        }
        char conversion = format[i++];
        std::string spec = "%" + flags + width + precision;

        if (conversion == '%') {
            out += '%';
            continue;
        }
        if (std::strchr("@diuxXocsfFeEgGaAp", conversion) == nullptr) {
            // Not a conversion we know: keep the text as written.
            out.append(format.substr(start, i - start));
            continue;
        }
        const LogArg* arg = takeArg();
        if (arg == nullptr) {
            out += "(null)";
            continue;
        }
        switch (conversion) {
            case '@':
                out += numberText(*arg);
                break;
            case 'd':
            case 'i':
                if (arg->kind == LogArg::Kind::Text) {
                    out.append(arg->text);
                } else {
                    appendPrintf(out, spec + "lld", asSigned(*arg));
                }
                break;
            case 'u':
            case 'x':
            case 'X':
            case 'o':
                if (arg->kind == LogArg::Kind::Text) {
                    out.append(arg->text);
                } else {
                    appendPrintf(out, spec + "ll" + conversion, static_cast<unsigned long long>(asSigned(*arg)));
                }
                break;
            case 'c':
                if (arg->kind == LogArg::Kind::Text) {
                    out.append(arg->text.substr(0, 1));
                } else {
                    appendPrintf(out, spec + "c", static_cast<int>(asSigned(*arg)));
                }
                break;
            case 's': {
                std::string text = numberText(*arg);
                appendPrintf(out, spec + "s", text.c_str());
                break;
            }
            case 'p':
                if (arg->kind == LogArg::Kind::Pointer) {
                    appendPrintf(out, spec + "p", arg->pointer);
                } else {
                    out += numberText(*arg);
                }
                break;
            default:  // The floating conversions.
                if (arg->kind == LogArg::Kind::Text) {
                    out.append(arg->text);
                } else {
                    appendPrintf(out, spec + conversion, asDouble(*arg));
                }
                break;
        }
    }
    return out;
}

void logFormatted(std::string_view format, const LogArg* args, std::size_t count) {
    std::string message = formatLogMessage(format, args, count);

    LogState& log = state();
    std::lock_guard lock(log.mutex);
    if (log.capture != nullptr) {
        log.capture->m_lines.push_back(std::move(message));
        return;
    }

    auto now = std::chrono::system_clock::now();
    std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    auto millis = std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm local{};
    localtime_r(&seconds, &local);
    char prefix[96];
    std::snprintf(prefix, sizeof prefix, "%04d-%02d-%02d %02d:%02d:%02d.%03d %s[%d] ", local.tm_year + 1900,
                  local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec, static_cast<int>(millis),
                  program_invocation_short_name, static_cast<int>(getpid()));
    std::string line = prefix + message;
    if (line.empty() || line.back() != '\n') {
        line += '\n';
    }

    if (log.echo) {
        std::fwrite(line.data(), 1, line.size(), stderr);
    }
    if (log.file == nullptr && !log.fileFailed && !log.filePath.empty()) {
        std::filesystem::path path(log.filePath);
        std::error_code error;
        if (path.has_parent_path()) {
            std::filesystem::create_directories(path.parent_path(), error);
        }
        log.file = std::fopen(log.filePath.c_str(), "ae");
        if (log.file == nullptr) {
            // Said once: a log that cannot be written must not flood standard error either.
            log.fileFailed = true;
            std::fprintf(stderr, "brassline: cannot write the log file %s: %s\n", log.filePath.c_str(),
                         std::strerror(errno));
        }
    }
    if (log.file != nullptr) {
        std::fwrite(line.data(), 1, line.size(), log.file);
        std::fflush(log.file);
    }
}

}  // namespace detail

void setLogFilePath(std::string path) {
    LogState& log = state();
    std::lock_guard lock(log.mutex);
    if (log.file != nullptr) {
        std::fclose(log.file);
        log.file = nullptr;
    }
    log.fileFailed = false;
    log.filePath = std::move(path);
}

std::string logFilePath() {
    LogState& log = state();
    std::lock_guard lock(log.mutex);
    return log.filePath;
}

void setLogEchoesToStandardError(bool echoes) {
    LogState& log = state();
    std::lock_guard lock(log.mutex);
    log.echo = echoes;
}

LogCapture::LogCapture() {
    LogState& log = state();
    std::lock_guard lock(log.mutex);
    m_outer = log.capture;
    log.capture = this;
}

LogCapture::~LogCapture() {
    LogState& log = state();
    std::lock_guard lock(log.mutex);
    // Captures normally end in reverse order; unlink from the middle if one does not.
    LogCapture** link = &log.capture;
    while (*link != nullptr && *link != this) {
        link = &(*link)->m_outer;
    }
    if (*link == this) {
        *link = m_outer;
    }
}

std::vector<std::string> LogCapture::lines() const {
    LogState& log = state();
    std::lock_guard lock(log.mutex);
    return m_lines;
}

bool LogCapture::contains(std::string_view fragment) const {
    LogState& log = state();
    std::lock_guard lock(log.mutex);
    for (const std::string& line : m_lines) {
        if (line.find(fragment) != std::string::npos) {
            return true;
        }
    }
    return false;
}

void LogCapture::clear() {
    LogState& log = state();
    std::lock_guard lock(log.mutex);
    m_lines.clear();
}

}  // namespace brassline
