#include <kiv/foundation/MError.h>

#include <gtest/gtest.h>

#include <cwchar>
#include <string>
#include <utility>

using kiv::MError;

namespace {

MError Word(unsigned int value) {
    MError e;
    e = value;
    return e;
}

// GetErrorMessage of `word` into 32 characters of '#' with capacity `len`:
// the length it leaves and the first `shown` characters of the buffer.
std::pair<int, std::wstring> Message(unsigned int word, int len, std::size_t shown = 32) {
    wchar_t buf[32];
    std::wmemset(buf, L'#', 32);
    Word(word).GetErrorMessage(buf, len);
    return {len, std::wstring(buf, shown)};
}

const std::wstring kUntouched(32, L'#');

}  // namespace

TEST(MError, GettersReturnTheMaskedBitsInPlace) {
    MError e = Word(0xC7AB1234);
    EXPECT_EQ(e.GetValue(), 0xC7AB1234u);
    EXPECT_EQ(e.GetSeverity(), 0xC0000000u);
    EXPECT_EQ(e.GetCategory(), 0x07AB0000u);
    EXPECT_EQ(e.GetCode(), 0x1234u);
    EXPECT_EQ(MError().GetValue(), static_cast<unsigned int>(MError::NONE));
}

TEST(MError, GpsMessagesAreCutToCapacityLessOneAndReportTheirLength) {
    using namespace std::string_literals;
    EXPECT_EQ(Message(0x07000002, 32, 28), std::make_pair(27, L"KivGPS exe file launch fail\0"s));
    EXPECT_EQ(Message(0x07000002, 10, 11), std::make_pair(9, L"KivGPS ex\0#"s))
        << "nothing beyond the given capacity is written";
    // "Start KivGPS fail" has 17 characters: a capacity of 17 leaves no room
    // for the terminator.
    EXPECT_EQ(Message(0x07000003, 17, 18), std::make_pair(16, L"Start KivGPS fai\0#"s));
    EXPECT_EQ(Message(0x07000003, 18).first, 17);
    EXPECT_EQ(Message(0x07000000, 1, 2), std::make_pair(0, L"\0#"s));
}

TEST(MError, OtherModulesUnlistedCodesAndBadCapacitiesLeaveBufferAndLengthUntouched) {
    for (unsigned int word :
         {0x00000000u, 0x01000001u, 0x03000001u, 0x03000009u, 0x04000000u, 0x05000001u, 0x06000002u,
          0x02000001u, 0x08000001u, 0x3F000001u, 0x07000004u}) {
        EXPECT_EQ(Message(word, 8), std::make_pair(8, kUntouched)) << std::hex << word;
    }
    EXPECT_EQ(Message(0x07000001, 0), std::make_pair(0, kUntouched));
    int len = 8;
    Word(0x07000001).GetErrorMessage(nullptr, len);
    EXPECT_EQ(len, 8);
}
