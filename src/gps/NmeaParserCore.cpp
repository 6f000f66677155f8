#include "gps/NmeaParserCore.h"

#include <kiv/files/MFile.h>

#include <charconv>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <limits>
#include <mutex>

#include "foundation/Text.h"
#include "platform/DeviceRoot.h"

namespace kiv::gps {
namespace {

constexpr double kKnotsToKmh = 1.8519998;  // this factor, not 1.852, as the device has it
constexpr double kOneSixtieth = 0.016666666666666666;

// One satellites-in-view text for the whole process: the daemon has one
// connection, so one parser.
std::mutex g_satellitesLock;
std::string g_satellites;

// A receiver that never starts a new cycle (or noise that looks like one)
// must not grow the text without end: groups that would take it past this
// length are left out. A real cycle of 32 satellites needs about 600.
constexpr std::size_t kMaxSatellitesText = 1023;

// The talkers accepted with the any-talker setting, in the order their
// satellites appear in the satellites-in-view text.
constexpr std::string_view kTalkerNames[] = {"GP", "GN", "GL", "GA", "GB", "BD", "GQ"};

// A constellation's satellites drop out of the text after this many cycles
// of another talker without one of its own; more than one, as a receiver may
// send a cycle per signal band.
constexpr int kStaleCycles = 4;

// The used-satellites text of several GSA is kept within what a client reads.
constexpr std::size_t kMaxUsedText = 259;

// Appends to `text` the groups of `groups` ("a,b,c,d,;" each) that fit
// within the satellites-in-view limit.
void AppendBoundedGroups(std::string& text, std::string_view groups) {
    while (!groups.empty()) {
        const std::size_t end = groups.find(';');
        const std::size_t length = end == std::string_view::npos ? groups.size() : end + 1;
        if (text.size() + length > kMaxSatellitesText) {
            return;
        }
        text.append(groups.substr(0, length));
        groups.remove_prefix(length);
    }
}

// Appends fields first..first+3, each followed by ",", and then ";".
void AppendSatelliteGroup(const NmeaFieldSplitter& f, std::size_t first) {
    std::string group;
    for (std::size_t i = first; i < first + 4; ++i) {
        group.append(f.Text(i));
        group.push_back(',');
    }
    group.push_back(';');
    if (g_satellites.size() + group.size() <= kMaxSatellitesText) {
        g_satellites.append(group);
    }
}

std::string_view SkipBlanks(std::string_view text) {
    while (!text.empty() &&
           (text.front() == ' ' || text.front() == '\t' || text.front() == '\n' ||
            text.front() == '\r' || text.front() == '\f' || text.front() == '\v')) {
        text.remove_prefix(1);
    }
    return text;
}

bool StartsWith(std::string_view text, char c) {
    return !text.empty() && text.front() == c;
}

std::uint32_t ParseDword(std::string_view text) {
    return TruncateToU32(FieldToDouble(text));
}

int TimeZoneBiasMinutes() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    std::tm utc{};
    if (localtime_r(&now, &local) == nullptr || gmtime_r(&now, &utc) == nullptr) {
        return 0;
    }
    local.tm_isdst = -1;
    utc.tm_isdst = -1;
    // The device's bias is UTC minus local time.
    return static_cast<int>(std::difftime(std::mktime(&utc), std::mktime(&local)) / 60);
}

}  // namespace

