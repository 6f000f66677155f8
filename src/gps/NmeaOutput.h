// Where the NMEA parser's results go: the values of the GPS registry key,
// the two named events and the parser's debug log. The library's own output
// writes the registry and signals the events; tests record what arrives.
#pragma once

#include <cstdint>
#include <string_view>

namespace kiv::gps {

class NmeaOutput {
public:
    virtual ~NmeaOutput() = default;

    /// The values of one sentence follow. They become visible to readers
    /// together at EndSentence; nothing is held open in between, so the
    /// parser may sleep (demo pacing) while a sentence is being written.
    virtual void BeginSentence() = 0;
    virtual void EndSentence() = 0;

    /// A string value, given as narrow text (converted as the ANSI code page).
    virtual void SetString(const wchar_t* name, std::string_view text) = 0;
    /// A 32-bit value. Outside a sentence it is written at once.
    virtual void SetDword(const wchar_t* name, std::uint32_t value) = 0;
    /// Reads a 32-bit value; false if it cannot be read.
    virtual bool GetDword(const wchar_t* name, std::uint32_t& value) = 0;

    /// Signals the named auto-reset event.
    virtual void Signal(const wchar_t* eventName) = 0;
    /// One line of the debug log.
    virtual void Log(std::wstring_view text) = 0;
    /// False while the debug log drops what Log gives it, so that the lines
    /// need not be made.
    virtual bool Logging() { return true; }
    /// Demo pacing: suspends the reader for `ms` milliseconds.
    virtual void Sleep(unsigned int ms) = 0;
};

}  // namespace kiv::gps
