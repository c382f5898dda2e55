#include "model/entities/BLTaxRule.h"

#include "model/entities/BLClientGroup.h"
#include "model/entities/BLTaxGroup.h"

namespace brassline {

bool BLTaxRule::isArchived() const {
    return (clientGroup() != nullptr && clientGroup()->archivedValue()) ||
           (taxGroup() != nullptr && taxGroup()->archivedValue());
}

}  // namespace brassline
