#include "plugins/ScriptCommands.h"

#include <cmath>
#include <filesystem>
#include <ostream>

#include "lifecycle/CommandSupport.h"
#include "model/ManagedObjectContext.h"
#include "plugins/BLJSContext.h"
#include "plugins/BLJSLogger.h"
#include "plugins/InterchangeRecords.h"
#include "plugins/PluginHooks.h"
#include "plugins/ScriptSupport.h"
#include "store/BLDoc.h"

namespace brassline::scriptcommands {

namespace {

std::string plainText(const Value& value) {
    if (const Date* date = value.date()) {
        return date->iso8601String();
    }
    return value.toString();
}

void writeText(const RecordValue& value, int depth, std::ostream& out);

void writeRecordText(const InterchangeRecord& record, int depth, std::ostream& out) {
    const std::string indent(static_cast<size_t>(depth) * 2, ' ');
    for (const InterchangeRecord::Entry& entry : record.entries()) {
        out << indent << entry.key << ":";
        if (const Value* plain = entry.value.value()) {
            out << " " << plainText(*plain) << "\n";
        } else {
            out << "\n";
            writeText(entry.value, depth + 1, out);
        }
    }
}

void writeText(const RecordValue& value, int depth, std::ostream& out) {
    const std::string indent(static_cast<size_t>(depth) * 2, ' ');
    if (const InterchangeRecord* record = value.record()) {
        writeRecordText(*record, depth, out);
    } else if (const RecordValue::List* list = value.list()) {
        for (const RecordValue& element : *list) {
            if (const Value* plain = element.value()) {
                out << indent << "- " << plainText(*plain) << "\n";
            } else {
                out << indent << "-\n";
                writeText(element, depth + 1, out);
            }
        }
    }
}

}  // namespace

int record(const std::string& path, const std::string& uid, bool json, std::ostream& out, std::ostream& err) {
    std::optional<CommandFile> file = openCommandDocument(path, err);
    if (!file) {
        return exitcode::kBadInput;
    }
    ManagedObject* object = file->objectWithUid(uid, err);
    if (object == nullptr) {
        return exitcode::kBadInput;
    }
    const InterchangeRecord made = interchangeRecord(*object);
    if (json) {
        out << made.toJSON() << "\n";
    } else {
        writeRecordText(made, 0, out);
    }
    return exitcode::kSuccess;
}

int script(const std::string& path, const std::string& scriptPath, const ScriptOptions& options, std::ostream& out,
           std::ostream& err) {
    std::optional<std::string> source = scriptsupport::contentsOfFile(scriptPath);
    if (!source) {
        err << "brassline: the script " << scriptPath << " can't be read\n";
        return exitcode::kBadInput;
    }
    if (!(options.timeoutSeconds > 0) || !std::isfinite(options.timeoutSeconds)) {
        err << "brassline: the time limit must be a positive number of seconds\n";
        return exitcode::kBadInput;
    }
    Value::Array settings;
    for (const std::string& assignment : options.assignments) {
        const size_t equals = assignment.find('=');
        if (equals == std::string::npos || equals == 0) {
            err << "brassline: a setting is NAME=VALUE, not " << assignment << "\n";
            return exitcode::kBadInput;
        }
        settings.emplace_back(Value::Dictionary{{"name", Value(assignment.substr(0, equals))},
                                                {"value", Value(assignment.substr(equals + 1))}});
    }
    std::optional<CommandFile> commandFile = openCommandDocument(path, err);
    if (!commandFile) {
        return exitcode::kBadInput;
    }
    installPluginHooks();
    BLDoc* document = &commandFile->document();
    ManagedObject* target = nullptr;
    if (!options.documentUid.empty()) {
        target = commandFile->objectWithUid(options.documentUid, err);
        if (target == nullptr) {
            return exitcode::kBadInput;
        }
    }
    namespace fs = std::filesystem;
    const fs::path file = fs::absolute(fs::path(scriptPath));
    const std::string identifier = file.stem().string();
    BLJSLogger& logger = BLJSLogger::sharedLogger();
    logger.setSink([&err, identifier](std::string_view from, std::string_view text) {
        if (from == identifier) {
            err << text << "\n";
        }
    });
    int code = exitcode::kSuccess;
    {
        BLJSContext context;
        context.setTimeLimit(options.timeoutSeconds);
        context.setupForPlugin({{"uid", Value(identifier)},
                                {"name", Value(identifier)},
                                {"type", Value(options.type)},
                                {"path", Value(file.parent_path().string())},
                                {"URL", Value(scriptsupport::fileURLForPath(file.parent_path().string()))},
                                {"source", Value(*source)},
                                {"settings", Value(std::move(settings))},
                                {"documentIdentifier", Value(document->documentIdentifier())},
                                {"documentPath", Value(document->fileURL())}},
                               &document->managedObjectContext());
        if (target != nullptr) {
            context.setObjectForKeyedSubscript(Value(Value::Array{Value(static_cast<Object*>(target))}), "query");
            context.evaluateScript("query.setEditable(true)", false);
        }
        const Value result = context.runPlugin();
        const ScriptOutcome& outcome = context.lastOutcome();
        if (outcome.kind == ScriptOutcome::Kind::Exception) {
            err << "brassline: the script failed at line " << outcome.line << ": " << outcome.message << "\n";
            code = exitcode::kBadInput;
        } else if (outcome.kind == ScriptOutcome::Kind::TimedOut) {
            err << "brassline: " << outcome.message << "\n";
            code = exitcode::kBadInput;
        } else if (!outcome.isUndefined) {
            out << (result.string() != nullptr ? *result.string() : outcome.resultJSON) << "\n";
        }
    }
    logger.setSink(nullptr);
    if (code == exitcode::kSuccess && document->managedObjectContext().hasChanges() && !commandFile->save(err)) {
        code = exitcode::kSaveFailed;
    }
    return code;
}

}  // namespace brassline::scriptcommands
