// The kivipc tool between processes: a demo server, a listing, calls and
// the messages for names that do not exist.
#include <gtest/gtest.h>

#include <string>

#include "support/KivTestEnvironment.h"

namespace {

using kiv::test::ReadFileBytes;
using kiv::test::TempPath;

// Runs kivipc with `arguments` (shell words) and its output into `out`.
int Kivipc(const std::string& arguments, const std::string& out) {
    return kiv::test::RunProcess("/bin/sh", {"-c", "exec '" + kiv::test::HelperPath("kivipc") +
                                                       "' " + arguments + " >'" + out + "' 2>&1"});
}

TEST(KivipcTool, ServesListsCallsAndExplainsUnknownNames) {
    const std::string served = TempPath("serve.txt");
    kiv::test::ChildProcess server("/bin/sh", {"-c", "exec '" + kiv::test::HelperPath("kivipc") +
                                                         "' serve demo >'" + served + "'"});
    const std::string out = TempPath("out.txt");
    for (int i = 0; i < 3000 && ReadFileBytes(served).find("serving") == std::string::npos; ++i) {
        kiv::test::WaitForFile(TempPath("never"), 10);
    }
    ASSERT_NE(ReadFileBytes(served).find("serving demo"), std::string::npos);

    EXPECT_EQ(Kivipc("list", out), 0);
    const std::string listing = ReadFileBytes(out);
    EXPECT_NE(listing.find("demo (process " + std::to_string(server.Pid()) + ")"),
              std::string::npos)
        << listing;
    EXPECT_NE(listing.find("command echo"), std::string::npos);
    EXPECT_NE(listing.find("event   tick"), std::string::npos);

    EXPECT_EQ(Kivipc("call demo echo 'hello there'", out), 0);
    EXPECT_EQ(Kivipc("call demo echo --hex '00 01 ff'", out), 0);
    EXPECT_EQ(Kivipc("call demo shout hi", out), 1);
    EXPECT_NE(ReadFileBytes(out).find("has no command \"shout\" (its commands: echo, quit)"),
              std::string::npos);
    EXPECT_EQ(Kivipc("call elsewhere echo", out), 1);
    EXPECT_NE(ReadFileBytes(out).find("no server named \"elsewhere\""), std::string::npos);
    EXPECT_EQ(Kivipc("listen demo nothing", out), 1);
    EXPECT_NE(ReadFileBytes(out).find("has no event \"nothing\""), std::string::npos);

    EXPECT_EQ(Kivipc("call demo quit", out), 0);
    EXPECT_EQ(server.Wait(60000), 0);
    EXPECT_EQ(ReadFileBytes(served),
              "serving demo; Ctrl-C ends\necho: hello there\necho: hex: 00 01 ff\n"
              "demo unregistered\n");
    EXPECT_EQ(Kivipc("list", out), 0);
    EXPECT_EQ(ReadFileBytes(out), "no servers\n");
}

}  // namespace
