#include "gps/NmeaParserCore.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <random>
#include <string>
#include <vector>

#include "NmeaSimulator.h"
#include "RecordingNmeaOutput.h"
#include "support/KivTestEnvironment.h"

using kiv::gps::ArcRecord;
using kiv::gps::ConvertNmeaCoordinate;
using kiv::gps::NmeaParserCore;
using kiv::sim::WithChecksum;

namespace {

class Parser : public ::testing::Test {
protected:
    void Feed(const std::string& bytes) {
        parser.ProcessIncomingBytes(reinterpret_cast<const unsigned char*>(bytes.data()),
                                    static_cast<unsigned int>(bytes.size()));
    }
    // One well-formed sentence with its line end.
    void Send(const std::string& body) { Feed(WithChecksum(body) + "\r\n"); }
    std::string Str(const wchar_t* name) { return out.strings[name]; }
    std::uint32_t Dword(const wchar_t* name) { return out.dwords[name]; }
    std::vector<std::uint32_t> Dwords(std::initializer_list<const wchar_t*> names) {
        std::vector<std::uint32_t> values;
        for (const wchar_t* name : names) {
            values.push_back(Dword(name));
        }
        return values;
    }

    kiv::test::RecordingNmeaOutput out;
    NmeaParserCore parser{out};
};

const char* kRmc = "GPRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W";
const char* kGga = "GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,";

}  // namespace

TEST(NmeaCoordinate, ConvertsToArcPartsAndDecimalDegreesAndNeverTrapsOnGarbage) {
    ArcRecord r;
    const double d = ConvertNmeaCoordinate("4807.038", r);
    EXPECT_EQ(r, (ArcRecord{48, 7, 2, 280}));
    EXPECT_NEAR(d, 48.1173, 1e-9);
    EXPECT_NEAR(ConvertNmeaCoordinate("01131.000", r), 11.5166666666, 1e-9);
    EXPECT_EQ(r, (ArcRecord{11, 31, 0, 0}));
    ConvertNmeaCoordinate("0000.9999999", r);
    EXPECT_EQ(r.seconds, 59);
    EXPECT_EQ(r.milliseconds, 1000) << "no carry into the seconds";
    r = ArcRecord{1, 2, 3, 4};
    EXPECT_EQ(ConvertNmeaCoordinate("4807", r), 0.0) << "text without a point";
    EXPECT_EQ(ConvertNmeaCoordinate("", r), 0.0);
    EXPECT_EQ(r, (ArcRecord{1, 2, 3, 4})) << "left as it was";
    for (const char* text : {".5e300", "-4807.038", "99999999999999999999.9", ".nan", "abc.def",
                             "1e999.", "-.", "."}) {
        const double garbage = ConvertNmeaCoordinate(text, r);
        EXPECT_FALSE(std::isnan(garbage) && std::string(text) != ".nan") << text;
    }
}

TEST_F(Parser, RmcWritesPositionHemispheresAndCourseAndSpeedByTheDevicesFactor) {
    Send(kRmc);
    EXPECT_EQ(Str(L"UTCDate"), "230394");
    EXPECT_EQ(Str(L"UTCTime"), "123519");
    EXPECT_EQ(Dwords({L"LAT_DEG", L"LAT_MIN", L"LAT_SEC", L"LAT_MSEC", L"IS_NORTH"}),
              (std::vector<std::uint32_t>{48, 7, 2, 280, 1}));
    EXPECT_EQ(Dwords({L"LONG_DEG", L"LONG_MIN", L"IS_EAST", L"IS_ACTIVE", L"DIRECTION"}),
              (std::vector<std::uint32_t>{11, 31, 1, 10, 84}));
    EXPECT_EQ(Str(L"SPEED"), "41") << "22.4 knots * 1.8519998 = 41.48";
    EXPECT_EQ(parser.GetCounters().rmc, 1u);
    EXPECT_EQ(parser.GetCounters().validFix, 1u);
    Send("GPRMC,1,A,4807.038,S,01131.000,W,10.0,0,010100,,");
    EXPECT_EQ(Str(L"SPEED"), "18");
    EXPECT_EQ(Dwords({L"IS_NORTH", L"IS_EAST"}), (std::vector<std::uint32_t>{0, 0}));
    // 1000 knots: 1852 km/h with the usual factor, 1851.9998 with the device's.
    Send("GPRMC,2,A,4807.038,N,01131.000,E,1000.0,0,010100,,");
    EXPECT_EQ(Str(L"SPEED"), "1851");
    Send("GPRMC,3,A,4807.038,N,01131.000,E,,0,010100,,");
    EXPECT_EQ(Str(L"SPEED"), "0");
}

