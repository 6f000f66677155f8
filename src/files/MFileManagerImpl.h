// The work behind MFileManager: tree walks and the careful copy, composed
// from the primitives of the platform's file system.
#pragma once

#include <kiv/files/MFileManager.h>

#include <string>
#include <vector>

#include "foundation/SharedImplementation.h"
#include "platform/FileSystem.h"

namespace kiv::system {

class MFileManagerImpl : public SharedImplementation<MFileManagerImpl> {
public:
    MFileManagerImpl() = default;
    MFileManagerImpl(const MFileManagerImpl&) = delete;
    MFileManagerImpl& operator=(const MFileManagerImpl&) = delete;

    virtual ~MFileManagerImpl() = default;
    virtual unsigned int FindFiles(const wchar_t* directory, const wchar_t* pattern,
                                   unsigned char recursive, IFileFilter* filter,
                                   std::vector<std::wstring>& found);
    virtual unsigned int CopyFile(const wchar_t* source, const wchar_t* target,
                                  unsigned char failIfExists);
    virtual unsigned int MoveFile(const wchar_t* source, const wchar_t* target);
    virtual unsigned int DeleteFile(const wchar_t* path);
    virtual unsigned int CreateDirectory(const wchar_t* path);
    virtual unsigned int CopyTree(const wchar_t* source, const wchar_t* target,
                                  MFileProgressCallback progress, void* context,
                                  MFileProgress* outcome);
    virtual unsigned int MoveTree(const wchar_t* source, const wchar_t* target,
                                  MFileProgressCallback progress, void* context,
                                  MFileProgress* outcome);
    virtual unsigned int DeleteTree(const wchar_t* path, MFileProgressCallback progress,
                                    void* context, MFileProgress* outcome);
};

}  // namespace kiv::system
