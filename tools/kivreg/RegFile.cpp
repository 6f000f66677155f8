#include "RegFile.h"

#include <kiv/platform/Win32Types.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <cwctype>

#include "foundation/Text.h"

namespace kivreg {
namespace {

constexpr const wchar_t* kHeader = L"Windows Registry Editor Version 5.00";

bool IsString(unsigned int type) {
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

std::wstring CharsOf(const std::string& data) {
    return std::wstring(reinterpret_cast<const wchar_t*>(data.data()),
                        data.size() / sizeof(wchar_t));
}

std::string BytesOf(const std::wstring& chars) {
    return std::string(reinterpret_cast<const char*>(chars.data()), chars.size() * sizeof(wchar_t));
}

std::wstring Quote(const std::wstring& s) {
    std::wstring out = L"\"";
    for (wchar_t c : s) {
        if (c == L'\\' || c == L'"') {
            out.push_back(L'\\');
        }
        out.push_back(c);
    }
    return out + L"\"";
}

std::wstring Hex(const std::string& bytes) {
    std::wstring out;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        wchar_t two[4];
        std::swprintf(two, 4, L"%02x", static_cast<unsigned char>(bytes[i]));
        if (i != 0) {
            out.push_back(L',');
        }
        out += two;
    }
    return out;
}

// The bytes the file format shows for a value: strings as UTF-16LE.
std::string FileBytes(const Value& v) {
    return IsString(v.type) ? kiv::text::ToUtf16Le(CharsOf(v.data)) : v.data;
}

std::wstring Trim(const std::wstring& s) {
    std::size_t b = 0;
    std::size_t e = s.size();
    while (b < e && std::iswspace(static_cast<wint_t>(s[b])) != 0) {
        ++b;
    }
    while (e > b && std::iswspace(static_cast<wint_t>(s[e - 1])) != 0) {
        --e;
    }
    return s.substr(b, e - b);
}

// Reads a quoted string starting at s[pos] == '"'; pos ends after it.
bool Unquote(const std::wstring& s, std::size_t& pos, std::wstring& out) {
    out.clear();
    for (++pos; pos < s.size(); ++pos) {
        if (s[pos] == L'\\' && pos + 1 < s.size()) {
            out.push_back(s[++pos]);
        } else if (s[pos] == L'"') {
            ++pos;
            return true;
        } else {
            out.push_back(s[pos]);
        }
    }
    return false;
}

bool ParseHexBytes(const std::wstring& text, std::string& bytes) {
    bytes.clear();
    std::wstring digits;
    for (wchar_t c : text) {
        if (c == L',' || std::iswspace(static_cast<wint_t>(c)) != 0) {
            if (!digits.empty()) {
                if (digits.size() > 2) {
                    return false;
                }
                bytes.push_back(static_cast<char>(std::wcstoul(digits.c_str(), nullptr, 16)));
                digits.clear();
            }
        } else if (std::iswxdigit(static_cast<wint_t>(c)) != 0) {
            digits.push_back(c);
        } else {
            return false;
        }
    }
    if (!digits.empty()) {
        if (digits.size() > 2) {
            return false;
        }
        bytes.push_back(static_cast<char>(std::wcstoul(digits.c_str(), nullptr, 16)));
    }
    return true;
}

// `data` of a "name"=data line into a value.
bool ParseFileData(const std::wstring& text, Value& v) {
    if (text == L"-") {
        v.remove = true;
        return true;
    }
    if (!text.empty() && text[0] == L'"') {
        std::size_t pos = 0;
        std::wstring s;
        if (!Unquote(text, pos, s) || !Trim(text.substr(pos)).empty()) {
            return false;
        }
        v.type = REG_SZ;
        v.data = BytesOf(s + L'\0');
        return true;
    }
    if (text.rfind(L"dword:", 0) == 0) {
        const std::wstring digits = text.substr(6);
        if (digits.empty() || digits.size() > 8 ||
            digits.find_first_not_of(L"0123456789abcdefABCDEF") != std::wstring::npos) {
            return false;
        }
        const auto value = static_cast<unsigned int>(std::wcstoul(digits.c_str(), nullptr, 16));
        v.type = REG_DWORD;
        v.data.assign(reinterpret_cast<const char*>(&value), sizeof value);
        return true;
    }
    if (text.rfind(L"hex", 0) != 0) {
        return false;
    }
    std::size_t colon = text.find(L':');
    if (colon == std::wstring::npos) {
        return false;
    }
    unsigned int type = REG_BINARY;
    if (colon > 3) {
        const std::wstring inner = text.substr(3, colon - 3);  // "(2)"
        if (inner.size() < 3 || inner.front() != L'(' || inner.back() != L')') {
            return false;
        }
        wchar_t* end = nullptr;
        const std::wstring number = inner.substr(1, inner.size() - 2);
        type = static_cast<unsigned int>(std::wcstoul(number.c_str(), &end, 16));
        if (number.empty() || *end != L'\0') {
            return false;
        }
    }
    std::string bytes;
    if (!ParseHexBytes(text.substr(colon + 1), bytes)) {
        return false;
    }
    v.type = type;
    if (IsString(type)) {
        std::u16string units;
        for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
            units.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                                  (static_cast<unsigned char>(bytes[i + 1]) << 8)));
        }
        v.data = BytesOf(kiv::text::FromUtf16(units));
    } else {
        v.data = bytes;
    }
    return true;
}

