#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "core/Value.h"
#include "plugins/InterchangeRecord.h"

namespace brassline {

class ManagedObject;
class ManagedObjectContext;

// How the last evaluation ended.
struct ScriptOutcome {
    enum class Kind : uint8_t { Finished, Exception, TimedOut };
    Kind kind = Kind::Finished;
    bool isUndefined = true;  // The script's value was `undefined` (null stays apart).
    std::string message;      // The exception's text.
    int64_t line = 0;         // The exception's line, 0 when unknown.
    std::string resultJSON;   // The value as JSON text ("" for undefined and functions).
    bool succeeded() const { return kind == Kind::Finished; }
};

// One JavaScript execution context for one plug-in run on one document. Set up, it
// publishes the plug-in's settings, the global functions and `brassline`, and works on a
// private child context of the document's object context: a run that ends well saves that
// child into the document's context, a run that throws or passes its time limit throws it
// away, so the document stays as it was. A bare context (no set-up) evaluates formulas.
// One thread at a time; the engine itself never leaves this class's source file.
class BLJSContext {
public:
    static constexpr double kDefaultTimeLimitSeconds = 30.0;
    static constexpr double kLayoutTimeLimitSeconds = 2.0;

    BLJSContext();
    ~BLJSContext();
    BLJSContext(const BLJSContext&) = delete;
    BLJSContext& operator=(const BLJSContext&) = delete;

    // `plugin` is the plug-in record ("uid", "name", "type", "path", "URL", "source",
    // "settings": a list of {name, value}). Nothing happens without a document context,
    // except that no global is made.
    void setupForPlugin(const Value::Dictionary& plugin, ManagedObjectContext* document);

    // Evaluates the plug-in's source ("source", else "<path>/index.js"); null without one.
    Value runPlugin();
    Value runPluginAndCleanUp(bool cleanUp);
    // Calls the global function of that name without arguments; null if there is none.
    Value runFunction(std::string_view name);
    Value evaluateScript(std::string_view text);
    Value evaluateScript(std::string_view text, bool cleanUp);
    const ScriptOutcome& lastOutcome() const;

    // Globals. Plain values cross as numbers, text, booleans, dates, lists and records;
    // store objects as live records.
    void setObjectForKeyedSubscript(const Value& value, std::string_view name);
    void setRecordForKeyedSubscript(const InterchangeRecord& record, std::string_view name);
    void setLiveRecordForKeyedSubscript(ManagedObject* object, bool editable, std::string_view name);
    Value objectForKeyedSubscript(std::string_view name);

    // Layout scripts: "brasslinerecord" and "self" are the object's live record, each value
    // is "brassline_<key>"; a script that answers undefined is run again as the body of
    // a function that returns `result`. Runs under the layout time limit.
    Value executeJavaScript(std::string_view script, ManagedObject* object, const Value::Dictionary& values);

    void setTimeLimit(double seconds);
    double timeLimit() const;
    const std::string& pluginType() const;
    void setPluginType(std::string_view type);  // Lower-cased.
    const std::string& pluginIdentifier() const;
    // The context scripts work in: the private child, or null for a bare context.
    ManagedObjectContext* managedObjectContext() const;
    // Running downloads (loadURLtoURL).
    int tasks() const;

    // Path rules: plain paths and file URLs both reach the host as URL text.
    static std::string convertPathIfNeeded(std::string_view text);
    static std::string convertURLIfNeeded(std::string_view text);
    static bool ensureDirectoryExistsForURL(std::string_view url);

    struct Engine;

private:
    std::unique_ptr<Engine> m_engine;
};

}  // namespace brassline
