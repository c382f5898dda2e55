#pragma once

#include "store/BLCacheInvalidator.h"

namespace brassline {

// The custom field variant: a refresh drops each due document's derived values, which
// hold its custom field dictionary, instead of renewing them.
class BLCustomFieldInvalidator : public BLCacheInvalidator {
public:
    static BLCustomFieldInvalidator& sharedInvalidator();

    void refreshObjects() override;
    // Makes every document of the context (all document entities) due.
    void invalidateAllDocumentsInContext(ManagedObjectContext& context);
};

}  // namespace brassline
