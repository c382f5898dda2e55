#pragma once

namespace brassline {

// Fills the model hooks that taxes and currencies answer: updateTaxRule, fixTaxRules and
// reloadCurrencyConverter. Call once at start-up on the main thread, before documents open.
void installMoneyHooks();

}  // namespace brassline
