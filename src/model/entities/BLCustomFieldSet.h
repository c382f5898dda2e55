#pragma once

#include "model/entities/gen/BLCustomFieldSet.h"

namespace brassline {

// The ordered custom fields of one document class; uid from the class's set identifier.
class BLCustomFieldSet : public gen::BLCustomFieldSet {
public:
    void awakeFromCreate() override;
};

}  // namespace brassline