TEST_F(Parser, FixStateFollowsStatusAndRangeAndAPointlessCoordinateRewritesThePreviousParts) {
    Send("GPRMC,1,V,4807.038,N,01131.000,E,0,0,010100,,");
    EXPECT_EQ(Dword(L"IS_ACTIVE"), 0u);
    EXPECT_TRUE(out.Signals().empty());
    Send("GPRMC,2,A,0000.0000,N,01131.000,E,0,0,010100,,");
    EXPECT_EQ(Dword(L"IS_ACTIVE"), 1u) << "exactly 0 degrees is outside the range";
    EXPECT_EQ(out.Signals().front(), L"KIV_GPS_EVENT_FIX");
    Send("GPRMC,3,A,,N,01131.000,E,0,0,010100,,");
    EXPECT_EQ(Dword(L"IS_ACTIVE"), 0u) << "an empty coordinate is no fix";
    EXPECT_EQ(parser.GetCounters().validFix, 1u);

    Send(kRmc);
    out.ClearActivity();
    Send("GPRMC,2,A,4807,N,01131.000,E,0,0,010100,,");
    EXPECT_EQ(Dwords({L"LAT_DEG", L"LAT_MSEC"}), (std::vector<std::uint32_t>{48, 280}));
    const auto rewritten = std::count_if(out.writes.begin(), out.writes.end(),
                                         [](const auto& w) { return w.name == L"LAT_MSEC"; });
    EXPECT_EQ(rewritten, 1);
    EXPECT_EQ(Dword(L"IS_ACTIVE"), 1u) << "a latitude of 0.0 fails the range test";
}

TEST_F(Parser, GgaAndGsaWriteQualityAltitudeAndDilutions) {
    Send(kGga);
    EXPECT_EQ(Str(L"UTCTime"), "123519");
    EXPECT_EQ(Dword(L"FIX_QUALITY"), 1u);
    EXPECT_EQ(Str(L"HDOP"), "0.9");
    EXPECT_EQ(Str(L"ALTITUDE"), "545.4");
    EXPECT_EQ(parser.GetCounters().gga, 1u);
    Send("GPGSA,A,3,05,12,,,,,,,,,,,2.5,1.3,2.1");
    EXPECT_EQ(Str(L"USED_SATELLITE"), "05,12,,,,,,,,,,,");
    EXPECT_EQ(Str(L"PDOP"), "2.5");
    EXPECT_EQ(Str(L"HDOP"), "1.3");
    EXPECT_EQ(Str(L"VDOP"), "2.1");
}

TEST_F(Parser, ShortSentencesOnlyAdvanceTheAlwaysCounters) {
    Send("GPGGA,123519,4807.038,N");
    Send("GPRMC,123519,A");
    Send("GPGSA,A,3");
    EXPECT_TRUE(out.strings.empty());
    EXPECT_TRUE(out.dwords.empty());
    EXPECT_EQ(parser.GetCounters().processed, 2u);
    EXPECT_EQ(parser.GetCounters().gga, 0u);
    EXPECT_EQ(parser.GetCounters().rmc, 0u);
    EXPECT_TRUE(parser.RmcSeen()) << "a short RMC still counts as seen";
}

