#include <kiv/system/MShell.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <utility>

#include "platform/Mixer.h"
#include "support/KivTestEnvironment.h"

using kiv::system::_MSYSTEMTIME;
using kiv::system::MShell;

namespace {

constexpr unsigned int kFailed = 0xFFFFFFFFu;

// What the mixer double saw and will answer.
struct MixerState {
    std::uint32_t volume = 0;
    bool fails = false;
    int sets = 0;
};

class FakeMixer : public kiv::platform::Mixer {
public:
    explicit FakeMixer(std::shared_ptr<MixerState> state) : m_state(std::move(state)) {}
    bool SetVolume(std::uint32_t packed) override {
        ++m_state->sets;
        if (m_state->fails) {
            return false;
        }
        m_state->volume = packed;
        return true;
    }
    bool GetVolume(std::uint32_t& packed) override {
        if (m_state->fails) {
            return false;
        }
        packed = m_state->volume;
        return true;
    }

private:
    std::shared_ptr<MixerState> m_state;
};

void WriteAttribute(const std::string& relative, const std::string& value) {
    const std::filesystem::path path = kiv::test::TempPath("sys/class/" + relative);
    std::filesystem::create_directories(path.parent_path());
    ASSERT_TRUE(kiv::test::WriteFileBytes(path.string(), value));
}

using Answer = std::pair<unsigned int, unsigned int>;  // result, value

// A getter's result and the value it reported.
Answer Get(MShell& shell, unsigned int (MShell::*getter)(unsigned int&)) {
    unsigned int value = 0xDEAD;
    const unsigned int result = (shell.*getter)(value);
    return {result, value};
}

class MShellTest : public ::testing::Test {
protected:
    void SetUp() override {
        setenv("KIV_SYSFS_ROOT", kiv::test::TempPath("sys").c_str(), 1);
        kiv::platform::SetMixerFactoryForTesting(
            [state = mixer] { return std::make_unique<FakeMixer>(state); });
    }
    void TearDown() override {
        kiv::platform::SetMixerFactoryForTesting({});
        unsetenv("KIV_SYSFS_ROOT");
    }

    std::shared_ptr<MixerState> mixer = std::make_shared<MixerState>();
};

}  // namespace

TEST_F(MShellTest, VolumeIsScaledByTheMaximumAndReadFromTheLeftChannel) {
    MShell shell;
    // The initial maximum is 1: all or nothing.
    EXPECT_EQ(shell.SetMainVolumeLevel(1), 0u);
    EXPECT_EQ(mixer->volume, 0xFFFFFFFFu);
    EXPECT_EQ(Get(shell, &MShell::GetMainVolumeLevel), Answer(0, 1));
    EXPECT_EQ(shell.SetMainVolumeLevel(0), 0u);
    EXPECT_EQ(mixer->volume, 0u);
    EXPECT_EQ(Get(shell, &MShell::GetMainVolumeLevel), Answer(0, 0));

    ASSERT_EQ(shell.SetMaxVolumeLevel(10), 0u);
    EXPECT_EQ(shell.SetMainVolumeLevel(5), 0u);
    EXPECT_EQ(mixer->volume, 0x7FFF7FFFu);  // 5 * 65535 / 10 on both channels
    EXPECT_EQ(Get(shell, &MShell::GetMainVolumeLevel), Answer(0, 5));  // 0x7FFF / (65535 / 10)
    mixer->volume = 0xFFFF1000;  // someone else set the channels apart
    EXPECT_EQ(Get(shell, &MShell::GetMainVolumeLevel), Answer(0, 0))
        << "4096 / 6553: only the left channel counts";
    ASSERT_EQ(shell.SetMaxVolumeLevel(3), 0u);
    mixer->volume = 0x0000FFFF;
    EXPECT_EQ(Get(shell, &MShell::GetMainVolumeLevel), Answer(0, 3));  // 65535 / 21845
}

TEST_F(MShellTest, MaximumLevelsOutsideTheRangeGiveOneAndKeepTheOldMaximum) {
    MShell shell;
    for (unsigned int bad : {0u, 65535u, 0xFFFFFFFFu}) {
        EXPECT_EQ(shell.SetMaxVolumeLevel(bad), 1u);
        EXPECT_EQ(shell.SetMaxBrightnessLevel(bad), 1u);
    }
    EXPECT_EQ(Get(shell, &MShell::GetMaxVolumeLevel), Answer(0, 1));
    EXPECT_EQ(shell.SetMaxVolumeLevel(65534), 0u);
    EXPECT_EQ(shell.SetMaxBrightnessLevel(65534), 0u);
    EXPECT_EQ(Get(shell, &MShell::GetMaxVolumeLevel), Answer(0, 65534));
    EXPECT_EQ(Get(shell, &MShell::GetMaxBrightnessLevel), Answer(0, 65534));
    // Copies share the implementation and so the maxima.
    MShell copy(shell);
    EXPECT_EQ(copy.SetMaxVolumeLevel(7), 0u);
    EXPECT_EQ(Get(shell, &MShell::GetMaxVolumeLevel), Answer(0, 7));
}

