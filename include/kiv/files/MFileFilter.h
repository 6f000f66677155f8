// Filters found files by exact path and by creation-time ranges; also keeps
// a size range that no answer depends on.
//
// Results are 0 for success and 0xFFFFFFFF (-1) for a rejected argument;
// 0xFF from every operation, IsMatching included, when the object has no
// implementation. Copies share one implementation.
#pragma once

#include <kiv/files/IFileFilter.h>
#include <kiv/platform/KivApi.h>
#include <kiv/system/MShell.h>

namespace kiv::system {

class MFileFilterImpl;

class KIV_API MFileFilter : public IFileFilter {
public:
    /// No name filter, both time ranges off, the size range 0xFFFFFFFF..0xFFFFFFFF.
    MFileFilter();
    MFileFilter(const MFileFilter& other);
    MFileFilter& operator=(const MFileFilter& other);
    ~MFileFilter() override;

    /// 0 for directories, paths whose attributes cannot be read and a null
    /// `findData`; otherwise the name filter and then both time ranges decide.
    /// Both ranges test the creation time of `findData`.
    unsigned char IsMatching(const wchar_t* path, void* findData) override;

    /// Stores the size range, which IsMatching does not consult.
    unsigned int SetFileSizeFilter(unsigned int minimum, unsigned int maximum);
    /// Accepts creation times from `from` to `to` inclusive (UTC, converted
    /// without a time-zone change). The range is on only while both 32-bit
    /// halves of `from` as a file time are non-zero. -1 if either is null.
    unsigned int SetFileCreateTimeFilter(const _MSYSTEMTIME* from, const _MSYSTEMTIME* to);
    /// A second range, also tested against the creation time.
    unsigned int SetFileModifyTimeFilter(const _MSYSTEMTIME* from, const _MSYSTEMTIME* to);
    /// Accepts only the path `name`, compared without regard to case. 260
    /// characters are copied from `name` whatever `length` is; -1 (and no
    /// change) for a null `name` or a `length` outside 1..259.
    unsigned int SetFileNameFilter(const wchar_t* name, int length);
    unsigned int RemoveFileSizeFilter();
    unsigned int RemoveFileCreateTimeFilter();
    unsigned int RemoveModifyTimeFilter();
    unsigned int RemoveFileNameFilter();

private:
    MFileFilterImpl* m_impl;
};

}  // namespace kiv::system
