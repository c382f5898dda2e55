#pragma once

namespace brassline {

class BLLayout;

// Installs the layout subsystem's hooks: the default layout of first-time set-up, the
// export of a layout as a package and the drawing of backdrop PDFs. Idempotent.
void installLayoutHooks();

// Gives a layout whose storage holds no archive the default layout for the company's
// paper (A4, or US Letter where the company's country uses it), localised.
void fillDefaultLayout(BLLayout& layout);

}  // namespace brassline
