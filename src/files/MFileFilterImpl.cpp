#include "files/MFileFilterImpl.h"

#include <cstring>
#include <cwctype>
#include <string>

#include "files/FileTime.h"
#include "foundation/Text.h"
#include "platform/FileSystem.h"

namespace kiv::system {
namespace {

constexpr unsigned int kRejected = 0xFFFFFFFF;

wchar_t Lower(wchar_t c) {
    return static_cast<wchar_t>(std::towlower(static_cast<wint_t>(c)));
}

// The difference of the first differing lower-cased characters of `a` and
// `b`, the end of either counting as 0; 0 when they are equal.
long long CompareIgnoringCase(const wchar_t* a, std::size_t aLength, const wchar_t* b,
                              std::size_t bLength) {
    for (std::size_t i = 0;; ++i) {
        const wchar_t x = i < aLength ? Lower(a[i]) : L'\0';
        const wchar_t y = i < bLength ? Lower(b[i]) : L'\0';
        if (x != y || x == L'\0') {
            return static_cast<long long>(x) - static_cast<long long>(y);
        }
    }
}

// A range is on while both halves of its start are non-zero; the end is not
// looked at for that.
bool IsRangeOn(const FILETIME& from) {
    return from.dwLowDateTime != 0 && from.dwHighDateTime != 0;
}

bool IsInRange(const FILETIME& time, const FILETIME& from, const FILETIME& to) {
    return files::CompareFileTime(time, from) >= 0 && files::CompareFileTime(to, time) >= 0;
}

bool ConvertRange(const _MSYSTEMTIME& from, const _MSYSTEMTIME& to, FILETIME& fromTime,
                  FILETIME& toTime) {
    FILETIME start = {};
    FILETIME end = {};
    if (!files::SystemTimeToFileTime(to, end) || !files::SystemTimeToFileTime(from, start)) {
        return false;
    }
    fromTime = start;
    toTime = end;
    return true;
}

}  // namespace

unsigned char MFileFilterImpl::IsMatching(const wchar_t* path, void* findData) {
    if (findData == nullptr || path == nullptr) {
        return 0;
    }
    const unsigned int attributes = platform::ReadAttributes(text::ToUtf8(path));
    if (attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        return 0;
    }
    if (m_name[0] != L'\0') {
        const std::size_t pathLength = std::wcslen(path);
        const std::size_t nameLength = text::BoundedLength(m_name, MAX_PATH);
        const long long d = CompareIgnoringCase(path, pathLength, m_name, nameLength);
        // For paths of the name's length this is a case-insensitive equality
        // test; for other lengths the rule is kept as it stands.
        if (d + static_cast<long long>(nameLength) != static_cast<long long>(pathLength)) {
            return 0;
        }
    }
    const FILETIME created = static_cast<const WIN32_FIND_DATAW*>(findData)->ftCreationTime;
    if (IsRangeOn(m_creationFrom) && !IsInRange(created, m_creationFrom, m_creationTo)) {
        return 0;
    }
    // The modification range is tested against the creation time too; that
    // is this filter's rule, not a slip.
    if (IsRangeOn(m_modificationFrom) &&
        !IsInRange(created, m_modificationFrom, m_modificationTo)) {
        return 0;
    }
    // The size range is kept but never consulted.
    return 1;
}

unsigned int MFileFilterImpl::SetFileSizeFilter(unsigned int minimum, unsigned int maximum) {
    m_sizeMinimum = minimum;
    m_sizeMaximum = maximum;
    return 0;
}

unsigned int MFileFilterImpl::SetFileCreateTimeFilter(const _MSYSTEMTIME* from,
                                                      const _MSYSTEMTIME* to) {
    if (from == nullptr || to == nullptr ||
        !ConvertRange(*from, *to, m_creationFrom, m_creationTo)) {
        return kRejected;
    }
    return 0;
}

unsigned int MFileFilterImpl::SetFileModifyTimeFilter(const _MSYSTEMTIME* from,
                                                      const _MSYSTEMTIME* to) {
    if (from == nullptr || to == nullptr ||
        !ConvertRange(*from, *to, m_modificationFrom, m_modificationTo)) {
        return kRejected;
    }
    return 0;
}

unsigned int MFileFilterImpl::SetFileNameFilter(const wchar_t* name, int length) {
    if (name == nullptr || length < 1 || length > static_cast<int>(MAX_PATH) - 1) {
        return kRejected;
    }
    // The whole field is copied whatever `length` says: the caller passes a
    // buffer of MAX_PATH characters.
    std::memcpy(m_name, name, sizeof m_name);
    return 0;
}

unsigned int MFileFilterImpl::RemoveFileSizeFilter() {
    m_sizeMinimum = 0xFFFFFFFF;
    m_sizeMaximum = 0xFFFFFFFF;
    return 0;
}

unsigned int MFileFilterImpl::RemoveFileCreateTimeFilter() {
    m_creationFrom = {0, 0};
    m_creationTo = {0, 0};
    return 0;
}

unsigned int MFileFilterImpl::RemoveModifyTimeFilter() {
    m_modificationFrom = {0, 0};
    m_modificationTo = {0, 0};
    return 0;
}

unsigned int MFileFilterImpl::RemoveFileNameFilter() {
    std::memset(m_name, 0, sizeof m_name);
    return 0;
}

}  // namespace kiv::system
