// One open registry key with every operation of the registry: values of any
// type and enumeration of sub-keys and values. MRegistry has what
// applications need; tools that show or copy whole trees (kivreg) use this.
//
// Results are the registry's error codes, as MRegistry passes them through.
// Sizes of string data are bytes of wchar_t; name sizes are characters.
#pragma once

#include <kiv/platform/KivApi.h>
#include <kiv/platform/Win32Types.h>

namespace kiv::system {

class KIV_API MRegistryKey {
public:
    /// No key open.
    MRegistryKey();
    /// Closes the key.
    ~MRegistryKey();
    MRegistryKey(const MRegistryKey&) = delete;
    MRegistryKey& operator=(const MRegistryKey&) = delete;

    /// Opens an existing `subKey` below `parent`; the old key is closed on
    /// success only.
    unsigned int Open(HKEY parent, const wchar_t* subKey);
    /// Creates or opens `subKey`; `disposition` (may be null) tells which.
    unsigned int Create(HKEY parent, const wchar_t* subKey, unsigned int* disposition);
    /// Closes the key if one is open; 0.
    unsigned int Close();
    /// The open key, usable as a parent; null when none is open.
    HKEY Handle() const;

    /// Type and data of value `name`; `data` null asks for the size only.
    unsigned int QueryValue(const wchar_t* name, unsigned int* type, void* data,
                            unsigned int* size);
    /// Writes value `name` with `type` and `size` bytes of `data`.
    unsigned int SetValue(const wchar_t* name, unsigned int type, const void* data,
                          unsigned int size);
    /// Deletes value `name`.
    unsigned int DeleteValue(const wchar_t* name);
    /// Deletes `subKey`, which must have no sub-keys.
    unsigned int DeleteSubKey(const wchar_t* subKey);
    /// The sub-key at `index` (259 past the end). `chars`: capacity in,
    /// length out.
    unsigned int EnumKey(unsigned int index, wchar_t* name, unsigned int* chars);
    /// The value at `index` with its type and data (each may be null).
    unsigned int EnumValue(unsigned int index, wchar_t* name, unsigned int* chars,
                           unsigned int* type, void* data, unsigned int* size);

private:
    HKEY m_key;
};

}  // namespace kiv::system