TEST_F(Parser, GsvCyclePublishesOnTheLastMessageWithGroupsReversedAndStaysBounded) {
    Send("GPGSV,3,1,11,03,03,111,00,04,15,270,00,06,01,010,00,13,06,292,00");
    Send("GPGSV,3,2,11,14,25,170,00,16,57,208,39,18,67,296,40,19,40,246,00");
    EXPECT_EQ(out.strings.count(L"SIV_INFO"), 0u);
    Send("GPGSV,3,3,11,22,42,067,42,24,14,311,43,27,05,244,00");
    EXPECT_EQ(Str(L"SIV_INFO"),
              "13,06,292,00,;06,01,010,00,;04,15,270,00,;03,03,111,00,;"
              "19,40,246,00,;18,67,296,40,;16,57,208,39,;14,25,170,00,;"
              "27,05,244,00,;24,14,311,43,;22,42,067,42,;");
    EXPECT_EQ(parser.GetCounters().gsv, 3u);
    Send("GPGSV,1,1,01,09,,,");
    EXPECT_EQ(Str(L"SIV_INFO"), "09,,,,;") << "a new cycle starts afresh";
    // Without a new cycle the text stays bounded.
    Send("GPGSV,9,1,36,01,01,001,01");
    for (int i = 0; i < 100; ++i) {
        Send("GPGSV,9,2,36,03,03,111,00,04,15,270,00,06,01,010,00,13,06,292,00");
    }
    Send("GPGSV,9,9,36,22,42,067,42");
    EXPECT_LE(Str(L"SIV_INFO").size(), 1023u);
    EXPECT_EQ(Str(L"SIV_INFO").substr(0, 28), "01,01,001,01,;13,06,292,00,;");
}

TEST_F(Parser, NvaAndNvpCountOnlyBeforeTheFirstRmc) {
    std::string nva = "GPNVA,1,1,1";
    for (int i = 0; i < 12; ++i) {
        nva += i < 2 ? "," + std::to_string(10 + i) + ",45,120,38" : ",0,0,0,0";
    }
    Send(nva);
    EXPECT_EQ(Str(L"SIV_INFO"), "10,45,120,38,;11,45,120,38,;");
    Send("GPNVP,940323,123519.50,4807.038,N,01131.000,E,1,0,0.8,545.4,0,90,0,12.5,0,0");
    EXPECT_EQ(Dwords({L"IS_ACTIVE", L"DIRECTION", L"LAT_DEG"}),
              (std::vector<std::uint32_t>{10, 90, 48}));
    EXPECT_EQ(Str(L"UTCDate"), "230394") << "the groups of the date, reversed";
    EXPECT_EQ(Str(L"SPEED"), "12.5") << "copied as received";
    EXPECT_EQ(Str(L"HDOP"), "0.8");
    Send(kRmc);
    Send("GPNVA,1,1,1,07,10,200,30" + std::string(44, ','));
    EXPECT_EQ(Str(L"SIV_INFO"), "10,45,120,38,;11,45,120,38,;") << "NVA too is ignored after RMC";
    out.strings.erase(L"SPEED");
    Send("GPNVP,230394,123520.50,4807.038,N,01131.000,E,1,0,0.8,545.4,0,90,0,99.9,0,0");
    EXPECT_EQ(out.strings.count(L"SPEED"), 0u) << "ignored once an RMC was seen";
    parser.Reset();
    Send("GPNVP,230394,123521.50,4807.038,N,01131.000,E,1,0,0.8,545.4,0,90,0,77.7,0,0");
    EXPECT_EQ(Str(L"SPEED"), "77.7") << "until the parser is reset";
}

TEST_F(Parser, BadChecksumsOtherTalkersAndProprietarySentencesAreIgnoredEntirely) {
    parser.SetLogFile(L"on");
    std::string good = WithChecksum(kRmc);
    std::string lower = good;
    std::transform(lower.end() - 2, lower.end(), lower.end() - 2,
                   [](char c) { return static_cast<char>(std::tolower(c)); });
    ASSERT_NE(lower, good) << "the example needs a letter in its checksum";
    std::string wrong = good;
    wrong.back() = wrong.back() == '0' ? '1' : '0';
    Feed(lower + "\r\n" + wrong + "\r\n$" + kRmc + "\r\n");  // the last has no checksum
    Send("GNRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W");
    Send("PSRF150,1");
    Send("gpRMC,123519,A,4807.038,N,01131.000,E,022.4,084.4,230394,003.1,W");
    EXPECT_TRUE(out.writes.empty());
    EXPECT_EQ(out.sentences, 0);
    EXPECT_TRUE(out.log.empty());
    EXPECT_TRUE(out.Signals().empty());
    EXPECT_FALSE(std::filesystem::exists(kiv::test::TempPath("device/NMEA.Log")));
    Feed(good + "\r\n");
    EXPECT_EQ(out.sentences, 1);
}

