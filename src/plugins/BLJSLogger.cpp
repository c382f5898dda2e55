#include "plugins/BLJSLogger.h"

#include "core/Log.h"

namespace brassline {

namespace {
// A script that logs in a loop must not grow the process without bound.
constexpr size_t kMaximumEntries = 10000;
}  // namespace

BLJSLogger& BLJSLogger::sharedLogger() {
    static BLJSLogger logger;
    return logger;
}

void BLJSLogger::log(std::string_view text, std::string_view identifier) {
    Sink sink;
    {
        std::lock_guard lock(m_mutex);
        auto found = m_entries.find(identifier);
        if (found == m_entries.end()) {
            found = m_entries.emplace(std::string(identifier), std::vector<std::string>{}).first;
        }
        if (found->second.size() >= kMaximumEntries) {
            found->second.erase(found->second.begin());
        }
        found->second.emplace_back(text);
        sink = m_sink;
    }
    if (sink) {
        sink(identifier, text);
    }
}

void BLJSLogger::reset(std::string_view identifier) {
    std::lock_guard lock(m_mutex);
    auto found = m_entries.find(identifier);
    if (found != m_entries.end()) {
        found->second.clear();
    }
}

void BLJSLogger::addShowLog(std::string_view identifier) {
    std::lock_guard lock(m_mutex);
    m_showLog[std::string(identifier)] = true;
}

bool BLJSLogger::wantsShowLog(std::string_view identifier) const {
    std::lock_guard lock(m_mutex);
    auto found = m_showLog.find(identifier);
    return found != m_showLog.end() && found->second;
}

std::vector<std::string> BLJSLogger::entries(std::string_view identifier) const {
    std::lock_guard lock(m_mutex);
    auto found = m_entries.find(identifier);
    return found != m_entries.end() ? found->second : std::vector<std::string>{};
}

void BLJSLogger::setSink(Sink sink) {
    std::lock_guard lock(m_mutex);
    m_sink = std::move(sink);
}

}  // namespace brassline
