#include "layout/LayoutFiles.h"

#include <fstream>
#include <sstream>

namespace brassline {

std::optional<std::string> readWholeFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        return std::nullopt;
    }
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

}  // namespace brassline
