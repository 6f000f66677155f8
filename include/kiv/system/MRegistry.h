// One open key of the registry.
//
// Results are the registry's own error codes, passed through unchanged
// (0 success, 2 not found, 5 a key with sub-keys, 6 bad handle, 87 bad
// argument, 234 buffer too small, 1018 key deleted, 1015/1016 store damaged
// or unreadable); 0xFF means the object has no implementation. Copies share
// one open key, which is closed when the last copy goes.
#pragma once

#include <kiv/platform/KivApi.h>
#include <kiv/platform/Win32Types.h>

namespace kiv::system {

/// The platform's security-attributes record. The registry takes it and
/// ignores it.
struct _MSECURITY_ATTRIBUTES {
    unsigned int nLength;
    void* lpSecurityDescriptor;
    int bInheritHandle;
};

class MRegistryImpl;

class KIV_API MRegistry {
public:
    /// No key open.
    MRegistry();
    /// Shares `other`'s key.
    MRegistry(const MRegistry& other);
    /// Drops this object's key (closed if no other copy holds it) and
    /// shares `other`'s.
    MRegistry& operator=(const MRegistry& other);
    ~MRegistry();

    /// Creates or opens `subKey` below `parent`. `disposition`, when not
    /// null, is written also on failure. On failure the old key stays open;
    /// on success it is closed and the new one kept.
    unsigned int Create(HKEY parent, const wchar_t* subKey, wchar_t* className,
                        unsigned int options, unsigned int access, _MSECURITY_ATTRIBUTES* security,
                        unsigned int* disposition);
    /// Opens an existing `subKey` below `parent`; on failure the old key
    /// stays open.
    unsigned int Open(HKEY parent, const wchar_t* subKey, unsigned int access);
    /// Closes the key if one is open; always 0.
    unsigned int Close();

    /// Reads 4 bytes of value `name` into `value`, whatever its type.
    unsigned int QueryValue(unsigned int& value, const wchar_t* name);
    /// Reads value `name` into `buffer`; `size` is in bytes, in and out
    /// (strings: bytes of wchar_t, terminator included).
    unsigned int QueryValue(wchar_t* buffer, const wchar_t* name, unsigned int* size);
    /// Writes `value` as a REG_DWORD.
    unsigned int SetValue(unsigned int value, const wchar_t* name);
    /// Writes `value` as a REG_SZ, terminator included.
    unsigned int SetValue(const wchar_t* value, const wchar_t* name);
    /// Creates (or opens) `subKey` below `parent` and writes the string
    /// value there; the key is closed again.
    unsigned int SetValue(HKEY parent, const wchar_t* subKey, const wchar_t* value,
                          const wchar_t* name);
    /// As the previous form, below this object's key.
    unsigned int SetKeyValue(const wchar_t* subKey, const wchar_t* value, const wchar_t* name);
    /// Deletes `subKey`, which must have no sub-keys (else 5).
    unsigned int DeleteSubKey(const wchar_t* subKey);
    /// Deletes `subKey` with everything below it; stops at the first error.
    unsigned int RecurseDeleteKey(const wchar_t* subKey);
    /// Deletes value `name`.
    unsigned int DeleteValue(const wchar_t* name);

private:
    MRegistryImpl* m_impl;
};

}  // namespace kiv::system
