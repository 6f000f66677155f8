// The test harness itself: each test gets its own namespace, registry and
// device root, and child processes inherit them.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <string>

#include "platform/Namespace.h"
#include "support/KivTestEnvironment.h"

TEST(TestIsolation, EachTestHasAPrivateRootAndNamespace) {
    ASSERT_FALSE(kiv::test::TestRoot().empty());
    struct stat st {};
    ASSERT_EQ(stat(kiv::test::TestRoot().c_str(), &st), 0);
    EXPECT_EQ(st.st_mode & 0777, 0700u);
    EXPECT_EQ(kiv::platform::NamespaceToken(), kiv::test::TestNamespace());
    EXPECT_EQ(std::string(std::getenv("KIV_REGISTRY")), kiv::test::TempPath("registry.db"));
    EXPECT_TRUE(std::filesystem::is_directory(std::getenv("KIV_DEVICE_ROOT")));
}

TEST(TestIsolation, ANewTestGetsFreshOnesAndTheFinishedRootIsRemoved) {
    // Drive the hooks the common main calls around every test.
    const std::string firstRoot = kiv::test::TestRoot();
    const std::string firstNamespace = kiv::test::TestNamespace();
    ASSERT_TRUE(kiv::test::WriteFileBytes(kiv::test::TempPath("left-behind"), "x"));
    kiv::test::detail::EndTest();
    EXPECT_FALSE(std::filesystem::exists(firstRoot));
    kiv::test::detail::BeginTest();
    EXPECT_NE(kiv::test::TestRoot(), firstRoot);
    EXPECT_NE(kiv::test::TestNamespace(), firstNamespace);
    EXPECT_EQ(kiv::platform::NamespaceToken(), kiv::test::TestNamespace());
}

TEST(TestIsolation, ChildProcessesInheritTheVariables) {
    const std::string out = kiv::test::TempPath("env.txt");
    ASSERT_EQ(kiv::test::RunProcess(kiv::test::HelperPath("kiv_print_env"), {out}), 0);
    std::istringstream lines(kiv::test::ReadFileBytes(out));
    std::string ns, registry, device;
    std::getline(lines, ns);
    std::getline(lines, registry);
    std::getline(lines, device);
    EXPECT_EQ(ns, kiv::test::TestNamespace());
    EXPECT_EQ(registry, kiv::test::TempPath("registry.db"));
    EXPECT_EQ(device, kiv::test::TempPath("device"));
}