// The logical lines of a file: continuation lines ending in '\' joined.
std::vector<std::pair<std::size_t, std::wstring>> LogicalLines(const std::wstring& text) {
    std::vector<std::pair<std::size_t, std::wstring>> lines;
    std::wstring pending;
    std::size_t pendingLine = 0;
    std::size_t number = 0;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find(L'\n', start);
        if (end == std::wstring::npos) {
            end = text.size();
        }
        std::wstring line = text.substr(start, end - start);
        start = end + 1;
        ++number;
        if (!line.empty() && line.back() == L'\r') {
            line.pop_back();
        }
        if (pending.empty()) {
            pendingLine = number;
        }
        const std::wstring trimmed = Trim(line);
        if (!trimmed.empty() && trimmed.back() == L'\\' &&
            trimmed.find(L"=hex") != std::wstring::npos) {
            pending += trimmed.substr(0, trimmed.size() - 1);
            continue;
        }
        if (!pending.empty() && !trimmed.empty() && trimmed.back() == L'\\' &&
            trimmed.find(L'=') == std::wstring::npos) {
            pending += trimmed.substr(0, trimmed.size() - 1);
            continue;
        }
        lines.emplace_back(pendingLine, pending + (pending.empty() ? line : trimmed));
        pending.clear();
        if (end == text.size()) {
            break;
        }
    }
    return lines;
}

}  // namespace

std::wstring TypeName(unsigned int type) {
    switch (type) {
        case REG_NONE:
            return L"REG_NONE";
        case REG_SZ:
            return L"REG_SZ";
        case REG_EXPAND_SZ:
            return L"REG_EXPAND_SZ";
        case REG_BINARY:
            return L"REG_BINARY";
        case REG_DWORD:
            return L"REG_DWORD";
        case REG_DWORD_BIG_ENDIAN:
            return L"REG_DWORD_BIG_ENDIAN";
        case REG_MULTI_SZ:
            return L"REG_MULTI_SZ";
        case REG_QWORD:
            return L"REG_QWORD";
        default:
            return L"0x" + std::to_wstring(type);
    }
}

bool TypeFromName(const std::wstring& name, unsigned int& type) {
    std::wstring upper;
    for (wchar_t c : name) {
        upper.push_back(static_cast<wchar_t>(std::towupper(static_cast<wint_t>(c))));
    }
    for (unsigned int t :
         {REG_NONE, REG_SZ, REG_EXPAND_SZ, REG_BINARY, REG_DWORD, REG_MULTI_SZ, REG_QWORD}) {
        if (TypeName(t) == upper) {
            type = t;
            return true;
        }
    }
    return false;
}

std::wstring ShowData(unsigned int type, const std::string& data) {
    wchar_t number[32];
    switch (type) {
        case REG_SZ:
        case REG_EXPAND_SZ: {
            const std::wstring s = CharsOf(data);
            return s.substr(0, s.find(L'\0'));
        }
        case REG_MULTI_SZ: {
            std::wstring s = CharsOf(data);
            while (!s.empty() && s.back() == L'\0') {
                s.pop_back();
            }
            std::wstring out;
            for (wchar_t c : s) {
                out += c == L'\0' ? std::wstring(L"\\0") : std::wstring(1, c);
            }
            return out;
        }
        case REG_DWORD:
            if (data.size() == 4) {
                unsigned int v = 0;
                std::memcpy(&v, data.data(), 4);
                std::swprintf(number, 32, L"0x%x", v);
                return number;
            }
            break;
        case REG_QWORD:
            if (data.size() == 8) {
                unsigned long long v = 0;
                std::memcpy(&v, data.data(), 8);
                std::swprintf(number, 32, L"0x%llx", v);
                return number;
            }
            break;
        default:
            break;
    }
    std::wstring out;
    for (unsigned char c : data) {
        std::swprintf(number, 32, L"%02X", c);
        out += number;
    }
    return out;
}

