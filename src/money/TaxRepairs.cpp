#include "money/TaxRepairs.h"

#include <algorithm>
#include <map>
#include <set>
#include <unordered_set>
#include <utility>

#include "core/Log.h"
#include "model/FetchRequest.h"
#include "model/ManagedObjectContext.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"

namespace brassline {

namespace {

template <typename T>
std::vector<T*> fetchAll(ManagedObjectContext& context, const char* entity) {
    std::vector<T*> result;
    if (auto objects = context.executeFetchRequest(FetchRequest(entity))) {
        for (ManagedObject* object : *objects) {
            if (!object->isDeleted()) {
                result.push_back(static_cast<T*>(object));
            }
        }
    }
    return result;
}

// Every line below a container, depth first (groups and summaries hold further lines).
template <typename Visit>
void forEachCost(const BLContainer& container, const Visit& visit) {
    for (BLContainer* child : container.childsArray()) {
        if (child->isKindOfEntity("Cost")) {
            visit(*static_cast<BLCost*>(child));
        }
        forEachCost(*child, visit);
    }
}

void updateDocuments(BLDocument& document, std::unordered_set<const BLDocument*>& visited, void (*step)(BLDocument&)) {
    for (BLDocument* child : document.documents().toVector()) {
        // A document listed below itself would recurse forever; the walk stops there.
        if (child == &document || !visited.insert(child).second) {
            break;
        }
        step(*child);
    }
}

}  // namespace

void updateTaxRule(BLDocument& document) {
    if (document.isKindOfEntity("Cost")) {
        static_cast<BLCost&>(document).updateTaxRule();
        return;
    }
    if (document.isKindOfEntity("Sendable")) {
        auto& sendable = static_cast<BLSendable&>(document);
        if (sendable.dateSent()) {
            return;
        }
        forEachCost(sendable, [](BLCost& cost) { cost.updateTaxRule(); });
        sendable.resetCaches();
        return;
    }
    std::unordered_set<const BLDocument*> visited{&document};
    updateDocuments(document, visited, updateTaxRule);
}

void updateTaxRuleIfMissing(BLDocument& document) {
    if (document.isKindOfEntity("Cost")) {
        static_cast<BLCost&>(document).updateTaxRuleIfMissing();
        return;
    }
    forEachCost(document, [](BLCost& cost) { cost.updateTaxRuleIfMissing(); });
}

void fixTaxDefaults(ManagedObjectContext& context) {
    BLClientGroup* bestClientGroup = nullptr;
    for (BLClientGroup* group : fetchAll<BLClientGroup>(context, "ClientGroup")) {
        if (!group->archivedValue() &&
            (bestClientGroup == nullptr || group->clients().size() > bestClientGroup->clients().size())) {
            bestClientGroup = group;
        }
    }
    if (bestClientGroup != nullptr && !bestClientGroup->isDefaultValue()) {
        bestClientGroup->setIsDefault(true);
    }
    BLTaxGroup* bestTaxGroup = nullptr;
    for (BLTaxGroup* group : fetchAll<BLTaxGroup>(context, "TaxGroup")) {
        if (bestTaxGroup == nullptr || group->itemGroups().size() > bestTaxGroup->itemGroups().size()) {
            bestTaxGroup = group;
        }
    }
    if (bestTaxGroup != nullptr && !bestTaxGroup->isDefaultValue()) {
        bestTaxGroup->setIsDefault(true);
    }
}

void fixTaxRules(ManagedObjectContext& context) {
    std::vector<BLTaxRule*> rules;
    for (BLTaxRule* rule : fetchAll<BLTaxRule>(context, "TaxRule")) {
        if (rule->clientGroup() != nullptr && rule->taxGroup() != nullptr) {
            rules.push_back(rule);
        }
    }
    // The rule with most lines keeps its pair; stable, so equal counts keep fetch order.
    std::stable_sort(rules.begin(), rules.end(),
                     [](const BLTaxRule* a, const BLTaxRule* b) { return a->costs().size() > b->costs().size(); });
    std::map<std::pair<const BLClientGroup*, const BLTaxGroup*>, BLTaxRule*> cells;
    for (BLTaxRule* rule : rules) {
        auto [cell, inserted] = cells.emplace(std::make_pair(rule->clientGroup(), rule->taxGroup()), rule);
        if (inserted) {
            continue;
        }
        logMessage("Error in Taxmatrix");
        for (BLCost* cost : rule->costs().toVector()) {
            cost->setTaxRule(cell->second);
        }
        std::string error;
        if (!context.deleteObject(rule, &error)) {
            logMessage("Could not delete a duplicate tax rule: %@", error);
        }
    }
    std::vector<BLClientGroup*> clientGroups = fetchAll<BLClientGroup>(context, "ClientGroup");
    for (BLTaxGroup* taxGroup : fetchAll<BLTaxGroup>(context, "TaxGroup")) {
        for (BLClientGroup* clientGroup : clientGroups) {
            if (cells.count({clientGroup, taxGroup}) != 0) {
                continue;
            }
            logMessage("Fixing missing item in  Taxmatrix");
            BLTaxRule* rule = BLTaxRule::insertInManagedObjectContext(context);
            if (rule == nullptr) {
                return;
            }
            rule->setClientGroup(clientGroup);
            rule->setTaxGroup(taxGroup);
            cells.emplace(std::make_pair(clientGroup, taxGroup), rule);
        }
    }
}

void fixTaxRulesIfMissing(ManagedObjectContext& context) {
    for (BLSendable* sendable : fetchAll<BLSendable>(context, "Sendable")) {
        updateTaxRuleIfMissing(*sendable);
    }
}

UnusedTaxGroups fixTaxes(ManagedObjectContext& context) {
    std::set<const BLClientGroup*> usedClientGroups;
    std::set<const BLTaxGroup*> usedTaxGroups;
    for (BLTaxRule* rule : fetchAll<BLTaxRule>(context, "TaxRule")) {
        if (!rule->costs().empty()) {
            usedClientGroups.insert(rule->clientGroup());
            usedTaxGroups.insert(rule->taxGroup());
        }
    }
    UnusedTaxGroups unused;
    for (BLClientGroup* group : fetchAll<BLClientGroup>(context, "ClientGroup")) {
        if (usedClientGroups.count(group) == 0) {
            unused.clientGroups.push_back(group);
        }
    }
    for (BLTaxGroup* group : fetchAll<BLTaxGroup>(context, "TaxGroup")) {
        if (usedTaxGroups.count(group) == 0) {
            unused.taxGroups.push_back(group);
        }
    }
    return unused;
}

}  // namespace brassline
