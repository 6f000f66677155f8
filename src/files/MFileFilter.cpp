#include <kiv/files/MFileFilter.h>

#include <new>

#include "files/MFileFilterImpl.h"

namespace kiv::system {
namespace {

constexpr unsigned int kNoImplementation = 0xFF;

}  // namespace

IFileFilter::~IFileFilter() = default;

MFileFilter::MFileFilter() : m_impl(new (std::nothrow) MFileFilterImpl) {}

MFileFilter::MFileFilter(const MFileFilter& other) : m_impl(ShareImplementation(other.m_impl)) {}

MFileFilter& MFileFilter::operator=(const MFileFilter& other) {
    AssignImplementation(m_impl, other.m_impl);
    return *this;
}

MFileFilter::~MFileFilter() {
    DropImplementation(m_impl);
}

unsigned char MFileFilter::IsMatching(const wchar_t* path, void* findData) {
    return m_impl != nullptr ? m_impl->IsMatching(path, findData) : kNoImplementation;
}

#define KIV_FILTER_FORWARD(call) return m_impl != nullptr ? m_impl->call : kNoImplementation

unsigned int MFileFilter::SetFileSizeFilter(unsigned int minimum, unsigned int maximum) {
    KIV_FILTER_FORWARD(SetFileSizeFilter(minimum, maximum));
}
unsigned int MFileFilter::SetFileCreateTimeFilter(const _MSYSTEMTIME* from,
                                                  const _MSYSTEMTIME* to) {
    KIV_FILTER_FORWARD(SetFileCreateTimeFilter(from, to));
}
unsigned int MFileFilter::SetFileModifyTimeFilter(const _MSYSTEMTIME* from,
                                                  const _MSYSTEMTIME* to) {
    KIV_FILTER_FORWARD(SetFileModifyTimeFilter(from, to));
}
unsigned int MFileFilter::SetFileNameFilter(const wchar_t* name, int length) {
    KIV_FILTER_FORWARD(SetFileNameFilter(name, length));
}
unsigned int MFileFilter::RemoveFileSizeFilter() {
    KIV_FILTER_FORWARD(RemoveFileSizeFilter());
}
unsigned int MFileFilter::RemoveFileCreateTimeFilter() {
    KIV_FILTER_FORWARD(RemoveFileCreateTimeFilter());
}
unsigned int MFileFilter::RemoveModifyTimeFilter() {
    KIV_FILTER_FORWARD(RemoveModifyTimeFilter());
}
unsigned int MFileFilter::RemoveFileNameFilter() {
    KIV_FILTER_FORWARD(RemoveFileNameFilter());
}

#undef KIV_FILTER_FORWARD

}  // namespace kiv::system
