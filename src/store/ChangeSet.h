#pragma once

#include <cstdint>
#include <string>

#include "core/Date.h"
#include "core/Value.h"

namespace brassline {

// The change log of a company file. Every save writes one change set into the store's
// database, in the same transaction as the data, so the log and the data never disagree.
//
// Tables (all names start with "_", which no entity name can):
//   _changesets(id INTEGER PRIMARY KEY, device TEXT, sequence INTEGER, time REAL,
//               clock INTEGER, inserted INTEGER, updated INTEGER, deleted INTEGER)
//       One row per save. (device, sequence) is unique: each device numbers its saves
//       1, 2, 3... `time` is the wall clock in seconds since 2001; `clock` the save's
//       hybrid logical clock (below).
//   _changes(changeset INTEGER, entity TEXT, object INTEGER, uid TEXT, key TEXT,
//            kind INTEGER, clock INTEGER, value)
//       One row per changed property of an object. `kind` is ChangeKind. An insertion
//       has a row with an empty key (the object exists) and one row per present value; an
//       update one row per key whose saved value changed (absent values are rows with a
//       null value: "set to absent"); a deletion one row with an empty key. `value` has
//       the storage class of the attribute column (decimals as canonical text, dates as
//       REAL seconds since 2001, data as BLOB, numbers and bools as INTEGER or REAL). A
//       relationship's value is a JSON array of references, each the target's uid, or
//       "#<number>" for a target without one; ordered relationships keep their order.
//   _tombstones(entity TEXT, object INTEGER, uid TEXT, changeset INTEGER, clock INTEGER)
//       Deleted objects, kept so that a change arriving later for the same uid from
//       another device does not bring the object back.
//
// Merging (for sync): objects are matched across devices by uid. A value wins over
// another of the same object and key when its (clock, device) pair is larger: last
// writer wins per attribute. A tombstone beats every change with a smaller clock.
//
// Hybrid logical clock: the upper 48 bits hold wall-clock milliseconds since 1970, the
// lower 16 a counter that orders events within one millisecond and events from a device
// whose clock runs behind. The clock never goes backwards on one device, whatever the
// wall clock does, and a device that receives a change moves its clock past it.
enum class ChangeKind : uint8_t { Insert = 0, Update = 1, Delete = 2 };

class HybridLogicalClock {
public:
    static constexpr int kCounterBits = 16;

    static uint64_t pack(int64_t milliseconds, uint32_t counter);
    static int64_t milliseconds(uint64_t clock) { return static_cast<int64_t>(clock >> kCounterBits); }
    static uint32_t counter(uint64_t clock) { return static_cast<uint32_t>(clock & 0xffffu); }

    HybridLogicalClock() = default;
    explicit HybridLogicalClock(uint64_t last) : m_last(last) {}

    // The timestamp of a local event at wall-clock time `now`: larger than every one before.
    uint64_t tick(Date now);
    // Takes note of a timestamp received from another device; the answer is larger than both.
    uint64_t receive(uint64_t remote, Date now);
    uint64_t last() const { return m_last; }

private:
    uint64_t m_last = 0;
};

// One save as the log tells it.
struct ChangeSetInfo {
    int64_t id = 0;  // Local row number, in order of writing.
    std::string device;
    int64_t sequence = 0;
    Date time;
    uint64_t clock = 0;
    int64_t inserted = 0;
    int64_t updated = 0;
    int64_t deleted = 0;
};

// One row of a change set.
struct ChangeRecord {
    std::string entity;
    int64_t object = 0;
    std::string uid;
    std::string key;  // Empty for the insertion or deletion of the object itself.
    ChangeKind kind = ChangeKind::Update;
    uint64_t clock = 0;
    Value value;
};

std::string_view changeKindName(ChangeKind kind);

}  // namespace brassline
