// Memory for one map's nodes and keys. Blocks are carved in allocation order from
// chunks that grow with the map (the first holds about one node, later ones double
// up to 64 KiB), so a large map lies in memory in the order it was filled while an
// empty or small map costs next to nothing: a stream can hold one map per few bytes.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory_resource>

class MapPool : public std::pmr::memory_resource {
public:
    MapPool() = default;
    ~MapPool() override { Release(); }
    MapPool(const MapPool&) = delete;
    MapPool& operator=(const MapPool&) = delete;

    // From here until Release, freed blocks are not kept for reuse: a map about to
    // drop all its nodes at once calls it first, so the teardown allocates nothing.
    void BeginRelease() { m_bReleasing = true; }
    // Gives every chunk back; only once no block of this pool is in use.
    void Release();

private:
    void* do_allocate(std::size_t bytes, std::size_t alignment) override;
    void do_deallocate(void* p, std::size_t bytes, std::size_t alignment) override;
    bool do_is_equal(const std::pmr::memory_resource& other) const noexcept override { return this == &other; }

    struct Chunk;
    void* Carve(std::size_t size);

    Chunk* m_pChunks = nullptr;           // newest first
    unsigned char* m_pNext = nullptr;     // free room of the newest chunk
    void** m_pFree = nullptr;             // one free list per size class, made on the first reuse
    std::uint32_t m_nLeft = 0;            // bytes of that room
    std::uint16_t m_nChunkShift = 0;      // log2 of the next chunk's size, once a chunk exists
    bool m_bReleasing = false;
};
