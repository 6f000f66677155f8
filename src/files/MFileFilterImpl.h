// The state behind MFileFilter. Copies of the facade share one
// implementation, counted here.
#pragma once

#include <kiv/files/MFileFilter.h>
#include <kiv/platform/Win32Types.h>

#include "foundation/SharedImplementation.h"

namespace kiv::system {

class MFileFilterImpl : public SharedImplementation<MFileFilterImpl> {
public:
    MFileFilterImpl() = default;
    MFileFilterImpl(const MFileFilterImpl&) = delete;
    MFileFilterImpl& operator=(const MFileFilterImpl&) = delete;

    // Virtual operations in the facade's slot order.
    virtual unsigned char IsMatching(const wchar_t* path, void* findData);
    virtual ~MFileFilterImpl() = default;
    virtual unsigned int SetFileSizeFilter(unsigned int minimum, unsigned int maximum);
    virtual unsigned int SetFileCreateTimeFilter(const _MSYSTEMTIME* from, const _MSYSTEMTIME* to);
    virtual unsigned int SetFileModifyTimeFilter(const _MSYSTEMTIME* from, const _MSYSTEMTIME* to);
    virtual unsigned int SetFileNameFilter(const wchar_t* name, int length);
    virtual unsigned int RemoveFileSizeFilter();
    virtual unsigned int RemoveFileCreateTimeFilter();
    virtual unsigned int RemoveModifyTimeFilter();
    virtual unsigned int RemoveFileNameFilter();

private:
    FILETIME m_creationFrom = {0, 0};
    FILETIME m_creationTo = {0, 0};
    FILETIME m_modificationFrom = {0, 0};
    FILETIME m_modificationTo = {0, 0};
    wchar_t m_name[MAX_PATH] = {};
    unsigned int m_sizeMinimum = 0xFFFFFFFF;
    unsigned int m_sizeMaximum = 0xFFFFFFFF;
};

}  // namespace kiv::system
