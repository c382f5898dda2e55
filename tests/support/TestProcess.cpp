// Linked into every test executable: the process gets a home folder of its own before any
// test runs, so that no test reads or writes the settings, recent files, key files or
// downloaded data of the person running the suite, and parallel test processes never
// share a settings file. Tests that look at such files still point them at their own
// folders.

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace {

class PrivateHome {
public:
    PrivateHome() {
        std::string pattern = (std::filesystem::temp_directory_path() / "brassline-home-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            return;
        }
        m_path = pattern;
        ::setenv("HOME", m_path.c_str(), 1);
        ::setenv("XDG_CONFIG_HOME", (m_path + "/.config").c_str(), 1);
        ::setenv("XDG_DATA_HOME", (m_path + "/.local/share").c_str(), 1);
        ::setenv("XDG_CACHE_HOME", (m_path + "/.cache").c_str(), 1);
    }
    ~PrivateHome() {
        if (!m_path.empty()) {
            std::error_code ignored;
            std::filesystem::remove_all(m_path, ignored);
        }
    }
    PrivateHome(const PrivateHome&) = delete;
    PrivateHome& operator=(const PrivateHome&) = delete;

private:
    std::string m_path;
};

// Constructed before main and so before GoogleTest discovers or runs anything.
const PrivateHome privateHome;

}  // namespace
