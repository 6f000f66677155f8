// Shared-memory objects of the namespace that several processes map and the
// first one initialises.
#pragma once

#include <cstddef>
#include <functional>
#include <string>

namespace kiv::platform::posix {

/// Maps the shared-memory object `name` (a SystemObjectName) of exactly
/// `size` bytes, creating it with mode 0600. Attaching is serialised by a
/// file lock on the object, which the kernel drops if the holder dies; while
/// it is held, `initialise` runs on the mapping unless `isReady` says that
/// an earlier process completed it, so an initialiser that died half way is
/// followed by another. A new object reads zero. Null if the object cannot
/// be opened or mapped, has another size, or `initialise` fails.
void* MapSharedObject(const std::string& name, std::size_t size,
                      const std::function<bool(const void*)>& isReady,
                      const std::function<bool(void*)>& initialise);

/// Unmaps what MapSharedObject mapped.
void UnmapSharedObject(void* base, std::size_t size);

}  // namespace kiv::platform::posix
