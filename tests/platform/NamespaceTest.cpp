#include "platform/Namespace.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <string>

#include "support/KivTestEnvironment.h"

using kiv::platform::NamespacePrefix;
using kiv::platform::NamespaceToken;
using kiv::platform::SystemObjectName;

namespace {

// Restores KIV_NAMESPACE of the running test when a case changes it.
class NamespaceVariable : public ::testing::Test {
protected:
    void TearDown() override { setenv("KIV_NAMESPACE", kiv::test::TestNamespace().c_str(), 1); }
};

bool IsValidSharedMemoryName(const std::string& name) {
    if (name.empty() || name[0] != '/' || name.size() > 251) {
        return false;
    }
    return name.find('/', 1) == std::string::npos;
}

}  // namespace

TEST_F(NamespaceVariable, TokenComesFromTheEnvironmentKeepsOnlySafeCharactersElseIsTheUser) {
    setenv("KIV_NAMESPACE", "alpha", 1);
    EXPECT_EQ(NamespaceToken(), "alpha");
    EXPECT_EQ(NamespacePrefix(), "/kiv.alpha.");
    unsetenv("KIV_NAMESPACE");
    EXPECT_EQ(NamespaceToken(), "u" + std::to_string(getuid()));
    setenv("KIV_NAMESPACE", "", 1);
    EXPECT_EQ(NamespaceToken(), "u" + std::to_string(getuid()));
    setenv("KIV_NAMESPACE", "a/b.c d-e_f", 1);
    EXPECT_EQ(NamespaceToken(), "abcd-e_f");
    setenv("KIV_NAMESPACE", std::string(200, 'n').c_str(), 1);
    EXPECT_EQ(NamespaceToken().size(), 48u);
    setenv("KIV_NAMESPACE", "///", 1);
    EXPECT_EQ(NamespaceToken(), "u" + std::to_string(getuid()));
}

TEST_F(NamespaceVariable, ObjectNamesAreValidDistinctScopedAndBounded) {
    setenv("KIV_NAMESPACE", "ns1", 1);
    EXPECT_EQ(SystemObjectName("event", L"KIV_GPS_EVENT_FIX"), "/kiv.ns1.event.KIV_GPS_EVENT_FIX");
    const std::string slash = SystemObjectName("event", L"a/b \u00E9");
    EXPECT_EQ(slash, "/kiv.ns1.event.a%2Fb%20%C3%A9");
    EXPECT_TRUE(IsValidSharedMemoryName(slash));
    EXPECT_NE(SystemObjectName("event", L"x"), SystemObjectName("sem", L"x"));
    setenv("KIV_NAMESPACE", "ns2", 1);
    EXPECT_EQ(SystemObjectName("event", L"x"), "/kiv.ns2.event.x");
    // Long names are cut but stay distinct.
    setenv("KIV_NAMESPACE", std::string(48, 'n').c_str(), 1);
    const std::wstring base(400, L'/');
    const std::string a = SystemObjectName("event", base + L"a");
    const std::string b = SystemObjectName("event", base + L"b");
    EXPECT_TRUE(IsValidSharedMemoryName(a)) << a.size();
    EXPECT_TRUE(IsValidSharedMemoryName(b));
    EXPECT_NE(a, b);
    EXPECT_EQ(a.size(), b.size());
}
