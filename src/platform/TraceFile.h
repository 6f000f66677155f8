// A file of measurement records for a developer, named by an environment
// variable and off when it is unset: the library pays one null test for it.
// Records are appended with one write each, so that records of several
// processes never interleave within one another.
#pragma once

#include <memory>
#include <string_view>

namespace kiv::platform {

class TraceFile {
public:
    /// The file the variable names, opened for appending (created with
    /// owner-only permissions); null when the variable is unset or empty or
    /// the file cannot be opened.
    static std::unique_ptr<TraceFile> FromEnvironment(const char* variable);
    ~TraceFile();
    TraceFile(const TraceFile&) = delete;
    TraceFile& operator=(const TraceFile&) = delete;

    /// Appends `record` as it is (a line should end in '\n').
    void Append(std::string_view record);

    /// CPU time the calling thread has used, in nanoseconds (a system call:
    /// for measurement records only).
    static long long ThreadCpuNs();

private:
    explicit TraceFile(int fd) : m_fd(fd) {}
    int m_fd;
};

}  // namespace kiv::platform
