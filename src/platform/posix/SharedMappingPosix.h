// Shared-memory objects of the namespace that several processes map and the
// first one initialises.
#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>

namespace kiv::platform::posix {

/// Opens the shared-memory object `name` for reading and writing, creating
/// it (exclusively, mode 0600) when there is none. An existing object is
/// used only when it belongs to the effective user, grants nothing to group
/// or others, and is empty or exactly `size` bytes: anything else may be
/// another user's trap and is refused (-1, with a line on the debug output).
/// The descriptor, or -1.
int OpenOwnedSharedObject(const std::string& name, std::size_t size);

/// Maps the shared-memory object `name` (a SystemObjectName) of exactly
/// `size` bytes, creating it with mode 0600. Attaching is serialised by a
/// file lock on the object, which the kernel drops if the holder dies; while
/// it is held, `initialise` runs on the mapping unless `isReady` says that
/// an earlier process completed it, so an initialiser that died half way is
/// followed by another. A new object reads zero. Null if the object cannot
/// be opened (see OpenOwnedSharedObject) or mapped, or `initialise` fails.
void* MapSharedObject(const std::string& name, std::size_t size,
                      const std::function<bool(const void*)>& isReady,
                      const std::function<bool(void*)>& initialise);

/// Unmaps what MapSharedObject mapped.
void UnmapSharedObject(void* base, std::size_t size);

/// The process's one `T` for the shared object `name`, made by `make` (which
/// may give null) on first use. Objects of other namespaces are dropped once
/// nobody else holds them. KIV_NAMESPACE may change between calls (tests
/// do), so the caller passes the name it computes from it each time.
template <class T, class Make>
std::shared_ptr<T> OnePerNamespace(const std::string& name, Make&& make) {
    static std::mutex cacheLock;
    static std::map<std::string, std::shared_ptr<T>> cache;
    std::lock_guard<std::mutex> guard(cacheLock);
    for (auto it = cache.begin(); it != cache.end();) {
        if (it->first != name && it->second.use_count() == 1) {
            it = cache.erase(it);
        } else {
            ++it;
        }
    }
    if (auto it = cache.find(name); it != cache.end()) {
        return it->second;
    }
    std::shared_ptr<T> made = make();
    if (made) {
        cache.emplace(name, made);
    }
    return made;
}

}  // namespace kiv::platform::posix