TEST_F(Parser, FramingSurvivesChunksNoiseRestartsAndDropsOverLongSentences) {
    const std::string sentence = WithChecksum(kRmc);
    Feed("\x01\xff garbage ");
    Feed(sentence.substr(0, 10));
    Feed(sentence.substr(10) + "\n");
    EXPECT_EQ(out.sentences, 1);
    // A "$" inside a sentence ends it (it fails its checksum) and starts anew.
    Feed("$GPRMC,12" + sentence + "\r\n");
    EXPECT_EQ(out.sentences, 2);
    // A zero byte ends the text of a sentence.
    Feed(sentence + std::string(1, '\0') + "junk\r\n");
    EXPECT_EQ(out.sentences, 3);
    Feed(sentence.substr(0, 8) + std::string(1, '\0') + sentence.substr(8) + "\r\n");
    EXPECT_EQ(out.sentences, 3);
    // Over-long sentences are dropped up to the next "$"; 1,023 characters still fit.
    std::string body = kRmc;
    body.resize(1030, '0');
    Feed(WithChecksum(body) + "\r\n" + "trailing bytes\r\n" + sentence + "\r\n");
    EXPECT_EQ(out.sentences, 4);
    std::string gsv = "GPGSV,1,2,";
    gsv.resize(1023 - 4, '7');
    Feed(WithChecksum(gsv) + "\r\n");
    EXPECT_EQ(out.sentences, 5);
    gsv.resize(1024 - 4, '7');
    Feed(WithChecksum(gsv) + "\r\n");
    EXPECT_EQ(out.sentences, 5);
}

TEST_F(Parser, WritesOfASentenceAreOneUnitAndEventsFollowItWhenTheFixOrPositionChanges) {
    Send(kRmc);
    for (const auto& w : out.writes) {
        EXPECT_TRUE(w.inSentence) << std::string(w.name.begin(), w.name.end());
    }
    EXPECT_EQ(out.signalsWhileOpen, 0);
    const std::vector<std::wstring> expected = {L"<begin>", L"<end>", L"KIV_GPS_EVENT_FIX",
                                                L"KIV_GPS_EVENT_MOVING"};
    EXPECT_EQ(out.events, expected) << "the first fix signals both events";
    out.ClearActivity();
    Send(kRmc);
    EXPECT_TRUE(out.Signals().empty()) << "same position: not moving";
    Send("GPRMC,123520,A,4807.039,N,01131.000,E,022.4,084.4,230394,003.1,W");
    EXPECT_EQ(out.Signals(), std::vector<std::wstring>{L"KIV_GPS_EVENT_MOVING"});
    out.ClearActivity();
    out.dwords[L"KIV_GPS_EVENT_RESETFIX"] = 1;
    Send(kGga);
    EXPECT_EQ(out.Signals(), std::vector<std::wstring>{L"KIV_GPS_EVENT_FIX"});
    EXPECT_EQ(Dword(L"KIV_GPS_EVENT_RESETFIX"), 0u);
    out.ClearActivity();
    Send("GPRMC,123521,V,,,,,,,230394,,");
    EXPECT_TRUE(out.Signals().empty()) << "losing the fix signals nothing";
}

TEST_F(Parser, DemoPacingSleepsForStepsUnderTwoSeconds) {
    parser.SetDemoMode(true);
    Send("GPRMC,123519.00,A,4807.038,N,01131.000,E,0,0,230394,,");
    Send("GPRMC,123520.00,A,4807.038,N,01131.000,E,0,0,230394,,");
    Send("GPGGA,123520.50,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,");
    Send("GPRMC,123559.00,A,4807.038,N,01131.000,E,0,0,230394,,");
    Send("GPRMC,123600.00,A,4807.038,N,01131.000,E,0,0,230394,,");  // across a minute
    Send("GPRMC,123559.00,A,4807.038,N,01131.000,E,0,0,230394,,");  // backwards
    EXPECT_EQ(out.sleeps, (decltype(out.sleeps){1000, 500}));
    parser.SetDemoMode(false);
    Send("GPRMC,123600.00,A,4807.038,N,01131.000,E,0,0,230394,,");
    EXPECT_EQ(out.sleeps.size(), 2u);
}

