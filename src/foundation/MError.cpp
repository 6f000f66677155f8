#include <kiv/foundation/MError.h>

#include <algorithm>
#include <cwchar>
#include <iterator>

namespace kiv {
namespace {

// The common texts exist, but the lookup of the common module is empty, so
// no status word ever yields them.
[[maybe_unused]] constexpr const wchar_t* kCommonMessages[] = {
    L"None Error",    L"Invalid Parameters",        L"Access Denied",
    L"Out of memory", L"Failed to allocate memory", L"Unsupported",
};

constexpr const wchar_t* kGpsMessages[] = {
    L"None Error",
    L"Access KivGPS relative registry fail",
    L"KivGPS exe file launch fail",
    L"Start KivGPS fail",
};

constexpr unsigned int kModuleCommon = 0x01000000;
constexpr unsigned int kModuleMedia = 0x03000000;
constexpr unsigned int kModuleGps = 0x07000000;

void GpsMessage(unsigned int code, wchar_t* buf, int& len) {
    // A code past the table has no text; the word is left unanswered rather
    // than read outside the table.
    if (code >= std::size(kGpsMessages) || buf == nullptr || len <= 0) {
        return;
    }
    const wchar_t* text = kGpsMessages[code];
    std::fill_n(buf, len, L'\0');
    const int n = static_cast<int>(std::wcslen(text));
    // A text that does not fit is cut to len - 1 characters; the zero fill
    // above leaves it terminated.
    len = (n >= len) ? len - 1 : n;
    std::copy_n(text, len, buf);
}

}  // namespace

const unsigned int MError::MASK_SEVERITY = 0xC0000000;
const unsigned int MError::MASK_MODULE = 0x3F000000;
const unsigned int MError::MASK_CATEGORY = 0x3FFF0000;
const unsigned int MError::MASK_CODE = 0x0000FFFF;
const int MError::NONE = 0;

MError::MError() : m_value(0) {}

MError::MError(const MError& other) = default;

MError& MError::operator=(const MError& other) = default;

MError& MError::operator=(unsigned int value) {
    m_value = value;
    return *this;
}

MError::~MError() = default;

unsigned int MError::GetValue() const {
    return m_value;
}

unsigned int MError::GetSeverity() const {
    return m_value & MASK_SEVERITY;
}

unsigned int MError::GetCategory() const {
    return m_value & MASK_CATEGORY;
}

unsigned int MError::GetCode() const {
    return m_value & MASK_CODE;
}

void MError::GetErrorMessage(wchar_t* buf, int& len) const {
    const unsigned int module = m_value & MASK_MODULE;
    switch (module) {
        case kModuleGps:
            GpsMessage(m_value & MASK_CODE, buf, len);
            return;
        case kModuleCommon:
        case kModuleMedia:
        case 0x04000000:
        case 0x05000000:
        case 0x06000000:
            // These modules have lookups of their own, and every one of them
            // is empty: the buffer and the length stay untouched.
            return;
        default:
            return;
    }
}

}  // namespace kiv
