// A component's diagnostic log: one line of UTF-16LE text (no byte-order
// mark) per accepted message, in a file named after the executable unless a
// name is given.
//
// Whether a message is accepted is decided by a level mask, read at
// construction from HKEY_CURRENT_USER "Software\Tarvo\KivFramework\LOG"
// value "LogLevel" (the key is created with 0 when absent, so logging stays
// off until the value is changed). A line is
//   "2008/03/07 14:05:09--W--message\n"
// with the local time, the tag of level 1, 2 or 4 ("I--", "W--", "E--"; no
// tag for any other level) and the message cut to 256 characters. Before
// each line the file is emptied if it is larger than the size limit.
//
// Formats are wide printf formats of the C library: a wide string argument
// is "%ls" ("%s" reads a narrow one).
//
// No lock is taken: use an instance from one thread at a time. Copies share
// the open file; the first one destroyed closes it.
#pragma once

#include <kiv/platform/KivApi.h>

#include <cstdarg>

namespace kiv::log {

class KIV_API MDebugLog {
public:
    /// Level bits; a mask may combine them.
    enum TDebugLevel : unsigned int {
        DEBUG_LEVEL_NONE = 0,
        DEBUG_LEVEL_INFORMATION = 1,
        DEBUG_LEVEL_WARNING = 2,
        DEBUG_LEVEL_ERROR = 4,
        DEBUG_LEVEL_ALL = 7,
    };
    /// The output selector is stored and returned, nothing else: every
    /// accepted message goes to the file.
    enum TDebugOutput : unsigned int {
        DEBUG_OUTPUT_FILE = 0,
        DEBUG_OUTPUT_DEBUGGER = 1,
    };

    /// The log of the executable: the file is "<executable path>.log".
    MDebugLog();
    /// A null or empty `name` is the default; otherwise at most 259
    /// characters of it name the file. The file is opened at the first line.
    explicit MDebugLog(const wchar_t* name);
    /// Copies every field, the open file included: both then write to it.
    MDebugLog(const MDebugLog& other);
    MDebugLog& operator=(const MDebugLog& other);
    /// Clears the crash-dump flag and closes the file if it is open.
    virtual ~MDebugLog();

    /// Logs at level 1 if the mask has bit 1.
    void InformationPrintf(const wchar_t* fmt, ...);
    /// Logs at level 2 if the mask has bit 2.
    void WarningPrintf(const wchar_t* fmt, ...);
    /// Logs at level 4 if the mask has bit 4.
    void ErrorPrintf(const wchar_t* fmt, ...);
    /// Logs at `level` if the mask and `level` share a bit.
    void DebugPrintf(TDebugLevel level, const wchar_t* fmt, ...);

    /// The mask; the registry is not touched.
    void SetDebugLevel(TDebugLevel level);
    TDebugLevel GetDebugLevel();
    void SetDebugOutput(TDebugOutput output);
    TDebugOutput GetDebugOutput();
    /// The size in bytes above which the file is emptied before a line.
    void SetMaxLogSize(unsigned long size);
    unsigned long GetMaxLogSize();
    /// Null is ignored; otherwise closes the file and takes at most 259
    /// characters of `path` as the file to open at the next line.
    void SetOutputFile(const wchar_t* path);
    /// Null is ignored; otherwise copies the file name (up to 260 characters
    /// with the terminator) into `buf`.
    void GetOutputFile(wchar_t* buf);
    /// false clears the crash-dump flag; true does nothing.
    void EnableCrashDump(bool enable);

private:
    /// Formats `fmt` with `args` (or, with null `args`, takes `fmt` as it is)
    /// and writes the line.
    void DbgVprintf(unsigned long level, const wchar_t* fmt, std::va_list* args);
    void OutputDebugString2Log(unsigned long level, const wchar_t* text);
    void CheckLogFile();
    void CloseLogFile();

    unsigned long m_maxLogSize;
    TDebugLevel m_debugLevel;
    TDebugOutput m_debugOutput;
    wchar_t m_moduleName[64];
    wchar_t m_outputFile[260];
    int m_file;
    int m_crashDumpEnabled;
};

}  // namespace kiv::log
