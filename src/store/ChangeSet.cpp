#include "store/ChangeSet.h"

#include <algorithm>
#include <cmath>

namespace brassline {

namespace {

constexpr uint32_t kCounterLimit = 1u << HybridLogicalClock::kCounterBits;

int64_t wallMilliseconds(Date now) {
    return std::llround(now.timeIntervalSince1970() * 1000.0);
}

}  // namespace

uint64_t HybridLogicalClock::pack(int64_t milliseconds, uint32_t counter) {
    return (static_cast<uint64_t>(std::max<int64_t>(milliseconds, 0)) << kCounterBits) |
           (counter & (kCounterLimit - 1));
}

uint64_t HybridLogicalClock::tick(Date now) {
    int64_t wall = wallMilliseconds(now);
    int64_t lastMilliseconds = milliseconds(m_last);
    if (wall > lastMilliseconds) {
        m_last = pack(wall, 0);
    } else if (counter(m_last) + 1 < kCounterLimit) {
        m_last += 1;
    } else {
        // The counter is spent within one millisecond: borrow the next millisecond rather
        // than wrap, which would go backwards.
        m_last = pack(lastMilliseconds + 1, 0);
    }
    return m_last;
}

uint64_t HybridLogicalClock::receive(uint64_t remote, Date now) {
    m_last = std::max(m_last, remote);
    return tick(now);
}

std::string_view changeKindName(ChangeKind kind) {
    switch (kind) {
        case ChangeKind::Insert:
            return "insert";
        case ChangeKind::Update:
            return "update";
        case ChangeKind::Delete:
            return "delete";
    }
    return "update";
}

}  // namespace brassline
