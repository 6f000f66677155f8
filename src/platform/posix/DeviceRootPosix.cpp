#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <string>
#include <string_view>

#include "foundation/Text.h"
#include "platform/DebugOutput.h"
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

// A directory of the effective user that grants nothing to others (one of
// ours that grants more is tightened).
bool IsPrivateDirectory(const std::string& dir) {
    struct stat st {};
    if (lstat(dir.c_str(), &st) != 0 || !S_ISDIR(st.st_mode) || st.st_uid != geteuid()) {
        return false;
    }
    return (st.st_mode & 077) == 0 || chmod(dir.c_str(), 0700) == 0;
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
    // Under /tmp another user may have made the directories first.
    const bool shared = base.rfind("/tmp/", 0) == 0;
    if (!IsPrivateDirectory(path) ||
        (shared && (!IsPrivateDirectory(base) || !IsPrivateDirectory(base + "/kiv")))) {
        OutputDebugText(
            text::FromUtf8("Device root " + path + " is not a private directory of this user\n"));
        return std::string();
    }
    return path;
}

std::string DeviceRootFile(std::string_view deviceName) {
    while (!deviceName.empty() && (deviceName.front() == '\\' || deviceName.front() == '/')) {
        deviceName.remove_prefix(1);
    }
    const std::string root = DeviceRoot();
    if (root.empty()) {
        return std::string();  // refused: names no file
    }
    return root + "/" + std::string(deviceName);
}

}  // namespace kiv::platform
