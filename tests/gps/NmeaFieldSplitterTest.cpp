#include "gps/NmeaFieldSplitter.h"

#include <gtest/gtest.h>

using kiv::gps::NmeaFieldSplitter;

TEST(NmeaFieldSplitter, SplitsAtEveryDelimiterAndKeepsEmptyFields) {
    NmeaFieldSplitter s(",*");
    ASSERT_EQ(s.Split("GSA,A,3,05,,,*2E"), 8u);
    EXPECT_STREQ(s.Field(0), "GSA");
    EXPECT_STREQ(s.Field(3), "05");
    EXPECT_STREQ(s.Field(4), "");
    EXPECT_STREQ(s.Field(6), "");
    EXPECT_STREQ(s.Field(7), "2E") << "the checksum becomes the last field";
    EXPECT_EQ(s.Field(8), nullptr);
    EXPECT_EQ(s.Text(8), "");
    ASSERT_EQ(s.Split(""), 1u);
    EXPECT_STREQ(s.Field(0), "");
}

TEST(NmeaFieldSplitter, FieldsBeyondTheLimitAreDropped) {
    NmeaFieldSplitter s(",", 3);
    EXPECT_EQ(s.Split("a,b,c,d,e"), 3u);
    EXPECT_STREQ(s.Field(2), "c");
    EXPECT_EQ(s.Field(3), nullptr);
    NmeaFieldSplitter none(",", 0);
    EXPECT_EQ(none.Split("a,b"), 0u);
}

TEST(NmeaFieldSplitter, QuotesProtectDelimiters) {
    NmeaFieldSplitter s(",", 20, "\"");
    ASSERT_EQ(s.Split("x,\"a,b\",y"), 3u);
    EXPECT_STREQ(s.Field(1), "a,b");
    EXPECT_STREQ(s.Field(2), "y");
}
