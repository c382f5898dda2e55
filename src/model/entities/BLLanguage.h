#pragma once

#include "model/entities/gen/BLLanguage.h"

namespace brassline {

// A document language of contacts and lines.
class BLLanguage : public gen::BLLanguage {
public:
    using BLBase::cloneWithEntityReplacements;
    void setup() override;
    void setupDefault() override;
    BLBase* cloneWithEntityReplacements(const EntityReplacements& replacements,
                                        const std::vector<std::string>& skip) override;
    std::vector<std::string> usageKeys() const override { return {"contacts"}; }
    bool canDelete() const override { return !isDefaultValue() && contacts().empty(); }
};

}  // namespace brassline
