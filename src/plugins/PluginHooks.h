#pragma once

namespace brassline {

// Installs what the script host answers for the subsystems below it: formulas typed into
// number fields and partial invoices' portions, the interchange record of any object, and
// the layout scripts (text scripts, math ranges, programmed backdrops). Main thread, at
// start-up; safe to call again.
void installPluginHooks();

}  // namespace brassline
