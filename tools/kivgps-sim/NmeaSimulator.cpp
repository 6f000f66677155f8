#include "NmeaSimulator.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

namespace kiv::sim {
namespace {

constexpr double kMetresPerDegreeLat = 111320.0;
constexpr double kKnotsPerMetrePerSecond = 1.9438445;
constexpr double kPi = 3.14159265358979323846;

double MetresPerDegreeLon(double lat) {
    return kMetresPerDegreeLat * std::cos(lat * kPi / 180);
}

std::string OneDecimal(double a) {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%.1f", a);
    return buf;
}

std::string TwoDigits(std::size_t n) {
    char buf[32];
    std::snprintf(buf, sizeof buf, "%02zu", n);
    return buf;
}

struct Satellite {
    int prn;
    double elevation;  ///< degrees at the start
    double azimuth;    ///< degrees at the start
    double drift;      ///< degrees of azimuth per minute
};

// A constellation as a receiver in mid-latitudes sees it.
constexpr Satellite kSatellites[] = {
    {2, 67, 49, 0.20},   {5, 41, 283, -0.15}, {9, 23, 142, 0.10},   {12, 55, 205, 0.25},
    {15, 8, 318, -0.05}, {17, 36, 96, 0.30},  {21, 14, 12, 0.12},   {25, 72, 171, -0.22},
    {26, 30, 247, 0.08}, {29, 4, 61, 0.18},   {31, 48, 331, -0.10},
};

int Snr(const Satellite& s, double t) {
    // Stronger from high satellites, with a slow ripple that differs per satellite.
    const double ripple = 3 * std::sin(t / 17.0 + s.prn);
    return static_cast<int>(std::lround(std::clamp(22 + s.elevation * 0.3 + ripple, 12.0, 50.0)));
}

}  // namespace

Route DemoRoute() {
    Route r;
    r.points = {
        {48.13500, 11.56500, 0, 0},     // start, standing
        {48.14000, 11.56500, 4.0, 0},   // right turn onto the avenue
        {48.14000, 11.57300, 0, 15.0},  // traffic light: a stop of 15 s
        {48.14000, 11.58100, 6.0, 0},   // through the underpass, then a left bend
        {48.14450, 11.58600, 0, 0},     // parked
    };
    r.outageFrom = 1300;
    r.outageTo = 1480;
    return r;
}

std::string WithChecksum(const std::string& body) {
    unsigned char sum = 0;
    for (char c : body) {
        sum ^= static_cast<unsigned char>(c);
    }
    char tail[8];
    std::snprintf(tail, sizeof tail, "*%02X", sum);
    return "$" + body + tail;
}

std::string NmeaCoordinate(double degrees, bool longitude) {
    degrees = std::fabs(degrees);
    int whole = static_cast<int>(degrees);
    double minutes = (degrees - whole) * 60;
    // Rounding to four decimals may carry into a whole minute or degree.
    if (std::lround(minutes * 10000) >= 600000) {
        minutes = 0;
        ++whole;
    }
    char buf[32];
    std::snprintf(buf, sizeof buf, longitude ? "%03d%07.4f" : "%02d%07.4f", whole, minutes);
    return buf;
}

DriveSimulator::DriveSimulator(Route route, std::int64_t startUtc)
    : m_route(std::move(route)), m_startUtc(startUtc) {
    if (!m_route.points.empty()) {
        m_state.lat = m_route.points[0].lat;
        m_state.lon = m_route.points[0].lon;
        m_dwellLeft = m_route.points[0].dwell;
    }
    m_state.finished = m_route.points.size() < 2;
    m_state.fix = !(m_route.outageFrom <= 0 && m_route.outageTo > 0);
    if (m_route.points.size() >= 2) {
        const auto& a = m_route.points[0];
        const auto& b = m_route.points[1];
        m_state.course = std::fmod(std::atan2((b.lon - a.lon) * MetresPerDegreeLon(a.lat),
                                              (b.lat - a.lat) * kMetresPerDegreeLat) *
                                           180 / kPi +
                                       360,
                                   360);
    }
}

double DriveSimulator::SegmentLength(std::size_t i) const {
    const auto& a = m_route.points[i];
    const auto& b = m_route.points[i + 1];
    const double dy = (b.lat - a.lat) * kMetresPerDegreeLat;
    const double dx = (b.lon - a.lon) * MetresPerDegreeLon(a.lat);
    return std::hypot(dx, dy);
}

double DriveSimulator::TargetSpeed() const {
    const double toNext = SegmentLength(m_segment) - m_alongSegment;
    const double exitSpeed = m_route.points[m_segment + 1].turnSpeed;
    double target = std::sqrt(exitSpeed * exitSpeed + 2 * m_route.accel * std::max(toNext, 0.0));
    target = std::min(target, m_route.cruise);
    // Creep the last metres to a stop line instead of stopping short of it.
    return std::max(target, std::min(1.0, m_route.cruise));
}

const SimState& DriveSimulator::Step(double dt) {
    m_state.time += dt;
    if (m_state.finished) {
        m_state.speed = 0;
        return m_state;
    }
    if (m_dwellLeft > 0) {
        m_dwellLeft -= dt;
        m_state.speed = 0;
        return m_state;
    }
    const double target = TargetSpeed();
    if (m_state.speed < target) {
        m_state.speed = std::min(target, m_state.speed + m_route.accel * dt);
    } else {
        m_state.speed = std::max(target, m_state.speed - 2 * m_route.accel * dt);
    }
    double move = m_state.speed * dt;
    while (move > 0 && !m_state.finished) {
        const double left = SegmentLength(m_segment) - m_alongSegment;
        if (move < left) {
            m_alongSegment += move;
            m_state.distance += move;
            move = 0;
            break;
        }
        m_state.distance += left;
        move -= left;
        const Waypoint& reached = m_route.points[m_segment + 1];
        ++m_segment;
        m_alongSegment = 0;
        if (m_segment + 1 >= m_route.points.size()) {
            m_state.finished = true;
            m_state.speed = 0;
        } else if (reached.turnSpeed <= 0) {
            m_dwellLeft = reached.dwell;
            m_state.speed = 0;
            move = 0;
        }
    }
    const std::size_t from = std::min(m_segment, m_route.points.size() - 1);
    const Waypoint& a = m_route.points[from];
    if (from + 1 < m_route.points.size()) {
        const Waypoint& b = m_route.points[from + 1];
        const double f = m_alongSegment / SegmentLength(from);
        m_state.lat = a.lat + (b.lat - a.lat) * f;
        m_state.lon = a.lon + (b.lon - a.lon) * f;
        m_state.course = std::fmod(std::atan2((b.lon - a.lon) * MetresPerDegreeLon(a.lat),
                                              (b.lat - a.lat) * kMetresPerDegreeLat) *
                                           180 / kPi +
                                       360,
                                   360);
    } else {
        m_state.lat = a.lat;
        m_state.lon = a.lon;
    }
    m_state.fix = !(m_state.distance >= m_route.outageFrom && m_state.distance < m_route.outageTo);
    return m_state;
}

std::string DriveSimulator::Sentences() const {
    const double t = m_state.time;
    const auto wholeSeconds = static_cast<std::int64_t>(std::floor(t));
    const int millis =
        static_cast<int>(std::lround((t - static_cast<double>(wholeSeconds)) * 1000));
    const std::time_t utc = static_cast<std::time_t>(m_startUtc + wholeSeconds + millis / 1000);
    std::tm tm{};
    gmtime_r(&utc, &tm);
    char clock[48];
    std::snprintf(clock, sizeof clock, "%02d%02d%02d.%03d", tm.tm_hour, tm.tm_min, tm.tm_sec,
                  millis % 1000);
    char date[48];
    std::snprintf(date, sizeof date, "%02d%02d%02d", tm.tm_mday, tm.tm_mon + 1, tm.tm_year % 100);

    const std::string lat = NmeaCoordinate(m_state.lat, false);
    const std::string lon = NmeaCoordinate(m_state.lon, true);
    const char* ns = m_state.lat >= 0 ? "N" : "S";
    const char* ew = m_state.lon >= 0 ? "E" : "W";
    const double minutes = t / 60;

    // Satellites above the horizon, and those used in the fix.
    std::vector<std::string> used;
    std::vector<std::string> groups;
    for (const Satellite& s : kSatellites) {
        const double elevation = std::max(0.0, s.elevation - minutes * 0.4);
        const int azimuth = static_cast<int>(std::lround(
                                std::fmod(s.azimuth + minutes * s.drift * 60, 360) + 360)) %
                            360;
        if (elevation < 1) {
            continue;
        }
        char group[32];
        if (m_state.fix) {
            std::snprintf(group, sizeof group, "%02d,%02d,%03d,%02d", s.prn,
                          static_cast<int>(elevation), azimuth, Snr(s, t));
            if (elevation >= 10 && used.size() < 12) {
                char prn[4];
                std::snprintf(prn, sizeof prn, "%02d", s.prn);
                used.emplace_back(prn);
            }
        } else {
            std::snprintf(group, sizeof group, "%02d,%02d,%03d,", s.prn,
                          static_cast<int>(elevation), azimuth);
        }
        groups.emplace_back(group);
    }

    std::string out;
    auto emit = [&out](const std::string& body) { out += WithChecksum(body) + "\r\n"; };

    if (m_state.fix) {
        emit(m_talker + "RMC," + std::string(clock) + ",A," + lat + "," + ns + "," + lon + "," +
             ew + "," + OneDecimal(m_state.speed * kKnotsPerMetrePerSecond) + "," +
             OneDecimal(m_state.course) + "," + date + ",,,A");
        emit(m_talker + "GGA," + std::string(clock) + "," + lat + "," + ns + "," + lon + "," + ew +
             ",1," + TwoDigits(used.size()) + ",0.9," + OneDecimal(m_route.altitude) +
             ",M,47.0,M,,");
    } else {
        emit(m_talker + "RMC," + std::string(clock) + ",V,,,,,,," + date + ",,,N");
        emit(m_talker + "GGA," + std::string(clock) + ",,,,,0,00,99.9,,M,,M,,");
    }
    const bool multi = m_talker != "GP";
    std::string gsa = m_talker + (m_state.fix ? "GSA,A,3," : "GSA,A,1,");
    for (std::size_t i = 0; i < 12; ++i) {
        gsa += (i < used.size() ? used[i] : std::string()) + ",";
    }
    gsa += m_state.fix ? "1.6,0.9,1.3" : "99.9,99.9,99.9";
    emit(multi ? gsa + ",1" : gsa);
    if (multi) {
        // Two GLONASS satellites, used while there is a fix.
        emit(m_talker + (m_state.fix ? "GSA,A,3,70,71,,,,,,,,,,,1.6,0.9,1.3,2"
                                     : "GSA,A,1,,,,,,,,,,,,,99.9,99.9,99.9,2"));
    }

    const std::size_t messages = std::max<std::size_t>(1, (groups.size() + 3) / 4);
    for (std::size_t m = 0; m < messages; ++m) {
        std::string gsv = "GPGSV," + std::to_string(messages) + "," + std::to_string(m + 1) + "," +
                          TwoDigits(groups.size());
        for (std::size_t g = m * 4; g < std::min(groups.size(), m * 4 + 4); ++g) {
            gsv += "," + groups[g];
        }
        emit(gsv);
    }
    if (multi) {
        emit(m_state.fix ? "GLGSV,1,1,02,70,35,045,41,71,22,160,38"
                         : "GLGSV,1,1,02,70,35,045,,71,22,160,");
    }
    return out;
}

}  // namespace kiv::sim
