#pragma once

#include <vector>

namespace brassline {

class BLClientGroup;
class BLDocument;
class BLTaxGroup;
class ManagedObjectContext;

// Re-derives the tax rules below a document: a line looks its rule up again; a draft
// sendable does so for all its lines (an issued one keeps them); any other document
// passes it down to its documents.
void updateTaxRule(BLDocument& document);
// The same lookup for lines whose rule is missing, issued documents included.
void updateTaxRuleIfMissing(BLDocument& document);

// Repairs of the tax matrix. fixTaxDefaults marks the client group with most clients
// (archived ones aside) and the tax group with most item groups as defaults.
void fixTaxDefaults(ManagedObjectContext& context);
// One rule per pair of client group and tax group: duplicates hand their lines to the
// rule with most lines and go; missing pairs get a new rule. Logs what it fixes.
void fixTaxRules(ManagedObjectContext& context);
// updateTaxRuleIfMissing on every sendable.
void fixTaxRulesIfMissing(ManagedObjectContext& context);

// The groups that no rule with lines uses.
struct UnusedTaxGroups {
    std::vector<BLClientGroup*> clientGroups;
    std::vector<BLTaxGroup*> taxGroups;
};
UnusedTaxGroups fixTaxes(ManagedObjectContext& context);

}  // namespace brassline
