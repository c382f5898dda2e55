// The tax members of a line: finding its cell in the tax matrix and its own tax.
#include "model/ManagedObjectContext.h"
#include "model/UndoManager.h"
#include "model/entities/BLClient.h"
#include "model/entities/BLClientGroup.h"
#include "model/entities/BLCost.h"
#include "model/entities/BLItemGroup.h"
#include "model/entities/BLSendable.h"
#include "model/entities/BLTaxGroup.h"
#include "model/entities/BLTaxRule.h"

namespace brassline {

BLClientGroup* BLCost::taxClientGroup() const {
    // Lines hang below their document through `parent`, not through parent documents, so
    // the client is the one of the sendable above.
    const BLClient* owner = client();
    if (owner == nullptr) {
        if (const BLSendable* document = sendable()) {
            owner = document->client();
        }
    }
    return owner != nullptr ? owner->clientGroup() : nullptr;
}

void BLCost::updateTaxRuleInternal() {
    if (isSyncing()) {
        return;
    }
    BLTaxRule* rule =
        BLTaxRule::matrixCell(taxClientGroup(), itemGroup() != nullptr ? itemGroup()->taxGroup() : nullptr);
    if (rule != taxRule()) {
        setTaxRule(rule);
        resetCaches();
    }
}

void BLCost::updateTaxRule() {
    const BLSendable* document = sendable();
    if ((document != nullptr && document->dateSent()) || parent() == nullptr) {
        return;
    }
    // Re-deriving a rule is a consequence of another edit, never a step of its own to undo.
    UndoManager* undo = managedObjectContext() != nullptr ? managedObjectContext()->undoManager() : nullptr;
    const bool wasEnabled = undo != nullptr && undo->isUndoRegistrationEnabled();
    if (wasEnabled) {
        undo->disableUndoRegistration();
    }
    updateTaxRuleInternal();
    if (wasEnabled) {
        undo->enableUndoRegistration();
    }
}

void BLCost::updateTaxRuleIfMissing() {
    if ((itemGroup() == nullptr || !itemGroup()->uid()) && managedObjectContext() != nullptr) {
        setItemGroup(defaultItemForContext<BLItemGroup>(*managedObjectContext()));
    }
    if (taxRule() != nullptr && taxRule()->uid()) {
        return;
    }
    updateTaxRuleInternal();
}

BLTaxRule* BLCost::taxRuleForTaxGroup(BLTaxGroup* taxGroup) {
    BLTaxRule* rule = BLTaxRule::matrixCell(taxClientGroup(), taxGroup);
    if (rule != taxRule()) {
        setTaxRule(rule);
        resetCaches();
    }
    return rule;
}

Decimal BLCost::taxesForCost(const Decimal& lineCost) const {
    const BLTaxRule* rule = taxRule();
    return rule != nullptr ? rule->taxForAmount(lineCost, sendable()) : Decimal();
}

void BLCost::collectTaxForCost(const Decimal& lineCost, TaxCollection& collection) const {
    // A rule without a uid can't be a key of the document's table: its lines are taxed
    // nowhere, like lines without a rule.
    BLTaxRule* rule = taxRule();
    if (rule != nullptr && rule->uid() && !rule->uid()->empty()) {
        collection.add(rule, lineCost);
    }
}

}  // namespace brassline
