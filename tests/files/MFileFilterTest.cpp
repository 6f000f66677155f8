#include <kiv/files/MFileFilter.h>
#include <kiv/platform/Win32Types.h>

#include <gtest/gtest.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <string>

#include "files/FileTime.h"
#include "foundation/Text.h"
#include "platform/FileSystem.h"
#include "support/KivTestEnvironment.h"

using kiv::system::_MSYSTEMTIME;
using kiv::system::MFileFilter;

namespace {

constexpr unsigned int kRejected = 0xFFFFFFFF;

std::wstring Wide(const std::string& s) {
    return kiv::text::FromUtf8(s);
}

std::string MakeFile(const std::string& name, const std::string& bytes = "data") {
    const std::string path = kiv::test::TempPath(name);
    EXPECT_TRUE(kiv::test::WriteFileBytes(path, bytes));
    return path;
}

_MSYSTEMTIME Time(unsigned short year, unsigned short month, unsigned short day,
                  unsigned short hour = 0, unsigned short minute = 0, unsigned short second = 0,
                  unsigned short ms = 0) {
    return _MSYSTEMTIME{year, month, 0, day, hour, minute, second, ms};
}

// A find-data record created at `created` and last written at `written`.
WIN32_FIND_DATAW Record(const _MSYSTEMTIME& created, const _MSYSTEMTIME& written) {
    WIN32_FIND_DATAW data = {};
    EXPECT_TRUE(kiv::files::SystemTimeToFileTime(created, data.ftCreationTime));
    EXPECT_TRUE(kiv::files::SystemTimeToFileTime(written, data.ftLastWriteTime));
    return data;
}

// The name field is always read as 260 characters.
struct NameBuffer {
    explicit NameBuffer(const std::wstring& s) { s.copy(chars, MAX_PATH - 1); }
    wchar_t chars[MAX_PATH] = {};
};

}  // namespace

TEST(MFileFilter, ANewFilterKeepsFilesAndDropsDirectoriesMissingPathsAndNullRecords) {
    MFileFilter filter;
    WIN32_FIND_DATAW data = {};
    const std::wstring file = Wide(MakeFile("plain.txt"));
    const std::string dir = kiv::test::TempPath("dir");
    ASSERT_EQ(mkdir(dir.c_str(), 0755), 0);
    ASSERT_EQ(symlink(dir.c_str(), kiv::test::TempPath("dirlink").c_str()), 0);

    EXPECT_EQ(filter.IsMatching(file.c_str(), &data), 1);
    EXPECT_EQ(filter.IsMatching(file.c_str(), nullptr), 0);
    EXPECT_EQ(filter.IsMatching(Wide(dir).c_str(), &data), 0);
    EXPECT_EQ(filter.IsMatching(Wide(kiv::test::TempPath("dirlink")).c_str(), &data), 0);
    EXPECT_EQ(filter.IsMatching(Wide(kiv::test::TempPath("absent")).c_str(), &data), 0);
    EXPECT_EQ(filter.IsMatching(nullptr, &data), 0);

    // The size range is stored and changes no answer.
    EXPECT_EQ(filter.SetFileSizeFilter(10, 20), 0u);
    EXPECT_EQ(filter.IsMatching(file.c_str(), &data), 1);
    EXPECT_EQ(filter.IsMatching(Wide(MakeFile("big.bin", std::string(100, 'x'))).c_str(), &data),
              1);
    EXPECT_EQ(filter.RemoveFileSizeFilter(), 0u);
}

