#include "money/MoneyHooks.h"

#include <string>

#include "model/entities/BLCurrency.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/ModelHooks.h"
#include "money/BLCurrencyConverter.h"
#include "money/TaxRepairs.h"
#include "store/BLDoc.h"
#include "store/DocumentHooks.h"

namespace brassline {

namespace {

// A URL command that repairs the document's context and reports a fixed message.
DocumentHooks::URLCommand repair(void (*step)(ManagedObjectContext&), std::string done) {
    return [step, done = std::move(done)](BLDoc* document, const URLRequest&, std::string& message) {
        if (document == nullptr) {
            message = "no company file is open";
            return false;
        }
        step(document->managedObjectContext());
        message = done;
        return true;
    };
}

}  // namespace

void installMoneyHooks() {
    ModelHooks& hooks = modelHooks();
    hooks.updateTaxRule = [](BLDocument& document) { updateTaxRule(document); };
    hooks.fixTaxRules = [](BLTaxGroup& group) {
        if (group.managedObjectContext() != nullptr) {
            fixTaxRules(*group.managedObjectContext());
        }
    };
    // A new book currency asks the service for fresh rates; without a service (the
    // default) the request is not made and the stored rates stay.
    hooks.reloadCurrencyConverter = [](ManagedObjectContext& context) {
        BLCurrencyConverter converter(context);
        converter.load();
    };

    auto& commands = documentHooks().urlCommands;
    commands["fixtaxrules"] = repair(
        [](ManagedObjectContext& context) {
            fixTaxDefaults(context);
            fixTaxRules(context);
        },
        "fixtaxrules: one tax rule for every client group and tax group");
    commands["fixtaxrulesifmissing"] =
        repair(fixTaxRulesIfMissing, "fixtaxrulesifmissing: lines without a tax rule looked theirs up");
    commands["fixcurrencies"] = repair(
        [](ManagedObjectContext& context) {
            BLCurrency::fixDuplicateCurrencies(context);
            BLCurrency::fixCurrencies(context);
        },
        "fixcurrencies: duplicate currencies merged, documents without one given the default");
    commands["fixtaxes"] = [](BLDoc* document, const URLRequest&, std::string& message) {
        if (document == nullptr) {
            message = "no company file is open";
            return false;
        }
        UnusedTaxGroups unused = fixTaxes(document->managedObjectContext());
        message = "fixtaxes: " + std::to_string(unused.clientGroups.size()) + " client groups and " +
                  std::to_string(unused.taxGroups.size()) + " tax groups are used by no taxed line";
        return true;
    };
}

}  // namespace brassline
