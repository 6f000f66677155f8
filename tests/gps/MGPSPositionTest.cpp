#include <kiv/gps/MGPSPosition.h>

#include <gtest/gtest.h>

#include <string>

#include "gps/MGPSServiceImpl.h"

using kiv::gps::MGPSPosition;

TEST(MGPSPosition, FormatsArcsWithUnpaddedMilliseconds) {
    MGPSPosition p;
    wchar_t text[32];
    p.GetLatitudeAsString(text);
    EXPECT_EQ(std::wstring(text), L"N0\u00A1C0'0.0");
    p.GetLongitudeAsString(text);
    EXPECT_EQ(std::wstring(text), L"E0\u00A1C0'0.0");
    p.m_latDegrees = 48;
    p.m_latMinutes = 7;
    p.m_latSeconds = 2;
    p.m_latMilliseconds = 280;
    p.GetLatitudeAsString(text);
    EXPECT_EQ(std::wstring(text), L"N48\u00A1C7'2.280");
    p.m_north = 0;
    p.m_latMilliseconds = 5;
    p.GetLatitudeAsString(text);
    EXPECT_EQ(std::wstring(text), L"S48\u00A1C7'2.5") << "5 ms are not .005";
    p.m_east = 0;
    p.m_longDegrees = 65535;
    p.m_longMinutes = 65535;
    p.m_longSeconds = 65535;
    p.m_longMilliseconds = 65535;
    p.GetLongitudeAsString(text);
    EXPECT_EQ(std::wstring(text), L"W65535\u00A1C65535'65535.65535") << "the widest still fits";
}

TEST(SplitStrByToken, TakesOnlyPiecesFollowedByTheTokenAndBoundsEverything) {
    wchar_t slots[3][4];
    EXPECT_EQ(kiv::gps::SplitStrByToken(L"ab,,cdefg,tail", L',', &slots[0][0], 4, 3), 3);
    EXPECT_EQ(std::wstring(slots[0]), L"ab");
    EXPECT_EQ(std::wstring(slots[1]), L"");
    EXPECT_EQ(std::wstring(slots[2]), L"cde") << "cut to the slot width";
    EXPECT_EQ(kiv::gps::SplitStrByToken(L"1,2,3,4,5,", L',', &slots[0][0], 4, 3), 3)
        << "never more pieces than slots";
    EXPECT_EQ(kiv::gps::SplitStrByToken(L"no token", L',', &slots[0][0], 4, 3), 0);
}
