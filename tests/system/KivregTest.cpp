// The kivreg tool, run as people run it.
#include <kiv/system/MRegistryKey.h>

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "support/KivTestEnvironment.h"

using kiv::system::MRegistryKey;

namespace {

int Kivreg(const std::vector<std::string>& args) {
    return kiv::test::RunProcess(kiv::test::HelperPath("kivreg"), args);
}

// Standard output of a kivreg run.
std::string KivregOutput(const std::string& args) {
    std::string out;
    if (FILE* p =
            popen((kiv::test::HelperPath("kivreg") + " " + args + " 2>/dev/null").c_str(), "r")) {
        char buffer[512];
        std::size_t n = 0;
        while ((n = std::fread(buffer, 1, sizeof buffer, p)) > 0) {
            out.append(buffer, n);
        }
        pclose(p);
    }
    return out;
}

std::string Value(const wchar_t* key, const wchar_t* name, unsigned int& type) {
    MRegistryKey k;
    std::string data(256, '\0');
    unsigned int size = static_cast<unsigned int>(data.size());
    if (k.Open(HKEY_CURRENT_USER, key) != 0 || k.QueryValue(name, &type, data.data(), &size) != 0) {
        return "<absent>";
    }
    data.resize(size);
    return data;
}

std::string Wide(const wchar_t* s, std::size_t chars) {
    return std::string(reinterpret_cast<const char*>(s), chars * sizeof(wchar_t));
}

}  // namespace

TEST(Kivreg, ValuesOfEveryTypeSurviveExportAndImportIntoAnotherStore) {
    const std::string key = "HKCU\\Software\\KivTest";
    ASSERT_EQ(Kivreg({"add", key + "\\Sub", "/v", "Text", "/d", "a \"quoted\" \\ text"}), 0);
    ASSERT_EQ(Kivreg({"add", key, "/v", "Num", "/t", "REG_DWORD", "/d", "0x2a"}), 0);
    ASSERT_EQ(Kivreg({"add", key, "/v", "Big", "/t", "REG_QWORD", "/d", "4294967296"}), 0);
    ASSERT_EQ(Kivreg({"add", key, "/v", "List", "/t", "REG_MULTI_SZ", "/d", "one\\0two"}), 0);
    ASSERT_EQ(Kivreg({"add", key, "/v", "Raw", "/t", "REG_BINARY", "/d", "00ff10"}), 0);
    ASSERT_EQ(Kivreg({"add", key, "/ve", "/t", "REG_EXPAND_SZ", "/d", "%HOME%/\xc3\xa9"}), 0);
    const std::string file = kiv::test::TempPath("export.reg");
    ASSERT_EQ(Kivreg({"export", key, file}), 0);

    setenv("KIV_REGISTRY", kiv::test::TempPath("other.db").c_str(), 1);
    ASSERT_EQ(Kivreg({"import", file}), 0);
    unsigned int type = 0;
    EXPECT_EQ(Value(L"Software\\KivTest\\Sub", L"Text", type), Wide(L"a \"quoted\" \\ text", 18));
    EXPECT_EQ(type, REG_SZ);
    const unsigned int num = 42;
    EXPECT_EQ(Value(L"Software\\KivTest", L"Num", type),
              std::string(reinterpret_cast<const char*>(&num), 4));
    const unsigned long long big = 4294967296ULL;
    EXPECT_EQ(Value(L"Software\\KivTest", L"Big", type),
              std::string(reinterpret_cast<const char*>(&big), 8));
    EXPECT_EQ(type, REG_QWORD);
    EXPECT_EQ(Value(L"Software\\KivTest", L"List", type), Wide(L"one\0two\0", 9));
    EXPECT_EQ(type, REG_MULTI_SZ);
    EXPECT_EQ(Value(L"Software\\KivTest", L"Raw", type), std::string("\x00\xff\x10", 3));
    EXPECT_EQ(Value(L"Software\\KivTest", L"", type), Wide(L"%HOME%/\u00e9", 9));
    EXPECT_EQ(type, REG_EXPAND_SZ);
}

TEST(Kivreg, QueryListsValuesAndSubKeys) {
    ASSERT_EQ(Kivreg({"add", "HKLM\\Software\\KivTest\\Child"}), 0);
    ASSERT_EQ(Kivreg({"add", "HKLM\\Software\\KivTest", "/v", "Num", "/t", "REG_DWORD", "/d", "7"}),
              0);
    EXPECT_EQ(KivregOutput("query 'HKLM\\Software\\KivTest'"),
              "\nHKEY_LOCAL_MACHINE\\Software\\KivTest\n    Num    REG_DWORD    0x7\n"
              "\nHKEY_LOCAL_MACHINE\\Software\\KivTest\\Child\n\n");
    EXPECT_EQ(KivregOutput("query 'HKLM\\Software\\KivTest' /v Num"),
              "\nHKEY_LOCAL_MACHINE\\Software\\KivTest\n    Num    REG_DWORD    0x7\n\n");
}

TEST(Kivreg, ExitStatusTellsBadArgumentsMissingKeysRefusalsAndADamagedStore) {
    EXPECT_EQ(Kivreg({}), 2);
    EXPECT_EQ(Kivreg({"frobnicate", "HKCU\\x"}), 2);
    EXPECT_EQ(Kivreg({"query", "HKXX\\Software"}), 2);
    EXPECT_EQ(Kivreg({"add", "HKCU\\Software\\K", "/v", "n", "/t", "REG_DWORD", "/d", "12x"}), 2);
    EXPECT_EQ(Kivreg({"query", "HKCU\\Software\\Absent"}), 1);
    ASSERT_EQ(Kivreg({"add", "HKCU\\Software\\K", "/v", "n", "/d", "1"}), 0);
    EXPECT_EQ(Kivreg({"add", "HKCU\\Software\\K", "/v", "n", "/d", "2"}), 1);  // exists, no /f
    EXPECT_EQ(Kivreg({"add", "HKCU\\Software\\K", "/v", "n", "/d", "2", "/f"}), 0);
    EXPECT_EQ(Kivreg({"delete", "HKCU\\Software\\K", "/v", "absent", "/f"}), 1);
    EXPECT_EQ(Kivreg({"delete", "HKCU\\Software", "/f"}), 0);
    EXPECT_EQ(Kivreg({"query", "HKCU\\Software\\K"}), 1);

    const std::string bad = kiv::test::TempPath("bad.reg");
    ASSERT_TRUE(
        kiv::test::WriteFileBytes(bad, "REGEDIT4\n\n[HKEY_CURRENT_USER\\X]\n\"v\"=nonsense\n"));
    EXPECT_EQ(Kivreg({"import", bad}), 1);

    const std::string damaged = kiv::test::TempPath("damaged.db");
    ASSERT_TRUE(kiv::test::WriteFileBytes(damaged, std::string(4096, 'z')));
    setenv("KIV_REGISTRY", damaged.c_str(), 1);
    EXPECT_EQ(Kivreg({"query", "HKCU"}), 3);
    EXPECT_EQ(kiv::test::ReadFileBytes(damaged), std::string(4096, 'z'));
}
