#pragma once

#include "model/entities/gen/BLExternalFileGroup.h"

namespace brassline {

// A folder of attached files.
class BLExternalFileGroup : public gen::BLExternalFileGroup {
public:
    void awakeFromCreate() override;
    std::vector<std::string> allowedDocuments() const override { return {"BLExternalFile"}; }
};

}  // namespace brassline
