#include <kiv/system/MRegistry.h>

#include <new>

#include "system/MRegistryImpl.h"

namespace kiv::system {
namespace {

constexpr unsigned int kNoImplementation = 0xFF;

}  // namespace

MRegistry::MRegistry() : m_impl(new (std::nothrow) MRegistryImpl) {}

MRegistry::MRegistry(const MRegistry& other) : m_impl(ShareImplementation(other.m_impl)) {}

MRegistry& MRegistry::operator=(const MRegistry& other) {
    AssignImplementation(m_impl, other.m_impl);
    return *this;
}

MRegistry::~MRegistry() {
    DropImplementation(m_impl);
}

unsigned int MRegistry::Create(HKEY parent, const wchar_t* subKey, wchar_t* className,
                               unsigned int options, unsigned int access,
                               _MSECURITY_ATTRIBUTES* security, unsigned int* disposition) {
    return m_impl != nullptr
               ? m_impl->Create(parent, subKey, className, options, access, security, disposition)
               : kNoImplementation;
}

unsigned int MRegistry::Open(HKEY parent, const wchar_t* subKey, unsigned int access) {
    return m_impl != nullptr ? m_impl->Open(parent, subKey, access) : kNoImplementation;
}

unsigned int MRegistry::Close() {
    return m_impl != nullptr ? m_impl->Close() : kNoImplementation;
}

unsigned int MRegistry::QueryValue(unsigned int& value, const wchar_t* name) {
    return m_impl != nullptr ? m_impl->QueryValue(value, name) : kNoImplementation;
}

unsigned int MRegistry::QueryValue(wchar_t* buffer, const wchar_t* name, unsigned int* size) {
    return m_impl != nullptr ? m_impl->QueryValue(buffer, name, size) : kNoImplementation;
}

unsigned int MRegistry::SetValue(unsigned int value, const wchar_t* name) {
    return m_impl != nullptr ? m_impl->SetValue(value, name) : kNoImplementation;
}

unsigned int MRegistry::SetValue(const wchar_t* value, const wchar_t* name) {
    return m_impl != nullptr ? m_impl->SetValue(value, name) : kNoImplementation;
}

unsigned int MRegistry::SetValue(HKEY parent, const wchar_t* subKey, const wchar_t* value,
                                 const wchar_t* name) {
    return m_impl != nullptr ? m_impl->SetValue(parent, subKey, value, name) : kNoImplementation;
}

unsigned int MRegistry::SetKeyValue(const wchar_t* subKey, const wchar_t* value,
                                    const wchar_t* name) {
    return m_impl != nullptr ? m_impl->SetKeyValue(subKey, value, name) : kNoImplementation;
}

unsigned int MRegistry::DeleteSubKey(const wchar_t* subKey) {
    return m_impl != nullptr ? m_impl->DeleteSubKey(subKey) : kNoImplementation;
}

unsigned int MRegistry::RecurseDeleteKey(const wchar_t* subKey) {
    return m_impl != nullptr ? m_impl->RecurseDeleteKey(subKey) : kNoImplementation;
}

unsigned int MRegistry::DeleteValue(const wchar_t* name) {
    return m_impl != nullptr ? m_impl->DeleteValue(name) : kNoImplementation;
}

}  // namespace kiv::system
