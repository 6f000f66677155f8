#include <kiv/gps/MNmeaParser.h>

#include <chrono>
#include <new>
#include <thread>

#include "foundation/Text.h"
#include "gps/MNmeaParserImpl.h"
#include "platform/RegistryStore.h"
#include "platform/Waitable.h"

namespace kiv::gps {

unsigned int SetRegMsgNarrow(system::MRegistry& registry, std::string_view text,
                             const wchar_t* name) {
    const std::wstring wide = text::FromUtf8(text);
    return registry.SetValue(wide.c_str(), name);
}

RegistryNmeaOutput::RegistryNmeaOutput() {
    if (m_registry.Open(HKEY_CURRENT_USER, kGpsKey, KEY_ALL_ACCESS) != 0) {
        // The client makes the key before it starts the daemon; a parser
        // that runs first makes it itself rather than lose every value.
        m_registry.Create(HKEY_CURRENT_USER, kGpsKey, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr);
    }
    m_pending.reserve(24);
}

void RegistryNmeaOutput::BeginSentence() {
    m_pending.clear();
    m_inSentence = true;
}

void RegistryNmeaOutput::Apply(const Pending& p) {
    // Write failures are ignored: the next sentence writes again.
    if (p.isString) {
        SetRegMsgNarrow(m_registry, p.text, p.name);
    } else {
        m_registry.SetValue(p.value, p.name);
    }
}

void RegistryNmeaOutput::EndSentence() {
    m_inSentence = false;
    if (m_pending.empty()) {
        return;
    }
    platform::RegistryBatch batch;
    for (const Pending& p : m_pending) {
        Apply(p);
    }
    batch.Commit();
    m_pending.clear();
}

void RegistryNmeaOutput::SetString(const wchar_t* name, std::string_view text) {
    Pending p{name, true, 0, std::string(text)};
    if (m_inSentence) {
        m_pending.push_back(std::move(p));
    } else {
        Apply(p);
    }
}

void RegistryNmeaOutput::SetDword(const wchar_t* name, std::uint32_t value) {
    Pending p{name, false, value, {}};
    if (m_inSentence) {
        m_pending.push_back(std::move(p));
    } else {
        Apply(p);
    }
}

bool RegistryNmeaOutput::GetDword(const wchar_t* name, std::uint32_t& value) {
    unsigned int v = 0;
    if (m_registry.QueryValue(v, name) != 0) {
        return false;
    }
    value = v;
    return true;
}

void RegistryNmeaOutput::Signal(const wchar_t* eventName) {
    // The parser holds no handle on its events, so a signal nobody holds the
    // event for is lost, as the device loses it when the parser creates the
    // event, sets it and closes it again; the signaller only saves the lookup.
    for (Signaller& s : m_signallers) {
        if (s.name == eventName) {
            s.event->Set();
            return;
        }
    }
    auto event = std::make_unique<platform::EventSignaller>(eventName);
    event->Set();
    m_signallers.push_back({eventName, std::move(event)});
}

void RegistryNmeaOutput::Log(std::wstring_view text) {
    const std::wstring line(text);
    m_log.InformationPrintf(L"%ls", line.c_str());
}

bool RegistryNmeaOutput::Logging() {
    return (m_log.GetDebugLevel() & log::MDebugLog::DEBUG_LEVEL_INFORMATION) != 0;
}

void RegistryNmeaOutput::Sleep(unsigned int ms) {
    if (m_sleeper) {
        m_sleeper(ms);
    } else {
        std::this_thread::sleep_for(std::chrono::milliseconds(ms));
    }
}

MNmeaParser::MNmeaParser() : m_impl(new (std::nothrow) MNmeaParserImpl) {}

MNmeaParser::~MNmeaParser() {
    delete m_impl;
}

void MNmeaParser::ProcessIncomingBytes(const unsigned char* data, unsigned int count) {
    if (m_impl != nullptr) {
        m_impl->Core().ProcessIncomingBytes(data, count);
    }
}

void MNmeaParser::SetLogFile(const wchar_t* name) {
    if (m_impl != nullptr) {
        m_impl->Core().SetLogFile(name);
    }
}

void MNmeaParser::SetDemoMode(bool on) {
    if (m_impl != nullptr) {
        m_impl->Core().SetDemoMode(on);
    }
}

bool MNmeaParser::SetRawLogFile(const wchar_t* path) {
    return m_impl != nullptr && m_impl->Core().SetRawLogFile(path);
}

void MNmeaParser::SetAnyTalker(bool on) {
    if (m_impl != nullptr) {
        m_impl->Core().SetAnyTalker(on);
    }
}

void MNmeaParser::Reset() {
    if (m_impl != nullptr) {
        m_impl->Core().Reset();
    }
}

}  // namespace kiv::gps
