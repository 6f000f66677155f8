// A bump allocator over one zero-filled block taken from an
// IMemoryAllocation, reset as a whole.
//
// Blocks are handed out back to back with no alignment at all: a block is
// only as aligned as the sizes requested before it make it. No locking.
#pragma once

#include <kiv/memory/IMemoryAllocation.h>
#include <kiv/platform/KivApi.h>

namespace kiv::system::memory {

class KIV_API MMemoryChunk {
public:
    /// Takes a block of `size` bytes from `source` (not owned) and fills it
    /// with zeros. If the source has none, every Allocate returns null.
    MMemoryChunk(unsigned int size, IMemoryAllocation* source);
    /// Zero-fills the block and gives it back to the source.
    virtual ~MMemoryChunk();
    /// A chunk owns its block: it is not copied.
    MMemoryChunk(const MMemoryChunk&) = delete;
    MMemoryChunk& operator=(const MMemoryChunk&) = delete;

    /// The next `n` bytes of the block, or null when fewer than `n` remain.
    void* Allocate(unsigned int n);
    /// Starts again at the beginning of the block, which reads as zeros again.
    void Reset();

private:
    IMemoryAllocation* m_source;
    unsigned int m_size;
    char* m_block;
    unsigned int m_offset;
};

}  // namespace kiv::system::memory
