// The key behind MRegistry. Copies of a facade share one implementation,
// counted here; the last release closes the key.
#pragma once

#include <kiv/platform/Win32Types.h>
#include <kiv/system/MRegistry.h>

#include "foundation/SharedImplementation.h"

namespace kiv::system {

class MRegistryImpl : public SharedImplementation<MRegistryImpl> {
public:
    MRegistryImpl() = default;
    MRegistryImpl(const MRegistryImpl&) = delete;
    MRegistryImpl& operator=(const MRegistryImpl&) = delete;

    // Virtual operations in the facade's slot order.
    virtual unsigned int Create(HKEY parent, const wchar_t* subKey, wchar_t* className,
                                unsigned int options, unsigned int access,
                                _MSECURITY_ATTRIBUTES* security, unsigned int* disposition);
    virtual ~MRegistryImpl();
    virtual unsigned int SetValue(HKEY parent, const wchar_t* subKey, const wchar_t* value,
                                  const wchar_t* name);
    virtual unsigned int SetValue(const wchar_t* value, const wchar_t* name);
    virtual unsigned int SetValue(unsigned int value, const wchar_t* name);
    virtual unsigned int QueryValue(wchar_t* buffer, const wchar_t* name, unsigned int* size);
    virtual unsigned int QueryValue(unsigned int& value, const wchar_t* name);
    virtual unsigned int SetKeyValue(const wchar_t* subKey, const wchar_t* value,
                                     const wchar_t* name);
    virtual unsigned int Open(HKEY parent, const wchar_t* subKey, unsigned int access);
    virtual unsigned int Close();
    virtual unsigned int DeleteSubKey(const wchar_t* subKey);
    virtual unsigned int RecurseDeleteKey(const wchar_t* subKey);
    virtual unsigned int DeleteValue(const wchar_t* name);

private:
    HKEY m_key = nullptr;
};

}  // namespace kiv::system
