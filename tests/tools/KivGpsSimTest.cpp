// The receiver simulator and the demo drive made with it.
#include <gtest/gtest.h>

#include <cstdlib>
#include <sstream>
#include <string>
#include <vector>

#include "NmeaSimulator.h"
#include "support/KivTestEnvironment.h"

namespace {

// 2026-05-14T08:30:00Z, the simulator's default start.
constexpr std::int64_t kDemoStart = 1778747400;

std::string GenerateDemo() {
    kiv::sim::DriveSimulator drive(kiv::sim::DemoRoute(), kDemoStart);
    std::string all;
    while (!drive.State().finished) {
        all += drive.Sentences();
        drive.Step(1.0);
    }
    return all;
}

std::vector<std::string> Lines(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream in(text);
    std::string line;
    while (std::getline(in, line)) {
        if (!line.empty() && line.back() == '\r') {
            line.pop_back();
        }
        lines.push_back(line);
    }
    return lines;
}

std::vector<std::string> Fields(const std::string& sentence) {
    std::vector<std::string> fields;
    std::string field;
    for (char c : sentence.substr(1, sentence.find('*') - 1)) {
        if (c == ',') {
            fields.push_back(field);
            field.clear();
        } else {
            field.push_back(c);
        }
    }
    fields.push_back(field);
    return fields;
}

}  // namespace

TEST(KivGpsSim, ChecksumIsTheUpperCaseXorOfTheBody) {
    // The classic example sentence of the protocol.
    EXPECT_EQ(
        kiv::sim::WithChecksum("GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,"),
        "$GPGGA,123519,4807.038,N,01131.000,E,1,08,0.9,545.4,M,46.9,M,,*47");
    EXPECT_EQ(kiv::sim::NmeaCoordinate(48.1173, false), "4807.0380");
    EXPECT_EQ(kiv::sim::NmeaCoordinate(11.5166666, true), "01131.0000");
    EXPECT_EQ(kiv::sim::NmeaCoordinate(-33.99999999, false), "3400.0000") << "carry into degrees";
}

TEST(KivGpsSim, CommittedDemoDriveIsWhatTheSimulatorMakes) {
    const std::string committed = kiv::test::ReadFileBytes(KIV_DEMO_DRIVE);
    ASSERT_FALSE(committed.empty()) << KIV_DEMO_DRIVE;
    EXPECT_EQ(committed, GenerateDemo())
        << "regenerate with: kivgps-sim --out data/demo/drive.nmea";
}

TEST(KivGpsSim, DemoDriveIsWellFormedAndHasAStopAndAnOutage) {
    const auto lines = Lines(GenerateDemo());
    ASSERT_GT(lines.size(), 600u) << "a few minutes of fixes";
    int standing = 0;
    int longestStand = 0;
    int lost = 0;
    bool movedBefore = false;
    for (const std::string& line : lines) {
        // Every line went through WithChecksum, checked above.
        ASSERT_EQ(line.rfind("$GP", 0), 0u) << line;
        const auto f = Fields(line);
        if (f[0] == "GPRMC") {
            ASSERT_GE(f.size(), 12u);
            if (f[2] == "V") {
                ++lost;
                EXPECT_TRUE(f[3].empty() && f[5].empty()) << "no position without a fix";
                continue;
            }
            const double knots = std::atof(f[7].c_str());
            movedBefore = movedBefore || knots > 20;
            standing = (knots == 0 && movedBefore) ? standing + 1 : 0;
            longestStand = std::max(longestStand, standing);
        }
    }
    EXPECT_GE(longestStand, 10) << "the stop at the traffic light";
    EXPECT_GE(lost, 5) << "the underpass";
}
