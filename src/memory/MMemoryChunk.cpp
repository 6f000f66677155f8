#include <kiv/memory/MMemoryChunk.h>

#include <cstdint>
#include <cstring>

namespace kiv::system::memory {

MMemoryChunk::MMemoryChunk(unsigned int size, IMemoryAllocation* source)
    : m_source(source),
      m_size(size),
      m_block(source != nullptr ? static_cast<char*>(source->Allocate(size)) : nullptr),
      m_offset(0) {
    if (m_block != nullptr) {
        std::memset(m_block, 0, m_size);
    }
}

MMemoryChunk::~MMemoryChunk() {
    m_offset = 0;
    if (m_block != nullptr) {
        std::memset(m_block, 0, m_size);
        m_source->Free(m_block);
    }
}

void* MMemoryChunk::Allocate(unsigned int n) {
    if (m_block == nullptr || std::uint64_t{m_offset} + n > m_size) {
        return nullptr;
    }
    char* p = m_block + m_offset;
    m_offset += n;
    return p;
}

void MMemoryChunk::Reset() {
    m_offset = 0;
    if (m_block != nullptr) {
        std::memset(m_block, 0, m_size);
    }
}

}  // namespace kiv::system::memory
