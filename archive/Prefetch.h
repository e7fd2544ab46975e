// Read-ahead hint for walks over node-based maps. Maps filled in key order (lists
// loaded from files, package lists in name order) lay their nodes out in that order,
// so the entries a walk reaches next lie a page or so further on, beyond what the
// hardware fetches by itself; asking for them early keeps a pass over a large map
// from waiting on memory at every entry.
#pragma once

#include <cstdint>

// Never dereferenced: an address outside the map only costs a wasted hint.
inline void PrefetchAhead(const void* pEntry) {
    const std::uintptr_t at = reinterpret_cast<std::uintptr_t>(pEntry) + 4096;
    __builtin_prefetch(reinterpret_cast<const void*>(at));
    __builtin_prefetch(reinterpret_cast<const void*>(at + 64));
}
