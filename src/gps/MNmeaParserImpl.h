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
#include "platform/RegistryStore.h"
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
/// Between BeginChunk and EndChunk (one read of the receiver) the sentences
/// share one batch, and their events are signalled, in order, once it has
/// committed: a client woken by an event always finds the values that
/// caused it. A demo-pacing sleep commits and signals first.
class RegistryNmeaOutput final : public NmeaOutput {
public:
    RegistryNmeaOutput();
    ~RegistryNmeaOutput() override;
    RegistryNmeaOutput(const RegistryNmeaOutput&) = delete;
    RegistryNmeaOutput& operator=(const RegistryNmeaOutput&) = delete;

    void BeginSentence() override;
    void EndSentence() override;
    void SetString(const wchar_t* name, std::string_view text) override;
    void SetDword(const wchar_t* name, std::uint32_t value) override;
    bool GetDword(const wchar_t* name, std::uint32_t& value) override;
    void Signal(const wchar_t* eventName) override;
    void Log(std::wstring_view text) override;
    bool Logging() override;
    void Sleep(unsigned int ms) override;

    void BeginChunk();
    void EndChunk();

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
    void JoinChunk();
    void FlushChunk();

    // A value read before, kept while the registry's change stamp of its
    // name stays the same.
    struct Known {
        std::wstring name;
        std::uint32_t stamp;
        bool found;
        std::uint32_t value;
    };

    struct Signaller {
        std::wstring name;
        std::unique_ptr<platform::EventSignaller> event;
    };

    system::MRegistry m_registry;
    HKEY m_stampKey = nullptr;  // the GPS key, for stamps and unchanged-value writes
    std::vector<Known> m_known;
    log::MDebugLog m_log;
    std::vector<Pending> m_pending;
    bool m_inSentence = false;
    bool m_inChunk = false;
    std::unique_ptr<platform::RegistryBatch> m_chunk;  // open once the chunk writes
    std::vector<const wchar_t*> m_deferred;            // events to signal after it
    std::function<void(unsigned int)> m_sleeper;
    // One per event name, made on its first signal and kept: a signal then
    // costs no lookup by name.
    std::vector<Signaller> m_signallers;
};

class MNmeaParserImpl {
public:
    MNmeaParserImpl() : m_core(m_output) {}

    NmeaParserCore& Core() { return m_core; }
    /// One chunk of bytes from the receiver, its sentences written together.
    void Process(const unsigned char* data, unsigned int count) {
        m_output.BeginChunk();
        m_core.ProcessIncomingBytes(data, count);
        m_output.EndChunk();
    }
    RegistryNmeaOutput& Output() { return m_output; }

private:
    RegistryNmeaOutput m_output;
    NmeaParserCore m_core;
};

}  // namespace kiv::gps