bool ParseCommandLineData(unsigned int type, const std::wstring& text, std::string& data) {
    wchar_t* end = nullptr;
    switch (type) {
        case REG_SZ:
        case REG_EXPAND_SZ:
            data = BytesOf(text + L'\0');
            return true;
        case REG_MULTI_SZ: {
            // Strings are separated by the two characters "\0".
            std::wstring chars;
            for (std::size_t i = 0; i < text.size(); ++i) {
                if (text[i] == L'\\' && i + 1 < text.size() && text[i + 1] == L'0') {
                    chars.push_back(L'\0');
                    ++i;
                } else {
                    chars.push_back(text[i]);
                }
            }
            data = BytesOf(chars + L'\0' + L'\0');
            return true;
        }
        case REG_DWORD: {
            errno = 0;
            const unsigned long long v = std::wcstoull(text.c_str(), &end, 0);
            if (text.empty() || *end != L'\0' || errno != 0 || v > 0xFFFFFFFFULL ||
                text[0] == L'-') {
                return false;
            }
            const auto v32 = static_cast<unsigned int>(v);
            data.assign(reinterpret_cast<const char*>(&v32), 4);
            return true;
        }
        case REG_QWORD: {
            errno = 0;
            const unsigned long long v = std::wcstoull(text.c_str(), &end, 0);
            if (text.empty() || *end != L'\0' || errno != 0 || text[0] == L'-') {
                return false;
            }
            data.assign(reinterpret_cast<const char*>(&v), 8);
            return true;
        }
        default: {
            // Binary and other types: hex digits, two per byte.
            if (text.size() % 2 != 0 ||
                text.find_first_not_of(L"0123456789abcdefABCDEF") != std::wstring::npos) {
                return false;
            }
            data.clear();
            for (std::size_t i = 0; i < text.size(); i += 2) {
                data.push_back(
                    static_cast<char>(std::wcstoul(text.substr(i, 2).c_str(), nullptr, 16)));
            }
            return true;
        }
    }
}

std::string WriteRegFile(const std::vector<Section>& sections) {
    std::wstring text = std::wstring(kHeader) + L"\r\n\r\n";
    for (const Section& s : sections) {
        text += L"[" + s.path + L"]\r\n";
        for (const Value& v : s.values) {
            text += v.name.empty() ? std::wstring(L"@") : Quote(v.name);
            text += L"=";
            if (v.type == REG_SZ && v.data.size() >= sizeof(wchar_t) &&
                CharsOf(v.data).find(L'\0') == v.data.size() / sizeof(wchar_t) - 1) {
                text += Quote(CharsOf(v.data).substr(0, v.data.size() / sizeof(wchar_t) - 1));
            } else if (v.type == REG_DWORD && v.data.size() == 4) {
                unsigned int value = 0;
                std::memcpy(&value, v.data.data(), 4);
                wchar_t digits[16];
                std::swprintf(digits, 16, L"dword:%08x", value);
                text += digits;
            } else if (v.type == REG_BINARY) {
                text += L"hex:" + Hex(v.data);
            } else {
                wchar_t prefix[24];
                std::swprintf(prefix, 24, L"hex(%x):", v.type);
                text += prefix + Hex(FileBytes(v));
            }
            text += L"\r\n";
        }
        text += L"\r\n";
    }
    return "\xFF\xFE" + kiv::text::ToUtf16Le(text);
}

bool ReadRegFile(const std::string& bytes, std::vector<Section>& sections, std::string& error) {
    std::wstring text;
    if (bytes.size() >= 2 && bytes[0] == '\xFF' && bytes[1] == '\xFE') {
        std::u16string units;
        for (std::size_t i = 2; i + 1 < bytes.size(); i += 2) {
            units.push_back(static_cast<char16_t>(static_cast<unsigned char>(bytes[i]) |
                                                  (static_cast<unsigned char>(bytes[i + 1]) << 8)));
        }
        text = kiv::text::FromUtf16(units);
    } else {
        const std::size_t skip = bytes.rfind("\xEF\xBB\xBF", 0) == 0 ? 3 : 0;
        text = kiv::text::FromUtf8(std::string_view(bytes).substr(skip));
    }
    const auto lines = LogicalLines(text);
    bool headerSeen = false;
    for (const auto& [number, raw] : lines) {
        const std::wstring line = Trim(raw);
        const auto fail = [&, n = number](const char* what) {
            error = "line " + std::to_string(n) + ": " + what;
            return false;
        };
        if (line.empty() || line[0] == L';') {
            continue;
        }
        if (!headerSeen) {
            if (line != kHeader && line != L"REGEDIT4") {
                return fail("not a registry file (no header line)");
            }
            headerSeen = true;
            continue;
        }
        if (line[0] == L'[') {
            if (line.back() != L']') {
                return fail("a key line must end in ']'");
            }
            Section s;
            s.path = line.substr(1, line.size() - 2);
            if (!s.path.empty() && s.path[0] == L'-') {
                s.remove = true;
                s.path.erase(0, 1);
            }
            if (s.path.empty()) {
                return fail("empty key path");
            }
            sections.push_back(std::move(s));
            continue;
        }
        if (sections.empty() || sections.back().remove) {
            return fail("a value outside a key section");
        }
        Value v;
        std::size_t pos = 0;
        if (line[0] == L'@') {
            pos = 1;
        } else if (line[0] != L'"' || !Unquote(line, pos, v.name)) {
            return fail("a value name must be quoted or '@'");
        }
        while (pos < line.size() && std::iswspace(static_cast<wint_t>(line[pos])) != 0) {
            ++pos;
        }
        if (pos >= line.size() || line[pos] != L'=') {
            return fail("'=' expected after the value name");
        }
        if (!ParseFileData(Trim(line.substr(pos + 1)), v)) {
            return fail("data not understood");
        }
        sections.back().values.push_back(std::move(v));
    }
    if (!headerSeen) {
        error = "not a registry file (empty)";
        return false;
    }
    return true;
}

}  // namespace kivreg
