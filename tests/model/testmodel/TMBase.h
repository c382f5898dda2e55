#pragma once

#include "testmodel/gen/TMBase.h"

namespace brassline {

// The test model's root: fills a missing uid on insert, splices itself out of the
// derivates chain on deletion and answers "custom.<name>" keys through the undefined-key
// hook.
class TMBase : public gen::TMBase {
public:
    static void setupClass(EntityDescription& entity);

    void awakeFromCreate() override;
    void prepareForDeletion() override;
    void awakeFromSnapshotEvents(uint32_t events) override;
    Value valueForUndefinedKey(std::string_view key) const override;

    // Every snapshot event heard, in order.
    const std::vector<uint32_t>& snapshotEvents() const { return m_snapshotEvents; }

private:
    std::vector<uint32_t> m_snapshotEvents;
};

}  // namespace brassline
