// Text decoding on ICU: byte order marks and UTF-8 are recognised here; the
// legacy code pages are left to ICU's charset detector and converters.
#include <unicode/ucnv.h>
#include <unicode/ucsdet.h>

#include <cstdint>
#include <memory>
#include <vector>

#include "foundation/Text.h"
#include "platform/TextDecoder.h"

namespace kiv::platform {
namespace {

// The detector looks at this much of the text; more does not change its mind.
constexpr std::size_t kDetectBytes = 64 * 1024;

struct Bom {
    std::string_view mark;
    const char* charset;
};

// UTF-32LE before UTF-16LE: its mark begins with the other's.
constexpr Bom kBoms[] = {
    {std::string_view("\xEF\xBB\xBF", 3), "UTF-8"},
    {std::string_view("\xFF\xFE\x00\x00", 4), "UTF-32LE"},
    {std::string_view("\x00\x00\xFE\xFF", 4), "UTF-32BE"},
    {std::string_view("\xFF\xFE", 2), "UTF-16LE"},
    {std::string_view("\xFE\xFF", 2), "UTF-16BE"},
};

bool IsUtf8(std::string_view s) {
    std::size_t i = 0;
    while (i < s.size()) {
        const auto c = static_cast<unsigned char>(s[i]);
        std::size_t more = 0;
        std::uint32_t min = 0;
        std::uint32_t value = 0;
        if (c < 0x80) {
            ++i;
            continue;
        } else if ((c & 0xE0) == 0xC0) {
            more = 1, min = 0x80, value = c & 0x1F;
        } else if ((c & 0xF0) == 0xE0) {
            more = 2, min = 0x800, value = c & 0x0F;
        } else if ((c & 0xF8) == 0xF0) {
            more = 3, min = 0x10000, value = c & 0x07;
        } else {
            return false;
        }
        if (s.size() - i <= more) {
            return false;
        }
        for (std::size_t k = 1; k <= more; ++k) {
            const auto next = static_cast<unsigned char>(s[i + k]);
            if ((next & 0xC0) != 0x80) {
                return false;
            }
            value = (value << 6) | (next & 0x3F);
        }
        if (value < min || value > 0x10FFFF || (value >= 0xD800 && value <= 0xDFFF)) {
            return false;
        }
        i += more + 1;
    }
    return true;
}

struct DetectorCloser {
    void operator()(UCharsetDetector* d) const { ucsdet_close(d); }
};
struct ConverterCloser {
    void operator()(UConverter* c) const { ucnv_close(c); }
};
using Converter = std::unique_ptr<UConverter, ConverterCloser>;

Converter Open(const char* charset) {
    UErrorCode status = U_ZERO_ERROR;
    Converter converter(ucnv_open(charset, &status));
    if (U_FAILURE(status)) {
        converter.reset();
    }
    return converter;
}

// The detector's best guess that ICU can also convert; Windows-1252 when it
// has none (every byte has a meaning there, so nothing is lost silently).
std::string Detect(std::string_view bytes) {
    const std::string_view sample = bytes.substr(0, kDetectBytes);
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UCharsetDetector, DetectorCloser> detector(ucsdet_open(&status));
    if (U_SUCCESS(status)) {
        ucsdet_setText(detector.get(), sample.data(), static_cast<int32_t>(sample.size()), &status);
    }
    int32_t count = 0;
    const UCharsetMatch** matches =
        U_SUCCESS(status) ? ucsdet_detectAll(detector.get(), &count, &status) : nullptr;
    for (int32_t i = 0; U_SUCCESS(status) && matches != nullptr && i < count; ++i) {
        UErrorCode nameStatus = U_ZERO_ERROR;
        const char* name = ucsdet_getName(matches[i], &nameStatus);
        // Not UTF-8 (checked before), and UTF-32 without a mark is no guess worth taking.
        if (U_FAILURE(nameStatus) || name == nullptr || std::string_view(name) == "UTF-8" ||
            std::string_view(name).starts_with("UTF-32")) {
            continue;
        }
        if (Open(name)) {
            return name;
        }
    }
    return "windows-1252";
}

std::wstring Convert(std::string_view bytes, const char* charset) {
    Converter converter = Open(charset);
    if (!converter || bytes.empty()) {
        return {};
    }
    UErrorCode status = U_ZERO_ERROR;
    const auto length = static_cast<int32_t>(bytes.size());
    const int32_t needed =
        ucnv_toUChars(converter.get(), nullptr, 0, bytes.data(), length, &status);
    if (status != U_BUFFER_OVERFLOW_ERROR && U_FAILURE(status)) {
        return {};
    }
    std::vector<UChar> units(static_cast<std::size_t>(needed) + 1);
    status = U_ZERO_ERROR;
    ucnv_reset(converter.get());
    const int32_t written =
        ucnv_toUChars(converter.get(), units.data(), static_cast<int32_t>(units.size()),
                      bytes.data(), length, &status);
    if (U_FAILURE(status)) {
        return {};
    }
    return text::FromUtf16(std::u16string_view(reinterpret_cast<const char16_t*>(units.data()),
                                               static_cast<std::size_t>(written)));
}

}  // namespace

std::wstring DecodeText(std::string_view bytes, std::string* charset) {
    for (const Bom& bom : kBoms) {
        if (bytes.starts_with(bom.mark)) {
            if (charset != nullptr) {
                *charset = bom.charset;
            }
            const std::string_view body = bytes.substr(bom.mark.size());
            return std::string_view(bom.charset) == "UTF-8" ? text::FromUtf8(body)
                                                            : Convert(body, bom.charset);
        }
    }
    if (IsUtf8(bytes)) {
        if (charset != nullptr) {
            *charset = "UTF-8";
        }
        return text::FromUtf8(bytes);
    }
    const std::string detected = Detect(bytes);
    if (charset != nullptr) {
        *charset = detected;
    }
    return Convert(bytes, detected.c_str());
}

}  // namespace kiv::platform
