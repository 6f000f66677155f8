// Languages on ICU: LCID to locale, and the locale's language named in
// English.
#include <unicode/uloc.h>

#include <cstdlib>
#include <string>

#include "foundation/Text.h"
#include "platform/Language.h"

namespace kiv::platform {
namespace {

constexpr unsigned int kEnglishUnitedStates = 0x0409;

bool LocaleOf(unsigned int lcid, std::string& locale) {
    char buffer[ULOC_FULLNAME_CAPACITY] = {};
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length = uloc_getLocaleForLCID(lcid, buffer, sizeof buffer, &status);
    if (U_FAILURE(status) || length <= 0 || status == U_STRING_NOT_TERMINATED_WARNING) {
        return false;
    }
    locale.assign(buffer, static_cast<std::size_t>(length));
    // Identifiers without a language (0, the neutral sort orders) map to the root locale.
    return locale != "root";
}

}  // namespace

bool IsKnownLanguage(unsigned int lcid) {
    std::wstring ignored;
    return EnglishLanguageName(lcid, ignored);
}

unsigned int ProcessLanguage() {
    for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
        const char* value = std::getenv(variable);
        if (value == nullptr || value[0] == '\0') {
            continue;
        }
        std::string name(value);
        name = name.substr(0, name.find_first_of(".@"));
        if (name == "C" || name == "POSIX") {
            return kEnglishUnitedStates;
        }
        const uint32_t lcid = uloc_getLCID(name.c_str());
        return lcid != 0 ? lcid : kEnglishUnitedStates;
    }
    return kEnglishUnitedStates;
}

bool EnglishLanguageName(unsigned int lcid, std::wstring& name) {
    std::string locale;
    if (!LocaleOf(lcid, locale)) {
        return false;
    }
    UChar buffer[128] = {};
    UErrorCode status = U_ZERO_ERROR;
    const int32_t length = uloc_getDisplayLanguage(locale.c_str(), "en", buffer,
                                                   sizeof buffer / sizeof buffer[0], &status);
    // Without a name ICU answers with the language code itself.
    if (U_FAILURE(status) || status == U_USING_DEFAULT_WARNING || length <= 0) {
        return false;
    }
    char code[ULOC_LANG_CAPACITY] = {};
    UErrorCode codeStatus = U_ZERO_ERROR;
    uloc_getLanguage(locale.c_str(), code, sizeof code, &codeStatus);
    name = text::FromUtf16(std::u16string_view(buffer, static_cast<std::size_t>(length)));
    return name != text::FromUtf8(code);
}

}  // namespace kiv::platform
