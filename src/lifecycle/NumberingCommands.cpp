#include "lifecycle/NumberingCommands.h"

#include <ostream>

#include "core/UniqueId.h"
#include "lifecycle/CommandSupport.h"
#include "lifecycle/Numbering.h"
#include "model/ManagedObjectContext.h"

namespace brassline::numbercommands {

namespace {

using exitcode::kBadInput;
using exitcode::kSaveFailed;

// The pattern keys of a command-line kind; the file name and folder patterns have no
// counter.
std::optional<NumberingKind> kindNamed(const std::string& name) {
    if (name == "filename" || name == "directory") {
        NumberingKind kind;
        kind.prefsKey = "documents." + name;
        kind.patternKey = kind.prefsKey;
        return kind;
    }
    return numberingKindForPrefsKey(name);
}

const char* resetModeName(NumberResetMode mode) {
    switch (mode) {
        case NumberResetMode::Year:
            return "year";
        case NumberResetMode::Month:
            return "month";
        case NumberResetMode::Day:
            return "day";
        case NumberResetMode::Never:
            break;
    }
    return "never";
}

}  // namespace

int showNumber(const std::string& path, const std::string& uid, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = openCommandDocument(path, err);
    if (!file) {
        return kBadInput;
    }
    ManagedObjectContext& context = file->context();
    ManagedObject* object = file->objectWithUid(uid, err);
    if (object == nullptr) {
        return kBadInput;
    }
    std::optional<NumberingKind> kind = numberingKindForObject(*object);
    if (!kind) {
        err << "brassline: " << object->entityName() << " " << uid << " carries no number\n";
        return kBadInput;
    }
    Numbering numbering(context);
    bool has = !object->valueForKey(kind->numberKey).toString().empty();
    std::optional<std::string> number = numbering.peekNumber(*object);
    if (!number) {
        out << "(none: the pattern for " << kind->prefsKey << " yields no number)\n";
        return 0;
    }
    out << *number << (has ? "" : " (next)") << "\n";
    return 0;
}

int pattern(const std::string& path, const std::string& kindName, const std::optional<std::string>& json,
            std::ostream& out, std::ostream& err) {
    std::optional<NumberingKind> kind = kindNamed(kindName);
    if (!kind) {
        err << "brassline: unknown pattern kind \"" << kindName
            << "\" (invoice, estimate, client, project, filename, directory, followUpType.<uid>)\n";
        return kBadInput;
    }
    std::optional<NumberPattern> parsed;
    if (json) {
        std::string error;
        parsed = patternFromJSON(*json, &error);
        if (!parsed) {
            err << "brassline: the pattern is refused: " << error << "\n";
            return kBadInput;
        }
        for (PatternElement& element : *parsed) {
            if (!element.isToken) {
                continue;
            }
            if (element.option && !isKnownTokenOption(*element.option)) {
                err << "brassline: the pattern is refused: unknown option \"" << *element.option << "\"\n";
                return kBadInput;
            }
            if (element.uid.empty()) {
                element.uid = uniqueBase64String();
            }
        }
    }
    std::optional<CommandFile> file = openCommandDocument(path, err);
    if (!file) {
        return kBadInput;
    }
    Numbering numbering(file->context());
    if (parsed) {
        numbering.setPattern(*kind, *parsed);
        if (!file->save(err)) {
            return kSaveFailed;
        }
    }
    std::optional<NumberPattern> stored = numbering.pattern(*kind);
    out << "pattern: " << (stored ? patternToJSON(*stored) : std::string("none")) << "\n";
    out << "preview: " << numbering.transformedValue(stored ? &*stored : nullptr, nullptr).value_or("") << "\n";
    if (!kind->counterKey.empty()) {
        out << "counter: " << numbering.currentCounter(*kind) << "\n";
    }
    if (!kind->resetModeKey.empty()) {
        DocumentNumberingPreferences preferences(file->context());
        out << "reset: " << resetModeName(parseResetMode(preferences.valueForKeyPath(kind->resetModeKey))) << "\n";
    }
    return 0;
}

}  // namespace brassline::numbercommands
