// Memory sections that every process of the namespace shares, and stamps
// that say which process holds a cross-process lock kept in one.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kiv::platform {

/// Maps the section `name` of the current namespace (a shared-memory object
/// of `size` bytes, mode 0600), creating it if needed. A new section reads
/// zero; `initialise` then runs on it once, under a lock that serialises
/// every process attaching it, and runs again for the next process when
/// `isReady` says that an initialiser died half way. The mapping is made
/// once per process and namespace and kept for the life of the process.
/// Null if the section cannot be created, mapped or initialised, or exists
/// with another size.
std::uint8_t* MapSharedSection(std::wstring_view name, std::size_t size,
                               bool (*isReady)(const void* base), bool (*initialise)(void* base));

/// The calling process as one word (its id and the low half of its start
/// time), to record the holder of a lock; never 0.
std::uint64_t ProcessStamp();

/// False once the process a stamp names has ended (or its id was reused).
bool ProcessStampIsAlive(std::uint64_t stamp);

}  // namespace kiv::platform
