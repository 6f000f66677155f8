#include "foundation/Text.h"

#include <cstring>

namespace kiv::text {
namespace {

constexpr char32_t kReplacement = 0xFFFD;

bool IsSurrogate(char32_t c) {
    return c >= 0xD800 && c <= 0xDFFF;
}

char32_t Sanitize(wchar_t w) {
    const auto c = static_cast<char32_t>(w);
    return (c > 0x10FFFF || IsSurrogate(c)) ? kReplacement : c;
}

template <typename Unit, typename Sink>
void EncodeUtf16(char32_t c, Sink&& put) {
    if (c < 0x10000) {
        put(static_cast<Unit>(c));
    } else {
        c -= 0x10000;
        put(static_cast<Unit>(0xD800 + (c >> 10)));
        put(static_cast<Unit>(0xDC00 + (c & 0x3FF)));
    }
}

// Decodes UTF-16 units produced by `next` (which returns false at the end).
template <typename Next>
std::wstring DecodeUtf16(Next&& next) {
    std::wstring out;
    char32_t unit = 0;
    bool pending = false;
    char32_t held = 0;
    for (;;) {
        if (!pending) {
            if (!next(unit)) {
                break;
            }
        } else {
            unit = held;
            pending = false;
        }
        if (unit >= 0xD800 && unit <= 0xDBFF) {
            char32_t low = 0;
            if (next(low)) {
                if (low >= 0xDC00 && low <= 0xDFFF) {
                    out.push_back(
                        static_cast<wchar_t>(0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00)));
                    continue;
                }
                held = low;
                pending = true;
            }
            out.push_back(static_cast<wchar_t>(kReplacement));
        } else if (unit >= 0xDC00 && unit <= 0xDFFF) {
            out.push_back(static_cast<wchar_t>(kReplacement));
        } else {
            out.push_back(static_cast<wchar_t>(unit));
        }
    }
    return out;
}

}  // namespace

std::size_t BoundedLength(const wchar_t* s, std::size_t max) {
    std::size_t n = 0;
    if (s != nullptr) {
        while (n < max && s[n] != L'\0') {
            ++n;
        }
    }
    return n;
}

std::size_t BoundedLength(const char16_t* s, std::size_t max) {
    std::size_t n = 0;
    if (s != nullptr) {
        while (n < max && s[n] != u'\0') {
            ++n;
        }
    }
    return n;
}

std::u16string ToUtf16(std::wstring_view s) {
    std::u16string out;
    out.reserve(s.size());
    for (wchar_t w : s) {
        EncodeUtf16<char16_t>(Sanitize(w), [&](char16_t u) { out.push_back(u); });
    }
    return out;
}

std::wstring FromUtf16(std::u16string_view s) {
    std::size_t i = 0;
    return DecodeUtf16([&](char32_t& unit) {
        if (i >= s.size()) {
            return false;
        }
        unit = s[i++];
        return true;
    });
}

std::string ToUtf16Le(std::wstring_view s, bool terminate) {
    std::string out;
    out.reserve(s.size() * 2 + 2);
    auto put = [&](char16_t u) {
        out.push_back(static_cast<char>(u & 0xFF));
        out.push_back(static_cast<char>(u >> 8));
    };
    for (wchar_t w : s) {
        EncodeUtf16<char16_t>(Sanitize(w), put);
    }
    if (terminate) {
        put(u'\0');
    }
    return out;
}

std::wstring FromUtf16Le(const void* bytes, std::size_t byteCount) {
    const auto* p = static_cast<const unsigned char*>(bytes);
    if (p == nullptr) {
        return {};
    }
    std::size_t i = 0;
    bool oddTail = false;
    std::wstring out = DecodeUtf16([&](char32_t& unit) {
        if (i + 1 >= byteCount) {
            oddTail = (i < byteCount);
            return false;
        }
        unit = static_cast<char32_t>(p[i] | (p[i + 1] << 8));
        if (unit == 0) {
            return false;
        }
        i += 2;
        return true;
    });
    if (oddTail) {
        out.push_back(static_cast<wchar_t>(kReplacement));
    }
    return out;
}

std::string ToUtf8(std::wstring_view s) {
    std::string out;
    out.reserve(s.size());
    for (wchar_t w : s) {
        const char32_t c = Sanitize(w);
        if (c < 0x80) {
            out.push_back(static_cast<char>(c));
        } else if (c < 0x800) {
            out.push_back(static_cast<char>(0xC0 | (c >> 6)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else if (c < 0x10000) {
            out.push_back(static_cast<char>(0xE0 | (c >> 12)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        } else {
            out.push_back(static_cast<char>(0xF0 | (c >> 18)));
            out.push_back(static_cast<char>(0x80 | ((c >> 12) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | ((c >> 6) & 0x3F)));
            out.push_back(static_cast<char>(0x80 | (c & 0x3F)));
        }
    }
    return out;
}

std::wstring FromUtf8(std::string_view s) {
    std::wstring out;
    out.reserve(s.size());
    const auto* p = reinterpret_cast<const unsigned char*>(s.data());
    const std::size_t n = s.size();
    std::size_t i = 0;
    while (i < n) {
        const unsigned char b = p[i];
        if (b < 0x80) {
            out.push_back(static_cast<wchar_t>(b));
            ++i;
            continue;
        }
        // Lead byte: number of continuation bytes and the range the
        // second byte must lie in (rejects overlong forms and surrogates).
        int extra = 0;
        char32_t c = 0;
        unsigned char lo = 0x80;
        unsigned char hi = 0xBF;
        if (b >= 0xC2 && b <= 0xDF) {
            extra = 1;
            c = b & 0x1F;
        } else if (b >= 0xE0 && b <= 0xEF) {
            extra = 2;
            c = b & 0x0F;
            lo = (b == 0xE0) ? 0xA0 : 0x80;
            hi = (b == 0xED) ? 0x9F : 0xBF;
        } else if (b >= 0xF0 && b <= 0xF4) {
            extra = 3;
            c = b & 0x07;
            lo = (b == 0xF0) ? 0x90 : 0x80;
            hi = (b == 0xF4) ? 0x8F : 0xBF;
        } else {
            out.push_back(static_cast<wchar_t>(kReplacement));
            ++i;
            continue;
        }
        std::size_t j = i + 1;
        bool ok = true;
        for (int k = 0; k < extra; ++k, ++j) {
            const unsigned char lower = (k == 0) ? lo : 0x80;
            const unsigned char upper = (k == 0) ? hi : 0xBF;
            if (j >= n || p[j] < lower || p[j] > upper) {
                ok = false;
                break;
            }
            c = (c << 6) | (p[j] & 0x3F);
        }
        // A malformed sequence is replaced once, and decoding resumes at
        // the byte that broke it.
        out.push_back(static_cast<wchar_t>(ok ? c : kReplacement));
        i = j;
    }
    return out;
}

std::string ToUtf8(const wchar_t* s) {
    return s == nullptr ? std::string() : ToUtf8(std::wstring_view(s));
}

std::wstring FromUtf8(const char* s) {
    return s == nullptr ? std::wstring() : FromUtf8(std::string_view(s));
}

}  // namespace kiv::text
