// The parser behind MNmeaParser: the parsing core wired to the registry, the
// named events and a debug log.
#pragma once

#include <kiv/foundation/MDebugLog.h>
#include <kiv/system/MRegistry.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "gps/NmeaParserCore.h"
#include "platform/Waitable.h"

namespace kiv::gps {

/// The registry key both GPS sides use, below HKEY_CURRENT_USER.
inline constexpr const wchar_t* kGpsKey = L"Software\\Tarvo\\KivFramework\\GPS";

/// Writes a narrow text (the ANSI code page) as a string value.
unsigned int SetRegMsgNarrow(system::MRegistry& registry, std::string_view text,
                             const wchar_t* name);

/// The parser's output into the registry: the values of one sentence are
/// collected and written in one registry batch when the sentence ends, so
/// that nothing is held open while the parser sleeps for demo pacing.
class RegistryNmeaOutput final : public NmeaOutput {
public:
    RegistryNmeaOutput();

    void BeginSentence() override;
    void EndSentence() override;
    void SetString(const wchar_t* name, std::string_view text) override;
    void SetDword(const wchar_t* name, std::uint32_t value) override;
    bool GetDword(const wchar_t* name, std::uint32_t& value) override;
    void Signal(const wchar_t* eventName) override;
    void Log(std::wstring_view text) override;
    bool Logging() override;
    void Sleep(unsigned int ms) override;

    /// Replaces the demo-pacing sleep, so a connection can cut it short.
    void SetSleeper(std::function<void(unsigned int)> sleeper) { m_sleeper = std::move(sleeper); }

private:
    struct Pending {
        const wchar_t* name;
        bool isString;
        std::uint32_t value;
        std::string text;
    };
    void Apply(const Pending& p);

    struct Signaller {
        std::wstring name;
        std::unique_ptr<platform::EventSignaller> event;
    };

    system::MRegistry m_registry;
    log::MDebugLog m_log;
    std::vector<Pending> m_pending;
    bool m_inSentence = false;
    std::function<void(unsigned int)> m_sleeper;
    // One per event name, made on its first signal and kept: a signal then
    // costs no lookup by name.
    std::vector<Signaller> m_signallers;
};

class MNmeaParserImpl {
public:
    MNmeaParserImpl() : m_core(m_output) {}

    NmeaParserCore& Core() { return m_core; }
    RegistryNmeaOutput& Output() { return m_output; }

private:
    RegistryNmeaOutput m_output;
    NmeaParserCore m_core;
};

}  // namespace kiv::gps
