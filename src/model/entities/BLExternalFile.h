#pragma once

#include "model/entities/gen/BLExternalFile.h"

namespace brassline {

// A file attached to a document; its bytes live in its storage.
class BLExternalFile : public gen::BLExternalFile {
public:
    void awakeFromCreate() override;
    void setup() override;
    std::vector<std::string> allowedDocuments() const override;
};

}  // namespace brassline
