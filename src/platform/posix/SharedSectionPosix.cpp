#include "platform/SharedSection.h"

#include <map>
#include <mutex>
#include <string>

#include "platform/Namespace.h"
#include "platform/posix/ProcessIdentityPosix.h"
#include "platform/posix/SharedMappingPosix.h"

namespace kiv::platform {

std::uint8_t* MapSharedSection(std::wstring_view name, std::size_t size,
                               bool (*isReady)(const void* base), bool (*initialise)(void* base)) {
    static std::mutex lock;
    // Kept for the life of the process: callers hold plain pointers into it.
    static auto* mapped = new std::map<std::string, std::uint8_t*>;
    const std::string shmName = SystemObjectName("section", name);
    std::lock_guard<std::mutex> guard(lock);
    if (const auto it = mapped->find(shmName); it != mapped->end()) {
        return it->second;
    }
    void* base = posix::MapSharedObject(shmName, size, isReady, initialise);
    if (base == nullptr) {
        return nullptr;
    }
    auto* bytes = static_cast<std::uint8_t*>(base);
    mapped->emplace(shmName, bytes);
    return bytes;
}

std::uint64_t ProcessStamp() {
    const posix::ProcessIdentity self = posix::CurrentProcessIdentity();
    return (static_cast<std::uint64_t>(static_cast<std::uint32_t>(self.startTime)) << 32) |
           static_cast<std::uint32_t>(self.pid);
}

bool ProcessStampIsAlive(std::uint64_t stamp) {
    const auto pid = static_cast<std::int32_t>(static_cast<std::uint32_t>(stamp));
    const auto start = static_cast<std::uint32_t>(stamp >> 32);
    const posix::ProcessIdentity self = posix::CurrentProcessIdentity();
    if (pid == self.pid) {
        return start == static_cast<std::uint32_t>(self.startTime);
    }
    return posix::ProcessIsAliveLow32(pid, start);
}

}  // namespace kiv::platform
