// The NMEA parser of the GPS daemon.
//
// It takes the receiver's byte stream, accepts "$GP" sentences with a
// correct checksum (GGA, RMC, GSA, GSV, and NVA/NVP until the first RMC),
// writes every decoded field to the registry under HKEY_CURRENT_USER
// "Software\Tarvo\KivFramework\GPS", and signals the named events
// "KIV_GPS_EVENT_FIX" and "KIV_GPS_EVENT_MOVING". The values of one sentence
// become visible to readers together. Malformed input is dropped silently.
// One parser belongs to one thread at a time.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::gps {

class MNmeaParserImpl;

class KIV_API MNmeaParser {
public:
    /// Opens the GPS key and the parser's debug log; nothing is parsed yet.
    MNmeaParser();
    ~MNmeaParser();
    MNmeaParser(const MNmeaParser&) = delete;
    MNmeaParser& operator=(const MNmeaParser&) = delete;

    /// Feeds a chunk of received bytes; sentences may span chunks.
    void ProcessIncomingBytes(const unsigned char* data, unsigned int count);
    /// A non-empty setting appends every accepted sentence to "\NMEA.Log" in
    /// the device root (KIV_DEVICE_ROOT); empty switches that log off.
    void SetLogFile(const wchar_t* name);
    /// In demo mode the parser sleeps between sentences as far apart as their
    /// UTC times (steps under two seconds), so a recording plays in real time.
    void SetDemoMode(bool on);
    /// Records every received chunk, as it came, into the file `path`
    /// (appended); null stops. False if the file cannot be opened.
    bool SetRawLogFile(const wchar_t* path);
    /// Off (the default): only "$GP" sentences count. On: GN, GL, GA, GB, BD
    /// and GQ as well, with the satellites in view of every constellation.
    void SetAnyTalker(bool on);
    /// Clears the sentence being collected, the counters and the fix state.
    void Reset();

private:
    MNmeaParserImpl* m_impl;
};

}  // namespace kiv::gps
