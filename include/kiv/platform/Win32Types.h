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
constexpr unsigned int ERROR_ACCESS_DENIED = 5;
constexpr unsigned int ERROR_INVALID_HANDLE = 6;
constexpr unsigned int ERROR_NOT_ENOUGH_MEMORY = 8;
constexpr unsigned int ERROR_OUTOFMEMORY = 14;
constexpr unsigned int ERROR_WRITE_FAULT = 29;
constexpr unsigned int ERROR_READ_FAULT = 30;
constexpr unsigned int ERROR_SHARING_VIOLATION = 32;
constexpr unsigned int ERROR_LOCK_VIOLATION = 33;
constexpr unsigned int ERROR_NOT_SUPPORTED = 50;
constexpr unsigned int ERROR_INVALID_PARAMETER = 87;
constexpr unsigned int ERROR_INSUFFICIENT_BUFFER = 122;
constexpr unsigned int ERROR_ALREADY_EXISTS = 183;
constexpr unsigned int ERROR_MORE_DATA = 234;
constexpr unsigned int ERROR_NO_MORE_ITEMS = 259;
constexpr unsigned int ERROR_BADDB = 1009;
constexpr unsigned int ERROR_BADKEY = 1010;
constexpr unsigned int ERROR_CANTOPEN = 1011;
constexpr unsigned int ERROR_CANTREAD = 1012;
constexpr unsigned int ERROR_CANTWRITE = 1013;
constexpr unsigned int ERROR_REGISTRY_CORRUPT = 1015;
constexpr unsigned int ERROR_REGISTRY_IO_FAILED = 1016;
constexpr unsigned int ERROR_KEY_DELETED = 1018;

#endif  // _WIN32