TEST_F(Parser, SentenceLogAppendsAcceptedSentencesToTheDeviceRoot) {
    Send(kRmc);
    const std::string log = kiv::test::TempPath("device/NMEA.Log");
    EXPECT_FALSE(std::filesystem::exists(log)) << "the log is off by default";
    parser.SetLogFile(L"\\Storage\\gps.txt");
    Send(kRmc);
    Send(kGga);
    Feed("$GPRMC,bad*11\r\n");
    ASSERT_GE(out.log.size(), 5u);
    EXPECT_EQ(out.log[4], L"m_szLogFile \\Storage\\gps.txt");
    // A $GP sentence no parser takes is still logged and still answers a
    // client's request for a fresh fix event; the fix itself is unchanged.
    out.ClearActivity();
    out.dwords[L"KIV_GPS_EVENT_RESETFIX"] = 1;
    const char* vtg = "GPVTG,084.4,T,,M,022.4,N,041.5,K";
    Send(vtg);
    EXPECT_EQ(kiv::test::ReadFileBytes(log),
              WithChecksum(kRmc) + "\n" + WithChecksum(kGga) + "\n" + WithChecksum(vtg) + "\n");
    EXPECT_EQ(Dword(L"KIV_GPS_EVENT_RESETFIX"), 0u);
    EXPECT_EQ(out.Signals(), std::vector<std::wstring>{L"KIV_GPS_EVENT_FIX"});
    EXPECT_EQ(Dword(L"IS_ACTIVE"), 10u);
}

TEST_F(Parser, RandomBytesNeverCrashOrStall) {
    std::mt19937 random(20261122);
    const std::string valid = WithChecksum(kRmc) + "\r\n" + WithChecksum(kGga) + "\r\n";
    for (int round = 0; round < 300; ++round) {
        std::string chunk(random() % 3000, '\0');
        for (auto& c : chunk) {
            const unsigned r = random() % 100;
            c = r < 5    ? '$'
                : r < 10 ? ','
                : r < 12 ? '*'
                : r < 14 ? '\n'
                         : static_cast<char>(random());
        }
        if (round % 10 == 0) {
            chunk.insert(random() % (chunk.size() + 1), valid);
        }
        Feed(chunk);
    }
    Feed("\r\n" + valid);
    EXPECT_EQ(Dword(L"LAT_MSEC"), 280u) << "still parsing after the noise";
}

// The committed demo drive: every active RMC is a fix (the values of one
// are checked above), the valid-fix count stops at 100, and the last GSV
// cycle is what the registry keeps.
TEST_F(Parser, DemoDriveGivesAFixForEveryActiveRmc) {
    std::ifstream drive(KIV_DEMO_DRIVE);
    ASSERT_TRUE(drive) << KIV_DEMO_DRIVE;
    std::string line;
    int fixes = 0;
    while (std::getline(drive, line)) {
        Feed(line + "\n");
        if (line.rfind("$GPRMC", 0) == 0 && line.find(",A,") != std::string::npos) {
            ASSERT_EQ(Dword(L"IS_ACTIVE"), 10u) << line;
            ASSERT_EQ(Str(L"UTCTime"), line.substr(7, line.find(',', 7) - 7));
            ++fixes;
        }
    }
    EXPECT_GT(fixes, 150);
    const std::string siv = Str(L"SIV_INFO");
    EXPECT_EQ(std::count(siv.begin(), siv.end(), ';'), 11) << siv;
    EXPECT_EQ(siv.substr(0, 14), "12,53,255,36,;") << siv;
    EXPECT_EQ(parser.GetCounters().validFix, 100u) << "the count stops at 100";
}

