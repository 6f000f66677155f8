// A byte array with a read cursor and a declared byte order.
//
// The buffer either owns its storage (Allocate) or borrows storage it does not
// own (Wrap). Typed reads (GetShort, GetInt, GetINT64 ...) convert from the
// buffer's byte order; every read is bounded by the size. Assignment is a
// shallow copy of all fields, storage pointer included: never assign owning
// buffers to each other.
#pragma once

#include <kiv/platform/KivApi.h>
#include <kiv/platform/Win32Types.h>

// glibc's <endian.h> defines BIG_ENDIAN and LITTLE_ENDIAN as macros, which
// would replace the constants below. It is included here first so that its
// include guard keeps it from defining them again, and the macros are
// dropped. Use __BIG_ENDIAN / __LITTLE_ENDIAN / __BYTE_ORDER for the host's order.
#if __has_include(<endian.h>)
#include <endian.h>
#endif
#undef BIG_ENDIAN
#undef LITTLE_ENDIAN

namespace kiv::system {

class KIV_API MByteBuffer {
public:
    static const unsigned char BIG_ENDIAN;     ///< 0
    static const unsigned char LITTLE_ENDIAN;  ///< 1, the default

    /// An empty little-endian buffer without storage.
    MByteBuffer();
    /// Frees the storage if the buffer owns it.
    ~MByteBuffer();
    /// Shallow copies of every field, the storage pointer and ownership included.
    MByteBuffer(const MByteBuffer& other);
    MByteBuffer& operator=(const MByteBuffer& other);

    /// Replaces the storage with `n` owned bytes (not cleared); position 0,
    /// size = capacity = n. Returns 1 on success, 0 if allocation failed.
    unsigned char Allocate(int n);
    /// Replaces the storage with `n` borrowed bytes at `p`; position 0,
    /// size = capacity = n. The borrowed bytes are never freed.
    void Wrap(char* p, int n);

    char* GetBuffer();
    int Capacity();
    int GetSize();
    /// Sets the number of valid bytes; not checked against the capacity.
    void SetSize(int size);
    int GetPosition();
    /// Moves the cursor; not checked.
    void SetPosition(int position);
    /// size - position; negative when the cursor is past the size.
    int Remaining();
    void SetEndian(unsigned char endian);
    unsigned char GetEndian();

    /// Copies min(size - pos, len) bytes from index `pos` into `dst` when that
    /// is at least 1, and returns that count (which may be 0 or negative).
    int Get(void* dst, int pos, int len);
    /// Get(dst, position, len), then adds the result to the position, even a
    /// negative one: a cursor past the size is pulled back to the size.
    int Get(void* dst, int len);
    /// Copies `len` bytes to the storage at the position and returns `len`, or
    /// returns 0 and writes nothing if fewer than `len` bytes remain. The
    /// position is not advanced: a writer sets it before each Put.
    int Put(const void* src, int len);

    /// The byte at index `i`, or 0 if `i` is not below the size.
    char GetChar(int i);
    unsigned char GetByte(int i);
    /// The byte at the position (0 past the size); advances by one only while
    /// a byte remains.
    char GetChar();
    unsigned char GetByte();

    /// Values at index `i` in the buffer's byte order; 0 if they do not lie
    /// wholly below the size.
    short GetShort(int i);
    unsigned short GetUnsignedShort(int i);
    int GetInt(int i);
    unsigned int GetUnsignedInt(int i);
    __int64 GetINT64(int i);

    /// The same at the position. The position advances by the width when
    /// (size - position), taken as unsigned, is at least the width, so a
    /// cursor already past the size still moves.
    short GetShort();
    unsigned short GetUnsignedShort();
    int GetInt();
    unsigned int GetUnsignedInt();
    __int64 GetINT64();

private:
    template <typename T>
    T ValueAt(int index);
    template <typename T>
    T ValueAtPosition();
    bool InStorage(long long index, long long len) const;
    void FreeOwned();

    int m_position;
    int m_size;
    int m_capacity;
    unsigned char m_wrapped;
    unsigned char m_endian;
    char* m_buffer;
};

}  // namespace kiv::system
