#pragma once

#include "model/entities/gen/BLDocumentLabel.h"

namespace brassline {

// A coloured label shared by documents.
class BLDocumentLabel : public gen::BLDocumentLabel {
public:
    void setup() override;
};

}  // namespace brassline