TEST(MFileFilter, TheNameFilterComparesWholePathsWithoutCaseAndRejectsBadLengths) {
    const std::string path = MakeFile("Song.MP3");
    const std::string other = MakeFile("Tune.MP3");
    MakeFile("SONG.mp3");  // same length, other case: a distinct file here
    WIN32_FIND_DATAW data = {};
    MFileFilter filter;

    std::wstring upper = Wide(path);
    upper.replace(upper.size() - 8, 8, L"SONG.mp3");
    NameBuffer name(upper);
    EXPECT_EQ(filter.SetFileNameFilter(name.chars, static_cast<int>(upper.size())), 0u);
    EXPECT_EQ(filter.IsMatching(Wide(path).c_str(), &data), 1);
    EXPECT_EQ(filter.IsMatching(Wide(other).c_str(), &data), 0);

    // Lengths outside 1..259 and a null name change nothing.
    NameBuffer otherName(Wide(other));
    EXPECT_EQ(filter.SetFileNameFilter(otherName.chars, 0), kRejected);
    EXPECT_EQ(filter.SetFileNameFilter(otherName.chars, 260), kRejected);
    EXPECT_EQ(filter.SetFileNameFilter(nullptr, 10), kRejected);
    EXPECT_EQ(filter.IsMatching(Wide(path).c_str(), &data), 1);
    EXPECT_EQ(filter.IsMatching(Wide(other).c_str(), &data), 0);

    // The length argument does not limit what is taken: all of the buffer is.
    EXPECT_EQ(filter.SetFileNameFilter(otherName.chars, 1), 0u);
    EXPECT_EQ(filter.IsMatching(Wide(other).c_str(), &data), 1);
    EXPECT_EQ(filter.IsMatching(Wide(path).c_str(), &data), 0);

    // d + length(name) = length(path): a name one character longer than the
    // path, whose extra character is U+0001, passes as well.
    NameBuffer longer(Wide(path) + L'\x01');
    EXPECT_EQ(filter.SetFileNameFilter(longer.chars, 5), 0u);
    EXPECT_EQ(filter.IsMatching(Wide(path).c_str(), &data), 1);
    NameBuffer longer2(Wide(path) + L'\x02');
    EXPECT_EQ(filter.SetFileNameFilter(longer2.chars, 5), 0u);
    EXPECT_EQ(filter.IsMatching(Wide(path).c_str(), &data), 0);

    EXPECT_EQ(filter.RemoveFileNameFilter(), 0u);
    EXPECT_EQ(filter.IsMatching(Wide(other).c_str(), &data), 1);
}

TEST(MFileFilter, TheCreationRangeIsInclusiveAndOnOnlyWhenBothHalvesOfFromAreNonZero) {
    const std::wstring file = Wide(MakeFile("dated.txt"));
    MFileFilter filter;
    const _MSYSTEMTIME from = Time(2020, 1, 1);
    const _MSYSTEMTIME to = Time(2020, 12, 31, 23, 59, 59, 999);
    const _MSYSTEMTIME written = Time(2020, 6, 1);
    ASSERT_EQ(filter.SetFileCreateTimeFilter(&from, &to), 0u);

    auto inside = Record(Time(2020, 6, 1), written);
    auto atFrom = Record(from, written);
    auto atTo = Record(to, written);
    auto before = Record(Time(2019, 12, 31, 23, 59, 59, 999), written);
    auto after = Record(Time(2021, 1, 1), written);
    EXPECT_EQ(filter.IsMatching(file.c_str(), &inside), 1);
    EXPECT_EQ(filter.IsMatching(file.c_str(), &atFrom), 1);
    EXPECT_EQ(filter.IsMatching(file.c_str(), &atTo), 1);
    EXPECT_EQ(filter.IsMatching(file.c_str(), &before), 0);
    EXPECT_EQ(filter.IsMatching(file.c_str(), &after), 0);

    // A rejected call keeps the previous range.
    EXPECT_EQ(filter.SetFileCreateTimeFilter(nullptr, &to), kRejected);
    EXPECT_EQ(filter.SetFileCreateTimeFilter(&from, nullptr), kRejected);
    const _MSYSTEMTIME badMonth = Time(2020, 13, 1);
    EXPECT_EQ(filter.SetFileCreateTimeFilter(&badMonth, &to), kRejected);
    EXPECT_EQ(filter.IsMatching(file.c_str(), &before), 0);
    EXPECT_EQ(filter.IsMatching(file.c_str(), &inside), 1);

    // From as a file time: 625 * 2^32 ticks (low half zero), then 10^7
    // ticks (high half zero), then zero: the range is off whatever to says.
    const _MSYSTEMTIME lowHalfZero = Time(1601, 1, 4, 2, 33, 55, 456);
    FILETIME check = {};
    ASSERT_TRUE(kiv::files::SystemTimeToFileTime(lowHalfZero, check));
    ASSERT_EQ(check.dwLowDateTime, 0u);
    ASSERT_EQ(check.dwHighDateTime, 625u);
    const _MSYSTEMTIME highHalfZero = Time(1601, 1, 1, 0, 0, 1);
    const _MSYSTEMTIME zero = Time(1601, 1, 1);
    const _MSYSTEMTIME early = Time(1700, 1, 1);
    for (const _MSYSTEMTIME& off : {lowHalfZero, highHalfZero, zero}) {
        ASSERT_EQ(filter.SetFileCreateTimeFilter(&off, &early), 0u);
        EXPECT_EQ(filter.IsMatching(file.c_str(), &after), 1);
    }

    ASSERT_EQ(filter.SetFileCreateTimeFilter(&from, &to), 0u);
    EXPECT_EQ(filter.RemoveFileCreateTimeFilter(), 0u);
    EXPECT_EQ(filter.IsMatching(file.c_str(), &after), 1);
}

