#include <kiv/gps/MNmeaParser.h>

#include <algorithm>
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
    if (platform::RegistryStore::OpenKey(HKEY_CURRENT_USER, kGpsKey, &m_stampKey) != 0) {
        m_stampKey = nullptr;
    }
}

RegistryNmeaOutput::~RegistryNmeaOutput() {
    if (m_stampKey != nullptr) {
        platform::RegistryStore::CloseKey(m_stampKey);
    }
}

void RegistryNmeaOutput::BeginSentence() {
    m_pending.clear();
    m_inSentence = true;
}

void RegistryNmeaOutput::Apply(const Pending& p) {
    // A value read before is read again after the parser's own write.
    std::erase_if(m_known, [&](const Known& k) { return k.name == p.name; });
    JoinChunk();
    // Write failures are ignored: the next sentence writes again.
    if (m_stampKey == nullptr) {
        if (p.isString) {
            SetRegMsgNarrow(m_registry, p.text, p.name);
        } else {
            m_registry.SetValue(p.value, p.name);
        }
        return;
    }
    // Most values repeat from sentence to sentence (hemispheres, degrees,
    // fix quality, dilutions): the store leaves those rows alone, the values
    // read the same either way.
    if (p.isString) {
        const std::wstring wide = text::FromUtf8(p.text);
        platform::RegistryStore::UpdateValue(
            m_stampKey, p.name, REG_SZ, wide.c_str(),
            static_cast<unsigned int>((wide.size() + 1) * sizeof(wchar_t)));
    } else {
        platform::RegistryStore::UpdateValue(m_stampKey, p.name, REG_DWORD, &p.value,
                                             sizeof p.value);
    }
}

void RegistryNmeaOutput::EndSentence() {
    m_inSentence = false;
    if (m_pending.empty()) {
        return;
    }
    JoinChunk();
    platform::RegistryBatch batch;
    for (const Pending& p : m_pending) {
        Apply(p);
    }
    batch.Commit();
    m_pending.clear();
}

void RegistryNmeaOutput::BeginChunk() {
    m_inChunk = true;
}

void RegistryNmeaOutput::EndChunk() {
    FlushChunk();
    m_inChunk = false;
}

void RegistryNmeaOutput::JoinChunk() {
    if (m_inChunk && !m_chunk) {
        m_chunk = std::make_unique<platform::RegistryBatch>();
    }
}

void RegistryNmeaOutput::FlushChunk() {
    if (m_chunk) {
        m_chunk->Commit();
        m_chunk.reset();
    }
    const bool inChunk = m_inChunk;
    m_inChunk = false;  // Signal sends at once now
    for (const wchar_t* name : m_deferred) {
        Signal(name);
    }
    m_deferred.clear();
    m_inChunk = inChunk;
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
    // Asked after nearly every sentence with a fix, and nearly always
    // unchanged: read again only when its change stamp moved. The stamp is
    // taken before the read, so a write during the read is seen next time.
    std::uint32_t stamp = 0;
    const bool stamped =
        m_stampKey != nullptr && platform::RegistryStore::ChangeStamp(m_stampKey, name, stamp);
    auto known = std::find_if(m_known.begin(), m_known.end(),
                              [&](const Known& k) { return k.name == name; });
    if (stamped && known != m_known.end() && known->stamp == stamp) {
        value = known->value;
        return known->found;
    }
    unsigned int v = 0;
    const bool found = m_registry.QueryValue(v, name) == 0;
    if (stamped) {
        if (known == m_known.end()) {
            known = m_known.insert(m_known.end(), Known{name, stamp, found, v});
        }
        known->stamp = stamp;
        known->found = found;
        known->value = v;
    }
    if (found) {
        value = v;
    }
    return found;
}

void RegistryNmeaOutput::Signal(const wchar_t* eventName) {
    if (m_inChunk) {
        m_deferred.push_back(eventName);
        return;
    }
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
    // Nothing stays open, and nothing waits, while the reader sleeps.
    FlushChunk();
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
        m_impl->Process(data, count);
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
