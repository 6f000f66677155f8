#include <kiv/memory/IMemoryAllocation.h>

#include <cstdlib>

namespace kiv::system::memory {

IMemoryAllocation::~IMemoryAllocation() = default;

MMemoryAllocation::MMemoryAllocation() = default;
MMemoryAllocation::~MMemoryAllocation() = default;

void* MMemoryAllocation::Allocate(unsigned int n) {
    return std::malloc(n);
}

unsigned int MMemoryAllocation::Free(void* p) {
    std::free(p);
    return 0;
}

}  // namespace kiv::system::memory