TEST_F(MShellTest, UnmuteRestoresTheVolumeOfMuteAndMixerFailuresShowAsTheResultsSay) {
    MShell shell;
    ASSERT_EQ(shell.SetMaxVolumeLevel(4), 0u);
    ASSERT_EQ(shell.SetMainVolumeLevel(3), 0u);
    const std::uint32_t before = mixer->volume;
    EXPECT_EQ(shell.EnableMute(1), 1u);
    EXPECT_EQ(mixer->volume, 0u);
    EXPECT_EQ(shell.EnableMute(0), 1u);
    EXPECT_EQ(mixer->volume, before);

    mixer->fails = true;
    EXPECT_EQ(shell.EnableMute(1), 0u);
    EXPECT_EQ(shell.SetMainVolumeLevel(1), 0u);  // the failure is not reported here
    EXPECT_EQ(Get(shell, &MShell::GetMainVolumeLevel).first, kFailed);

    kiv::platform::SetMixerFactoryForTesting(
        [] { return std::unique_ptr<kiv::platform::Mixer>(); });
    MShell withoutMixer;
    EXPECT_EQ(withoutMixer.SetMainVolumeLevel(1), 0u);
    EXPECT_EQ(Get(withoutMixer, &MShell::GetMainVolumeLevel).first, kFailed);
    EXPECT_EQ(withoutMixer.EnableMute(1), 0u);
}

TEST_F(MShellTest, BrightnessIsWrittenUnscaledToTheFirstBacklightAndFailsWithoutOne) {
    {
        MShell shell;
        EXPECT_EQ(shell.SetMainBrightnessLevel(3), kFailed);
        EXPECT_EQ(Get(shell, &MShell::GetMainBrightnessLevel).first, kFailed);
        EXPECT_FALSE(std::filesystem::exists(kiv::test::TempPath("sys/class/backlight")));
    }
    WriteAttribute("backlight/a_panel/brightness", "42\n");
    WriteAttribute("backlight/b_other/brightness", "1\n");
    MShell shell;
    ASSERT_EQ(shell.SetMaxBrightnessLevel(10), 0u);
    EXPECT_EQ(Get(shell, &MShell::GetMainBrightnessLevel), Answer(0, 42));
    EXPECT_EQ(shell.SetMainBrightnessLevel(77), 0u);
    auto read = [](const char* name) {
        return kiv::test::ReadFileBytes(kiv::test::TempPath("sys/class/backlight/") + name);
    };
    EXPECT_EQ(read("a_panel/brightness"), "77\n");
    EXPECT_EQ(read("b_other/brightness"), "1\n");
}

TEST_F(MShellTest, BatteryAndMainsAreReadOnceAtConstructionAndUnknownWithoutThem) {
    WriteAttribute("power_supply/usb/type", "USB\n");
    int status = 0;
    {
        MShell shell;
        EXPECT_EQ(Get(shell, &MShell::GetBatteryLifePercent), Answer(0, 255));
        EXPECT_EQ(shell.GetChargingStatus(status), 0u);
        EXPECT_EQ(status, 255);
    }
    WriteAttribute("power_supply/AC/type", "Mains\n");
    WriteAttribute("power_supply/AC/online", "1\n");
    WriteAttribute("power_supply/BAT0/type", "Battery\n");
    WriteAttribute("power_supply/BAT0/capacity", "57\n");
    MShell shell;
    WriteAttribute("power_supply/BAT0/capacity", "12\n");
    EXPECT_EQ(Get(shell, &MShell::GetBatteryLifePercent), Answer(0, 57));
    EXPECT_EQ(shell.GetChargingStatus(status), 0u);
    EXPECT_EQ(status, 1);
    MShell fresh;
    EXPECT_EQ(Get(fresh, &MShell::GetBatteryLifePercent), Answer(0, 12));
}

