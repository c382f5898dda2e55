#pragma once

#include "model/entities/gen/BLProfile.h"

namespace brassline {

// The sender's own contact data: one object, uid "default.profile".
class BLProfile : public gen::BLProfile {
public:
    static void setupClass(EntityDescription& entity);
    void setup() override;
};

}  // namespace brassline
