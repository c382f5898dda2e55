#pragma once

#include "model/entities/gen/BLTeamMember.h"

namespace brassline {

// A member of the firm; documents name the one who handles them.
class BLTeamMember : public gen::BLTeamMember {
public:
    std::vector<std::string> usageKeys() const override { return {"memberDocuments"}; }
};

}  // namespace brassline
