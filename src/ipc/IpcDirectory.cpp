#include "ipc/IpcDirectory.h"

#include <algorithm>
#include <chrono>
#include <map>
#include <new>
#include <thread>

#include "platform/DebugOutput.h"
#include "platform/MessageWindow.h"
#include "platform/Namespace.h"
#include "platform/ProcessTable.h"
#include "platform/SharedSection.h"

namespace kiv::ipc::detail {
namespace {

using platform::SharedLockResult;

constexpr std::uint32_t kReady = 0x4B495034u;  // "KIP4"

SectionTrailer* TrailerOf(void* base) {
    return reinterpret_cast<SectionTrailer*>(static_cast<std::uint8_t*>(base) + kTrailerAt);
}

bool SectionIsReady(const void* base) {
    const auto* trailer = reinterpret_cast<const SectionTrailer*>(
        static_cast<const std::uint8_t*>(base) + kTrailerAt);
    return trailer->ready.load(std::memory_order_acquire) == kReady;
}

// Zero-filled, with the first object id 1.
bool InitialiseSection(void* base) {
    std::memset(base, 0, kMappedSize);
    Bytes(static_cast<std::uint8_t*>(base), kSectionSize).SetU32(kNextObjectIdAt, 1);
    SectionTrailer* trailer = new (TrailerOf(base)) SectionTrailer;
    trailer->nextToken.store(1, std::memory_order_relaxed);
    for (std::int32_t i = 0; i < kSlotCount; ++i) {
        trailer->slotHolder[i].store(0, std::memory_order_relaxed);
        trailer->slotReader[i].store(0, std::memory_order_relaxed);
        trailer->slotSerial[i].store(0, std::memory_order_relaxed);
    }
    if (!platform::InitSharedLock(&trailer->directoryLock) ||
        !platform::InitSharedLock(&trailer->dataLock)) {
        return false;
    }
    trailer->ready.store(kReady, std::memory_order_release);
    return true;
}

// A window lives while its owner thread does; the window table finds the
// owners that died.
bool WindowLives(std::uint32_t window) {
    return window != 0 && platform::GetWindowOwner(platform::WindowFromValue(window), nullptr) != 0;
}

// A slot's holder or reader, recorded as a process stamp, that still runs.
bool StampLives(std::uint64_t stamp) {
    return stamp != 0 && platform::ProcessStampIsAlive(stamp);
}

std::u16string RecordName(const Record& record) {
    return Bytes(const_cast<std::uint8_t*>(record.data()), record.size()).Text(kNameAt, kNameChars);
}

}  // namespace

// --- cross-process lock ---------------------------------------------------

bool CrossProcessLock::Lock() {
    // Only a failure to lock at all (a corrupt lock) leaves the caller
    // without it; that is not survivable, so keep trying as a wait would.
    SharedLockResult rc;
    while ((rc = platform::TakeSharedLock(m_lock)) == SharedLockResult::Failed) {
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    // The event only shows the state: consume its signal if it has one.
    platform::WaitFor(m_event, 0);
    return rc == SharedLockResult::TakenFromDeadOwner;
}

void CrossProcessLock::Unlock() {
    m_event.Set();
    platform::ReleaseSharedLock(m_lock);
}

class IpcDirectory::Locked {
public:
    explicit Locked(CrossProcessLock& lock) : m_lock(lock) { m_lock.Lock(); }
    ~Locked() { m_lock.Unlock(); }
    Locked(const Locked&) = delete;
    Locked& operator=(const Locked&) = delete;

private:
    CrossProcessLock& m_lock;
};

// --- directory ----------------------------------------------------------------

IpcDirectory::IpcDirectory(std::uint8_t* base, platform::Event directory, platform::Event data)
    : m_base(base),
      m_trailer(TrailerOf(base)),
      m_directoryLock(std::move(directory), &m_trailer->directoryLock),
      m_dataLock(std::move(data), &m_trailer->dataLock) {}

IpcDirectory* IpcDirectory::Current() {
    static std::mutex lock;
    // Kept for the life of the process, like the mapping of the section.
    static auto* directories = new std::map<std::string, IpcDirectory*>;
    const std::string key = platform::NamespaceToken();
    std::lock_guard<std::mutex> guard(lock);
    if (const auto it = directories->find(key); it != directories->end()) {
        return it->second;
    }
    std::uint8_t* base =
        platform::MapSharedSection(L"IPC_Shar", kMappedSize, SectionIsReady, InitialiseSection);
    if (base == nullptr) {
        return nullptr;
    }
    using platform::Event;
    using platform::EventReset;
    Event directory = Event::Create(L"KIV_IPC_MUTEX_EVENT", EventReset::Automatic, true);
    Event data = Event::Create(L"KIV_IPC_SHARE_DATA", EventReset::Automatic, true);
    if (!directory.IsValid() || !data.IsValid()) {
        return nullptr;
    }
    auto* created = new (std::nothrow) IpcDirectory(base, std::move(directory), std::move(data));
    if (created != nullptr) {
        directories->emplace(key, created);
    }
    return created;
}

int IpcDirectory::FindServerIndex(std::u16string_view name) {
    const Bytes s = Section();
    const std::int32_t count = s.Count(kServerCountAt, kMaxServers);
    for (std::int32_t i = 0; i < count; ++i) {
        if (s.TextEquals(RecordAt(i) + kNameAt, kNameChars, name)) {
            return i;
        }
    }
    return -1;
}

int IpcDirectory::LookUp(std::u16string_view name, Record& out, bool live) {
    Locked lock(m_directoryLock);
    int index = FindServerIndex(name);
    if (live && index >= 0 && !WindowLives(Section().U32(RecordAt(index) + kWindowAt))) {
        SweepDeadLocked();
        index = FindServerIndex(name);
    }
    if (index >= 0) {
        std::memcpy(out.data(), m_base + RecordAt(index), kRecordSize);
    }
    return index;
}

std::vector<Record> IpcDirectory::Records() {
    Locked lock(m_directoryLock);
    SweepDeadLocked();
    const std::int32_t count = Section().Count(kServerCountAt, kMaxServers);
    std::vector<Record> records(static_cast<std::size_t>(count));
    for (std::int32_t i = 0; i < count; ++i) {
        std::memcpy(records[i].data(), m_base + RecordAt(i), kRecordSize);
    }
    return records;
}

void IpcDirectory::Refresh(Record& record) {
    const int index = FindServerIndex(RecordName(record));
    if (index >= 0) {
        std::memcpy(record.data(), m_base + RecordAt(index), kRecordSize);
    }
}

std::uint32_t IpcDirectory::NextObjectId() {
    Bytes s = Section();
    const std::uint32_t id = s.U32(kNextObjectIdAt);
    s.SetU32(kNextObjectIdAt, id + 1);
    return id;
}

int IpcDirectory::Register(Record& record, const std::function<std::uint32_t()>& window) {
    Locked lock(m_directoryLock);
    Bytes s = Section();
    if (s.U32(kServerCountAt) >= static_cast<std::uint32_t>(kMaxServers) ||
        FindServerIndex(RecordName(record)) >= 0) {
        SweepDeadLocked();  // the records of servers that ended make room
    }
    const auto count = s.U32(kServerCountAt);
    if (count >= static_cast<std::uint32_t>(kMaxServers)) {
        return -1;
    }
    if (FindServerIndex(RecordName(record)) >= 0) {
        return -1;
    }
    Bytes r(record);
    r.SetU32(kWindowAt, window());
    r.SetU32(kProcessIdAt, platform::CurrentProcessId());
    s.Copy(RecordAt(count), record.data(), kRecordSize);
    s.SetU32(kServerCountAt, count + 1);
    return static_cast<int>(count);
}

int IpcDirectory::Unregister(std::u16string_view name) {
    Locked lock(m_directoryLock);
    Bytes s = Section();
    for (std::int32_t i = 0; i < s.Count(kServerCountAt, kMaxServers); ++i) {
        if (!s.TextEquals(RecordAt(i) + kNameAt, kNameChars, name)) {
            continue;
        }
        RemoveRecordAt(i);
        // The vacated last record is left as it was, and the walk goes on
        // from the next index: the record moved into this place is not
        // looked at again.
    }
    return 0;
}

void IpcDirectory::RemoveRecordAt(std::int32_t i) {
    Bytes s = Section();
    const std::int32_t remaining = s.Count(kServerCountAt, kMaxServers) - 1;
    s.SetI32(kServerCountAt, remaining);
    if (i != remaining) {
        s.Move(RecordAt(i), RecordAt(i + 1),
               static_cast<std::int64_t>(remaining - i) * kRecordSize);
    }
}

void IpcDirectory::RemoveSubscriberAt(std::size_t record, std::int32_t e, std::int32_t i) {
    Bytes s = Section();
    const std::size_t countAt = record + EventAt(e) + kSubscriberCountAt;
    const std::int32_t remaining = s.Count(countAt, kMaxSubscribers) - 1;
    s.SetI32(countAt, remaining);
    const auto entry = [&](std::int32_t k) {
        return static_cast<std::int64_t>(record + EventAt(e) + kSubscribersAt) +
               static_cast<std::int64_t>(k) * static_cast<std::int64_t>(kSubscriberSize);
    };
    // The byte counts use a 256-byte stride, not the 12 bytes of an entry:
    // the move and the clear reach past this event's entries.
    if (i != remaining) {
        s.Move(entry(i), entry(i + 1), static_cast<std::int64_t>(remaining - i) * 256);
    }
    s.Clear(entry(remaining), 256);
}

void IpcDirectory::SweepDeadLocked() {
    Bytes s = Section();
    for (std::int32_t i = 0; i < s.Count(kServerCountAt, kMaxServers);) {
        const std::size_t record = RecordAt(i);
        if (!WindowLives(s.U32(record + kWindowAt))) {
            RemoveRecordAt(i);  // the next record moved here: look at it too
            continue;
        }
        for (std::int32_t e = 0; e < kMaxEvents; ++e) {
            for (std::int32_t k = 0; k < kMaxSubscribers;) {
                const std::size_t at = record + SubscriberAt(e, k);
                if (s.I32(at + kSubscriberIdAt) >= 1 &&
                    !WindowLives(s.U32(at + kSubscriberWindowAt))) {
                    RemoveSubscriberAt(record, e, k);
                } else {
                    ++k;
                }
            }
        }
        ++i;
    }
}

void IpcDirectory::SweepDead() {
    Locked lock(m_directoryLock);
    SweepDeadLocked();
}

int IpcDirectory::AddCommand(Record& record, std::u16string_view name, Handler handler,
                             std::u16string_view description) {
    Locked lock(m_directoryLock);
    Refresh(record);
    Bytes r(record);
    const std::uint32_t count = r.U32(kCommandCountAt);
    if (count >= static_cast<std::uint32_t>(kMaxCommands)) {
        platform::OutputDebugText(L"Over max msg IMC_SERVICE\n");
        return -1;
    }
    std::uint32_t index = 0;
    while (index < count && !r.TextEquals(CommandAt(index) + kCommandNameAt, kNameChars, name)) {
        ++index;
    }
    const std::size_t at = CommandAt(index);
    r.Clear(static_cast<std::int64_t>(at), kCommandSize);
    r.SetText(at + kCommandNameAt, name, kNameChars - 1);
    r.SetU32(at + kCommandIdAt, NextObjectId());
    r.SetU32(at + kCommandHandlerAt, TokenOf(handler));
    if (!description.empty()) {
        r.SetText(at + kCommandDescriptionAt, description, kDescriptionChars - 1);
    }
    // Raised even when an existing name was overwritten: the count then
    // covers a duplicate slot, as the device does.
    r.SetU32(kCommandCountAt, count + 1);
    return static_cast<int>(index);
}

void IpcDirectory::RemoveCommand(Record& record, std::u16string_view name) {
    Locked lock(m_directoryLock);
    Refresh(record);
    Bytes r(record);
    const std::int32_t count = r.Count(kCommandCountAt, kMaxCommands);
    std::int32_t index = 0;
    while (index < count && !r.TextEquals(CommandAt(index) + kCommandNameAt, kNameChars, name)) {
        ++index;
    }
    if (index >= count) {
        return;
    }
    const std::int32_t remaining = count - 1;
    r.SetI32(kCommandCountAt, remaining);
    if (index != remaining) {
        // (index - remaining) is never positive here: only removing the last
        // command is well defined, and any other removal clears the last.
        r.Move(CommandAt(index), CommandAt(index + 1),
               static_cast<std::int64_t>(index - remaining) * kCommandSize);
    }
    r.Clear(static_cast<std::int64_t>(CommandAt(remaining)), kCommandSize);
}

int IpcDirectory::AddEvent(Record& record, std::u16string_view name,
                           std::u16string_view description) {
    Locked lock(m_directoryLock);
    Refresh(record);
    Bytes r(record);
    const std::int32_t count = r.I32(kEventCountAt);
    if (count < 0 || count > kMaxEvents - 1) {
        platform::OutputDebugText(L"Over max event IMC_SERVICE\n");
        return 0;  // 0, not -1, when full: callers cannot tell it from slot 0
    }
    for (std::int32_t i = 0; i < count; ++i) {
        if (r.TextEquals(EventAt(i) + kEventNameAt, kNameChars, name)) {
            platform::OutputDebugText(L"Server has the event service!\n");
            return -1;
        }
    }
    const std::size_t at = EventAt(count);
    r.Clear(static_cast<std::int64_t>(at), kEventSize);
    r.SetText(at + kEventNameAt, name, kNameChars - 1);
    if (!description.empty()) {
        r.SetText(at + kEventDescriptionAt, description, kDescriptionChars - 1);
    }
    r.SetI32(kEventCountAt, count + 1);
    return count;
}

void IpcDirectory::RemoveEvent(Record& record, std::u16string_view name) {
    Locked lock(m_directoryLock);
    Refresh(record);
    Bytes r(record);
    const std::int32_t count = r.Count(kEventCountAt, kMaxEvents);
    std::int32_t index = 0;
    while (index < count && !r.TextEquals(EventAt(index) + kEventNameAt, kNameChars, name)) {
        ++index;
    }
    // Judged against the shared record's count, not the private one's; an
    // unregistered server has none, so nothing is removed.
    const int server = FindServerIndex(RecordName(record));
    const std::int32_t sharedCount =
        server < 0 ? 0 : Section().I32(RecordAt(server) + kEventCountAt);
    if (index >= sharedCount || index >= count) {
        return;
    }
    const std::int32_t remaining = count - 1;
    r.SetI32(kEventCountAt, remaining);
    if (index != remaining) {
        r.Move(EventAt(index), EventAt(index + 1),
               static_cast<std::int64_t>(index - remaining) * kEventSize);
    }
    r.Clear(static_cast<std::int64_t>(EventAt(remaining)), kEventSize);
}

int IpcDirectory::Subscribe(std::u16string_view server, std::u16string_view event, Handler callback,
                            std::uint32_t window) {
    const std::uint32_t token = TokenOf(callback);
    Locked lock(m_directoryLock);
    const int index = FindServerIndex(server);
    if (index < 0) {
        return -1;
    }
    Bytes s = Section();
    const std::size_t record = RecordAt(index);
    std::int32_t e = 0;
    // All five entries are searched, whatever the event count says.
    while (e < kMaxEvents && !s.TextEquals(record + EventAt(e) + kEventNameAt, kNameChars, event)) {
        ++e;
    }
    if (e == kMaxEvents) {
        return -1;
    }
    std::int32_t free = 0;
    for (; free < kMaxSubscribers; ++free) {
        const std::size_t at = record + SubscriberAt(e, free);
        if (s.U32(at + kSubscriberCallbackAt) == token) {
            // Only the callback is compared, not the window: subscribed already.
            return s.I32(at + kSubscriberIdAt);
        }
        if (s.I32(at + kSubscriberIdAt) < 1) {
            break;
        }
    }
    if (free == kMaxSubscribers) {
        return -1;
    }
    const std::size_t countAt = record + EventAt(e) + kSubscriberCountAt;
    // Counted in unsigned arithmetic: whatever the section holds, even
    // INT_MAX, wraps as the device's 32-bit addition did.
    s.SetU32(countAt, s.U32(countAt) + 1);
    const std::size_t at = record + SubscriberAt(e, free);
    const std::uint32_t id = NextObjectId();
    s.SetU32(at + kSubscriberIdAt, id);
    s.SetU32(at + kSubscriberWindowAt, window);
    s.SetU32(at + kSubscriberCallbackAt, token);
    return static_cast<int>(id);
}

void IpcDirectory::Unsubscribe(std::u16string_view server, int id) {
    Locked lock(m_directoryLock);
    const int index = FindServerIndex(server);
    if (index < 0) {
        return;
    }
    Bytes s = Section();
    const std::size_t record = RecordAt(index);
    for (std::int32_t e = 0; e < kMaxEvents; ++e) {
        for (std::int32_t i = 0; i < kMaxSubscribers; ++i) {
            if (s.I32(record + SubscriberAt(e, i) + kSubscriberIdAt) != id) {
                continue;
            }
            RemoveSubscriberAt(record, e, i);
            return;
        }
    }
}

Handler IpcDirectory::Resolve(std::uint32_t id) {
    std::uint32_t token = 0;
    {
        Locked lock(m_directoryLock);
        const Bytes s = Section();
        const std::int32_t servers = s.Count(kServerCountAt, kMaxServers);
        for (std::int32_t i = 0; i < servers && token == 0; ++i) {
            const std::size_t record = RecordAt(i);
            const std::int32_t commands = s.Count(record + kCommandCountAt, kMaxCommands);
            for (std::int32_t c = 0; c < commands && token == 0; ++c) {
                const std::size_t at = record + CommandAt(c);
                if (s.U32(at + kCommandIdAt) == id) {
                    token = s.U32(at + kCommandHandlerAt);
                }
            }
            const std::int32_t events = s.Count(record + kEventCountAt, kMaxEvents);
            for (std::int32_t e = 0; e < events && token == 0; ++e) {
                const std::int32_t subscribers =
                    s.Count(record + EventAt(e) + kSubscriberCountAt, kMaxSubscribers);
                for (std::int32_t k = 0; k < subscribers && token == 0; ++k) {
                    const std::size_t at = record + SubscriberAt(e, k);
                    if (s.U32(at + kSubscriberIdAt) == id) {
                        token = s.U32(at + kSubscriberCallbackAt);
                    }
                }
            }
        }
    }
    return HandlerOf(token);
}

std::uint32_t IpcDirectory::PutData(const void* data, std::uint32_t size) {
    if (size == 0) {
        return 0;
    }
    Locked lock(m_dataLock);
    Bytes s = Section();
    std::int32_t slot = 0;
    while (slot < kSlotCount && s.Byte(PayloadAt(slot) - 2) != 0) {
        ++slot;
    }
    if (slot == kSlotCount) {
        // None free: take back the first one whose holder has ended (or that
        // no process of this build recorded holding) and that no live
        // receiver is reading.
        slot = 0;
        while (slot < kSlotCount &&
               (StampLives(m_trailer->slotHolder[slot].load(std::memory_order_relaxed)) ||
                StampLives(m_trailer->slotReader[slot].load(std::memory_order_relaxed)))) {
            ++slot;
        }
    }
    if (slot < kSlotCount) {
        const std::size_t payload = PayloadAt(slot);
        s.Clear(static_cast<std::int64_t>(payload), kPayloadSize);
        // 1,024 bytes or more keep only 1,023 of them.
        const std::size_t n = size < kPayloadSize ? size : kPayloadSize - 1;
        if (data != nullptr) {
            s.Copy(payload, data, n);
        }
        m_trailer->slotHolder[slot].store(platform::ProcessStamp(), std::memory_order_relaxed);
        m_trailer->slotReader[slot].store(0, std::memory_order_relaxed);
        std::uint32_t serial = m_trailer->slotSerial[slot].load(std::memory_order_relaxed) + 1;
        m_trailer->slotSerial[slot].store(serial != 0 ? serial : 1, std::memory_order_relaxed);
        s.SetByte(payload - 2, 1);
        return static_cast<std::uint32_t>(payload);
    }
    return 0;
}

const int IpcDirectory::kDataWaitMs = 2000;

std::uint32_t IpcDirectory::AwaitData(const void* data, std::uint32_t size) {
    const auto limit = std::chrono::steady_clock::now() + std::chrono::milliseconds(kDataWaitMs);
    for (int round = 0;; ++round) {
        if (const std::uint32_t payload = PutData(data, size); payload != 0) {
            return payload;
        }
        if (std::chrono::steady_clock::now() >= limit) {
            return 0;
        }
        std::this_thread::sleep_for(std::chrono::microseconds(100 << std::min(round, 5)));
    }
}

void IpcDirectory::ReleaseData(std::uint32_t payload) {
    if (Payload(payload) == nullptr) {
        return;
    }
    Locked lock(m_dataLock);
    Section().SetByte(payload - 2, 0);
    const std::uint32_t slot = SlotOf(payload);
    m_trailer->slotHolder[slot].store(0, std::memory_order_relaxed);
    m_trailer->slotReader[slot].store(0, std::memory_order_relaxed);
}

std::uint64_t IpcDirectory::MessageParam(std::uint32_t payload) {
    if (Payload(payload) == nullptr) {
        return 0;
    }
    // The caller holds the slot, so its filling cannot change meanwhile.
    const std::uint64_t serial =
        m_trailer->slotSerial[SlotOf(payload)].load(std::memory_order_relaxed);
    return serial << 32 | payload;
}

void* IpcDirectory::Claim(std::uint64_t param) {
    const auto payload = static_cast<std::uint32_t>(param);
    void* address = Payload(payload);
    if (address == nullptr) {
        return nullptr;
    }
    const std::uint32_t slot = SlotOf(payload);
    Locked lock(m_dataLock);
    if (Section().Byte(payload - 2) == 0 ||
        m_trailer->slotSerial[slot].load(std::memory_order_relaxed) != param >> 32) {
        return nullptr;
    }
    m_trailer->slotReader[slot].store(platform::ProcessStamp(), std::memory_order_relaxed);
    return address;
}

void IpcDirectory::Unclaim(std::uint64_t param) {
    const auto payload = static_cast<std::uint32_t>(param);
    if (Payload(payload) == nullptr) {
        return;
    }
    const std::uint32_t slot = SlotOf(payload);
    Locked lock(m_dataLock);
    if (m_trailer->slotSerial[slot].load(std::memory_order_relaxed) == param >> 32) {
        m_trailer->slotReader[slot].store(0, std::memory_order_relaxed);
    }
}

void* IpcDirectory::Payload(std::uint32_t payload) {
    if (payload < kSlotsAt + 2 || (payload - kSlotsAt - 2) % kSlotSize != 0 ||
        (payload - kSlotsAt - 2) / kSlotSize >= static_cast<std::uint32_t>(kSlotCount)) {
        return nullptr;
    }
    return m_base + payload;
}

std::uint32_t IpcDirectory::TokenOf(Handler handler) {
    if (handler == nullptr) {
        return 0;
    }
    std::lock_guard<std::mutex> guard(m_tokenLock);
    if (const auto it = m_tokens.find(handler); it != m_tokens.end()) {
        return it->second;
    }
    // Tokens come from one counter of the namespace, so a token of another
    // process never equals one of this process.
    std::uint32_t token = m_trailer->nextToken.fetch_add(1, std::memory_order_relaxed);
    if (token == 0) {
        token = m_trailer->nextToken.fetch_add(1, std::memory_order_relaxed);
    }
    m_tokens.emplace(handler, token);
    m_handlers.emplace(token, handler);
    return token;
}

Handler IpcDirectory::HandlerOf(std::uint32_t token) {
    std::lock_guard<std::mutex> guard(m_tokenLock);
    const auto it = m_handlers.find(token);
    return it == m_handlers.end() ? nullptr : it->second;
}

}  // namespace kiv::ipc::detail