TEST_F(MShellTest, LanguageNamesAreEnglish) {
    MShell shell;
    auto name = [&](unsigned int lcid, unsigned int size = 32) {
        wchar_t buffer[32] = L"";
        const unsigned int result = shell.GetLanguageString(lcid, buffer, size);
        return std::make_pair(result, std::wstring(buffer));
    };
    EXPECT_EQ(name(0x0409), std::make_pair(0u, std::wstring(L"English")));
    EXPECT_EQ(name(0x0407), std::make_pair(0u, std::wstring(L"German")));
    EXPECT_EQ(name(0x0804), std::make_pair(0u, std::wstring(L"Chinese")));
    EXPECT_EQ(name(0x0407, 7).first, 0u) << "\"German\" and its terminator";
    EXPECT_EQ(name(0x0407, 6).first, kFailed);
    EXPECT_EQ(name(0x7FFF).first, kFailed);
    EXPECT_EQ(name(0x0000).first, kFailed);
    EXPECT_EQ(shell.GetLanguageString(0x0407, nullptr, 32), kFailed);
}

TEST_F(MShellTest, UserLanguageIsKeptInTheRegistryAndDefaultsToTheProcessLocale) {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES"}) {
        unsetenv(variable);
    }
    const char* oldLang = std::getenv("LANG");
    const std::string savedLang = oldLang != nullptr ? oldLang : "";
    setenv("LANG", "de_DE.UTF-8", 1);
    MShell shell;
    EXPECT_EQ(Get(shell, &MShell::GetCurrentLanguage), Answer(0, 0x0407));
    EXPECT_EQ(shell.SetCurrentLanguage(0x0804), 0u);
    EXPECT_EQ(shell.SetCurrentLanguage(0x7FFF), kFailed);
    MShell another;
    EXPECT_EQ(Get(another, &MShell::GetCurrentLanguage), Answer(0, 0x0804));
    if (oldLang != nullptr) {
        setenv("LANG", savedLang.c_str(), 1);
    } else {
        unsetenv("LANG");
    }
}

TEST_F(MShellTest, DateTimeNeedsBothRecordsAndRefusesImpossibleTimes) {
    MShell shell;
    _MSYSTEMTIME utc{};
    _MSYSTEMTIME local{};
    local.wYear = 1234;
    EXPECT_EQ(shell.GetDateTime(&utc, nullptr), kFailed);
    EXPECT_EQ(shell.GetDateTime(nullptr, &local), kFailed);
    EXPECT_EQ(utc.wYear, 0);
    EXPECT_EQ(local.wYear, 1234);

    ASSERT_EQ(shell.GetDateTime(&utc, &local), 0u);
    EXPECT_GE(utc.wYear, 2024);
    EXPECT_GE(utc.wMonth, 1);
    EXPECT_LE(utc.wMonth, 12);
    EXPECT_LE(utc.wDayOfWeek, 6);
    EXPECT_LE(local.wMilliseconds, 999);
    EXPECT_EQ(utc.wMinute % 15, local.wMinute % 15);  // time zones differ by quarter hours

    EXPECT_EQ(shell.SetDateTime(nullptr), kFailed);
    _MSYSTEMTIME bad = local;
    bad.wMonth = 13;
    EXPECT_EQ(shell.SetDateTime(&bad), kFailed);
    bad = {2025, 4, 0, 31, 12, 0, 0, 0};  // 31 April
    EXPECT_EQ(shell.SetDateTime(&bad), kFailed);
}

// It changes the machine's master volume for a moment, so it runs only on
// request: KIV_TEST_SYSTEM_MIXER=1.
TEST(MixerAlsa, SystemMixerKeepsAVolumeItIsGiven) {
    if (std::getenv("KIV_TEST_SYSTEM_MIXER") == nullptr) {
        GTEST_SKIP() << "set KIV_TEST_SYSTEM_MIXER=1 to try the machine's own mixer";
    }
    std::unique_ptr<kiv::platform::Mixer> mixer = kiv::platform::OpenSystemMixer();
    if (mixer == nullptr) {
        GTEST_SKIP() << "no sound card with a playback mixer";
    }
    std::uint32_t volume = 0;
    ASSERT_TRUE(mixer->GetVolume(volume));
    ASSERT_TRUE(mixer->SetVolume(0xFFFF0000u));
    std::uint32_t apart = 0;
    ASSERT_TRUE(mixer->GetVolume(apart));
    EXPECT_TRUE(apart == 0xFFFF0000u || apart == 0);  // mono mixers take the left channel
    EXPECT_TRUE(mixer->SetVolume(volume));
}