double FieldToDouble(std::string_view text) {
    text = SkipBlanks(text);
    bool negative = false;
    if (StartsWith(text, '+') || StartsWith(text, '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    double value = 0;
    const auto result = std::from_chars(text.data(), text.data() + text.size(), value);
    if (result.ec == std::errc::result_out_of_range) {
        value = std::numeric_limits<double>::infinity();
    } else if (result.ec != std::errc()) {
        value = 0;
    }
    return negative ? -value : value;
}

long long FieldToInteger(std::string_view text) {
    text = SkipBlanks(text);
    bool negative = false;
    if (StartsWith(text, '+') || StartsWith(text, '-')) {
        negative = text.front() == '-';
        text.remove_prefix(1);
    }
    long long value = 0;
    for (char c : text) {
        if (c < '0' || c > '9') {
            break;
        }
        if (value < (std::numeric_limits<long long>::max() - 9) / 10) {
            value = value * 10 + (c - '0');
        }
    }
    return negative ? -value : value;
}

std::uint32_t TruncateToU32(double value) {
    if (std::isnan(value)) {
        return 0;
    }
    constexpr double kLimit = 9.2e18;  // inside the range of a 64-bit integer
    const double clamped = std::fmax(-kLimit, std::fmin(kLimit, std::trunc(value)));
    return static_cast<std::uint32_t>(static_cast<std::int64_t>(clamped));
}

std::uint16_t TruncateToU16(double value) {
    return static_cast<std::uint16_t>(TruncateToU32(value));
}

double ConvertNmeaCoordinate(std::string_view text, ArcRecord& record) {
    const std::size_t point = text.find('.');
    if (point == std::string_view::npos) {
        return 0.0;
    }
    const long long n = FieldToInteger(text.substr(0, point));
    const long long degrees = n / 100;
    const long long minutes = n - degrees * 100;
    const double f = FieldToDouble(text.substr(point));
    const double s = f * 60;
    const double seconds = std::trunc(s);
    // No carry: a fraction that rounds up to 1000 ms is kept as 1000.
    const double milliseconds = (s - seconds) * 1000 + 0.5;
    record.degrees = static_cast<std::uint16_t>(degrees);
    record.minutes = static_cast<std::uint16_t>(minutes);
    record.seconds = TruncateToU16(seconds);
    record.milliseconds = TruncateToU16(milliseconds);
    return static_cast<double>(degrees) + (static_cast<double>(minutes) + f) * kOneSixtieth;
}

NmeaParserCore::NmeaParserCore(NmeaOutput& output)
    : m_output(output), m_timeZoneBias(TimeZoneBiasMinutes()) {
    Reset();
}

NmeaParserCore::~NmeaParserCore() = default;

void NmeaParserCore::Reset() {
    std::memset(m_sentence, 0, sizeof m_sentence);
    m_collecting = false;
    m_length = 0;
    m_demoTime.clear();
    m_rmcSeen = 0;
    m_counters = Counters{};
    m_fix = FixBlock{};
    m_parts = {};
    m_usedSatellites.clear();
    m_gsaSystems = 0;
    m_gsaInEpoch = false;
}

void NmeaParserCore::SetAnyTalker(bool on) {
    m_anyTalker = on;
}

std::size_t NmeaParserCore::TalkerIndex(std::string_view sentence) const {
    const std::string_view talker = sentence.substr(1, 2);
    for (std::size_t i = 0; i < kTalkers; ++i) {
        if (talker == kTalkerNames[i]) {
            return i;
        }
    }
    return kTalkers;
}

void NmeaParserCore::SetLogFile(const wchar_t* name) {
    m_logFile.assign(name != nullptr ? name : L"",
                     name != nullptr ? text::BoundedLength(name, 259) : 0);
}

void NmeaParserCore::SetDemoMode(bool on) {
    m_demoMode = on;
}

bool NmeaParserCore::SetRawLogFile(const wchar_t* path) {
    m_rawLog.reset();
    if (path == nullptr) {
        return true;
    }
    m_rawLog = std::make_unique<system::MFile>(path, L"ab");
    if (m_rawLog->IsOpen() == 0) {
        m_rawLog.reset();
        return false;
    }
    return true;
}

std::string NmeaParserCore::SatellitesInViewText() {
    std::lock_guard guard(g_satellitesLock);
    return g_satellites;
}

void NmeaParserCore::ProcessIncomingBytes(const unsigned char* data, unsigned int count) {
    if (data == nullptr) {
        return;
    }
    if (m_rawLog) {
        m_rawLog->Write(data, 1, count);
        ++m_counters.rawChunks;
    }
    for (unsigned int i = 0; i < count; ++i) {
        const char c = static_cast<char>(data[i]);
        if (c == '$') {
            if (m_collecting) {
                ParseSentence(std::string_view(m_sentence, static_cast<std::size_t>(m_length)));
            }
            m_sentence[0] = '$';
            m_length = 1;
            m_collecting = true;
        } else if (!m_collecting) {
            continue;
        } else if (c == '\r' || c == '\n') {
            ParseSentence(std::string_view(m_sentence, static_cast<std::size_t>(m_length)));
            m_collecting = false;
            m_length = 0;
        } else {
            m_sentence[m_length++] = c;
            if (m_length >= kBufferSize) {
                // Too long to be a sentence: dropped, and the bytes up to the
                // next "$" with it.
                m_collecting = false;
                m_length = 0;
            }
        }
    }
}

void NmeaParserCore::ParseSentence(std::string_view sentence) {
    // The sentence is a C string: a zero byte ends it.
    sentence = sentence.substr(0, sentence.find('\0'));
    if (m_anyTalker) {
        m_talker = TalkerIndex(sentence);
        if (m_talker == kTalkers) {
            return;
        }
    } else if (sentence.substr(0, 3) != "$GP") {
        return;
    } else {
        m_talker = 0;
    }
    const std::size_t star = sentence.find('*');
    if (star == std::string_view::npos) {
        return;
    }
    unsigned char sum = 0;
    for (std::size_t i = 1; i < sentence.size(); ++i) {
        const char c = sentence[i];
        if (c == '*' || c == '\r' || c == '\n') {
            break;
        }
        sum ^= static_cast<unsigned char>(c);
    }
    static constexpr char kHex[] = "0123456789ABCDEF";
    // Two upper-case digits: a checksum written in lower case fails.
    if (sentence.size() < star + 3 || sentence[star + 1] != kHex[sum >> 4] ||
        sentence[star + 2] != kHex[sum & 0xF]) {
        return;
    }

    m_fix.freshness[1] = 6;
    m_fix.freshness[2] = 10;
    if (m_output.Logging()) {
        const std::wstring wide = text::FromUtf8(sentence);
        m_output.Log(wide);
        m_output.Log(L"m_szLogFile " + m_logFile);
        if (!m_logFile.empty()) {
            AppendToNmeaLog(sentence);
        }
        m_output.Log(L"NMEA Data " + wide);
    } else if (!m_logFile.empty()) {
        AppendToNmeaLog(sentence);
    }

    const int oldState = m_fix.state;
    const ArcRecord oldLat = m_fix.latitude;
    const ArcRecord oldLon = m_fix.longitude;

    const std::string_view body = sentence.substr(3);
    const std::string_view type = body.substr(0, 3);
    m_output.BeginSentence();
    if (type == "GGA") {
        ParseGga(body);
    } else if (type == "RMC") {
        ParseRmc(body);
    } else if (type == "GSA") {
        ParseGsa(body);
    } else if (type == "GSV") {
        ParseGsv(body);
    } else if (m_rmcSeen == 0 && type == "NVA") {
        ParseNva(body);
    } else if (m_rmcSeen == 0 && type == "NVP") {
        ParseNvp(body);
    }
    m_output.EndSentence();
    PublishEvents(oldState, oldLat, oldLon);
}

void NmeaParserCore::AppendToNmeaLog(std::string_view sentence) {
    const std::wstring path = text::FromUtf8(platform::DeviceRootFile("\\NMEA.Log"));
    system::MFile log(path.c_str(), L"ab");
    // Failures are not checked: the log is a convenience.
    log.Write(sentence.data(), 1, static_cast<unsigned int>(sentence.size()));
    log.Write("\n", 1, 1);
}

void NmeaParserCore::PaceDemoReplay(std::string_view utcTime) {
    if (!m_demoTime.empty()) {
        const double d = (FieldToDouble(utcTime) - FieldToDouble(m_demoTime)) * 1000;
        // Times are compared as plain numbers: a step across a minute, a step
        // of two seconds or more, and a step back are not paced.
        if (d > 0 && d < 2000) {
            m_output.Sleep(static_cast<unsigned int>(d));
        }
    }
    m_demoTime.assign(utcTime.substr(0, 20));
}

void NmeaParserCore::CountValidFix() {
    m_fix.freshness[0] = 10;
    if (m_counters.validFix < 100) {
        ++m_counters.validFix;
    }
}

void NmeaParserCore::ParseGga(std::string_view body) {
    ++m_counters.processed;
    m_gsaInEpoch = false;
    m_fix.source = 0;
    if (m_splitter.Split(body) < 15) {
        return;
    }
    const auto& f = m_splitter;
    m_output.SetString(L"UTCTime", f.Text(1));
    if (m_demoMode) {
        PaceDemoReplay(f.Text(1));
    }
    if (!f.Text(6).empty()) {
        m_output.SetDword(L"FIX_QUALITY", ParseDword(f.Text(6)));
    }
    if (!f.Text(8).empty()) {
        m_output.SetString(L"HDOP", f.Text(8));
    }
    if (!f.Text(9).empty()) {
        m_output.SetString(L"ALTITUDE", f.Text(9));
    }
    ++m_counters.gga;
}

void NmeaParserCore::WriteLatitude(std::string_view text, std::string_view hemisphere) {
    m_fix.latitudeDegrees = ConvertNmeaCoordinate(text, m_fix.latitude);
    m_output.SetDword(L"LAT_DEG", m_fix.latitude.degrees);
    m_output.SetDword(L"LAT_MIN", m_fix.latitude.minutes);
    m_output.SetDword(L"LAT_SEC", m_fix.latitude.seconds);
    m_output.SetDword(L"LAT_MSEC", m_fix.latitude.milliseconds);
    m_output.SetDword(L"IS_NORTH", StartsWith(hemisphere, 'N') ? 1 : 0);
}

void NmeaParserCore::WriteLongitude(std::string_view text, std::string_view hemisphere) {
    m_fix.longitudeDegrees = ConvertNmeaCoordinate(text, m_fix.longitude);
    m_output.SetDword(L"LONG_DEG", m_fix.longitude.degrees);
    m_output.SetDword(L"LONG_MIN", m_fix.longitude.minutes);
    m_output.SetDword(L"LONG_SEC", m_fix.longitude.seconds);
    m_output.SetDword(L"LONG_MSEC", m_fix.longitude.milliseconds);
    m_output.SetDword(L"IS_EAST", StartsWith(hemisphere, 'E') ? 1 : 0);
}

void NmeaParserCore::ParseRmc(std::string_view body) {
    m_rmcSeen = 1;
    m_fix.source = 0;
    ++m_counters.processed;
    m_gsaInEpoch = false;
    const std::size_t count = m_splitter.Split(body);
    if (count < 12) {
        return;
    }
    const auto& f = m_splitter;
    m_output.SetString(L"UTCDate", f.Text(9));
    m_output.SetString(L"UTCTime", f.Text(1));
    if (m_demoMode) {
        PaceDemoReplay(f.Text(1));
    }
    const bool position = !f.Text(3).empty() && !f.Text(5).empty();
    if (position) {
        WriteLatitude(f.Text(3), f.Text(4));
        WriteLongitude(f.Text(5), f.Text(6));
    }
    bool valid = StartsWith(f.Text(2), 'A');
    if (m_anyTalker) {
        // Later receivers add a mode indicator (12) and a navigational status
        // (13) before the checksum. Mode "N" (no data) is no fix whatever the
        // status field says. The navigational status plays no part: "V"
        // there means the receiver gives no such status, and many always
        // send it beside a valid fix.
        if (count > 13 && StartsWith(f.Text(12), 'N')) {
            valid = false;
        }
    }
    if (!position || !valid) {
        m_fix.state = 0;
    } else if (m_fix.longitudeDegrees > 0 && m_fix.longitudeDegrees < 180 &&
               m_fix.latitudeDegrees > 0 && m_fix.latitudeDegrees < 90) {
        m_fix.state = 10;
    } else {
        // Exactly 0 degrees on either axis counts as outside the range.
        m_fix.state = 1;
    }
    m_output.SetDword(L"IS_ACTIVE", static_cast<std::uint32_t>(m_fix.state));
    char speed[32];
    const double kmh = std::trunc(FieldToDouble(f.Text(7)) * kKnotsToKmh);
    std::snprintf(speed, sizeof speed, "%d", static_cast<int>(TruncateToU32(kmh)));
    m_output.SetString(L"SPEED", speed);
    m_output.SetDword(L"DIRECTION", ParseDword(f.Text(8)));
    if (m_fix.state != 0) {
        CountValidFix();
    }
    ++m_counters.rmc;
}

void NmeaParserCore::ParseGsa(std::string_view body) {
    if (m_splitter.Split(body) < 18) {
        return;
    }
    if (m_anyTalker) {
        ParseGsaOfSystem();
        return;
    }
    const auto& f = m_splitter;
    if (!f.Text(15).empty()) {
        m_output.SetString(L"PDOP", f.Text(15));
    }
    if (!f.Text(16).empty()) {
        m_output.SetString(L"HDOP", f.Text(16));
    }
    if (!f.Text(17).empty()) {
        m_output.SetString(L"VDOP", f.Text(17));
    }
    std::string used;
    for (std::size_t i = 3; i <= 14; ++i) {
        used.append(f.Text(i));
        used.push_back(',');
    }
    m_output.SetString(L"USED_SATELLITE", used);
}

void NmeaParserCore::ParseGsaOfSystem() {
    const auto& f = m_splitter;
    if (!f.Text(15).empty()) {
        m_output.SetString(L"PDOP", f.Text(15));
    }
    if (!f.Text(16).empty()) {
        m_output.SetString(L"HDOP", f.Text(16));
    }
    if (!f.Text(17).empty()) {
        m_output.SetString(L"VDOP", f.Text(17));
    }
    // A receiver of several constellations sends one GSA per system between
    // two fixes; their used satellites add up. The system id (field 18, only
    // when a checksum field follows it) also tells a new round when a system
    // repeats without a fix sentence in between.
    std::uint32_t system = 0;
    if (f.Count() > 19) {
        const long long id = FieldToInteger(f.Text(18));
        system = id > 0 && id < 32 ? 1u << id : 0;
    }
    if (!m_gsaInEpoch || (system & m_gsaSystems) != 0) {
        m_usedSatellites.clear();
        m_gsaSystems = 0;
        // The first GSA of a round keeps the twelve slots, empty ones too.
        for (std::size_t i = 3; i <= 14; ++i) {
            m_usedSatellites.append(f.Text(i));
            m_usedSatellites.push_back(',');
        }
    } else {
        for (std::size_t i = 3; i <= 14; ++i) {
            const std::string_view number = f.Text(i);
            if (!number.empty() && m_usedSatellites.size() + number.size() + 1 <= kMaxUsedText) {
                m_usedSatellites.append(number);
                m_usedSatellites.push_back(',');
            }
        }
    }
    m_gsaInEpoch = true;
    m_gsaSystems |= system;
    m_output.SetString(L"USED_SATELLITE", m_usedSatellites);
}

void NmeaParserCore::ParseGsvOfTalker(std::size_t count) {
    const auto& f = m_splitter;
    SatellitePart& part = m_parts[m_talker];
    if (f.Text(2) == "1") {
        part.pending.clear();
    }
    // The groups of one message are appended last first, as on the GP path.
    // A trailing signal id (after the last group) is never taken for a group:
    // it leaves fewer than four fields.
    for (const std::size_t start : {16u, 12u, 8u, 4u}) {
        if (count > start + 3) {
            std::string group;
            for (std::size_t i = start; i < start + 4; ++i) {
                group.append(f.Text(i));
                group.push_back(',');
            }
            group.push_back(';');
            if (part.pending.size() + group.size() <= kMaxSatellitesText) {
                part.pending.append(group);
            }
        }
    }
    if (f.Text(1) != f.Text(2)) {
        return;
    }
    part.groups.swap(part.pending);
    part.pending.clear();
    part.present = true;
    part.othersSince.fill(0);
    for (std::size_t i = 0; i < kTalkers; ++i) {
        SatellitePart& other = m_parts[i];
        if (i != m_talker && other.present && ++other.othersSince[m_talker] >= kStaleCycles) {
            other = SatellitePart{};
        }
    }
    std::string text;
    for (const SatellitePart& p : m_parts) {
        if (p.present) {
            AppendBoundedGroups(text, p.groups);
        }
    }
    std::lock_guard guard(g_satellitesLock);
    g_satellites = text;
    m_output.SetString(L"SIV_INFO", g_satellites);
}

void NmeaParserCore::ParseGsv(std::string_view body) {
    ++m_counters.gsv;
    const std::size_t count = m_splitter.Split(body);
    if (m_anyTalker) {
        ParseGsvOfTalker(count);
        return;
    }
    const auto& f = m_splitter;
    std::lock_guard guard(g_satellitesLock);
    if (f.Text(2) == "1") {
        g_satellites.clear();
    }
    // The groups of one message are appended last first.
    for (const std::size_t start : {16u, 12u, 8u, 4u}) {
        if (count > start + 3) {
            AppendSatelliteGroup(f, start);
        }
    }
    if (f.Text(1) == f.Text(2)) {
        m_output.SetString(L"SIV_INFO", g_satellites);
    }
}

void NmeaParserCore::ParseNva(std::string_view body) {
    const std::size_t count = m_wideSplitter.Split(body);
    if (count < 50) {
        return;
    }
    const auto& f = m_wideSplitter;
    std::lock_guard guard(g_satellitesLock);
    g_satellites.clear();
    for (std::size_t start = 4; start < 48; start += 4) {
        if (f.Field(start) == nullptr || f.Text(start).empty() ||
            FieldToInteger(f.Text(start)) == 0) {
            break;
        }
        AppendSatelliteGroup(f, start);
    }
    m_output.SetString(L"SIV_INFO", g_satellites);
}

void NmeaParserCore::ParseNvp(std::string_view body) {
    ++m_counters.processed;
    if (m_splitter.Split(body) < 17) {
        return;
    }
    const auto& f = m_splitter;
    m_fix.nvpFixIndicator = static_cast<int>(FieldToInteger(f.Text(7)));
    m_fix.state = m_fix.nvpFixIndicator == 1 ? 10 : 0;
    m_output.SetDword(L"IS_ACTIVE", static_cast<std::uint32_t>(m_fix.state));
    // Unlike RMC, the coordinates are taken even when empty, and without a
    // range test.
    WriteLatitude(f.Text(3), f.Text(4));
    WriteLongitude(f.Text(5), f.Text(6));
    if (!f.Text(14).empty()) {
        m_output.SetString(L"SPEED", f.Text(14));
    }
    if (!f.Text(12).empty()) {
        m_output.SetDword(L"DIRECTION", ParseDword(f.Text(12)));
    }
    if (!f.Text(10).empty()) {
        m_output.SetString(L"ALTITUDE", f.Text(10));
    }
    if (!f.Text(9).empty()) {
        m_output.SetString(L"HDOP", f.Text(9));
    }
    // yymmdd becomes ddmmyy, the layout RMC gives.
    const std::string_view date = f.Text(1);
    std::string ddmmyy;
    for (std::size_t at : {4u, 2u, 0u}) {
        ddmmyy.append(date.substr(std::min<std::size_t>(at, date.size()), 2));
    }
    m_output.SetString(L"UTCDate", ddmmyy);
    m_output.SetString(L"UTCTime", f.Text(2));
    if (m_demoMode) {
        PaceDemoReplay(f.Text(2));
    }
    m_fix.source = 1;
    if (m_fix.state != 0) {
        CountValidFix();
    }
}

void NmeaParserCore::PublishEvents(int oldState, const ArcRecord& oldLat, const ArcRecord& oldLon) {
    const int state = m_fix.state;
    if (oldState == 0) {
        if (state == 0) {
            return;
        }
        m_output.Signal(L"KIV_GPS_EVENT_FIX");
    } else if (state > 0) {
        // A client asks for a fresh fix notification by setting this value.
        std::uint32_t reset = 0;
        if (m_output.GetDword(L"KIV_GPS_EVENT_RESETFIX", reset) && reset != 0) {
            m_output.SetDword(L"KIV_GPS_EVENT_RESETFIX", 0);
            m_output.Signal(L"KIV_GPS_EVENT_FIX");
        }
    }
    // Only the position counts: speed and course play no part.
    if (state != 0 && (m_fix.longitude != oldLon || m_fix.latitude != oldLat)) {
        m_output.Signal(L"KIV_GPS_EVENT_MOVING");
    }
}

}  // namespace kiv::gps