TEST_F(Parser, RecordedReceiverStreamsParseWithoutSurprises) {
    const std::filesystem::path dir = KIV_SAMPLES_DIR;
    if (!std::filesystem::is_directory(dir)) {
        GTEST_SKIP() << "no recordings beside the project";
    }
    int files = 0;
    for (const auto& entry : std::filesystem::directory_iterator(dir)) {
        if (entry.path().extension() != ".log") {
            continue;
        }
        kiv::test::RecordingNmeaOutput recorded;
        NmeaParserCore fresh(recorded);
        const std::string bytes = kiv::test::ReadFileBytes(entry.path().string());
        fresh.ProcessIncomingBytes(reinterpret_cast<const unsigned char*>(bytes.data()),
                                   static_cast<unsigned int>(bytes.size()));
        EXPECT_GT(recorded.sentences, 10) << entry.path();
        // Whatever the receiver, a fix in the registry has a plausible position.
        if (recorded.dwords[L"IS_ACTIVE"] == 10) {
            EXPECT_LT(recorded.dwords[L"LAT_DEG"], 90u) << entry.path();
            EXPECT_LT(recorded.dwords[L"LONG_DEG"], 180u) << entry.path();
            EXPECT_LT(recorded.dwords[L"LAT_MIN"], 60u) << entry.path();
        }
        // These receivers talk GP only: accepting any talker changes nothing.
        kiv::test::RecordingNmeaOutput anyOut;
        NmeaParserCore any(anyOut);
        any.SetAnyTalker(true);
        any.ProcessIncomingBytes(reinterpret_cast<const unsigned char*>(bytes.data()),
                                 static_cast<unsigned int>(bytes.size()));
        EXPECT_EQ(anyOut.strings, recorded.strings) << entry.path();
        EXPECT_EQ(anyOut.dwords, recorded.dwords) << entry.path();
        EXPECT_EQ(anyOut.Signals(), recorded.Signals()) << entry.path();
        ++files;
    }
    EXPECT_GT(files, 0);
}

// A receiver that reports everything under the combined talker GN.
const char* kGnStream[] = {
    "GNRMC,083559.00,A,4717.11437,N,00833.91522,E,0.004,77.52,091202,,,A,S",
    "GNGGA,083559.00,4717.11437,N,00833.91522,E,1,08,1.01,499.6,M,48.0,M,,",
    "GNGSA,A,3,23,29,07,08,09,18,26,,,,,,1.94,1.18,1.54,1",
    "GNGSA,A,3,65,67,,,,,,,,,,,1.94,1.18,1.54,2",
    "GNGSV,1,1,02,23,38,230,44,65,14,081,35,1",
};

TEST_F(Parser, CombinedTalkerGivesFixPositionAndSatellitesOnlyWithTheSetting) {
    for (const char* s : kGnStream) {
        Send(s);
    }
    EXPECT_EQ(parser.FixState(), 0);
    EXPECT_TRUE(out.strings.empty());
    EXPECT_TRUE(out.dwords.empty());
    EXPECT_TRUE(out.Signals().empty());

    parser.SetAnyTalker(true);
    for (const char* s : kGnStream) {
        Send(s);
    }
    EXPECT_EQ(parser.FixState(), 10);
    EXPECT_EQ(Dwords({L"LAT_DEG", L"LAT_MIN", L"LONG_DEG", L"LONG_MIN", L"IS_NORTH", L"IS_EAST"}),
              (std::vector<std::uint32_t>{47, 17, 8, 33, 1, 1}));
    EXPECT_EQ(Str(L"UTCDate"), "091202");
    EXPECT_EQ(Str(L"ALTITUDE"), "499.6");
    EXPECT_EQ(Dword(L"FIX_QUALITY"), 1u);
    // The GSA of the GPS and of the GLONASS system add up; the system id is
    // not a dilution.
    EXPECT_EQ(Str(L"USED_SATELLITE"), "23,29,07,08,09,18,26,,,,,,65,67,");
    EXPECT_EQ(Str(L"VDOP"), "1.54");
    // The trailing signal id is no satellite group.
    EXPECT_EQ(Str(L"SIV_INFO"), "65,14,081,35,;23,38,230,44,;");
    EXPECT_EQ(out.Signals().front(), L"KIV_GPS_EVENT_FIX");

    // Mode "N" is no fix though the status is A; navigational status "V"
    // (no such status given) leaves the fix alone.
    Send("GNRMC,083600.00,A,4717.11437,N,00833.91522,E,0.004,77.52,091202,,,A,V");
    EXPECT_EQ(parser.FixState(), 10);
    Send("GNRMC,083601.00,A,4717.11437,N,00833.91522,E,0.004,77.52,091202,,,N");
    EXPECT_EQ(parser.FixState(), 0);
    // Talkers outside the list stay ignored.
    Send("GXRMC,083602.00,A,4717.11437,N,00833.91522,E,0.004,77.52,091202,,,A");
    EXPECT_EQ(parser.FixState(), 0);
    EXPECT_EQ(Str(L"UTCTime"), "083601.00");
    Send(kGnStream[0]);
    ASSERT_EQ(parser.FixState(), 10);
    Send("GNRMC,083602.00,V,4717.11437,N,00833.91522,E,0.004,77.52,091202,,,A,S");
    EXPECT_EQ(parser.FixState(), 0);
}

