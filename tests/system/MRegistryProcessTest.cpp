#include <kiv/system/MRegistry.h>

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "support/KivTestEnvironment.h"

using kiv::system::MRegistry;

// Several processes write into one key at once; every one finishes without
// an error and every value written is there afterwards.
TEST(MRegistryProcesses, ConcurrentWritersLoseNothingAndSeeNoErrors) {
    constexpr int kProcesses = 4;
    constexpr int kValues = 150;
    std::vector<int> exits(kProcesses, -1);
    std::vector<std::thread> runners;
    for (int p = 0; p < kProcesses; ++p) {
        runners.emplace_back([p, &exits] {
            exits[static_cast<std::size_t>(p)] =
                kiv::test::RunProcess(kiv::test::HelperPath("kiv_registry_writer"),
                                      {"w" + std::to_string(p) + "_", std::to_string(kValues)});
        });
    }
    for (auto& r : runners) {
        r.join();
    }
    for (int p = 0; p < kProcesses; ++p) {
        EXPECT_EQ(exits[static_cast<std::size_t>(p)], 0) << "writer " << p;
    }

    MRegistry reg;
    ASSERT_EQ(reg.Open(HKEY_CURRENT_USER, L"Software\\KivTest\\Shared", KEY_READ), 0u);
    int missing = 0;
    for (int p = 0; p < kProcesses; ++p) {
        for (int i = 0; i < kValues; ++i) {
            const std::wstring name = L"w" + std::to_wstring(p) + L"_" + std::to_wstring(i);
            unsigned int value = 0;
            if (reg.QueryValue(value, name.c_str()) != 0 ||
                value != static_cast<unsigned int>(i * 7 + 1)) {
                ++missing;
            }
            wchar_t text[64];
            unsigned int size = sizeof text;
            if (reg.QueryValue(text, (name + L"_text").c_str(), &size) != 0 || name != text) {
                ++missing;
            }
        }
    }
    EXPECT_EQ(missing, 0);
}
