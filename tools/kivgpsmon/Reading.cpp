#include "Reading.h"

#include "foundation/Text.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <memory>

namespace kivgpsmon {
namespace {

double DecimalDegrees(unsigned degrees, unsigned minutes, unsigned seconds, unsigned milliseconds,
                      bool positive) {
    const double value = degrees + minutes / 60.0 + (seconds + milliseconds / 1000.0) / 3600.0;
    return positive ? value : -value;
}

// Satellite numbers are compared by value where both are numbers, so that
// "7" in one list finds "07" in the other.
bool SameSatellite(const std::string& a, const std::string& b) {
    char* endA = nullptr;
    char* endB = nullptr;
    const long x = std::strtol(a.c_str(), &endA, 10);
    const long y = std::strtol(b.c_str(), &endB, 10);
    if (!a.empty() && !b.empty() && *endA == '\0' && *endB == '\0') {
        return x == y;
    }
    return a == b;
}

long NumberOrMax(const std::string& text) {
    char* end = nullptr;
    const long value = std::strtol(text.c_str(), &end, 10);
    return !text.empty() && *end == '\0' ? value : 1L << 30;
}

}  // namespace

Reading TakeReading(kiv::gps::MGPSService& service) {
    Reading r;
    service.GetGPSPosition(&r.position);
    r.hasTime = service.GetGPSDateTime(&r.time) == 0;

    wchar_t text[32] = {};
    r.position.GetLatitudeAsString(text);
    r.latitudeText = kiv::text::ToUtf8(text);
    r.position.GetLongitudeAsString(text);
    r.longitudeText = kiv::text::ToUtf8(text);
    const auto& p = r.position;
    r.latitude = DecimalDegrees(p.m_latDegrees, p.m_latMinutes, p.m_latSeconds, p.m_latMilliseconds,
                                p.m_north != 0);
    r.longitude = DecimalDegrees(p.m_longDegrees, p.m_longMinutes, p.m_longSeconds,
                                 p.m_longMilliseconds, p.m_east != 0);

    std::vector<kiv::gps::MSatellite*> raw;
    service.GetSatellitesInView(raw);
    for (kiv::gps::MSatellite* pointer : raw) {
        const std::unique_ptr<kiv::gps::MSatellite> satellite(pointer);  // ours to delete
        SatelliteRow row;
        row.number = kiv::text::ToUtf8(satellite->m_number);
        row.elevation = satellite->m_elevation;
        row.azimuth = satellite->m_azimuth;
        row.signalToNoise = satellite->m_signalToNoise;
        row.used = std::any_of(p.m_usedSatellites.begin(), p.m_usedSatellites.end(),
                               [&](const std::string& n) { return SameSatellite(n, row.number); });
        r.satellites.push_back(std::move(row));
    }
    std::stable_sort(r.satellites.begin(), r.satellites.end(),
                     [](const SatelliteRow& a, const SatelliteRow& b) {
                         return NumberOrMax(a.number) < NumberOrMax(b.number);
                     });
    return r;
}

std::string IsoTime(const Reading& reading) {
    if (!reading.hasTime) {
        return {};
    }
    const auto& t = reading.time;
    char text[48];
    std::snprintf(text, sizeof text, "%04u-%02u-%02uT%02u:%02u:%02u.%03uZ", t.m_year, t.m_month,
                  t.m_day, t.m_hour, t.m_minute, t.m_second, t.m_millisecond % 1000u);
    return text;
}

const char* FixStateName(unsigned int state) {
    switch (state) {
        case 0:
            return "no fix";
        case 1:
            return "out of range";
        case 10:
            return "valid";
        default:
            return "unknown";
    }
}

const char* FixQualityName(unsigned int quality) {
    static constexpr const char* kNames[] = {"invalid",   "GPS",       "DGPS",   "PPS",       "RTK",
                                             "float RTK", "estimated", "manual", "simulation"};
    return quality < std::size(kNames) ? kNames[quality] : "unknown";
}

}  // namespace kivgpsmon
