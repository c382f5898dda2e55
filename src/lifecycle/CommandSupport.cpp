#include "lifecycle/CommandSupport.h"

#include "lifecycle/LifecycleHooks.h"

namespace brassline {

std::optional<CommandFile> openCommandDocument(const std::string& path, std::ostream& err) {
    installLifecycleHooks();
    return CommandFile::open(path, err);
}

}  // namespace brassline
