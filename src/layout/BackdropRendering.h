#pragma once

#include <string>

#include "core/Value.h"

namespace brassline {

// Installs the backdrop hooks of pages (BackdropHooks): a page of a backdrop PDF drawn to
// a PNG image at twice its size on white, and its links and text fields collected as
// BLPDFAnnotation records. Idempotent.
void installBackdropRendering();

// What the collector keeps of an annotation found on a backdrop, by its uid: "type",
// "rect" (rectangle text in PDF points, origin bottom left), "uri" for links, "name" for
// fields. Null for an unknown uid. In memory only, for this process.
Value backdropAnnotation(const std::string& uid);

}  // namespace brassline
