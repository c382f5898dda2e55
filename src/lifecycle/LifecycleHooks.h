#pragma once

namespace brassline {

// Installs the life cycle's model hooks: createClientNumber and createProjectNumber draw
// the whole number (pattern, counter advance, free-number search) and store it on the
// object (clientID, number), answering it; nothing when no number is made. Idempotent.
void installLifecycleHooks();

}  // namespace brassline
