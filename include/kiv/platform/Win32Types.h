// The Win32-shaped names the framework's interface uses, with their Win32
// values, so that code written against the device's interface compiles
// unchanged. Nothing else of Win32 is imitated.
#pragma once

#include <cstdint>

#ifndef _WIN32

/// A 64-bit signed integer, as the device's compiler names it.
typedef long long __int64;

/// An open registry key. The predefined roots below are fixed values; other
/// keys are handles given out by the registry.
struct HKEY__;
typedef HKEY__* HKEY;

/// A message window: a 32-bit handle in the window table of the namespace.
struct HWND__;
typedef HWND__* HWND;

#define KIV_WIN32_HANDLE_(T, v) (reinterpret_cast<T>(static_cast<std::uintptr_t>(v)))

// Predefined registry roots.
#define HKEY_CLASSES_ROOT KIV_WIN32_HANDLE_(HKEY, 0x80000000u)
#define HKEY_CURRENT_USER KIV_WIN32_HANDLE_(HKEY, 0x80000001u)
#define HKEY_LOCAL_MACHINE KIV_WIN32_HANDLE_(HKEY, 0x80000002u)
#define HKEY_USERS KIV_WIN32_HANDLE_(HKEY, 0x80000003u)

// Registry value types.
constexpr unsigned int REG_NONE = 0;
constexpr unsigned int REG_SZ = 1;
constexpr unsigned int REG_EXPAND_SZ = 2;
constexpr unsigned int REG_BINARY = 3;
constexpr unsigned int REG_DWORD = 4;
constexpr unsigned int REG_DWORD_LITTLE_ENDIAN = 4;
constexpr unsigned int REG_DWORD_BIG_ENDIAN = 5;
constexpr unsigned int REG_LINK = 6;
constexpr unsigned int REG_MULTI_SZ = 7;
constexpr unsigned int REG_QWORD = 11;

// Registry key options and dispositions.
constexpr unsigned int REG_OPTION_NON_VOLATILE = 0x00000000;
constexpr unsigned int REG_OPTION_VOLATILE = 0x00000001;
constexpr unsigned int REG_CREATED_NEW_KEY = 0x00000001;
constexpr unsigned int REG_OPENED_EXISTING_KEY = 0x00000002;

// Access masks.
constexpr unsigned int DELETE = 0x00010000;
constexpr unsigned int READ_CONTROL = 0x00020000;
constexpr unsigned int WRITE_DAC = 0x00040000;
constexpr unsigned int WRITE_OWNER = 0x00080000;
constexpr unsigned int SYNCHRONIZE = 0x00100000;
constexpr unsigned int STANDARD_RIGHTS_REQUIRED = 0x000F0000;
constexpr unsigned int STANDARD_RIGHTS_READ = READ_CONTROL;
constexpr unsigned int STANDARD_RIGHTS_WRITE = READ_CONTROL;
constexpr unsigned int STANDARD_RIGHTS_EXECUTE = READ_CONTROL;
constexpr unsigned int STANDARD_RIGHTS_ALL = 0x001F0000;
constexpr unsigned int KEY_QUERY_VALUE = 0x0001;
constexpr unsigned int KEY_SET_VALUE = 0x0002;
constexpr unsigned int KEY_CREATE_SUB_KEY = 0x0004;
constexpr unsigned int KEY_ENUMERATE_SUB_KEYS = 0x0008;
constexpr unsigned int KEY_NOTIFY = 0x0010;
constexpr unsigned int KEY_CREATE_LINK = 0x0020;
constexpr unsigned int KEY_READ =
    (STANDARD_RIGHTS_READ | KEY_QUERY_VALUE | KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY) & ~SYNCHRONIZE;
constexpr unsigned int KEY_WRITE =
    (STANDARD_RIGHTS_WRITE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY) & ~SYNCHRONIZE;
constexpr unsigned int KEY_EXECUTE = KEY_READ & ~SYNCHRONIZE;
constexpr unsigned int KEY_ALL_ACCESS =
    (STANDARD_RIGHTS_ALL | KEY_QUERY_VALUE | KEY_SET_VALUE | KEY_CREATE_SUB_KEY |
     KEY_ENUMERATE_SUB_KEYS | KEY_NOTIFY | KEY_CREATE_LINK) &
    ~SYNCHRONIZE;

