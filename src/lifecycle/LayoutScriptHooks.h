#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "core/Value.h"

namespace brassline {

class ManagedObject;

// The scripts of layouts, run by the script host once it is installed. Layouts call these
// on the main thread; while a hook is empty a layout shows no script's work (a text keeps
// its tags, a math range stays, a programmed backdrop draws nothing).
struct LayoutScriptHooks {
    // executeJavaScript:withRecord:values: — the script's result: text, a record with
    // "attributes" and extra values, or null when it failed or answered undefined.
    std::function<Value(std::string_view script, ManagedObject* object, const Value::Dictionary& values)>
        executeJavaScript;
    // A "<math>" range's prepared expression evaluated as "result = <expression>;": the
    // result's text, nothing when it is undefined.
    std::function<std::optional<std::string>(std::string_view expression)> evaluateMath;
    // A programmed backdrop: the page source evaluated, then "createSVG(width,height)";
    // the SVG text, nothing when that is no string. Errors are logged as "JS Error: %@".
    std::function<std::optional<std::string>(std::string_view source, double width, double height)> createSVG;
};

LayoutScriptHooks& layoutScriptHooks();
void resetLayoutScriptHooks();

}  // namespace brassline
