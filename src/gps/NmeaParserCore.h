// The NMEA parser: frames sentences out of the receiver's byte stream,
// accepts "$GP" sentences with a correct checksum, decodes GGA, RMC, GSA,
// GSV (and NVA, NVP until the first RMC) into the GPS registry values, and
// publishes the fix and moving events. With any talker accepted, the
// sentences of multi-constellation receivers (GN, GL, GA, GB, BD, GQ) count
// as well, and the satellites in view are those of every constellation.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "gps/NmeaFieldSplitter.h"
#include "gps/NmeaOutput.h"

namespace kiv::system {
class MFile;
}

namespace kiv::gps {

/// Degrees, minutes, seconds and milliseconds of arc.
struct ArcRecord {
    std::uint16_t degrees = 0;
    std::uint16_t minutes = 0;
    std::uint16_t seconds = 0;
    std::uint16_t milliseconds = 0;
    bool operator==(const ArcRecord&) const = default;
};

/// Converts NMEA ddmm.mmmm / dddmm.mmmm text into `record` and returns the
/// decimal degrees. Text without "." gives 0.0 and leaves `record` as it was.
double ConvertNmeaCoordinate(std::string_view text, ArcRecord& record);

/// The C library's atof and atoi of a field, locale-independent and safe on
/// any input (garbage gives 0; leading blanks and a sign are allowed).
double FieldToDouble(std::string_view text);
long long FieldToInteger(std::string_view text);
/// A floating-point value truncated toward zero to 32 (16) bits, as the
/// registry's DWORD values take it; out-of-range values wrap like the
/// integer they truncate to, NaN gives 0.
std::uint32_t TruncateToU32(double value);
std::uint16_t TruncateToU16(double value);

class NmeaParserCore {
public:
    static constexpr int kBufferSize = 1024;

    /// `output` must outlive the parser.
    explicit NmeaParserCore(NmeaOutput& output);
    ~NmeaParserCore();

    void ProcessIncomingBytes(const unsigned char* data, unsigned int count);
    void SetLogFile(const wchar_t* name);
    void SetDemoMode(bool on);
    /// Starts recording every chunk of received bytes into `path` (appended);
    /// null stops it.
    bool SetRawLogFile(const wchar_t* path);
    void Reset();
    /// Off (the default): only "$GP" sentences count. On: the talkers GN,
    /// GL, GA, GB, BD and GQ count as well.
    void SetAnyTalker(bool on);
    bool AnyTalker() const { return m_anyTalker; }

    struct Counters {
        std::uint32_t processed = 0;  ///< GGA, RMC and NVP sentences
        std::uint32_t gga = 0;
        std::uint32_t rmc = 0;
        std::uint32_t gsv = 0;
        std::uint32_t validFix = 0;  ///< RMC/NVP with a fix, up to 100
        std::uint32_t rawChunks = 0;
    };
    const Counters& GetCounters() const { return m_counters; }
    int FixState() const { return m_fix.state; }
    const ArcRecord& Latitude() const { return m_fix.latitude; }
    const ArcRecord& Longitude() const { return m_fix.longitude; }
    bool RmcSeen() const { return m_rmcSeen != 0; }
    /// The two freshness counters a supervisor of the stream may watch.
    std::array<int, 3> Freshness() const { return m_fix.freshness; }

    /// The satellites-in-view text, shared by every parser of the process.
    static std::string SatellitesInViewText();

private:
    struct FixBlock {
        int state = 0;  ///< 0 no fix, 1 fix outside range, 10 valid
        ArcRecord latitude;
        ArcRecord longitude;
        double longitudeDegrees = 0;
        double latitudeDegrees = 0;
        int nvpFixIndicator = 0;
        int source = 0;  ///< 0 after GGA or RMC, 1 after NVP
        std::array<int, 3> freshness{};
        // Defaults kept for a supervisor of the stream; the parser reads none.
        double defaults[3] = {101.6, 50.0, 50.0};
        std::uint16_t shortDefaults[2] = {0, 50};
    };

    void ParseSentence(std::string_view sentence);
    void AppendToNmeaLog(std::string_view sentence);
    void ParseGga(std::string_view body);
    void ParseRmc(std::string_view body);
    void ParseGsa(std::string_view body);
    void ParseGsv(std::string_view body);
    void ParseGsvOfTalker(std::size_t count);
    void ParseGsaOfSystem();
    std::size_t TalkerIndex(std::string_view sentence) const;
    void ParseNva(std::string_view body);
    void ParseNvp(std::string_view body);
    void WriteLatitude(std::string_view text, std::string_view hemisphere);
    void WriteLongitude(std::string_view text, std::string_view hemisphere);
    void PaceDemoReplay(std::string_view utcTime);
    void PublishEvents(int oldState, const ArcRecord& oldLat, const ArcRecord& oldLon);
    void CountValidFix();

    NmeaOutput& m_output;
    char m_sentence[kBufferSize + 4];
    bool m_collecting = false;
    int m_length = 0;
    std::wstring m_logFile;
    bool m_demoMode = false;
    std::string m_demoTime;
    std::unique_ptr<system::MFile> m_rawLog;
    int m_rmcSeen = 0;
    Counters m_counters;
    int m_timeZoneBias = 0;  ///< minutes; kept, not used
    FixBlock m_fix;
    NmeaFieldSplitter m_splitter{",*", 20};
    NmeaFieldSplitter m_wideSplitter{",*", 80};

    // Multi-constellation state, used only with any talker accepted.
    static constexpr std::size_t kTalkers = 7;  ///< GP, GN, GL, GA, GB, BD, GQ
    struct SatellitePart {
        std::string groups;   ///< the last complete cycle of this talker
        std::string pending;  ///< the cycle being received
        bool present = false;
        /// Cycles each other talker completed since this one's last; a
        /// constellation the receiver stopped reporting drops out.
        std::array<int, kTalkers> othersSince{};
    };
    bool m_anyTalker = false;
    std::array<SatellitePart, kTalkers> m_parts;
    std::size_t m_talker = 0;  ///< of the sentence being parsed
    std::string m_usedSatellites;
    std::uint32_t m_gsaSystems = 0;  ///< system ids whose GSA is in m_usedSatellites
    bool m_gsaInEpoch = false;       ///< a GSA came since the last GGA or RMC
};

}  // namespace kiv::gps
