// A simulated GPS receiver: a car driving a route, reported as the NMEA
// sentences a receiver sends every fix (RMC, GGA, GSA and a GSV cycle).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace kiv::sim {

struct Waypoint {
    double lat = 0;        ///< degrees, north positive
    double lon = 0;        ///< degrees, east positive
    double turnSpeed = 0;  ///< m/s to slow to when reaching it (0 = stop)
    double dwell = 0;      ///< seconds to stand still there
};

struct Route {
    std::vector<Waypoint> points;
    double cruise = 13.9;  ///< m/s
    double accel = 1.8;    ///< m/s^2, also used to brake
    /// The fix is lost while the distance driven lies in [outageFrom, outageTo) metres.
    double outageFrom = -1;
    double outageTo = -1;
    double altitude = 519.0;  ///< metres above mean sea level
};

/// The built-in demo drive: a few minutes through a city with a turn, a stop
/// at a traffic light and an underpass where the fix is lost.
Route DemoRoute();

struct SimState {
    double time = 0;      ///< seconds since the start
    double lat = 0;       ///< degrees
    double lon = 0;       ///< degrees
    double speed = 0;     ///< m/s
    double course = 0;    ///< degrees from north
    double distance = 0;  ///< metres driven
    bool fix = true;
    bool finished = false;
};

/// Steps a drive along a route.
class DriveSimulator {
public:
    /// `startUtc` is seconds since 1970-01-01 UTC of the first fix.
    DriveSimulator(Route route, std::int64_t startUtc);

    /// Advances by `dt` seconds; returns the new state.
    const SimState& Step(double dt);
    const SimState& State() const { return m_state; }

    /// The sentences of the current state, each ending in CR LF.
    std::string Sentences() const;
    /// The talker of RMC, GGA and GSA ("GP" by default). Any other talker
    /// makes a multi-constellation receiver: its GSA carries the system id,
    /// and a GLONASS GSV cycle ("GL") follows the GPS one.
    void SetTalker(const std::string& talker) { m_talker = talker.substr(0, 2); }

private:
    double SegmentLength(std::size_t i) const;
    double TargetSpeed() const;

    Route m_route;
    std::int64_t m_startUtc;
    SimState m_state;
    std::size_t m_segment = 0;  ///< driving from point m_segment to m_segment + 1
    double m_alongSegment = 0;  ///< metres into the segment
    double m_dwellLeft = 0;     ///< seconds still to stand
    std::string m_talker = "GP";
};

/// "$" + body + "*" + the two upper-case hexadecimal digits of the checksum.
std::string WithChecksum(const std::string& body);

/// Formats degrees as NMEA ddmm.mmmm (or dddmm.mmmm with `lonDigits`).
std::string NmeaCoordinate(double degrees, bool longitude);

}  // namespace kiv::sim
