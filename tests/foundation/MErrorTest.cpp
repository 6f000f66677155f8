#include <kiv/foundation/MError.h>

#include <gtest/gtest.h>

#include <cwchar>
#include <string>

using kiv::MError;

namespace {

MError Word(unsigned int value) {
    MError e;
    e = value;
    return e;
}

}  // namespace

TEST(MError, GettersReturnTheMaskedBitsInPlace) {
    MError e = Word(0xC7AB1234);
    EXPECT_EQ(e.GetValue(), 0xC7AB1234u);
    EXPECT_EQ(e.GetSeverity(), 0xC0000000u);
    EXPECT_EQ(e.GetCategory(), 0x07AB0000u);
    EXPECT_EQ(e.GetCode(), 0x1234u);
    EXPECT_EQ(e.GetValue() & MError::MASK_MODULE, 0x07000000u);
}

TEST(MError, GpsWordsDecomposeIntoModuleCategoryAndCode) {
    MError e = Word(0x07000003);
    EXPECT_EQ(e.GetCategory(), 0x07000000u);
    EXPECT_EQ(e.GetSeverity(), 0u);
    MError fresh;
    EXPECT_EQ(fresh.GetValue(), static_cast<unsigned int>(MError::NONE));
    fresh = 0x07000001u;
    EXPECT_EQ(fresh.GetCode(), 1u);
    MError copy(fresh);
    EXPECT_EQ(copy.GetValue(), 0x07000001u);
}

TEST(MError, GpsMessageFitsAndReportsItsLength) {
    wchar_t buf[64];
    int len = 64;
    Word(0x07000002).GetErrorMessage(buf, len);
    EXPECT_EQ(len, 27);
    EXPECT_EQ(std::wstring(buf), L"KivGPS exe file launch fail");
}

TEST(MError, GpsMessageTooLongIsCutToCapacityLessOne) {
    wchar_t buf[16];
    std::wmemset(buf, L'#', 16);
    int len = 10;
    Word(0x07000002).GetErrorMessage(buf, len);
    EXPECT_EQ(len, 9);
    EXPECT_EQ(std::wstring(buf), L"KivGPS ex");
    EXPECT_EQ(buf[9], L'\0');
    EXPECT_EQ(buf[10], L'#') << "nothing beyond the given capacity is written";
}

TEST(MError, GpsMessageOfExactlyCapacityLengthIsCutByOne) {
    // "Start KivGPS fail" has 17 characters; a capacity of 17 leaves no room
    // for the terminator.
    wchar_t buf[17];
    int len = 17;
    Word(0x07000003).GetErrorMessage(buf, len);
    EXPECT_EQ(len, 16);
    EXPECT_EQ(std::wstring(buf), L"Start KivGPS fai");
    int roomy = 18;
    wchar_t big[18];
    Word(0x07000003).GetErrorMessage(big, roomy);
    EXPECT_EQ(roomy, 17);
}

TEST(MError, EveryOtherModuleLeavesBufferAndLengthUntouched) {
    for (unsigned int word : {0x00000000u, 0x01000001u, 0x03000001u, 0x03000009u, 0x04000000u,
                              0x05000001u, 0x06000002u, 0x02000001u, 0x08000001u, 0x3F000001u}) {
        wchar_t buf[8];
        std::wmemset(buf, L'#', 8);
        int len = 8;
        Word(word).GetErrorMessage(buf, len);
        EXPECT_EQ(len, 8) << std::hex << word;
        EXPECT_EQ(std::wstring(buf, 8), std::wstring(8, L'#')) << std::hex << word;
    }
}

TEST(MError, UnlistedGpsCodesAndBadCapacitiesAreLeftUnanswered) {
    wchar_t buf[8];
    std::wmemset(buf, L'#', 8);
    int len = 8;
    Word(0x07000004).GetErrorMessage(buf, len);
    EXPECT_EQ(len, 8);
    EXPECT_EQ(buf[0], L'#');
    int zero = 0;
    Word(0x07000001).GetErrorMessage(buf, zero);
    EXPECT_EQ(zero, 0);
    int one = 8;
    Word(0x07000001).GetErrorMessage(nullptr, one);
    EXPECT_EQ(one, 8);
}

TEST(MError, CapacityOfOneGivesAnEmptyTerminatedText) {
    wchar_t buf[2] = {L'#', L'#'};
    int len = 1;
    Word(0x07000000).GetErrorMessage(buf, len);
    EXPECT_EQ(len, 0);
    EXPECT_EQ(buf[0], L'\0');
    EXPECT_EQ(buf[1], L'#');
}
