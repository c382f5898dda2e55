#include "store/DocumentHooks.h"

namespace brassline {

DocumentHooks& documentHooks() {
    static DocumentHooks hooks;
    return hooks;
}

void resetDocumentHooks() {
    documentHooks() = DocumentHooks();
}

}  // namespace brassline
