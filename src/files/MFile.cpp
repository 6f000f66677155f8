#include <kiv/files/MFile.h>

#include "files/MFileImpl.h"

namespace kiv::system {

const int MFile::SEEK_FILE_BEGIN = 0;
const int MFile::SEEK_FILE_CURRENT = 1;
const int MFile::SEEK_FILE_END = 2;

MFile::MFile(const wchar_t* path, const wchar_t* mode) : m_impl(MFileImpl::Create(path, mode)) {}

MFile::MFile(MFile& other) : m_impl(other.m_impl) {
    other.m_impl = nullptr;
}

MFile& MFile::operator=(MFile& other) {
    if (this != &other) {
        if (m_impl != nullptr && m_impl->IsOpen() != 0) {
            m_impl->Close();
        }
        delete m_impl;
        m_impl = other.m_impl;
        other.m_impl = nullptr;
    }
    return *this;
}

MFile::~MFile() {
    if (m_impl != nullptr) {
        // The implementation does not close its stream; close it here so
        // that it is not leaked.
        if (m_impl->IsOpen() != 0) {
            m_impl->Close();
        }
        delete m_impl;
    }
}

unsigned char MFile::IsOpen() {
    return m_impl != nullptr ? m_impl->IsOpen() : 0;
}

unsigned char MFile::IsEOF() {
    return m_impl != nullptr ? m_impl->IsEOF() : 1;
}

unsigned char MFile::Seek(int offset, int origin) {
    return m_impl != nullptr ? m_impl->Seek(offset, origin) : 0;
}

unsigned int MFile::Tell() {
    return m_impl != nullptr ? m_impl->Tell() : 0;
}

unsigned char MFile::Close() {
    return m_impl != nullptr ? m_impl->Close() : 0;
}

int MFile::ReadChar() {
    return m_impl != nullptr ? m_impl->ReadChar() : -1;
}

unsigned int MFile::Read(void* dst, unsigned int size, unsigned int count) {
    return m_impl != nullptr ? m_impl->Read(dst, size, count) : 0;
}

unsigned int MFile::Write(const void* src, unsigned int size, unsigned int count) {
    return m_impl != nullptr ? m_impl->Write(src, size, count) : 0;
}

unsigned int MFile::Read(MByteBuffer* b, unsigned int n) {
    return m_impl != nullptr ? m_impl->Read(b, n) : 0;
}

unsigned int MFile::Write(MByteBuffer* b, unsigned int n) {
    return m_impl != nullptr ? m_impl->Write(b, n) : 0;
}

}  // namespace kiv::system
