#pragma once

#include <iosfwd>
#include <optional>
#include <string>

#include "store/CommandFile.h"

namespace brassline {

// The common start of the document commands: the company file opened as every command
// opens it (CommandFile), with every hook of the life cycle in place; nothing after a
// message on `err`.
std::optional<CommandFile> openCommandDocument(const std::string& path, std::ostream& err);

}  // namespace brassline
