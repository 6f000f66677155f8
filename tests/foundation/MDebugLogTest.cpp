#include <kiv/foundation/MDebugLog.h>
#include <kiv/system/MRegistry.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <regex>
#include <string>

#include "foundation/Text.h"
#include "support/KivTestEnvironment.h"

using kiv::log::MDebugLog;

namespace {

const std::regex kStamp(R"(\d{4}/\d\d/\d\d \d\d:\d\d:\d\d--)");

constexpr const wchar_t* kLogKey = L"Software\\Tarvo\\KivFramework\\LOG";

void SetLogLevel(unsigned int level) {
    kiv::system::MRegistry reg;
    ASSERT_EQ(reg.Create(HKEY_CURRENT_USER, kLogKey, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr),
              0u);
    ASSERT_EQ(reg.SetValue(level, L"LogLevel"), 0u);
}

std::string LogPath(const char* name = "app.log") {
    return kiv::test::TempPath(name);
}

std::wstring Wide(const std::string& s) {
    return kiv::text::FromUtf8(s);
}

// The file's lines with their time stamps taken off; fails the test if the
// file is not plain UTF-16LE or a line has no stamp.
std::wstring LogText(const std::string& path) {
    const std::string bytes = kiv::test::ReadFileBytes(path);
    EXPECT_EQ(bytes.size() % 2, 0u);
    if (bytes.size() >= 2) {
        EXPECT_FALSE(bytes[0] == '\xFF' && bytes[1] == '\xFE') << "byte-order mark";
    }
    const std::string text = kiv::text::ToUtf8(kiv::text::FromUtf16Le(bytes.data(), bytes.size()));
    std::string rest;
    for (std::size_t start = 0, end = 0; start < text.size(); start = end) {
        end = std::min(text.find('\n', start), text.size() - 1) + 1;
        const std::string line = text.substr(start, end - start);
        std::smatch m;
        if (!std::regex_search(line, m, kStamp) || m.position(0) != 0) {
            ADD_FAILURE() << "no time stamp at the start of: " << line;
        }
        rest += line.substr(m.empty() ? 0 : static_cast<std::size_t>(m.length(0)));
    }
    return kiv::text::FromUtf8(rest);
}

}  // namespace

TEST(MDebugLog, LevelTwoFromTheRegistryWritesOnlyWarnings) {
    SetLogLevel(2);
    MDebugLog log(Wide(LogPath()).c_str());
    EXPECT_EQ(log.GetDebugLevel(), 2u);
    log.InformationPrintf(L"info");
    log.ErrorPrintf(L"error");
    EXPECT_FALSE(std::filesystem::exists(LogPath()));
    log.WarningPrintf(L"x=%d", 5);

    const std::string bytes = kiv::test::ReadFileBytes(LogPath());
    ASSERT_EQ(bytes.size(), 2 * (21 + 3 + 3 + 1));  // stamp, tag, "x=5", line feed
    EXPECT_EQ(LogText(LogPath()), L"W--x=5\n");
    EXPECT_EQ(bytes.substr(bytes.size() - 2), std::string("\n\0", 2));  // no carriage return
}

TEST(MDebugLog, MissingKeyIsCreatedWithLevelZeroAndAKeyWithoutTheValueKeepsEveryLevel) {
    {
        MDebugLog log(Wide(LogPath()).c_str());
        EXPECT_EQ(log.GetDebugLevel(), 0u);
        EXPECT_EQ(log.GetDebugOutput(), MDebugLog::DEBUG_OUTPUT_FILE);
        log.ErrorPrintf(L"dropped");
        EXPECT_FALSE(std::filesystem::exists(LogPath()));
    }
    kiv::system::MRegistry reg;
    ASSERT_EQ(reg.Open(HKEY_CURRENT_USER, kLogKey, KEY_ALL_ACCESS), 0u);
    unsigned int stored = 99;
    EXPECT_EQ(reg.QueryValue(stored, L"LogLevel"), 0u);
    EXPECT_EQ(stored, 0u);
    ASSERT_EQ(reg.DeleteValue(L"LogLevel"), 0u);
    MDebugLog log(Wide(LogPath()).c_str());
    EXPECT_EQ(log.GetDebugLevel(), 7u);
    log.SetDebugLevel(MDebugLog::DEBUG_LEVEL_NONE);
    EXPECT_EQ(reg.QueryValue(stored, L"LogLevel"), ERROR_FILE_NOT_FOUND) << "not written back";
}

TEST(MDebugLog, TagsAreWrittenOnlyForSingleLevels) {
    SetLogLevel(7);
    MDebugLog log(Wide(LogPath()).c_str());
    log.InformationPrintf(L"i");
    log.DebugPrintf(static_cast<MDebugLog::TDebugLevel>(3), L"combined %ls", L"wide");
    log.DebugPrintf(MDebugLog::DEBUG_LEVEL_ERROR, L"e");
    log.DebugPrintf(static_cast<MDebugLog::TDebugLevel>(8), L"outside the mask");

    EXPECT_EQ(LogText(LogPath()), L"I--i\ncombined wide\nE--e\n");
}

