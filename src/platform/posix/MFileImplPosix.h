// MFile's stream on the C library, opened by a UTF-8 path.
#pragma once

#include <cstdio>

#include "files/MFileImpl.h"

namespace kiv::system {

class MFileImplPosix final : public MFileImpl {
public:
    MFileImplPosix(const wchar_t* path, const wchar_t* mode);
    ~MFileImplPosix() override = default;

    unsigned char IsOpen() override;
    unsigned char IsEOF() override;
    unsigned char Seek(int offset, int origin) override;
    unsigned int Tell() override;
    unsigned char Close() override;
    int ReadChar() override;
    unsigned int Read(MByteBuffer* b, unsigned int n) override;
    unsigned int Read(void* dst, unsigned int size, unsigned int count) override;
    unsigned int Write(MByteBuffer* b, unsigned int n) override;
    unsigned int Write(const void* src, unsigned int size, unsigned int count) override;

private:
    std::FILE* m_stream;
};

}  // namespace kiv::system
