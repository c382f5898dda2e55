#include "lifecycle/PlaceholderCommands.h"

#include <optional>
#include <ostream>

#include "lifecycle/CommandSupport.h"
#include "lifecycle/DocumentTexts.h"
#include "lifecycle/Substitution.h"
#include "model/ManagedObjectContext.h"

namespace brassline::placeholdercommands {

namespace {

using exitcode::kBadInput;

struct OpenObject {
    std::optional<CommandFile> file;
    ManagedObject* object = nullptr;
};

OpenObject openObject(const std::string& path, const std::string& uid, std::ostream& err) {
    OpenObject result;
    result.file = openCommandDocument(path, err);
    if (result.file) {
        result.object = result.file->objectWithUid(uid, err);
    }
    return result;
}

// The object entry as its uid: neither a reader nor a JSON parser can use the object.
SubstitutionDictionary printable(const SubstitutionDictionary& dictionary) {
    SubstitutionDictionary result = dictionary;
    for (auto& [key, value] : result) {
        if (Object* object = value.object()) {
            value = object->valueForKey("uid").toString();
        }
    }
    return result;
}

std::string escapedLine(const std::string& text) {
    std::string result;
    result.reserve(text.size());
    for (char c : text) {
        if (c == '\n') {
            result += "\\n";
        } else if (c == '\t') {
            result += "\\t";
        } else if (c != '\r') {
            result += c;
        }
    }
    return result;
}

}  // namespace

int fill(const std::string& path, const std::string& uid, const std::string& text, std::ostream& out,
         std::ostream& err) {
    OpenObject opened = openObject(path, uid, err);
    if (opened.object == nullptr) {
        return kBadInput;
    }
    out << fillTags(text, substitutionDictionary(*opened.object)) << "\n";
    return 0;
}

int dictionary(const std::string& path, const std::string& uid, bool json, std::ostream& out, std::ostream& err) {
    OpenObject opened = openObject(path, uid, err);
    if (opened.object == nullptr) {
        return kBadInput;
    }
    SubstitutionDictionary entries = printable(substitutionDictionary(*opened.object));
    if (json) {
        out << Value(entries).toJSON(true) << "\n";
        return 0;
    }
    for (const auto& [key, value] : entries) {
        out << key << '\t' << escapedLine(value.toString()) << "\n";
    }
    return 0;
}

}  // namespace brassline::placeholdercommands
