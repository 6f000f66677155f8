// Available memory from the kernel's meminfo and free storage from statvfs.
#include <sys/statvfs.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "foundation/Text.h"
#include "platform/SystemResources.h"

namespace kiv::platform {
namespace {

std::string MeminfoPath() {
    const char* root = std::getenv("KIV_PROC_ROOT");
    const std::string dir = (root != nullptr && root[0] != '\0') ? root : "/proc";
    return dir + "/meminfo";
}

}  // namespace

std::optional<std::uint64_t> AvailableMemoryBytes() {
    std::FILE* file = std::fopen(MeminfoPath().c_str(), "re");
    if (file == nullptr) {
        return std::nullopt;
    }
    std::optional<std::uint64_t> bytes;
    char line[256];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        unsigned long long kib = 0;
        // The figure is in kibibytes whatever unit text follows it.
        if (std::sscanf(line, "MemAvailable: %llu", &kib) == 1) {
            bytes = kib > UINT64_MAX / 1024 ? UINT64_MAX : kib * 1024;
            break;
        }
    }
    std::fclose(file);
    return bytes;
}

std::optional<std::uint64_t> FreeStorageBytes(const std::wstring& directory) {
    struct statvfs info {};
    if (directory.empty() || statvfs(text::ToUtf8(directory).c_str(), &info) != 0) {
        return std::nullopt;
    }
    return static_cast<std::uint64_t>(info.f_bavail) * static_cast<std::uint64_t>(info.f_frsize);
}

}  // namespace kiv::platform
