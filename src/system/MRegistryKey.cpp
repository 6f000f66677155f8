#include <kiv/system/MRegistryKey.h>

#include "platform/RegistryStore.h"

namespace kiv::system {

using platform::RegistryStore;

MRegistryKey::MRegistryKey() : m_key(nullptr) {}

MRegistryKey::~MRegistryKey() {
    Close();
}

unsigned int MRegistryKey::Open(HKEY parent, const wchar_t* subKey) {
    HKEY key = nullptr;
    const unsigned int rc = RegistryStore::OpenKey(parent, subKey, &key);
    if (rc == ERROR_SUCCESS) {
        Close();
        m_key = key;
    }
    return rc;
}

unsigned int MRegistryKey::Create(HKEY parent, const wchar_t* subKey, unsigned int* disposition) {
    HKEY key = nullptr;
    const unsigned int rc = RegistryStore::CreateKey(parent, subKey, nullptr, &key, disposition);
    if (rc == ERROR_SUCCESS) {
        Close();
        m_key = key;
    }
    return rc;
}

unsigned int MRegistryKey::Close() {
    if (m_key != nullptr) {
        RegistryStore::CloseKey(m_key);
        m_key = nullptr;
    }
    return ERROR_SUCCESS;
}

HKEY MRegistryKey::Handle() const {
    return m_key;
}

unsigned int MRegistryKey::QueryValue(const wchar_t* name, unsigned int* type, void* data,
                                      unsigned int* size) {
    return RegistryStore::QueryValue(m_key, name, type, data, size);
}

unsigned int MRegistryKey::SetValue(const wchar_t* name, unsigned int type, const void* data,
                                    unsigned int size) {
    return RegistryStore::SetValue(m_key, name, type, data, size);
}

unsigned int MRegistryKey::DeleteValue(const wchar_t* name) {
    return RegistryStore::DeleteValue(m_key, name);
}

unsigned int MRegistryKey::DeleteSubKey(const wchar_t* subKey) {
    return RegistryStore::DeleteKey(m_key, subKey);
}

unsigned int MRegistryKey::EnumKey(unsigned int index, wchar_t* name, unsigned int* chars) {
    return RegistryStore::EnumKey(m_key, index, name, chars);
}

unsigned int MRegistryKey::EnumValue(unsigned int index, wchar_t* name, unsigned int* chars,
                                     unsigned int* type, void* data, unsigned int* size) {
    return RegistryStore::EnumValue(m_key, index, name, chars, type, data, size);
}

}  // namespace kiv::system
