#include "GpxTrack.h"

namespace kivgpsmon {
namespace {

constexpr const char* kHead =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<gpx version=\"1.1\" creator=\"kivgpsmon\"\n"
    "     xmlns=\"http://www.topografix.com/GPX/1/1\"\n"
    "     xmlns:xsi=\"http://www.w3.org/2001/XMLSchema-instance\"\n"
    "     xmlns:gpxtpx=\"http://www.garmin.com/xmlschemas/TrackPointExtension/v2\"\n"
    "     xsi:schemaLocation=\"http://www.topografix.com/GPX/1/1 "
    "http://www.topografix.com/GPX/1/1/gpx.xsd\">\n"
    "  <trk>\n"
    "    <name>kivgpsmon track</name>\n"
    "    <trkseg>\n";

constexpr const char* kTail =
    "    </trkseg>\n"
    "  </trk>\n"
    "</gpx>\n";

}  // namespace

GpxTrack::~GpxTrack() {
    if (m_file != nullptr) {
        std::fclose(m_file);
    }
}

bool GpxTrack::Open(const std::string& path) {
    m_file = std::fopen(path.c_str(), "w");
    if (m_file == nullptr) {
        return false;
    }
    std::fputs(kHead, m_file);
    m_tailAt = std::ftell(m_file);
    return WriteTail();
}

bool GpxTrack::WriteTail() {
    std::fputs(kTail, m_file);
    return std::fflush(m_file) == 0 && std::ferror(m_file) == 0;
}

bool GpxTrack::Add(const Reading& reading) {
    const std::string time = IsoTime(reading);
    if (m_file == nullptr || !reading.HasValidFix() || time.empty() || time == m_lastTime) {
        return true;
    }
    if (std::fseek(m_file, m_tailAt, SEEK_SET) != 0) {
        return false;
    }
    const auto& p = reading.position;
    // GPX 1.1 has no speed element: speed (m/s) and course go into the
    // track point extension that map programs commonly read.
    std::fprintf(m_file,
                 "      <trkpt lat=\"%.7f\" lon=\"%.7f\">\n"
                 "        <ele>%.1f</ele>\n"
                 "        <time>%s</time>\n"
                 "        <sat>%zu</sat>\n",
                 reading.latitude, reading.longitude, static_cast<double>(p.m_altitude),
                 time.c_str(), p.m_usedSatellites.size());
    // The dilutions are positive numbers in the schema; 0 means not reported.
    if (p.m_hdop > 0) {
        std::fprintf(m_file, "        <hdop>%.1f</hdop>\n", static_cast<double>(p.m_hdop));
    }
    if (p.m_vdop > 0) {
        std::fprintf(m_file, "        <vdop>%.1f</vdop>\n", static_cast<double>(p.m_vdop));
    }
    if (p.m_pdop > 0) {
        std::fprintf(m_file, "        <pdop>%.1f</pdop>\n", static_cast<double>(p.m_pdop));
    }
    std::fprintf(m_file,
                 "        <extensions><gpxtpx:TrackPointExtension>"
                 "<gpxtpx:speed>%.2f</gpxtpx:speed>",
                 static_cast<double>(p.m_speed) / 3.6);
    if (p.m_direction < 360) {
        std::fprintf(m_file, "<gpxtpx:course>%u</gpxtpx:course>", p.m_direction);
    }
    std::fputs("</gpxtpx:TrackPointExtension></extensions>\n      </trkpt>\n", m_file);
    m_tailAt = std::ftell(m_file);
    m_lastTime = time;
    ++m_points;
    return WriteTail();
}

}  // namespace kivgpsmon
