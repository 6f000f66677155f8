#include "system/MRegistryImpl.h"

#include <cwchar>

#include "platform/RegistryStore.h"

namespace kiv::system {

using platform::RegistryStore;

MRegistryImpl::~MRegistryImpl() {
    Close();
}

unsigned int MRegistryImpl::Create(HKEY parent, const wchar_t* subKey, wchar_t* className,
                                   unsigned int /*options*/, unsigned int /*access*/,
                                   _MSECURITY_ATTRIBUTES* /*security*/, unsigned int* disposition) {
    HKEY key = nullptr;
    unsigned int disp = 0;
    const unsigned int rc = RegistryStore::CreateKey(parent, subKey, className, &key, &disp);
    // The disposition is handed back on failure as well.
    if (disposition != nullptr) {
        *disposition = disp;
    }
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    Close();
    m_key = key;
    return ERROR_SUCCESS;
}

unsigned int MRegistryImpl::SetValue(HKEY parent, const wchar_t* subKey, const wchar_t* value,
                                     const wchar_t* name) {
    MRegistryImpl temporary;
    const unsigned int rc =
        temporary.Create(parent, subKey, nullptr, 0, KEY_ALL_ACCESS, nullptr, nullptr);
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    return temporary.SetValue(value, name);
}

unsigned int MRegistryImpl::SetValue(const wchar_t* value, const wchar_t* name) {
    const std::size_t length = value != nullptr ? std::wcslen(value) : 0;
    const wchar_t empty = L'\0';
    return RegistryStore::SetValue(m_key, name, REG_SZ, value != nullptr ? value : &empty,
                                   static_cast<unsigned int>((length + 1) * sizeof(wchar_t)));
}

unsigned int MRegistryImpl::SetValue(unsigned int value, const wchar_t* name) {
    return RegistryStore::SetValue(m_key, name, REG_DWORD, &value, sizeof value);
}

unsigned int MRegistryImpl::QueryValue(wchar_t* buffer, const wchar_t* name, unsigned int* size) {
    unsigned int type = 0;
    return RegistryStore::QueryValue(m_key, name, &type, buffer, size);
}

unsigned int MRegistryImpl::QueryValue(unsigned int& value, const wchar_t* name) {
    // The type is not checked: 4 bytes of whatever is stored come back.
    unsigned int type = 0;
    unsigned int size = sizeof value;
    return RegistryStore::QueryValue(m_key, name, &type, &value, &size);
}

unsigned int MRegistryImpl::SetKeyValue(const wchar_t* subKey, const wchar_t* value,
                                        const wchar_t* name) {
    return SetValue(m_key, subKey, value, name);
}

unsigned int MRegistryImpl::Open(HKEY parent, const wchar_t* subKey, unsigned int /*access*/) {
    HKEY key = nullptr;
    const unsigned int rc = RegistryStore::OpenKey(parent, subKey, &key);
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    Close();
    m_key = key;
    return ERROR_SUCCESS;
}

unsigned int MRegistryImpl::Close() {
    if (m_key != nullptr) {
        RegistryStore::CloseKey(m_key);
        m_key = nullptr;
    }
    return ERROR_SUCCESS;
}

unsigned int MRegistryImpl::DeleteSubKey(const wchar_t* subKey) {
    return RegistryStore::DeleteKey(m_key, subKey);
}

unsigned int MRegistryImpl::RecurseDeleteKey(const wchar_t* subKey) {
    MRegistryImpl temporary;
    unsigned int rc = temporary.Open(m_key, subKey, KEY_READ | KEY_WRITE);
    if (rc != ERROR_SUCCESS) {
        return rc;
    }
    for (;;) {
        wchar_t name[256];
        unsigned int chars = 256;
        if (RegistryStore::EnumKey(temporary.m_key, 0, name, &chars) != ERROR_SUCCESS) {
            break;
        }
        rc = temporary.RecurseDeleteKey(name);
        if (rc != ERROR_SUCCESS) {
            temporary.Close();
            return rc;
        }
    }
    temporary.Close();
    return DeleteSubKey(subKey);
}

unsigned int MRegistryImpl::DeleteValue(const wchar_t* name) {
    return RegistryStore::DeleteValue(m_key, name);
}

}  // namespace kiv::system
