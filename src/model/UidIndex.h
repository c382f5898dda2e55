#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace brassline {

class ManagedObject;

// Objects by the hash of their uid, in one flat open-addressed table: an insert is a
// probe into a single array, with no allocation once the table has room. Several entries
// may share a hash (equal uids, or colliding ones); callers confirm each candidate.
class UidIndex {
public:
    size_t size() const { return m_size; }
    // Room for `count` entries in all without growing.
    void reserve(size_t count);
    void insert(size_t hash, ManagedObject* object);
    // Removes the entry of `object` under `hash`; false when there is none.
    bool erase(size_t hash, const ManagedObject* object);
    // Calls `visit` with each object under `hash` until it answers false.
    template <typename Visit>
    void forEach(size_t hash, Visit&& visit) const {
        if (m_slots.empty()) {
            return;
        }
        for (size_t i = hash & m_mask; m_slots[i].object != nullptr; i = (i + 1) & m_mask) {
            if (m_slots[i].hash == hash && !visit(m_slots[i].object)) {
                return;
            }
        }
    }

private:
    struct Slot {
        size_t hash = 0;
        ManagedObject* object = nullptr;  // Null marks a free slot.
    };
    void rehash(size_t capacity);

    std::vector<Slot> m_slots;
    size_t m_mask = 0;
    size_t m_size = 0;
};

}  // namespace brassline
