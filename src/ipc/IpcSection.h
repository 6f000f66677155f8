// The layout of the shared IPC section "IPC_Shar" and of the server records
// it holds, and bounded access to their bytes.
//
// Section (81,068 bytes, little-endian 32-bit integers, UTF-16 names):
//   0x00000  serverCount   signed, records in use (0..30)
//   0x00004  nextObjectId  the next command or subscriber id, first 1
//   0x00008  30 server records of 2,360 bytes
//   0x11498  10 data slots of 1,026 bytes: in-use flag, unused byte, payload
// Server record (2,360 bytes): window, processId, name[32], commandCount,
//   eventCount, 5 commands of 200 bytes (id, name[32], description[64],
//   handler), 5 events of 256 bytes (name[32], description[64],
//   subscriberCount, 5 subscribers of 12 bytes: id, window, callback).
//
// Another process may have written anything into the section, so nothing
// read from it is trusted: every count read goes through Bytes::Count, and
// every byte access is checked against the bounds of the bytes it is made
// on, whatever offset the arithmetic gives.
#pragma once

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>

namespace kiv::ipc::detail {

inline constexpr std::size_t kSectionSize = 81068;
inline constexpr std::size_t kServerCountAt = 0x00000;
inline constexpr std::size_t kNextObjectIdAt = 0x00004;
inline constexpr std::size_t kServersAt = 0x00008;
inline constexpr std::size_t kSlotsAt = 0x11498;

inline constexpr std::size_t kRecordSize = 2360;
inline constexpr std::size_t kCommandSize = 200;
inline constexpr std::size_t kEventSize = 256;
inline constexpr std::size_t kSubscriberSize = 12;
inline constexpr std::size_t kSlotSize = 1026;
inline constexpr std::size_t kPayloadSize = 1024;

inline constexpr std::int32_t kMaxServers = 30;
inline constexpr std::int32_t kMaxCommands = 5;
inline constexpr std::int32_t kMaxEvents = 5;
inline constexpr std::int32_t kMaxSubscribers = 5;
inline constexpr std::int32_t kSlotCount = 10;

inline constexpr std::size_t kNameChars = 32;         // 31 and a terminator
inline constexpr std::size_t kDescriptionChars = 64;  // 63 and a terminator

// Server record fields.
inline constexpr std::size_t kWindowAt = 0;
inline constexpr std::size_t kProcessIdAt = 4;
inline constexpr std::size_t kNameAt = 8;
inline constexpr std::size_t kCommandCountAt = 72;
inline constexpr std::size_t kEventCountAt = 76;
inline constexpr std::size_t kCommandsAt = 80;
inline constexpr std::size_t kEventsAt = 1080;
// Command entry fields.
inline constexpr std::size_t kCommandIdAt = 0;
inline constexpr std::size_t kCommandNameAt = 4;
inline constexpr std::size_t kCommandDescriptionAt = 68;
inline constexpr std::size_t kCommandHandlerAt = 196;
// Event entry fields.
inline constexpr std::size_t kEventNameAt = 0;
inline constexpr std::size_t kEventDescriptionAt = 64;
inline constexpr std::size_t kSubscriberCountAt = 192;
inline constexpr std::size_t kSubscribersAt = 196;
// Subscriber entry fields.
inline constexpr std::size_t kSubscriberIdAt = 0;
inline constexpr std::size_t kSubscriberWindowAt = 4;
inline constexpr std::size_t kSubscriberCallbackAt = 8;

static_assert(kServersAt + kMaxServers * kRecordSize == kSlotsAt);
static_assert(kSlotsAt + kSlotCount * kSlotSize == kSectionSize);
static_assert(kCommandsAt + kMaxCommands * kCommandSize == kEventsAt);
static_assert(kEventsAt + kMaxEvents * kEventSize == kRecordSize);
static_assert(kSubscribersAt + kMaxSubscribers * kSubscriberSize == kEventSize);

constexpr std::size_t CommandAt(std::size_t i) {
    return kCommandsAt + i * kCommandSize;
}
constexpr std::size_t EventAt(std::size_t i) {
    return kEventsAt + i * kEventSize;
}
constexpr std::size_t SubscriberAt(std::size_t event, std::size_t i) {
    return EventAt(event) + kSubscribersAt + i * kSubscriberSize;
}
constexpr std::size_t RecordAt(std::size_t server) {
    return kServersAt + server * kRecordSize;
}
constexpr std::size_t PayloadAt(std::size_t slot) {
    return kSlotsAt + slot * kSlotSize + 2;
}

/// A server record kept in process memory (the private copy of a server or
/// service object).
using Record = std::array<std::uint8_t, kRecordSize>;

/// Bounded access to a run of bytes: the section or one record. Reads
/// outside give 0 and writes outside are dropped, so even the directory's
/// own odd arithmetic never leaves the bytes it works on.
class Bytes {
public:
    Bytes(std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}
    explicit Bytes(Record& record) : m_data(record.data()), m_size(record.size()) {}

