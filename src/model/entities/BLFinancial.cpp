#include "model/entities/BLFinancial.h"

namespace brassline {

void BLFinancial::setup() {
    BLDocument::setup();
    if (!dateCreation()) {
        setDateCreation(Date::now());
    }
}

}  // namespace brassline
