// The values the GPS service hands to applications: a position, a UTC date
// and time, and one satellite in view. Plain classes with public data.
#pragma once

#include <kiv/platform/KivApi.h>

#include <string>
#include <vector>

namespace kiv::log {
class MDebugLog;
}

namespace kiv::gps {

/// A position as the daemon last published it.
class KIV_API MGPSPosition {
public:
    /// North and east, no fix, every number 0; makes the position's debug log.
    MGPSPosition();
    /// Copies every value, the list of used satellites included; each
    /// position keeps a debug log of its own.
    MGPSPosition(const MGPSPosition& other);
    MGPSPosition& operator=(const MGPSPosition& other);
    ~MGPSPosition();

    /// Writes "N" or "S" and the latitude as degrees, the two characters
    /// U+00A1 and "C", minutes, "'", seconds, "." and milliseconds, with no
    /// padding ("N48¡C7'2.280"; 5 ms give "2.5"). The buffer must hold 32
    /// characters. Always 0.
    unsigned int GetLatitudeAsString(wchar_t* buffer);
    /// The same for the longitude, with "E" or "W". Always 0.
    unsigned int GetLongitudeAsString(wchar_t* buffer);

    unsigned int m_activeState;  ///< 0 no fix, 1 fix outside the range, 10 valid fix
    unsigned short m_north;      ///< 1: the latitude is north
    unsigned short m_latDegrees;
    unsigned short m_latMinutes;
    unsigned short m_latSeconds;
    unsigned short m_latMilliseconds;  ///< thousandths of an arc second
    unsigned short m_east;             ///< 1: the longitude is east
    unsigned short m_longDegrees;
    unsigned short m_longMinutes;
    unsigned short m_longSeconds;
    unsigned short m_longMilliseconds;
    unsigned int m_fixQuality;  ///< the GGA fix quality
    float m_hdop;
    float m_vdop;
    float m_pdop;
    float m_speed;                              ///< km/h
    unsigned int m_direction;                   ///< course over ground, whole degrees
    float m_altitude;                           ///< as the receiver reports it
    std::vector<std::string> m_usedSatellites;  ///< numbers of the satellites in the fix

private:
    log::MDebugLog* m_log;
};

/// A UTC date and time.
class KIV_API MGPSDateTime {
public:
    MGPSDateTime();
    MGPSDateTime(const MGPSDateTime& other);
    MGPSDateTime& operator=(const MGPSDateTime& other);
    virtual ~MGPSDateTime();

    unsigned short m_year;
    unsigned short m_month;
    unsigned short m_day;
    unsigned short m_hour;
    unsigned short m_minute;
    unsigned short m_second;
    unsigned short m_millisecond;
};

/// One satellite in view.
class KIV_API MSatellite {
public:
    MSatellite();
    MSatellite(const MSatellite& other);
    MSatellite& operator=(const MSatellite& other);

    wchar_t m_number[12];  ///< the satellite number as text
    unsigned int m_elevation;
    unsigned int m_azimuth;
    unsigned int m_signalToNoise;
};

}  // namespace kiv::gps
