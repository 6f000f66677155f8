// One reading of the GPS service: everything the monitor shows, taken
// together after a callback, through the public client interface only.
#pragma once

#include <kiv/gps/MGPSService.h>

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace kivgpsmon {

struct SatelliteRow {
    std::string number;
    unsigned int elevation = 0;
    unsigned int azimuth = 0;
    unsigned int signalToNoise = 0;
    bool used = false;
};

struct Reading {
    kiv::gps::MGPSPosition position;
    kiv::gps::MGPSDateTime time;
    bool hasTime = false;
    std::string latitudeText;  ///< GetLatitudeAsString, as UTF-8
    std::string longitudeText;
    double latitude = 0;  ///< decimal degrees, south negative
    double longitude = 0;
    std::vector<SatelliteRow> satellites;  ///< by satellite number

    bool HasValidFix() const { return position.m_activeState == 10; }
};

/// Reads position, time and satellites from the service.
Reading TakeReading(kiv::gps::MGPSService& service);

/// "2026-05-14T08:30:01.000Z", or "" without a time.
std::string IsoTime(const Reading& reading);

/// Text for the fix state (m_activeState) and the GGA fix quality.
const char* FixStateName(unsigned int state);
const char* FixQualityName(unsigned int quality);

}  // namespace kivgpsmon
