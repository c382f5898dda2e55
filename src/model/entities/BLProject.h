#pragma once

#include "model/entities/gen/BLProject.h"

namespace brassline {

// A project below a client, holding documents of its own.
class BLProject : public gen::BLProject {
public:
    void awakeFromCreate() override;
    void setup() override;
    BLBase* duplicate() override;
    std::vector<std::string> allowedDocuments() const override;
};

}  // namespace brassline
