#pragma once

#include "model/entities/gen/BLSmartList.h"

namespace brassline {

// A stored search: a predicate format over documents.
class BLSmartList : public gen::BLSmartList {
public:
    void awakeFromCreate() override;
};

}  // namespace brassline
