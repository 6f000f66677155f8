#include <dirent.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

#include "foundation/Text.h"
#include "platform/ProcessTable.h"

namespace kiv::platform {
namespace {

// Calls `visit` with every numeric entry of a /proc directory.
template <typename Visit>
bool ForEachNumericEntry(const std::string& dir, Visit&& visit) {
    DIR* d = opendir(dir.c_str());
    if (d == nullptr) {
        return false;
    }
    while (dirent* e = readdir(d)) {
        char* end = nullptr;
        errno = 0;
        const unsigned long id = std::strtoul(e->d_name, &end, 10);
        if (e->d_name[0] < '0' || e->d_name[0] > '9' || *end != '\0' || errno != 0 ||
            id > UINT32_MAX) {
            continue;
        }
        visit(static_cast<std::uint32_t>(id));
    }
    closedir(d);
    return true;
}

std::string ReadSmallFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

// The fields of a stat line after the command name, which is in parentheses
// and may itself contain spaces and parentheses. Field 3 of stat(5) is
// element 0 here.
std::vector<std::string> StatFieldsAfterName(const std::string& stat) {
    std::vector<std::string> fields;
    const std::size_t close = stat.rfind(')');
    if (close == std::string::npos) {
        return fields;
    }
    std::istringstream rest(stat.substr(close + 1));
    std::string field;
    while (rest >> field) {
        fields.push_back(field);
    }
    return fields;
}

std::string BaseName(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    return slash == std::string::npos ? path : path.substr(slash + 1);
}

std::wstring ExecutableName(std::uint32_t pid) {
    const std::string dir = "/proc/" + std::to_string(pid);
    char target[PATH_MAX];
    const ssize_t n = readlink((dir + "/exe").c_str(), target, sizeof target - 1);
    if (n > 0) {
        std::string path(target, static_cast<std::size_t>(n));
        constexpr const char kDeleted[] = " (deleted)";
        if (path.size() > sizeof kDeleted - 1 &&
            path.compare(path.size() - (sizeof kDeleted - 1), std::string::npos, kDeleted) == 0) {
            path.resize(path.size() - (sizeof kDeleted - 1));
        }
        return text::FromUtf8(BaseName(path));
    }
    std::string comm = ReadSmallFile(dir + "/comm");
    while (!comm.empty() && (comm.back() == '\n' || comm.back() == '\r')) {
        comm.pop_back();
    }
    return text::FromUtf8(comm);
}

std::uint64_t TicksTo100ns(std::uint64_t ticks) {
    static const long perSecond = sysconf(_SC_CLK_TCK);
    return perSecond > 0 ? ticks * (10000000ULL / static_cast<std::uint64_t>(perSecond)) : 0;
}

}  // namespace

std::optional<std::vector<ProcessRecord>> SnapshotProcesses() {
    std::vector<ProcessRecord> records;
    const bool ok = ForEachNumericEntry("/proc", [&](std::uint32_t pid) {
        const auto fields =
            StatFieldsAfterName(ReadSmallFile("/proc/" + std::to_string(pid) + "/stat"));
        // num_threads is field 20 of stat(5).
        if (fields.size() < 18) {
            return;  // gone while the table was read
        }
        ProcessRecord record;
        record.pid = pid;
        record.threads = static_cast<std::uint32_t>(std::strtoul(fields[17].c_str(), nullptr, 10));
        record.exeName = ExecutableName(pid);
        records.push_back(std::move(record));
    });
    if (!ok) {
        return std::nullopt;
    }
    return records;
}

std::vector<ThreadTimeRecord> SnapshotThreadTimes() {
    std::vector<ThreadTimeRecord> records;
    ForEachNumericEntry("/proc", [&](std::uint32_t pid) {
        const std::string task = "/proc/" + std::to_string(pid) + "/task";
        ForEachNumericEntry(task, [&](std::uint32_t tid) {
            const auto fields =
                StatFieldsAfterName(ReadSmallFile(task + "/" + std::to_string(tid) + "/stat"));
            // utime is field 14 of stat(5), in clock ticks.
            if (fields.size() < 12) {
                return;
            }
            records.push_back(
                {pid, tid, TicksTo100ns(std::strtoull(fields[11].c_str(), nullptr, 10))});
        });
    });
    return records;
}

std::optional<std::uint64_t> AccessibleMappingBytes(std::uint32_t pid) {
    std::ifstream maps("/proc/" + std::to_string(pid) + "/maps");
    if (!maps) {
        return std::nullopt;
    }
    std::uint64_t total = 0;
    std::string line;
    while (std::getline(maps, line)) {
        unsigned long long start = 0;
        unsigned long long end = 0;
        char perms[8] = {};
        if (std::sscanf(line.c_str(), "%llx-%llx %7s", &start, &end, perms) != 3 || end < start) {
            continue;
        }
        if (perms[0] == 'r' || perms[1] == 'w' || perms[2] == 'x') {
            total += end - start;
        }
    }
    return total;
}

std::uint64_t SharedMemoryBytes() {
    std::ifstream meminfo("/proc/meminfo");
    std::string line;
    while (std::getline(meminfo, line)) {
        unsigned long long kib = 0;
        if (std::sscanf(line.c_str(), "Shmem: %llu kB", &kib) == 1) {
            return kib * 1024;
        }
    }
    return 0;
}

std::uint32_t CurrentProcessId() {
    return static_cast<std::uint32_t>(getpid());
}

bool KillProcess(std::uint32_t pid) {
    if (pid == 0 || pid > static_cast<std::uint32_t>(INT_MAX)) {
        return false;  // 0 and negative values would signal process groups
    }
    return kill(static_cast<pid_t>(pid), SIGKILL) == 0;
}

}  // namespace kiv::platform
