#pragma once

#include <mutex>
#include <optional>
#include <string>

namespace brassline {

// The whole content of a small file; nothing when it can't be read.
std::optional<std::string> readWholeFile(const std::string& path);

// A path the program reads from, which tests may point elsewhere: the override when set,
// else the built-in default. Thread-safe.
class PathSetting {
public:
    std::string value(const std::string& fallback) const {
        const std::lock_guard lock(m_mutex);
        return m_override.empty() ? fallback : m_override;
    }
    void set(std::string path) {
        const std::lock_guard lock(m_mutex);
        m_override = std::move(path);
    }

private:
    mutable std::mutex m_mutex;
    std::string m_override;
};

}  // namespace brassline
