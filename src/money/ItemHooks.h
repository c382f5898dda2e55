#pragma once

namespace brassline {

// Installs the model hooks that items and totals answer (an invoice's open amount).
// Main thread, at start-up; calling it again is harmless.
void installItemHooks();

}  // namespace brassline
