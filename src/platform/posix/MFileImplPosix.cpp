#include "platform/posix/MFileImplPosix.h"

#include <kiv/foundation/MByteBuffer.h>

#include <algorithm>
#include <new>
#include <string>

#include "foundation/Text.h"

namespace kiv::system {
namespace {

constexpr int kOrigins[] = {SEEK_SET, SEEK_CUR, SEEK_END};

// The caller's mode with close-on-exec added, so that an open file is not
// inherited by the processes the library starts. The flag goes before any
// ",ccs=" suffix.
std::string StreamMode(const wchar_t* mode) {
    const std::string narrow = text::ToUtf8(mode);
    const std::size_t end = std::min(narrow.find(','), narrow.size());
    std::string flags = narrow.substr(0, end);
    if (flags.find('e') == std::string::npos) {
        flags.push_back('e');
    }
    return flags + narrow.substr(end);
}

// The bytes of `b`'s storage from its position on, at most `n`.
unsigned int RoomAt(MByteBuffer* b, unsigned int n) {
    if (b == nullptr || b->GetBuffer() == nullptr || b->GetPosition() < 0 ||
        b->GetPosition() > b->Capacity()) {
        return 0;
    }
    const auto room = static_cast<unsigned int>(b->Capacity() - b->GetPosition());
    return n < room ? n : room;
}

}  // namespace

MFileImpl* MFileImpl::Create(const wchar_t* path, const wchar_t* mode) {
    return new (std::nothrow) MFileImplPosix(path, mode);
}

MFileImplPosix::MFileImplPosix(const wchar_t* path, const wchar_t* mode) : m_stream(nullptr) {
    if (path != nullptr && mode != nullptr) {
        m_stream = std::fopen(text::ToUtf8(path).c_str(), StreamMode(mode).c_str());
    }
}

unsigned char MFileImplPosix::IsOpen() {
    return m_stream != nullptr ? 1 : 0;
}

unsigned char MFileImplPosix::IsEOF() {
    return (m_stream == nullptr || std::feof(m_stream) != 0) ? 1 : 0;
}

unsigned char MFileImplPosix::Seek(int offset, int origin) {
    // Origins outside the three-entry table fail instead of indexing past it.
    if (m_stream == nullptr || origin < 0 || origin > 2) {
        return 0;
    }
    return std::fseek(m_stream, offset, kOrigins[origin]) == 0 ? 1 : 0;
}

unsigned int MFileImplPosix::Tell() {
    if (m_stream == nullptr) {
        return 0;
    }
    return static_cast<unsigned int>(std::ftell(m_stream));
}

unsigned char MFileImplPosix::Close() {
    if (m_stream == nullptr) {
        return 0;
    }
    const int result = std::fclose(m_stream);
    m_stream = nullptr;
    return result == 0 ? 1 : 0;
}

int MFileImplPosix::ReadChar() {
    if (m_stream == nullptr) {
        return -1;
    }
    const int c = std::fgetc(m_stream);
    return c == EOF ? -1 : c;
}

unsigned int MFileImplPosix::Read(MByteBuffer* b, unsigned int n) {
    const unsigned int room = RoomAt(b, n);
    if (room == 0) {
        return 0;
    }
    return Read(b->GetBuffer() + b->GetPosition(), 1, room);
}

unsigned int MFileImplPosix::Read(void* dst, unsigned int size, unsigned int count) {
    if (m_stream == nullptr || dst == nullptr) {
        return 0;
    }
    return static_cast<unsigned int>(std::fread(dst, size, count, m_stream));
}

unsigned int MFileImplPosix::Write(MByteBuffer* b, unsigned int n) {
    const unsigned int room = RoomAt(b, n);
    if (room == 0) {
        return 0;
    }
    return Write(b->GetBuffer() + b->GetPosition(), 1, room);
}

unsigned int MFileImplPosix::Write(const void* src, unsigned int size, unsigned int count) {
    if (m_stream == nullptr || src == nullptr) {
        return 0;
    }
    return static_cast<unsigned int>(std::fwrite(src, size, count, m_stream));
}

}  // namespace kiv::system
