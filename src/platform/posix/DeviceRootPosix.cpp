#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>

#include "platform/DeviceRoot.h"

namespace kiv::platform {
namespace {

// mkdir -p with owner-only permissions for what it creates.
void MakeDirectories(const std::string& path) {
    for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
         slash = path.find('/', slash + 1)) {
        mkdir(path.substr(0, slash).c_str(), 0700);
    }
    mkdir(path.c_str(), 0700);
}

}  // namespace

std::string DeviceRoot() {
    if (const char* root = std::getenv("KIV_DEVICE_ROOT"); root != nullptr && *root != '\0') {
        std::string path = root;
        while (path.size() > 1 && path.back() == '/') {
            path.pop_back();
        }
        return path;
    }
    std::string base;
    if (const char* data = std::getenv("XDG_DATA_HOME"); data != nullptr && *data == '/') {
        base = data;
    } else if (const char* home = std::getenv("HOME"); home != nullptr && *home == '/') {
        base = std::string(home) + "/.local/share";
    } else {
        base = "/tmp/kiv-" + std::to_string(getuid());
    }
    const std::string path = base + "/kiv/device";
    MakeDirectories(path);
    return path;
}

std::string DeviceRootFile(std::string_view deviceName) {
    while (!deviceName.empty() && (deviceName.front() == '\\' || deviceName.front() == '/')) {
        deviceName.remove_prefix(1);
    }
    return DeviceRoot() + "/" + std::string(deviceName);
}

}  // namespace kiv::platform
