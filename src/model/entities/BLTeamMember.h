#pragma once

#include "model/entities/gen/BLTeamMember.h"

namespace brassline {

class BLTeamMember : public gen::BLTeamMember {};

}  // namespace brassline
