// The stream behind MFile. The platform implementation is chosen by Create.
#pragma once

namespace kiv::system {

class MByteBuffer;

class MFileImpl {
public:
    /// Opens `path` with `mode`; never null unless memory is exhausted. A
    /// failed open gives an implementation whose IsOpen() is 0.
    static MFileImpl* Create(const wchar_t* path, const wchar_t* mode);

    // The destructor does not close the stream: the facade closes it first.
    virtual ~MFileImpl() = default;
    virtual unsigned char IsOpen() = 0;
    virtual unsigned char IsEOF() = 0;
    virtual unsigned char Seek(int offset, int origin) = 0;
    virtual unsigned int Tell() = 0;
    virtual unsigned char Close() = 0;
    virtual int ReadChar() = 0;
    virtual unsigned int Read(MByteBuffer* b, unsigned int n) = 0;
    virtual unsigned int Read(void* dst, unsigned int size, unsigned int count) = 0;
    virtual unsigned int Write(MByteBuffer* b, unsigned int n) = 0;
    virtual unsigned int Write(const void* src, unsigned int size, unsigned int count) = 0;
};

}  // namespace kiv::system