TEST(MFileFilter, TheModificationRangeTestsTheCreationTime) {
    const std::wstring file = Wide(MakeFile("changed.txt"));
    MFileFilter filter;
    const _MSYSTEMTIME from = Time(2010, 1, 1);
    const _MSYSTEMTIME to = Time(2010, 12, 31);
    ASSERT_EQ(filter.SetFileModifyTimeFilter(&from, &to), 0u);

    auto writtenInsideCreatedOutside = Record(Time(2009, 5, 5), Time(2010, 5, 5));
    auto createdInsideWrittenOutside = Record(Time(2010, 5, 5), Time(2015, 5, 5));
    EXPECT_EQ(filter.IsMatching(file.c_str(), &writtenInsideCreatedOutside), 0);
    EXPECT_EQ(filter.IsMatching(file.c_str(), &createdInsideWrittenOutside), 1);

    EXPECT_EQ(filter.SetFileModifyTimeFilter(&from, nullptr), kRejected);
    EXPECT_EQ(filter.IsMatching(file.c_str(), &writtenInsideCreatedOutside), 0);
    EXPECT_EQ(filter.RemoveModifyTimeFilter(), 0u);
    EXPECT_EQ(filter.IsMatching(file.c_str(), &writtenInsideCreatedOutside), 1);
}

TEST(MFileFilter, ARealFileWrittenInsideTheModificationRangeButCreatedNowIsRejected) {
    const std::string path = MakeFile("old.txt");
    // Last written 2010-05-05 12:00 UTC; created now.
    const struct timespec times[2] = {{1273060800, 0}, {1273060800, 0}};
    ASSERT_EQ(utimensat(AT_FDCWD, path.c_str(), times, 0), 0);
    WIN32_FIND_DATAW data = {};
    ASSERT_EQ(kiv::platform::ReadFindData(path, L"old.txt", data), ERROR_SUCCESS);
    const _MSYSTEMTIME written = Time(2010, 5, 5, 12);
    FILETIME expected = {};
    ASSERT_TRUE(kiv::files::SystemTimeToFileTime(written, expected));
    EXPECT_EQ(kiv::files::CompareFileTime(data.ftLastWriteTime, expected), 0);
    if (kiv::files::CompareFileTime(data.ftCreationTime, data.ftLastWriteTime) == 0) {
        GTEST_SKIP() << "the temporary directory's file system keeps no birth time";
    }

    MFileFilter filter;
    const _MSYSTEMTIME from = Time(2010, 1, 1);
    const _MSYSTEMTIME to = Time(2010, 12, 31);
    ASSERT_EQ(filter.SetFileModifyTimeFilter(&from, &to), 0u);
    EXPECT_EQ(filter.IsMatching(Wide(path).c_str(), &data), 0);
    const _MSYSTEMTIME now = Time(2000, 1, 1);
    const _MSYSTEMTIME future = Time(9999, 1, 1);
    ASSERT_EQ(filter.SetFileModifyTimeFilter(&now, &future), 0u);
    EXPECT_EQ(filter.IsMatching(Wide(path).c_str(), &data), 1);
}

TEST(MFileFilter, CopiesShareOneSetOfFilters) {
    const std::wstring a = Wide(MakeFile("a.txt"));
    const std::wstring b = Wide(MakeFile("b.txt"));
    WIN32_FIND_DATAW data = {};
    MFileFilter original;
    MFileFilter copy(original);
    MFileFilter assigned;
    assigned = original;

    NameBuffer name(a);
    ASSERT_EQ(copy.SetFileNameFilter(name.chars, static_cast<int>(a.size())), 0u);
    EXPECT_EQ(original.IsMatching(b.c_str(), &data), 0);
    EXPECT_EQ(assigned.IsMatching(b.c_str(), &data), 0);
    EXPECT_EQ(assigned.IsMatching(a.c_str(), &data), 1);
    assigned.RemoveFileNameFilter();
    EXPECT_EQ(copy.IsMatching(b.c_str(), &data), 1);
}
