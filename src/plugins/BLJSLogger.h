#pragma once

#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace brassline {

// The scripts' log, kept per plug-in uid. Any thread may write; a sink (the command line's
// standard error, the desktop's log window) hears each line as it is written.
class BLJSLogger {
public:
    using Sink = std::function<void(std::string_view identifier, std::string_view text)>;

    static BLJSLogger& sharedLogger();

    void log(std::string_view text, std::string_view identifier);
    void reset(std::string_view identifier);
    // Asks that the identifier's log be shown when it next gets a line.
    void addShowLog(std::string_view identifier);
    bool wantsShowLog(std::string_view identifier) const;
    std::vector<std::string> entries(std::string_view identifier) const;
    void setSink(Sink sink);

private:
    mutable std::mutex m_mutex;
    std::map<std::string, std::vector<std::string>, std::less<>> m_entries;
    std::map<std::string, bool, std::less<>> m_showLog;
    Sink m_sink;
};

}  // namespace brassline
