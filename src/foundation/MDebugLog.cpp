#include <kiv/foundation/MDebugLog.h>
#include <kiv/system/MRegistry.h>
#include <kiv/system/MShell.h>

#include <cstdio>
#include <cwchar>
#include <string>

#include "foundation/Text.h"
#include "platform/LogFile.h"

namespace kiv::log {
namespace {

constexpr const wchar_t* kLogKey = L"Software\\Tarvo\\KivFramework\\LOG";
constexpr const wchar_t* kLevelValue = L"LogLevel";
constexpr std::size_t kMessageChars = 256;
constexpr std::size_t kModuleChars = 63;
constexpr std::size_t kFileChars = 259;

// Copies at most `max` characters of `src` and terminates.
void CopyBounded(wchar_t* dst, const wchar_t* src, std::size_t max) {
    const std::size_t n = text::BoundedLength(src, max);
    std::wmemcpy(dst, src, n);
    dst[n] = L'\0';
}

// The formatted text cut to `kMessageChars`, made in one pass over a buffer
// of that size however long the whole text would be. The C library leaves
// the cut text in the buffer when it reports the overflow, and the text up
// to a conversion it refuses.
std::wstring Format(const wchar_t* fmt, std::va_list* args) {
    wchar_t buffer[kMessageChars + 1] = {};
    std::va_list copy;
    va_copy(copy, *args);
    std::vswprintf(buffer, kMessageChars + 1, fmt, copy);
    va_end(copy);
    buffer[kMessageChars] = L'\0';
    return std::wstring(buffer, std::wcslen(buffer));
}

const wchar_t* TagOf(unsigned long level) {
    switch (level) {
        case 1:
            return L"I--";
        case 2:
            return L"W--";
        case 4:
            return L"E--";
        default:
            return L"";  // combined masks and other values carry no tag
    }
}

}  // namespace

MDebugLog::MDebugLog() : MDebugLog(nullptr) {}

MDebugLog::MDebugLog(const wchar_t* name)
    : m_maxLogSize(1000000),
      m_debugLevel(DEBUG_LEVEL_ALL),
      m_debugOutput(DEBUG_OUTPUT_FILE),
      m_moduleName{},
      m_outputFile{},
      m_file(platform::kInvalidLogFile),
      m_crashDumpEnabled(0) {
    const std::wstring executable = platform::ExecutablePath();
    CopyBounded(m_moduleName, executable.c_str(), kModuleChars);
    if (name != nullptr && name[0] != L'\0') {
        CopyBounded(m_outputFile, name, kFileChars);
    } else {
        // The executable's own extension stays: "/usr/bin/app" logs to "/usr/bin/app.log".
        std::swprintf(m_outputFile, 260, L"%ls.log", m_moduleName);
    }

    system::MRegistry reg;
    if (reg.Open(HKEY_CURRENT_USER, kLogKey, KEY_READ) != 0) {
        reg.Create(HKEY_CURRENT_USER, kLogKey, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr);
        reg.SetValue(0u, kLevelValue);
    }
    unsigned int level = 0;
    if (reg.QueryValue(level, kLevelValue) == 0) {
        m_debugLevel = static_cast<TDebugLevel>(level);
    }
}

// Member by member, the open file included: the copies share it and the
// first one destroyed closes it for both. Intended.
MDebugLog::MDebugLog(const MDebugLog& other) = default;
MDebugLog& MDebugLog::operator=(const MDebugLog& other) = default;

MDebugLog::~MDebugLog() {
    m_crashDumpEnabled = 0;
    CloseLogFile();
}

void MDebugLog::InformationPrintf(const wchar_t* fmt, ...) {
    if ((m_debugLevel & DEBUG_LEVEL_INFORMATION) != 0) {
        std::va_list args;
        va_start(args, fmt);
        DbgVprintf(DEBUG_LEVEL_INFORMATION, fmt, &args);
        va_end(args);
    }
}

void MDebugLog::WarningPrintf(const wchar_t* fmt, ...) {
    if ((m_debugLevel & DEBUG_LEVEL_WARNING) != 0) {
        std::va_list args;
        va_start(args, fmt);
        DbgVprintf(DEBUG_LEVEL_WARNING, fmt, &args);
        va_end(args);
    }
}

void MDebugLog::ErrorPrintf(const wchar_t* fmt, ...) {
    if ((m_debugLevel & DEBUG_LEVEL_ERROR) != 0) {
        std::va_list args;
        va_start(args, fmt);
        DbgVprintf(DEBUG_LEVEL_ERROR, fmt, &args);
        va_end(args);
    }
}

void MDebugLog::DebugPrintf(TDebugLevel level, const wchar_t* fmt, ...) {
    if ((m_debugLevel & level) != 0) {
        std::va_list args;
        va_start(args, fmt);
        DbgVprintf(level, fmt, &args);
        va_end(args);
    }
}

void MDebugLog::SetDebugLevel(TDebugLevel level) {
    m_debugLevel = level;
}

MDebugLog::TDebugLevel MDebugLog::GetDebugLevel() {
    return m_debugLevel;
}

void MDebugLog::SetDebugOutput(TDebugOutput output) {
    m_debugOutput = output;
}

MDebugLog::TDebugOutput MDebugLog::GetDebugOutput() {
    return m_debugOutput;
}

void MDebugLog::SetMaxLogSize(unsigned long size) {
    m_maxLogSize = size;
}

unsigned long MDebugLog::GetMaxLogSize() {
    return m_maxLogSize;
}

void MDebugLog::SetOutputFile(const wchar_t* path) {
    if (path == nullptr) {
        return;
    }
    CloseLogFile();
    CopyBounded(m_outputFile, path, kFileChars);
}

void MDebugLog::GetOutputFile(wchar_t* buf) {
    if (buf != nullptr) {
        std::wmemcpy(buf, m_outputFile, text::BoundedLength(m_outputFile, kFileChars) + 1);
    }
}

void MDebugLog::EnableCrashDump(bool enable) {
    // Only ever cleared: nothing reads the flag.
    if (!enable) {
        m_crashDumpEnabled = 0;
    }
}

void MDebugLog::DbgVprintf(unsigned long level, const wchar_t* fmt, std::va_list* args) {
    if (fmt == nullptr) {
        return;
    }
    std::wstring message = args != nullptr
                               ? Format(fmt, args)
                               : std::wstring(fmt, text::BoundedLength(fmt, kMessageChars));
    message.push_back(L'\n');
    OutputDebugString2Log(level, message.c_str());
}

void MDebugLog::OutputDebugString2Log(unsigned long level, const wchar_t* text) {
    CheckLogFile();
    if (m_file == platform::kInvalidLogFile) {
        return;
    }
    system::_MSYSTEMTIME utc{};
    system::_MSYSTEMTIME local{};
    system::MShell().GetDateTime(&utc, &local);
    wchar_t stamp[80];
    std::swprintf(stamp, 80, L"%d/%.2d/%.2d %.2d:%.2d:%.2d--", local.wYear, local.wMonth,
                  local.wDay, local.wHour, local.wMinute, local.wSecond);
    std::wstring line = stamp;
    line += TagOf(level);
    line += text;
    const std::string bytes = text::ToUtf16Le(line);
    // Write errors are not reported.
    platform::AppendToLogFile(m_file, bytes.data(), bytes.size());
}

void MDebugLog::CheckLogFile() {
    if (m_file == platform::kInvalidLogFile) {
        m_file = platform::OpenLogFile(m_outputFile, false);
        if (m_file == platform::kInvalidLogFile) {
            return;
        }
    }
    unsigned long long size = 0;
    if (platform::LogFileSize(m_file, size) && size > m_maxLogSize) {
        // Emptied, not renamed: no old copy is kept.
        platform::CloseLogFile(m_file);
        m_file = platform::OpenLogFile(m_outputFile, true);
    }
}

void MDebugLog::CloseLogFile() {
    if (m_file != platform::kInvalidLogFile) {
        platform::CloseLogFile(m_file);
        m_file = platform::kInvalidLogFile;
    }
}

}  // namespace kiv::log
