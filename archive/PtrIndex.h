// Address -> number table for the storing archive: which objects and classes were
// already written, and under which index. Open addressing in one flat array, so a
// large map costs no allocation per entry; the store side only ever asks "seen
// before?", never walks the table in order. Objects of one memory page share a
// stretch of the table, so storing records in allocation order touches the table
// once per page instead of once per record.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

class PtrIndex {
public:
    // The number stored for `key` (null is a valid key), or null when it has none.
    const std::uint32_t* Find(const void* key) const {
        if (m_slots.empty()) return nullptr;
        for (std::size_t i = Home(key);; i = (i + 1) & m_mask) {
            const Slot& s = m_slots[i];
            if (s.key == key) return &s.value;
            if (s.key == kFree) return nullptr;
        }
    }

    // Inserts or overwrites.
    void Set(const void* key, std::uint32_t value) {
        if ((m_count + 1) * 2 > m_slots.size()) Grow();
        Slot& s = Probe(key);
        if (s.key == kFree) {
            s.key = key;
            ++m_count;
        }
        s.value = value;
    }

    bool Empty() const { return m_count == 0; }

    // Forgets every entry and gives the memory back.
    void Clear() {
        std::vector<Slot>().swap(m_slots);
        m_count = 0;
        m_mask = 0;
    }

private:
    struct Slot {
        const void* key;
        std::uint32_t value;
    };
    // No object or class lives at the top address of the address space.
    static inline const void* const kFree = reinterpret_cast<const void*>(~std::uintptr_t{0});

    // The page number, mixed, picks a run of 64 slots; the 64-byte line within the
    // page picks the slot in that run.
    std::size_t Home(const void* key) const {
        const auto a = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(key));
        const std::uint64_t page = ((a >> 12) * 0x9E3779B97F4A7C15ull) >> 32;
        return static_cast<std::size_t>((page << 6) | ((a >> 6) & 63)) & m_mask;
    }

    Slot& Probe(const void* key) {
        for (std::size_t i = Home(key);; i = (i + 1) & m_mask) {
            Slot& s = m_slots[i];
            if (s.key == key || s.key == kFree) return s;
        }
    }

    void Grow() {
        std::vector<Slot> old(m_slots.empty() ? 64 : m_slots.size() * 2, Slot{kFree, 0});
        old.swap(m_slots);
        m_mask = m_slots.size() - 1;
        for (const Slot& s : old)
            if (s.key != kFree) Probe(s.key) = s;
    }

    std::vector<Slot> m_slots;   // a power of two in size, at most half full
    std::size_t m_count = 0;
    std::size_t m_mask = 0;
};
