// Feeds arbitrary bytes to the NMEA parser, split into chunks at places the
// input itself chooses, with the sentence log and demo pacing switched on by
// its first byte. The output checks what the parser hands on: names it knows,
// sentences bracketed properly, no pacing sleep of two seconds or more.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>

#include "gps/NmeaParserCore.h"

namespace {

class CheckingOutput final : public kiv::gps::NmeaOutput {
public:
    void BeginSentence() override { Check(!m_open), m_open = true; }
    void EndSentence() override { Check(m_open), m_open = false; }
    void SetString(const wchar_t* name, std::string_view text) override {
        Check(name != nullptr && text.size() < 1024);
    }
    void SetDword(const wchar_t* name, std::uint32_t) override { Check(name != nullptr); }
    bool GetDword(const wchar_t*, std::uint32_t& value) override {
        value = m_resetFix ^= 1;
        return true;
    }
    void Signal(const wchar_t* name) override { Check(!m_open && name != nullptr); }
    void Log(std::wstring_view) override {}
    void Sleep(unsigned int ms) override { Check(ms < 2000); }

private:
    static void Check(bool ok) {
        if (!ok) {
            std::abort();
        }
    }
    bool m_open = false;
    std::uint32_t m_resetFix = 0;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool once = [] {
        // The sentence log goes to a scratch device root, removed at exit.
        static char root[] = "/tmp/kiv-fuzz-XXXXXX";
        if (mkdtemp(root) == nullptr) {
            std::abort();
        }
        setenv("KIV_DEVICE_ROOT", root, 1);
        std::atexit([] {
            std::error_code ignored;
            std::filesystem::remove_all(root, ignored);
        });
        return true;
    }();
    (void)once;
    CheckingOutput output;
    kiv::gps::NmeaParserCore parser(output);
    if (size > 0) {
        parser.SetDemoMode((data[0] & 1) != 0);
        parser.SetLogFile((data[0] & 2) != 0 ? L"on" : L"");
    }
    std::size_t at = 0;
    while (at < size) {
        const std::size_t chunk = 1 + (data[at] % 97);
        const std::size_t n = chunk < size - at ? chunk : size - at;
        parser.ProcessIncomingBytes(data + at, static_cast<unsigned int>(n));
        at += n;
    }
    return 0;
}
