#include <kiv/foundation/MByteBuffer.h>

#include <algorithm>
#include <cstring>
#include <new>
#include <type_traits>

namespace kiv::system {
namespace {

template <typename T>
T ReverseBytes(T value) {
    using U = std::make_unsigned_t<T>;
    U bits = static_cast<U>(value);
    if constexpr (sizeof(T) == 2) {
        bits = __builtin_bswap16(bits);
    } else if constexpr (sizeof(T) == 4) {
        bits = __builtin_bswap32(bits);
    } else {
        static_assert(sizeof(T) == 8);
        bits = __builtin_bswap64(bits);
    }
    return static_cast<T>(bits);
}

}  // namespace

const unsigned char MByteBuffer::BIG_ENDIAN = 0;
const unsigned char MByteBuffer::LITTLE_ENDIAN = 1;

MByteBuffer::MByteBuffer()
    : m_position(0),
      m_size(0),
      m_capacity(0),
      m_wrapped(0),
      m_endian(LITTLE_ENDIAN),
      m_buffer(nullptr) {}

MByteBuffer::~MByteBuffer() {
    FreeOwned();
}

// Shallow by design: both buffers then point at one storage.
MByteBuffer::MByteBuffer(const MByteBuffer& other) = default;
MByteBuffer& MByteBuffer::operator=(const MByteBuffer& other) = default;

void MByteBuffer::FreeOwned() {
    if (m_wrapped == 0 && m_buffer != nullptr) {
        delete[] m_buffer;
    }
    m_buffer = nullptr;
}

unsigned char MByteBuffer::Allocate(int n) {
    FreeOwned();
    m_wrapped = 0;
    m_position = 0;
    m_buffer = (n >= 0) ? new (std::nothrow) char[static_cast<size_t>(n)] : nullptr;
    m_size = m_capacity = (m_buffer != nullptr) ? n : 0;
    return m_buffer != nullptr ? 1 : 0;
}

void MByteBuffer::Wrap(char* p, int n) {
    FreeOwned();
    m_buffer = p;
    m_position = 0;
    m_size = m_capacity = n;
    m_wrapped = 1;
}

char* MByteBuffer::GetBuffer() {
    return m_buffer;
}
int MByteBuffer::Capacity() {
    return m_capacity;
}
int MByteBuffer::GetSize() {
    return m_size;
}
void MByteBuffer::SetSize(int size) {
    m_size = size;
}
int MByteBuffer::GetPosition() {
    return m_position;
}
void MByteBuffer::SetPosition(int position) {
    m_position = position;
}
int MByteBuffer::Remaining() {
    return m_size - m_position;
}
void MByteBuffer::SetEndian(unsigned char endian) {
    m_endian = endian;
}
unsigned char MByteBuffer::GetEndian() {
    return m_endian;
}

// The size is the bound of every read and write; this check only keeps an
// unchecked size, position or index (SetSize, SetPosition) from reaching
// outside the storage actually held.
bool MByteBuffer::InStorage(long long index, long long len) const {
    return m_buffer != nullptr && index >= 0 && len >= 0 && index + len <= m_capacity;
}

int MByteBuffer::Get(void* dst, int pos, int len) {
    const long long available = static_cast<long long>(m_size) - pos;
    const int n = static_cast<int>(std::min<long long>(available, len));
    if (n >= 1) {
        if (!InStorage(pos, n)) {
            return 0;
        }
        std::memcpy(dst, m_buffer + pos, static_cast<size_t>(n));
    }
    return n;
}

int MByteBuffer::Get(void* dst, int len) {
    const int n = Get(dst, m_position, len);
    // Added even when negative: a cursor past the size comes back to it.
    m_position += n;
    return n;
}

int MByteBuffer::Put(const void* src, int len) {
    if (static_cast<long long>(m_size) - m_position < len || len <= 0 ||
        !InStorage(m_position, len)) {
        return 0;
    }
    std::memcpy(m_buffer + m_position, src, static_cast<size_t>(len));
    // The position is deliberately left where it is.
    return len;
}

char MByteBuffer::GetChar(int i) {
    return static_cast<char>(GetByte(i));
}

unsigned char MByteBuffer::GetByte(int i) {
    if (i >= m_size || !InStorage(i, 1)) {
        return 0;
    }
    return static_cast<unsigned char>(m_buffer[i]);
}

char MByteBuffer::GetChar() {
    return static_cast<char>(GetByte());
}

unsigned char MByteBuffer::GetByte() {
    const unsigned char value = GetByte(m_position);
    // A signed test: a cursor past the size stays where it is.
    if (static_cast<long long>(m_size) - m_position >= 1) {
        ++m_position;
    }
    return value;
}

// Typed read at an index: nothing if the value does not lie wholly below the
// size; the bytes are reversed for big-endian data (the host is little-endian).
template <typename T>
T MByteBuffer::ValueAt(int index) {
    if (static_cast<long long>(index) + static_cast<long long>(sizeof(T)) > m_size ||
        !InStorage(index, sizeof(T))) {
        return 0;
    }
    T value;
    std::memcpy(&value, m_buffer + index, sizeof(T));
    if (m_endian == BIG_ENDIAN) {
        value = ReverseBytes(value);
    }
    return value;
}

template <typename T>
T MByteBuffer::ValueAtPosition() {
    const T value = ValueAt<T>(m_position);
    // An unsigned test: a cursor past the size wraps to a large remainder and
    // still advances, while a short remainder keeps it in place.
    const auto remaining = static_cast<unsigned int>(static_cast<long long>(m_size) - m_position);
    if (remaining >= sizeof(T)) {
        m_position = static_cast<int>(static_cast<unsigned int>(m_position) + sizeof(T));
    }
    return value;
}

short MByteBuffer::GetShort(int i) {
    return ValueAt<short>(i);
}
unsigned short MByteBuffer::GetUnsignedShort(int i) {
    return ValueAt<unsigned short>(i);
}
int MByteBuffer::GetInt(int i) {
    return ValueAt<int>(i);
}
unsigned int MByteBuffer::GetUnsignedInt(int i) {
    return ValueAt<unsigned int>(i);
}
__int64 MByteBuffer::GetINT64(int i) {
    return ValueAt<__int64>(i);
}

short MByteBuffer::GetShort() {
    return ValueAtPosition<short>();
}
unsigned short MByteBuffer::GetUnsignedShort() {
    return ValueAtPosition<unsigned short>();
}
int MByteBuffer::GetInt() {
    return ValueAtPosition<int>();
}
unsigned int MByteBuffer::GetUnsignedInt() {
    return ValueAtPosition<unsigned int>();
}
__int64 MByteBuffer::GetINT64() {
    return ValueAtPosition<__int64>();
}

}  // namespace kiv::system