    std::size_t Size() const { return m_size; }
    std::uint8_t* Data() const { return m_data; }

    std::uint32_t U32(std::size_t at) const {
        if (!Fits(at, 4)) {
            return 0;
        }
        return static_cast<std::uint32_t>(m_data[at]) |
               static_cast<std::uint32_t>(m_data[at + 1]) << 8 |
               static_cast<std::uint32_t>(m_data[at + 2]) << 16 |
               static_cast<std::uint32_t>(m_data[at + 3]) << 24;
    }
    std::int32_t I32(std::size_t at) const { return static_cast<std::int32_t>(U32(at)); }
    void SetU32(std::size_t at, std::uint32_t v) {
        if (Fits(at, 4)) {
            m_data[at] = static_cast<std::uint8_t>(v);
            m_data[at + 1] = static_cast<std::uint8_t>(v >> 8);
            m_data[at + 2] = static_cast<std::uint8_t>(v >> 16);
            m_data[at + 3] = static_cast<std::uint8_t>(v >> 24);
        }
    }
    void SetI32(std::size_t at, std::int32_t v) { SetU32(at, static_cast<std::uint32_t>(v)); }

    /// The count stored at `at`, as a number of entries that may be walked:
    /// 0..`limit`. The one place where counts read from shared bytes are
    /// made safe to use as loop bounds and indexes.
    std::int32_t Count(std::size_t at, std::int32_t limit) const {
        return std::clamp(I32(at), 0, limit);
    }

    std::uint8_t Byte(std::size_t at) const { return at < m_size ? m_data[at] : 0; }
    void SetByte(std::size_t at, std::uint8_t v) {
        if (at < m_size) {
            m_data[at] = v;
        }
    }

    /// The UTF-16 text of a field of `chars` units, up to its terminator.
    std::u16string Text(std::size_t at, std::size_t chars) const {
        std::u16string s;
        for (std::size_t i = 0; i < chars; ++i) {
            const std::size_t p = at + 2 * i;
            const auto c = static_cast<char16_t>(Byte(p) | Byte(p + 1) << 8);
            if (c == 0) {
                break;
            }
            s.push_back(c);
        }
        return s;
    }
    /// Compares the text of a field with `s` as the device's wcscmp would,
    /// never reading past the field.
    bool TextEquals(std::size_t at, std::size_t chars, std::u16string_view s) const {
        return s.size() < chars && Text(at, chars) == s;
    }
    /// Writes at most `max` units of `s` and a terminator (the field is
    /// expected to be cleared already). A cut never keeps the first half of
    /// a surrogate pair without the second.
    void SetText(std::size_t at, std::u16string_view s, std::size_t max) {
        std::size_t n = std::min(s.size(), max);
        if (n < s.size() && n > 0 && s[n - 1] >= 0xD800 && s[n - 1] <= 0xDBFF) {
            --n;
        }
        for (std::size_t i = 0; i < n; ++i) {
            SetByte(at + 2 * i, static_cast<std::uint8_t>(s[i]));
            SetByte(at + 2 * i + 1, static_cast<std::uint8_t>(s[i] >> 8));
        }
        SetByte(at + 2 * n, 0);
        SetByte(at + 2 * n + 1, 0);
    }

    /// Clears `n` bytes from `at`, cut to the bytes there are. Offsets and
    /// counts are signed: the directory's arithmetic can make either
    /// negative, and then nothing happens.
    void Clear(std::int64_t at, std::int64_t n) {
        if (at < 0 || n <= 0 || at >= Size64()) {
            return;
        }
        std::memset(m_data + at, 0, static_cast<std::size_t>(std::min(n, Size64() - at)));
    }
    /// Moves `n` bytes from `from` to `to` (memmove), cut so that neither
    /// range leaves the bytes there are. A count below 1 moves nothing.
    void Move(std::int64_t to, std::int64_t from, std::int64_t n) {
        if (n <= 0 || to < 0 || from < 0 || to >= Size64() || from >= Size64()) {
            return;
        }
        const std::int64_t room = Size64() - std::max(to, from);
        std::memmove(m_data + to, m_data + from, static_cast<std::size_t>(std::min(n, room)));
    }
    void Copy(std::size_t at, const void* from, std::size_t n) {
        if (Fits(at, n)) {
            std::memcpy(m_data + at, from, n);
        }
    }

private:
    std::int64_t Size64() const { return static_cast<std::int64_t>(m_size); }
    bool Fits(std::size_t at, std::size_t n) const { return at <= m_size && n <= m_size - at; }

    std::uint8_t* m_data;
    std::size_t m_size;
};

}  // namespace kiv::ipc::detail