// Error codes the registry and the services return.
constexpr unsigned int ERROR_SUCCESS = 0;
constexpr unsigned int ERROR_FILE_NOT_FOUND = 2;
constexpr unsigned int ERROR_PATH_NOT_FOUND = 3;
constexpr unsigned int ERROR_TOO_MANY_OPEN_FILES = 4;
constexpr unsigned int ERROR_ACCESS_DENIED = 5;
constexpr unsigned int ERROR_INVALID_HANDLE = 6;
constexpr unsigned int ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr unsigned int ERROR_OUTOFMEMORY = 14;
constexpr unsigned int ERROR_NOT_SAME_DEVICE = 17;
constexpr unsigned int ERROR_NO_MORE_FILES = 18;
constexpr unsigned int ERROR_WRITE_FAULT = 29;
constexpr unsigned int ERROR_READ_FAULT = 30;
constexpr unsigned int ERROR_GEN_FAILURE = 31;
constexpr unsigned int ERROR_SHARING_VIOLATION = 32;
constexpr unsigned int ERROR_LOCK_VIOLATION = 33;
constexpr unsigned int ERROR_HANDLE_DISK_FULL = 39;
constexpr unsigned int ERROR_NOT_SUPPORTED = 50;
constexpr unsigned int ERROR_FILE_EXISTS = 80;
constexpr unsigned int ERROR_INVALID_PARAMETER = 87;
constexpr unsigned int ERROR_DISK_FULL = 112;
constexpr unsigned int ERROR_INSUFFICIENT_BUFFER = 122;
constexpr unsigned int ERROR_INVALID_NAME = 123;
constexpr unsigned int ERROR_DIR_NOT_EMPTY = 145;
constexpr unsigned int ERROR_BUSY = 170;
constexpr unsigned int ERROR_ALREADY_EXISTS = 183;
constexpr unsigned int ERROR_FILENAME_EXCED_RANGE = 206;
constexpr unsigned int ERROR_MORE_DATA = 234;
constexpr unsigned int ERROR_NO_MORE_ITEMS = 259;
constexpr unsigned int ERROR_DIRECTORY = 267;
constexpr unsigned int ERROR_BADDB = 1009;
constexpr unsigned int ERROR_BADKEY = 1010;
constexpr unsigned int ERROR_CANTOPEN = 1011;
constexpr unsigned int ERROR_CANTREAD = 1012;
constexpr unsigned int ERROR_CANTWRITE = 1013;
constexpr unsigned int ERROR_REGISTRY_CORRUPT = 1015;
constexpr unsigned int ERROR_REGISTRY_IO_FAILED = 1016;
constexpr unsigned int ERROR_KEY_DELETED = 1018;
constexpr unsigned int ERROR_CANCELLED = 1223;
constexpr unsigned int ERROR_CANT_RESOLVE_FILENAME = 1921;

// Files: path capacity, attributes and the find-data record.
constexpr unsigned int MAX_PATH = 260;
constexpr unsigned int INVALID_FILE_ATTRIBUTES = 0xFFFFFFFF;
constexpr unsigned int FILE_ATTRIBUTE_READONLY = 0x00000001;
constexpr unsigned int FILE_ATTRIBUTE_HIDDEN = 0x00000002;
constexpr unsigned int FILE_ATTRIBUTE_SYSTEM = 0x00000004;
constexpr unsigned int FILE_ATTRIBUTE_DIRECTORY = 0x00000010;
constexpr unsigned int FILE_ATTRIBUTE_ARCHIVE = 0x00000020;
constexpr unsigned int FILE_ATTRIBUTE_NORMAL = 0x00000080;
constexpr unsigned int FILE_ATTRIBUTE_TEMPORARY = 0x00000100;
constexpr unsigned int FILE_ATTRIBUTE_REPARSE_POINT = 0x00000400;

/// A point in time: 100 ns intervals since 1601-01-01 00:00 UTC, in two
/// 32-bit halves.
struct FILETIME {
    unsigned int dwLowDateTime;
    unsigned int dwHighDateTime;
};

/// What a directory search reports about one file. The name is the file's
/// own name, without its directory. A symbolic link carries
/// FILE_ATTRIBUTE_REPARSE_POINT and describes the link, not its target.
struct WIN32_FIND_DATAW {
    unsigned int dwFileAttributes;
    FILETIME ftCreationTime;
    FILETIME ftLastAccessTime;
    FILETIME ftLastWriteTime;
    unsigned int nFileSizeHigh;
    unsigned int nFileSizeLow;
    unsigned int dwOID;  ///< object store id; always 0 here
    wchar_t cFileName[MAX_PATH];
};

#endif  // _WIN32
