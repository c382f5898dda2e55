#pragma once

#include "model/entities/gen/BLCustomField.h"

namespace brassline {

// A user-defined field of a document class, in the set of that class.
class BLCustomField : public gen::BLCustomField {
public:
    void awakeFromCreate() override;
};

}  // namespace brassline
