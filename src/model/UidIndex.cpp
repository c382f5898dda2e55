#include "model/UidIndex.h"

namespace brassline {

namespace {

// At most half full: probe runs stay short even with the hashes' low bits as the slot.
size_t capacityFor(size_t count) {
    size_t capacity = 16;
    while (capacity < count * 2) {
        capacity *= 2;
    }
    return capacity;
}

}  // namespace

void UidIndex::reserve(size_t count) {
    size_t capacity = capacityFor(count);
    if (capacity > m_slots.size()) {
        rehash(capacity);
    }
}

void UidIndex::insert(size_t hash, ManagedObject* object) {
    if ((m_size + 1) * 2 > m_slots.size()) {
        rehash(capacityFor(m_size + 1));
    }
    size_t i = hash & m_mask;
    while (m_slots[i].object != nullptr) {
        i = (i + 1) & m_mask;
    }
    m_slots[i] = {hash, object};
    ++m_size;
}

bool UidIndex::erase(size_t hash, const ManagedObject* object) {
    if (m_slots.empty()) {
        return false;
    }
    size_t i = hash & m_mask;
    while (m_slots[i].object != nullptr && (m_slots[i].hash != hash || m_slots[i].object != object)) {
        i = (i + 1) & m_mask;
    }
    if (m_slots[i].object == nullptr) {
        return false;
    }
    // Backward shift instead of tombstones: each later entry of the run moves into the
    // hole unless its home slot lies cyclically after the hole, so every entry stays
    // reachable from its home slot without a gap.
    for (size_t j = (i + 1) & m_mask; m_slots[j].object != nullptr; j = (j + 1) & m_mask) {
        size_t home = m_slots[j].hash & m_mask;
        bool homeAfterHole = i <= j ? (i < home && home <= j) : (i < home || home <= j);
        if (!homeAfterHole) {
            m_slots[i] = m_slots[j];
            i = j;
        }
    }
    m_slots[i] = Slot{};
    --m_size;
    return true;
}

void UidIndex::rehash(size_t capacity) {
    std::vector<Slot> old;
    old.swap(m_slots);
    m_slots.assign(capacity, Slot{});
    m_mask = capacity - 1;
    m_size = 0;
    for (const Slot& slot : old) {
        if (slot.object != nullptr) {
            size_t i = slot.hash & m_mask;
            while (m_slots[i].object != nullptr) {
                i = (i + 1) & m_mask;
            }
            m_slots[i] = slot;
            ++m_size;
        }
    }
}

}  // namespace brassline