TEST_F(Parser, GsvCyclesOfSeveralConstellationsGiveTheUnionOfTheirSatellites) {
    parser.SetAnyTalker(true);
    auto epoch = [&](bool withGalileo) {
        Send("GPGSV,2,1,05,02,10,100,30,05,20,200,31,12,30,300,32,15,40,040,33");
        Send("GPGSV,2,2,05,25,50,050,34");
        Send("GLGSV,1,1,02,70,11,110,40,71,12,120,41");
        if (withGalileo) {
            Send("GAGSV,1,1,01,304,13,130,42");
        }
    };
    epoch(true);
    const std::string gp = "15,40,040,33,;12,30,300,32,;05,20,200,31,;02,10,100,30,;25,50,050,34,;";
    const std::string all = gp + "71,12,120,41,;70,11,110,40,;304,13,130,42,;";
    EXPECT_EQ(Str(L"SIV_INFO"), all);
    EXPECT_EQ(NmeaParserCore::SatellitesInViewText(), all);
    // The next GP cycle replaces the GP part only.
    Send("GPGSV,1,1,01,02,10,100,30");
    EXPECT_EQ(Str(L"SIV_INFO"), "02,10,100,30,;71,12,120,41,;70,11,110,40,;304,13,130,42,;");
    // A constellation the receiver stops reporting drops out after a few
    // cycles of the others.
    for (int i = 0; i < 4; ++i) {
        epoch(false);
    }
    EXPECT_EQ(Str(L"SIV_INFO"), gp + "71,12,120,41,;70,11,110,40,;");

    // Many constellations of full cycles stay within the text's limit.
    for (const char* talker : {"GP", "GL", "GA", "GB", "BD", "GQ", "GN"}) {
        for (int m = 1; m <= 9; ++m) {
            Send(std::string(talker) + "GSV,9," + std::to_string(m) +
                 ",36,01,01,001,01,02,02,002,02,03,03,003,03,04,04,004,04");
        }
    }
    EXPECT_LE(Str(L"SIV_INFO").size(), 1023u);
    EXPECT_GT(Str(L"SIV_INFO").size(), 1000u);
    EXPECT_EQ(Str(L"SIV_INFO").back(), ';') << "no group is cut";
}

TEST(ParserTalkers, ASimulatedCombinedTalkerDriveMatchesTheGpDriveAndAddsGlonass) {
    kiv::test::RecordingNmeaOutput gpOut;
    kiv::test::RecordingNmeaOutput gnOut;
    NmeaParserCore gp(gpOut);
    NmeaParserCore gn(gnOut);
    gn.SetAnyTalker(true);
    kiv::sim::DriveSimulator gpDrive(kiv::sim::DemoRoute(), 1778747400);
    kiv::sim::DriveSimulator gnDrive(kiv::sim::DemoRoute(), 1778747400);
    gnDrive.SetTalker("GN");
    auto feed = [](NmeaParserCore& p, const std::string& s) {
        p.ProcessIncomingBytes(reinterpret_cast<const unsigned char*>(s.data()),
                               static_cast<unsigned int>(s.size()));
    };
    int fixes = 0;
    for (int i = 0; i < 200 && !gpDrive.State().finished; ++i) {
        feed(gp, gpDrive.Sentences());
        feed(gn, gnDrive.Sentences());
        ASSERT_EQ(gn.FixState(), gp.FixState()) << "step " << i;
        ASSERT_EQ(gn.Latitude(), gp.Latitude()) << "step " << i;
        ASSERT_EQ(gn.Longitude(), gp.Longitude()) << "step " << i;
        fixes += gp.FixState() == 10 ? 1 : 0;
        gpDrive.Step(1);
        gnDrive.Step(1);
    }
    EXPECT_GT(fixes, 100);
    EXPECT_EQ(gnOut.strings[L"SIV_INFO"],
              gpOut.strings[L"SIV_INFO"] + "71,22,160,38,;70,35,045,41,;");
    EXPECT_EQ(gnOut.strings[L"USED_SATELLITE"], gpOut.strings[L"USED_SATELLITE"] + "70,71,");
}