TEST(MDebugLog, FileAboveTheLimitIsEmptiedBeforeTheNextLineAndOneAtTheLimitIsNot) {
    SetLogLevel(7);
    ASSERT_TRUE(kiv::test::WriteFileBytes(LogPath("big.log"), std::string(1000001, 'x')));
    ASSERT_TRUE(kiv::test::WriteFileBytes(LogPath("full.log"), std::string(1000000, 'x')));
    MDebugLog big(Wide(LogPath("big.log")).c_str());
    MDebugLog full(Wide(LogPath("full.log")).c_str());
    big.ErrorPrintf(L"fresh");
    full.ErrorPrintf(L"fresh");
    EXPECT_EQ(LogText(LogPath("big.log")), L"E--fresh\n");
    const std::string kept = kiv::test::ReadFileBytes(LogPath("full.log"));
    EXPECT_EQ(kept.size(), 1000000u + 2 * (21 + 3 + 5 + 1));
    EXPECT_EQ(kept.substr(0, 1000000), std::string(1000000, 'x'));
}

TEST(MDebugLog, LimitZeroKeepsOnlyTheLastLineAndMessagesAreCutAt256Characters) {
    SetLogLevel(7);
    MDebugLog log(Wide(LogPath()).c_str());
    log.SetMaxLogSize(0);
    EXPECT_EQ(log.GetMaxLogSize(), 0u);
    log.ErrorPrintf(L"one");
    log.ErrorPrintf(L"two");
    const std::wstring longText = std::wstring(250, L'a') + std::wstring(50, L'b');
    log.ErrorPrintf(L"%ls", longText.c_str());
    EXPECT_EQ(LogText(LogPath()), L"E--" + std::wstring(250, L'a') + std::wstring(6, L'b') + L"\n");
    // However long the whole text would be, the first 256 characters are kept.
    const std::wstring huge = std::wstring(3 << 20, L'c');
    log.ErrorPrintf(L"%ls%d", huge.c_str(), 7);
    EXPECT_EQ(LogText(LogPath()), L"E--" + std::wstring(256, L'c') + L"\n");
}

TEST(MDebugLog, NullOutputFileKeepsTheFileAndAnotherNameSwitchesToIt) {
    SetLogLevel(7);
    MDebugLog log(Wide(LogPath("first.log")).c_str());
    log.ErrorPrintf(L"a");
    log.SetOutputFile(nullptr);
    log.ErrorPrintf(L"b");
    log.SetOutputFile(Wide(LogPath("second.log")).c_str());
    log.ErrorPrintf(L"c");
    EXPECT_EQ(LogText(LogPath("first.log")), L"E--a\nE--b\n");
    EXPECT_EQ(LogText(LogPath("second.log")), L"E--c\n");
    wchar_t name[260];
    log.GetOutputFile(name);
    EXPECT_EQ(name, Wide(LogPath("second.log")));
    log.GetOutputFile(nullptr);  // ignored
}

TEST(MDebugLog, DefaultFileIsTheExecutablePathCutTo63CharactersWithLogAppended) {
    auto nameOf = [](MDebugLog&& log) {
        wchar_t name[260];
        log.GetOutputFile(name);
        return std::wstring(name);
    };
    const std::wstring exe = Wide(std::filesystem::read_symlink("/proc/self/exe").string());
    EXPECT_EQ(nameOf(MDebugLog()), exe.substr(0, 63) + L".log");
    EXPECT_EQ(nameOf(MDebugLog(L"")), exe.substr(0, 63) + L".log");
    const std::wstring longName = L"/tmp/" + std::wstring(300, L'n');
    EXPECT_EQ(nameOf(MDebugLog(longName.c_str())), longName.substr(0, 259));
}

TEST(MDebugLog, CopiesShareTheFileAndTheFirstDestroyedClosesItForBoth) {
    SetLogLevel(7);
    MDebugLog original(Wide(LogPath()).c_str());
    original.ErrorPrintf(L"before");
    {
        MDebugLog copy(original);
        copy.ErrorPrintf(L"from the copy");
    }
    original.ErrorPrintf(L"after");  // the shared handle is closed: dropped
    EXPECT_EQ(LogText(LogPath()), L"E--before\nE--from the copy\n");
}

TEST(MDebugLog, UnopenableFileDropsMessagesAndIsTriedAgainOnTheNext) {
    SetLogLevel(7);
    const std::string dir = kiv::test::TempPath("later");
    MDebugLog log(Wide(dir + "/app.log").c_str());
    log.ErrorPrintf(L"lost");
    std::filesystem::create_directory(dir);
    log.ErrorPrintf(L"kept");
    EXPECT_EQ(LogText(dir + "/app.log"), L"E--kept\n");
}
