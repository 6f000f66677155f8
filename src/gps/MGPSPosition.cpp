#include <kiv/foundation/MDebugLog.h>
#include <kiv/gps/MGPSPosition.h>

#include <cwchar>
#include <new>

namespace kiv::gps {
namespace {

constexpr std::size_t kTextCapacity = 32;

// Writes letter, degrees, "¡C", minutes, "'", seconds, "." and milliseconds,
// the milliseconds unpadded: they count thousandths, they are no fraction.
void FormatArc(wchar_t* buffer, const wchar_t* letter, unsigned short degrees,
               unsigned short minutes, unsigned short seconds, unsigned short milliseconds) {
    std::swprintf(buffer, kTextCapacity, L"%ls%d\u00A1C%d'%d.%d", letter, degrees, minutes, seconds,
                  milliseconds);
}

}  // namespace

MGPSPosition::MGPSPosition()
    : m_activeState(0),
      m_north(1),
      m_latDegrees(0),
      m_latMinutes(0),
      m_latSeconds(0),
      m_latMilliseconds(0),
      m_east(1),
      m_longDegrees(0),
      m_longMinutes(0),
      m_longSeconds(0),
      m_longMilliseconds(0),
      m_fixQuality(0),
      m_hdop(0),
      m_vdop(0),
      m_pdop(0),
      m_speed(0),
      m_direction(0),
      m_altitude(0),
      m_log(new (std::nothrow) log::MDebugLog()) {}

MGPSPosition::MGPSPosition(const MGPSPosition& other) : MGPSPosition() {
    *this = other;
}

MGPSPosition& MGPSPosition::operator=(const MGPSPosition& other) {
    if (this != &other) {
        m_activeState = other.m_activeState;
        m_north = other.m_north;
        m_latDegrees = other.m_latDegrees;
        m_latMinutes = other.m_latMinutes;
        m_latSeconds = other.m_latSeconds;
        m_latMilliseconds = other.m_latMilliseconds;
        m_east = other.m_east;
        m_longDegrees = other.m_longDegrees;
        m_longMinutes = other.m_longMinutes;
        m_longSeconds = other.m_longSeconds;
        m_longMilliseconds = other.m_longMilliseconds;
        m_fixQuality = other.m_fixQuality;
        m_hdop = other.m_hdop;
        m_vdop = other.m_vdop;
        m_pdop = other.m_pdop;
        m_speed = other.m_speed;
        m_direction = other.m_direction;
        m_altitude = other.m_altitude;
        m_usedSatellites = other.m_usedSatellites;
    }
    return *this;
}

MGPSPosition::~MGPSPosition() {
    delete m_log;
}

unsigned int MGPSPosition::GetLatitudeAsString(wchar_t* buffer) {
    if (m_log != nullptr) {
        m_log->InformationPrintf(L"MGPSPosition::GetLatitudeAsString 1");
    }
    if (buffer == nullptr) {
        return 0;
    }
    const wchar_t* letter = m_north != 0 ? L"N" : L"S";
    if (m_log != nullptr) {
        m_log->InformationPrintf(L"MGPSPosition::GetLatitudeAsString 2");
        m_log->InformationPrintf(L"%d", m_latMilliseconds);
    }
    FormatArc(buffer, letter, m_latDegrees, m_latMinutes, m_latSeconds, m_latMilliseconds);
    return 0;
}

unsigned int MGPSPosition::GetLongitudeAsString(wchar_t* buffer) {
    if (m_log != nullptr) {
        m_log->InformationPrintf(L"MGPSPosition::GetLongitudeAsString 1");
    }
    if (buffer == nullptr) {
        return 0;
    }
    if (m_log != nullptr) {
        m_log->InformationPrintf(L"MGPSPosition::GetLongitudeAsString 2");
    }
    const wchar_t* letter = m_east != 0 ? L"E" : L"W";
    if (m_log != nullptr) {
        m_log->InformationPrintf(L"MGPSPosition::GetLongitudeAsString 3");
        m_log->InformationPrintf(L"%d", m_longMilliseconds);
    }
    FormatArc(buffer, letter, m_longDegrees, m_longMinutes, m_longSeconds, m_longMilliseconds);
    if (m_log != nullptr) {
        m_log->InformationPrintf(L"MGPSPosition::GetLongitudeAsString 4");
    }
    return 0;
}

MGPSDateTime::MGPSDateTime()
    : m_year(0), m_month(0), m_day(0), m_hour(0), m_minute(0), m_second(0), m_millisecond(0) {}

MGPSDateTime::MGPSDateTime(const MGPSDateTime& other) = default;
MGPSDateTime& MGPSDateTime::operator=(const MGPSDateTime& other) = default;
MGPSDateTime::~MGPSDateTime() = default;

MSatellite::MSatellite() : m_number{}, m_elevation(0), m_azimuth(0), m_signalToNoise(0) {}

MSatellite::MSatellite(const MSatellite& other) = default;
MSatellite& MSatellite::operator=(const MSatellite& other) = default;

}  // namespace kiv::gps
