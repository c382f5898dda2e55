#pragma once

#include <string>
#include <vector>

#include "core/Decimal.h"

namespace brassline {

class BLSendable;
class BLTaxRule;

// One tax slot of a calculation, filled by BLTaxRule's calculations: the slot's name, the
// tax group's short name, the base amount, the 2-digit tax and the percentage. A plain
// value; `document` is borrowed and may be null.
struct BLTaxDetails {
    std::string name;
    std::string shortName;
    Decimal amount;
    Decimal tax;
    Decimal percentage;
    const BLSendable* document = nullptr;
};

// The sums of a document's lines per tax rule, in the order the rules first appear: what
// collectTax gathers and the document's tax table is built from.
struct TaxCollection {
    struct Entry {
        BLTaxRule* rule = nullptr;
        Decimal amount;
    };
    std::vector<Entry> entries;

    // Adds to the rule's sum; documents hold a handful of rules, so a scan beats hashing.
    void add(BLTaxRule* rule, const Decimal& amount) {
        for (Entry& entry : entries) {
            if (entry.rule == rule) {
                entry.amount += amount;
                return;
            }
        }
        entries.push_back(Entry{rule, amount});
    }
};

}  // namespace brassline
