// MapPool: a bump allocator over chunks that double in size, with free lists by
// 16-byte size class so that a map which erases and inserts reuses its room.
// Blocks above the largest class (long keys) go to the global heap.
#include "archive/MapPool.h"

#include <algorithm>
#include <cstdlib>
#include <new>

namespace {

constexpr std::size_t kGrain = 16;          // size classes and alignment
constexpr std::size_t kLargest = 256;       // larger blocks are not pooled
constexpr std::size_t kClasses = kLargest / kGrain;
constexpr unsigned kFirstShift = 7;         // 128 bytes: a chunk header and one node
constexpr unsigned kLastShift = 16;         // 64 KiB

std::size_t RoundUp(std::size_t bytes) { return std::max(kGrain, (bytes + kGrain - 1) / kGrain * kGrain); }
std::size_t ClassOf(std::size_t size) { return size / kGrain - 1; }

}  // namespace

// Header of each chunk; its size keeps the blocks after it on the grain.
struct alignas(kGrain) MapPool::Chunk {
    Chunk* pNext;
};

void MapPool::Release() {
    for (Chunk* p = m_pChunks; p;) {
        Chunk* next = p->pNext;
        ::operator delete(p);
        p = next;
    }
    std::free(m_pFree);
    m_pChunks = nullptr;
    m_pNext = nullptr;
    m_pFree = nullptr;
    m_nLeft = 0;
    m_nChunkShift = 0;
    m_bReleasing = false;
}

void* MapPool::do_allocate(std::size_t bytes, std::size_t alignment) {
    if (bytes > kLargest || alignment > kGrain) return std::pmr::new_delete_resource()->allocate(bytes, alignment);
    const std::size_t size = RoundUp(bytes);
    if (m_pFree) {
        void*& head = m_pFree[ClassOf(size)];
        if (void* p = head) {
            head = *static_cast<void**>(p);
            return p;
        }
    }
    return Carve(size);
}

void* MapPool::Carve(std::size_t size) {
    static_assert(sizeof(Chunk) == kGrain);
    if (size > m_nLeft) {
        // Each chunk doubles the last, so the room taken stays within twice the room used.
        unsigned shift = m_nChunkShift ? m_nChunkShift : kFirstShift;
        while ((std::size_t{1} << shift) - sizeof(Chunk) < size) ++shift;
        const std::size_t chunkSize = std::size_t{1} << shift;
        auto* chunk = static_cast<Chunk*>(::operator new(chunkSize));
        chunk->pNext = m_pChunks;
        m_pChunks = chunk;
        m_pNext = reinterpret_cast<unsigned char*>(chunk) + sizeof(Chunk);
        m_nLeft = static_cast<std::uint32_t>(chunkSize - sizeof(Chunk));
        m_nChunkShift = static_cast<std::uint16_t>(std::min<unsigned>(shift + 1, kLastShift));
    }
    void* p = m_pNext;
    m_pNext += size;
    m_nLeft -= static_cast<std::uint32_t>(size);
    return p;
}

void MapPool::do_deallocate(void* p, std::size_t bytes, std::size_t alignment) {
    if (bytes > kLargest || alignment > kGrain) {
        std::pmr::new_delete_resource()->deallocate(p, bytes, alignment);
        return;
    }
    if (m_bReleasing) return;   // the whole chunk goes back at Release
    if (!m_pFree) {
        // Only maps that erase get the lists; without memory the block just stays unused.
        m_pFree = static_cast<void**>(std::calloc(kClasses, sizeof(void*)));
        if (!m_pFree) return;
    }
    void*& head = m_pFree[ClassOf(RoundUp(bytes))];
    *static_cast<void**>(p) = head;
    head = p;
}
