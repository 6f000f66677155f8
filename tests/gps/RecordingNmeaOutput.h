// An NMEA output that records everything the parser sends, for tests.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "gps/NmeaOutput.h"

namespace kiv::test {

class RecordingNmeaOutput : public kiv::gps::NmeaOutput {
public:
    struct Write {
        std::wstring name;
        std::string text;  ///< for strings
        std::uint32_t value = 0;
        bool isString = false;
        bool inSentence = false;
    };

    void BeginSentence() override {
        ++sentences;
        open = true;
        events.push_back(L"<begin>");
    }
    void EndSentence() override {
        open = false;
        events.push_back(L"<end>");
    }
    void SetString(const wchar_t* name, std::string_view text) override {
        writes.push_back({name, std::string(text), 0, true, open});
        strings[name] = std::string(text);
    }
    void SetDword(const wchar_t* name, std::uint32_t value) override {
        writes.push_back({name, {}, value, false, open});
        dwords[name] = value;
    }
    bool GetDword(const wchar_t* name, std::uint32_t& value) override {
        const auto it = dwords.find(name);
        if (it == dwords.end()) {
            return false;
        }
        value = it->second;
        return true;
    }
    void Signal(const wchar_t* eventName) override {
        events.push_back(eventName);
        signalsWhileOpen += open ? 1 : 0;
    }
    void Log(std::wstring_view text) override { log.emplace_back(text); }
    void Sleep(unsigned int ms) override { sleeps.push_back(ms); }

    /// The events signalled, without the sentence markers.
    std::vector<std::wstring> Signals() const {
        std::vector<std::wstring> out;
        for (const auto& e : events) {
            if (e[0] != L'<') {
                out.push_back(e);
            }
        }
        return out;
    }
    void ClearActivity() {
        writes.clear();
        events.clear();
        log.clear();
        sleeps.clear();
    }

    std::map<std::wstring, std::string> strings;
    std::map<std::wstring, std::uint32_t> dwords;
    std::vector<Write> writes;
    std::vector<std::wstring> events;
    std::vector<std::wstring> log;
    std::vector<unsigned int> sleeps;
    int sentences = 0;
    int signalsWhileOpen = 0;
    bool open = false;
};

}  // namespace kiv::test
