// Languages named by locale identifiers (LCIDs).
#pragma once

#include <string>

namespace kiv::platform {

/// True when `lcid` names a language this system knows.
bool IsKnownLanguage(unsigned int lcid);

/// The LCID of the process's locale (from LC_ALL, LC_MESSAGES or LANG);
/// 0x0409 (English, United States) for the C locale or an unknown one.
unsigned int ProcessLanguage();

/// The English name of the language of `lcid` ("English", "German"); false
/// when the LCID is unknown.
bool EnglishLanguageName(unsigned int lcid, std::wstring& name);

}  // namespace kiv::platform
