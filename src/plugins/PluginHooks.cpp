#include "plugins/PluginHooks.h"

#include <cstdio>
#include <memory>

#include "core/DecimalFormula.h"
#include "core/Log.h"
#include "core/ValueTransformers.h"
#include "lifecycle/LayoutScriptHooks.h"
#include "model/entities/ModelHooks.h"
#include "plugins/BLJSContext.h"
#include "plugins/InterchangeRecords.h"

namespace brassline {

namespace {

// A bare context per thread for formulas: never set up, so it has no globals; number
// fields may be read on any thread.
BLJSContext& formulaContext() {
    thread_local std::unique_ptr<BLJSContext> context = [] {
        auto made = std::make_unique<BLJSContext>();
        made->setTimeLimit(BLJSContext::kLayoutTimeLimitSeconds);
        return made;
    }();
    return *context;
}

// Layout scripts and math share one context on the main thread, as one script view.
BLJSContext& layoutContext() {
    static std::unique_ptr<BLJSContext> context = [] {
        auto made = std::make_unique<BLJSContext>();
        made->setTimeLimit(BLJSContext::kLayoutTimeLimitSeconds);
        return made;
    }();
    return *context;
}

std::optional<Decimal> numericResult(const Value& value) {
    if (value.isNumber()) {
        return value.toDecimal();
    }
    return std::nullopt;
}

// Plain arithmetic stays in exact decimals; only what that can't read goes to the engine
// (functions such as Math.round, comparisons, variables).
std::optional<Decimal> evaluateFormula(std::string_view formula) {
    if (evaluateDecimalFormula(formula)) {
        return std::nullopt;
    }
    BLJSContext& context = formulaContext();
    const Value result = context.evaluateScript(formula, false);
    return context.lastOutcome().succeeded() ? numericResult(result) : std::nullopt;
}

}  // namespace

void installPluginHooks() {
    setNumberFormulaEvaluator(evaluateFormula);
    ModelHooks& hooks = modelHooks();
    hooks.calculatePortion = [](std::string_view text) -> std::optional<Decimal> {
        if (std::optional<Decimal> exact = evaluateDecimalFormula(text)) {
            return exact;
        }
        return evaluateFormula(text);
    };
    hooks.interchangeRecord = [](ManagedObject& object) -> std::optional<Value::Dictionary> {
        const Value record = interchangeRecord(object).toValue();
        return *record.dictionary();
    };
    LayoutScriptHooks& layout = layoutScriptHooks();
    layout.executeJavaScript = [](std::string_view script, ManagedObject* object, const Value::Dictionary& values) {
        BLJSContext& context = layoutContext();
        Value result = context.executeJavaScript(script, object, values);
        return context.lastOutcome().succeeded() ? result : Value();
    };
    layout.evaluateMath = [](std::string_view expression) -> std::optional<std::string> {
        if (std::optional<Decimal> exact = evaluateDecimalFormula(expression)) {
            return exact->toString();
        }
        BLJSContext& context = layoutContext();
        const Value result = context.evaluateScript("result = " + std::string(expression) + ";", false);
        if (!context.lastOutcome().succeeded() || context.lastOutcome().isUndefined) {
            return std::nullopt;
        }
        return result.toString();
    };
    layout.createSVG = [](std::string_view source, double width, double height) -> std::optional<std::string> {
        // A fresh context for each backdrop: a page's script must not see another's.
        BLJSContext context;
        context.setTimeLimit(BLJSContext::kLayoutTimeLimitSeconds);
        context.evaluateScript(source, false);
        if (context.lastOutcome().succeeded()) {
            char call[96];
            std::snprintf(call, sizeof(call), "createSVG(%f,%f)", width, height);
            const Value svg = context.evaluateScript(call, false);
            if (context.lastOutcome().succeeded()) {
                return svg.string() != nullptr ? std::optional<std::string>(*svg.string()) : std::nullopt;
            }
        }
        logMessage("JS Error: %@", context.lastOutcome().message);
        return std::nullopt;
    };
}

}  // namespace brassline
