#include "View.h"

#include <cstdarg>
#include <cstdio>

namespace kivgpsmon {
namespace {

// Clears the rest of the line, so a shorter line leaves nothing of the last.
constexpr const char* kEndOfLine = "\x1b[K\n";

__attribute__((format(printf, 1, 2))) std::string Format(const char* format, ...) {
    char text[256];
    std::va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(text, sizeof text, format, arguments);
    va_end(arguments);
    return text;
}

std::string Number(float value, const char* unit) {
    return Format("%.1f%s", static_cast<double>(value), unit);
}

}  // namespace

std::string FormatLine(const Reading& r) {
    const auto& p = r.position;
    const std::string time = r.hasTime ? IsoTime(r) : "----------T--:--:--.---Z";
    std::string line = time;
    line += Format(" fix=%u(%s) quality=%u(%s) ", p.m_activeState, FixStateName(p.m_activeState),
                   p.m_fixQuality, FixQualityName(p.m_fixQuality));
    line += "lat=" + r.latitudeText + Format(" (%.6f) ", r.latitude);
    line += "lon=" + r.longitudeText + Format(" (%.6f) ", r.longitude);
    line += Format("speed=%.0fkm/h course=%u alt=%.1f hdop=%.1f vdop=%.1f pdop=%.1f sats=%zu/%zu\n",
                   static_cast<double>(p.m_speed), p.m_direction, static_cast<double>(p.m_altitude),
                   static_cast<double>(p.m_hdop), static_cast<double>(p.m_vdop),
                   static_cast<double>(p.m_pdop), p.m_usedSatellites.size(), r.satellites.size());
    return line;
}

std::string FormatScreen(const Reading* r, const Status& status) {
    std::string s = "\x1b[H";
    auto line = [&s](const std::string& text) { s += text + kEndOfLine; };
    line("\x1b[1mkivgpsmon\x1b[0m  " + status.source + "    (q quits)");
    line("");
    if (r == nullptr) {
        line("waiting for the first fix ...");
        s += "\x1b[J";
        return s;
    }
    const auto& p = r->position;
    line("  UTC          " + (r->hasTime ? IsoTime(*r) : std::string("--")));
    line("  Latitude     " + r->latitudeText + Format("   %11.6f\u00B0", r->latitude));
    line("  Longitude    " + r->longitudeText + Format("   %11.6f\u00B0", r->longitude));
    line(Format("  Fix          %s (%u), quality %u (%s)", FixStateName(p.m_activeState),
                p.m_activeState, p.m_fixQuality, FixQualityName(p.m_fixQuality)));
    line(Format("  Speed        %.0f km/h", static_cast<double>(p.m_speed)));
    line(Format("  Course       %u\u00B0", p.m_direction));
    line("  Altitude     " + Number(p.m_altitude, " m"));
    line("  HDOP/VDOP/PDOP  " + Number(p.m_hdop, "") + " / " + Number(p.m_vdop, "") + " / " +
         Number(p.m_pdop, ""));
    std::string events =
        Format("  Events       %u fix, %u moving", status.fixEvents, status.movingEvents);
    if (!status.gpxPath.empty()) {
        events += Format("; %zu track points in ", status.gpxPoints) + status.gpxPath;
    }
    line(events);
    line("");
    line(Format("  Satellites in view: %zu, used in fix: %zu", r->satellites.size(),
                p.m_usedSatellites.size()));
    line("  \x1b[4m  No.  Elev  Azim  SNR  Used\x1b[0m");
    for (const auto& sat : r->satellites) {
        line(Format("  %5s  %4u  %4u  %3u  %s", sat.number.c_str(), sat.elevation, sat.azimuth,
                    sat.signalToNoise, sat.used ? "yes" : ""));
    }
    s += "\x1b[J";
    return s;
}

}  // namespace kivgpsmon
