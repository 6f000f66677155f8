#include <kiv/files/MFileManager.h>

#include <new>

#include "files/MFileManagerImpl.h"

namespace kiv::system {
namespace {

constexpr unsigned int kNoImplementation = 0xFF;

}  // namespace

MFileManager::MFileManager() : m_impl(new (std::nothrow) MFileManagerImpl) {}

MFileManager::MFileManager(const MFileManager& other) : m_impl(ShareImplementation(other.m_impl)) {}

MFileManager& MFileManager::operator=(const MFileManager& other) {
    AssignImplementation(m_impl, other.m_impl);
    return *this;
}

MFileManager::~MFileManager() {
    DropImplementation(m_impl);
}

#define KIV_MANAGER_FORWARD(call) return m_impl != nullptr ? m_impl->call : kNoImplementation

unsigned int MFileManager::FindFiles(const wchar_t* directory, const wchar_t* pattern,
                                     unsigned char recursive, IFileFilter* filter,
                                     std::vector<std::wstring>& found) {
    KIV_MANAGER_FORWARD(FindFiles(directory, pattern, recursive, filter, found));
}
unsigned int MFileManager::CopyFile(const wchar_t* source, const wchar_t* target,
                                    unsigned char failIfExists) {
    KIV_MANAGER_FORWARD(CopyFile(source, target, failIfExists));
}
unsigned int MFileManager::MoveFile(const wchar_t* source, const wchar_t* target) {
    KIV_MANAGER_FORWARD(MoveFile(source, target));
}
unsigned int MFileManager::DeleteFile(const wchar_t* path) {
    KIV_MANAGER_FORWARD(DeleteFile(path));
}
unsigned int MFileManager::CreateDirectory(const wchar_t* path) {
    KIV_MANAGER_FORWARD(CreateDirectory(path));
}
unsigned int MFileManager::CopyTree(const wchar_t* source, const wchar_t* target,
                                    MFileProgressCallback progress, void* context,
                                    MFileProgress* outcome) {
    KIV_MANAGER_FORWARD(CopyTree(source, target, progress, context, outcome));
}
unsigned int MFileManager::MoveTree(const wchar_t* source, const wchar_t* target,
                                    MFileProgressCallback progress, void* context,
                                    MFileProgress* outcome) {
    KIV_MANAGER_FORWARD(MoveTree(source, target, progress, context, outcome));
}
unsigned int MFileManager::DeleteTree(const wchar_t* path, MFileProgressCallback progress,
                                      void* context, MFileProgress* outcome) {
    KIV_MANAGER_FORWARD(DeleteTree(path, progress, context, outcome));
}

#undef KIV_MANAGER_FORWARD

}  // namespace kiv::system
