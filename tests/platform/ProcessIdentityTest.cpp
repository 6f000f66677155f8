// Liveness of other processes, told by pid and start time.
#include "platform/posix/ProcessIdentityPosix.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>

namespace {

using kiv::platform::posix::ProcessIsAlive;
using kiv::platform::posix::ProcessIsAliveLow32;

// Field 22 of /proc/<pid>/stat, counted from the last ')'.
std::uint64_t StartTimeOf(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/stat");
    std::string line;
    std::getline(in, line);
    std::istringstream fields(line.substr(line.rfind(')') + 1));
    std::string field;
    for (int i = 3; i <= 22 && fields >> field; ++i) {
    }
    return std::strtoull(field.c_str(), nullptr, 10);
}

TEST(ProcessIsAlive, TellsARunningProcessFromAnEndedOneAndFromAnotherStartTime) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        for (;;) {
            pause();
        }
    }
    const std::uint64_t started = StartTimeOf(child);
    ASSERT_NE(started, 0u);
    // The first check reads /proc; the later ones find the process watched.
    EXPECT_TRUE(ProcessIsAlive(child, started));
    EXPECT_TRUE(ProcessIsAlive(child, started));
    EXPECT_TRUE(ProcessIsAliveLow32(child, static_cast<std::uint32_t>(started)));
    EXPECT_FALSE(ProcessIsAlive(child, started + 1)) << "another process of that pid";
    EXPECT_FALSE(ProcessIsAlive(0, 0));

    ASSERT_EQ(kill(child, SIGKILL), 0);
    siginfo_t info{};
    ASSERT_EQ(waitid(P_PID, static_cast<id_t>(child), &info, WEXITED | WNOWAIT), 0);
    EXPECT_FALSE(ProcessIsAlive(child, started)) << "a zombie has ended";
    EXPECT_FALSE(ProcessIsAliveLow32(child, static_cast<std::uint32_t>(started)));
    ASSERT_EQ(waitpid(child, nullptr, 0), child);
    EXPECT_FALSE(ProcessIsAlive(child, started));
}

}  // namespace
