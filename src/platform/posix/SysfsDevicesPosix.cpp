// Backlight and power supply on the sysfs device classes, under the root
// that KIV_SYSFS_ROOT names (default /sys).
#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <string>
#include <vector>

#include "platform/Backlight.h"
#include "platform/PowerSupply.h"

namespace kiv::platform {
namespace {

std::string ClassDirectory(const char* deviceClass) {
    const char* root = std::getenv("KIV_SYSFS_ROOT");
    std::string dir = (root != nullptr && root[0] != '\0') ? root : "/sys";
    return dir + "/class/" + deviceClass;
}

// The devices of a class, in name order, so "the first" is stable.
std::vector<std::string> Devices(const std::string& classDir) {
    std::vector<std::string> names;
    if (DIR* dir = opendir(classDir.c_str()); dir != nullptr) {
        while (const dirent* entry = readdir(dir)) {
            const std::string name = entry->d_name;
            if (name != "." && name != "..") {
                names.push_back(classDir + "/" + name);
            }
        }
        closedir(dir);
    }
    std::sort(names.begin(), names.end());
    return names;
}

// The first line of a small attribute file, without trailing white space.
bool ReadAttribute(const std::string& path, std::string& value) {
    const int fd = open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    char buffer[256];
    ssize_t n = 0;
    do {
        n = read(fd, buffer, sizeof buffer - 1);
    } while (n < 0 && errno == EINTR);
    close(fd);
    if (n < 0) {
        return false;
    }
    value.assign(buffer, static_cast<std::size_t>(n));
    value = value.substr(0, value.find('\n'));
    while (!value.empty() && (value.back() == ' ' || value.back() == '\r')) {
        value.pop_back();
    }
    return true;
}

bool ReadNumber(const std::string& path, long long& number) {
    std::string text;
    if (!ReadAttribute(path, text) || text.empty()) {
        return false;
    }
    char* end = nullptr;
    number = std::strtoll(text.c_str(), &end, 10);
    return end != nullptr && *end == '\0';
}

std::string FirstBacklight() {
    for (const std::string& device : Devices(ClassDirectory("backlight"))) {
        if (access((device + "/brightness").c_str(), F_OK) == 0) {
            return device;
        }
    }
    return {};
}

}  // namespace

bool SetBacklightLevel(unsigned int level) {
    const std::string device = FirstBacklight();
    if (device.empty()) {
        return false;
    }
    // No O_CREAT: the attribute exists or there is no device.
    const int fd = open((device + "/brightness").c_str(), O_WRONLY | O_TRUNC | O_CLOEXEC);
    if (fd < 0) {
        return false;
    }
    const std::string text = std::to_string(level) + "\n";
    ssize_t n = 0;
    do {
        n = write(fd, text.data(), text.size());
    } while (n < 0 && errno == EINTR);
    const bool closed = close(fd) == 0;
    return closed && n == static_cast<ssize_t>(text.size());
}

bool GetBacklightLevel(unsigned int& level) {
    const std::string device = FirstBacklight();
    long long value = 0;
    if (device.empty() || !ReadNumber(device + "/brightness", value) || value < 0) {
        return false;
    }
    level = static_cast<unsigned int>(value);
    return true;
}

void ReadPowerStatus(PowerStatus& status) {
    status = PowerStatus{};
    bool haveBattery = false;
    bool haveMains = false;
    for (const std::string& device : Devices(ClassDirectory("power_supply"))) {
        std::string type;
        if (!ReadAttribute(device + "/type", type)) {
            continue;
        }
        long long value = 0;
        if (type == "Mains" && !haveMains) {
            haveMains = true;
            if (ReadNumber(device + "/online", value)) {
                status.acLineStatus = value != 0 ? 1 : 0;
            }
        } else if (type == "Battery" && !haveBattery) {
            haveBattery = true;
            std::uint8_t flag = 0;
            if (ReadNumber(device + "/capacity", value) && value >= 0 && value <= 100) {
                status.batteryLifePercent = static_cast<std::uint8_t>(value);
                flag = value > 66 ? 1 : (value < 5 ? 4 : (value < 33 ? 2 : 0));
            }
            std::string state;
            if (ReadAttribute(device + "/status", state) && state == "Charging") {
                flag |= 8;
            }
            status.batteryFlag = flag;
            if (ReadNumber(device + "/time_to_empty_now", value) && value >= 0 &&
                value < 0xFFFFFFFFLL) {
                status.batteryLifeTime = static_cast<std::uint32_t>(value);
            }
        }
    }
    if (!haveBattery) {
        status.batteryFlag = 128;
    }
}

}  // namespace kiv::platform
