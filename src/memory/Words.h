// 32-bit words inside memory the allocators manage.
//
// Headers and links in partitions are 32-bit words, as on the device, and the
// memory under them is only guaranteed to be 4-byte aligned (pool objects of
// odd sizes not even that), so every word is read and written by copy.
#pragma once

#include <cstdint>
#include <cstring>

namespace kiv::system::memory {

inline std::uint32_t LoadWord(const char* at) {
    std::uint32_t value;
    std::memcpy(&value, at, sizeof value);
    return value;
}

inline void StoreWord(char* at, std::uint32_t value) {
    std::memcpy(at, &value, sizeof value);
}

}  // namespace kiv::system::memory
