#pragma once

#include "model/entities/gen/BLSendableTemplate.h"

namespace brassline {

// A template of a sendable; cloned into new documents.
class BLSendableTemplate : public gen::BLSendableTemplate {
public:
    bool canDelete() const override { return true; }
    void willBeCloned() override;
};

}  // namespace brassline
