#include "model/entities/BLDocumentLabel.h"

#include "core/Localization.h"
#include "model/entities/ModelStrings.h"

namespace brassline {

void BLDocumentLabel::setup() {
    if (!name()) {
        setName(localizedString(kUntitledText));
    }
    BLBase::setup();
}

}  // namespace brassline
