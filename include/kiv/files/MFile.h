// A buffered file stream opened by a wide path and a C-library open mode.
//
// A failed open still yields an object: IsOpen() is then 0 and every read
// reports nothing. Copying moves the open stream to the new object and leaves
// the source empty.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::system {

class MByteBuffer;
class MFileImpl;

class KIV_API MFile {
public:
    static const int SEEK_FILE_BEGIN;    ///< 0: from the beginning
    static const int SEEK_FILE_CURRENT;  ///< 1: from the current position
    static const int SEEK_FILE_END;      ///< 2: from the end

    /// Opens `path` with the stream mode `mode` ("rb", "w+b", ...), passed
    /// through to the C library. Both are converted to UTF-8.
    MFile(const wchar_t* path, const wchar_t* mode);
    /// Moves the stream out of `other`, which is left empty.
    MFile(MFile& other);
    /// Closes and drops this object's stream, then moves `other`'s in.
    MFile& operator=(MFile& other);
    /// Closes the stream if it is open.
    ~MFile();

    /// 1 while a stream is open.
    unsigned char IsOpen();
    /// 1 when the end-of-file indicator is set (also without a stream).
    unsigned char IsEOF();
    /// Moves the position; `origin` is one of the SEEK_FILE_ constants.
    /// 1 on success, 0 on failure.
    unsigned char Seek(int offset, int origin);
    /// The current position in bytes.
    unsigned int Tell();
    /// Closes the stream: 1 if the close succeeded, 0 if it failed or the
    /// stream was already closed. The object cannot be reopened.
    unsigned char Close();
    /// The next byte as 0..255, or -1 at the end of the file or on error.
    int ReadChar();
    /// Reads up to `count` elements of `size` bytes; returns the whole
    /// elements read.
    unsigned int Read(void* dst, unsigned int size, unsigned int count);
    /// Writes `count` elements of `size` bytes; returns the elements written.
    unsigned int Write(const void* src, unsigned int size, unsigned int count);
    /// Reads up to `n` bytes into `b`'s storage at `b`'s position and returns
    /// the bytes read. The buffer's position and size are not changed; the
    /// read stops at the end of `b`'s storage.
    unsigned int Read(MByteBuffer* b, unsigned int n);
    /// Writes `n` bytes from `b`'s storage at `b`'s position and returns the
    /// bytes written; it stops at the end of `b`'s storage.
    unsigned int Write(MByteBuffer* b, unsigned int n);

private:
    MFileImpl* m_impl;
};

}  // namespace kiv::system
