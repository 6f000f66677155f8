// The shared IPC directory: the servers, commands, events and subscribers of
// the current namespace, and the ten data slots through which payloads
// travel, all in the section "IPC_Shar" (see IpcSection.h).
//
// The directory and the data slots each have a cross-process lock: a robust
// process-shared mutex beside the section. Taking it and becoming its owner
// are one step, so a holder that dies at any moment hands the lock to the
// next taker, which is told and goes on. The named automatic events
// "KIV_IPC_MUTEX_EVENT" and "KIV_IPC_SHARE_DATA" follow the locks for anyone
// who looks at them: each is unsignalled while its lock is held and set when
// it is given back, but waiting on them guards nothing.
//
// Handlers and callbacks are stored as 32-bit tokens, unique in the
// namespace; each process maps its own tokens back to its functions.
// Payloads are passed between processes as offsets in the section.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "ipc/IpcSection.h"
#include "platform/SharedLock.h"
#include "platform/Waitable.h"

namespace kiv::ipc::detail {

/// A command handler or an event callback.
using Handler = int (*)(void*);

/// Beside the section in the same shared object: what this build adds.
struct SectionTrailer {
    std::atomic<std::uint32_t> ready;  // set once the section is initialised
    std::atomic<std::uint32_t> nextToken;
    platform::SharedLock directoryLock;
    platform::SharedLock dataLock;
    // The process holding each data slot (a ProcessStamp), or 0: a slot
    // whose holder has ended is free whatever its flag says, unless a
    // receiver is still reading it.
    std::atomic<std::uint64_t> slotHolder[kSlotCount];
    // The receiver running a handler on each slot's payload (a
    // ProcessStamp), or 0.
    std::atomic<std::uint64_t> slotReader[kSlotCount];
    // Raised each time a slot is filled: a message names the filling it
    // carries, so a receiver never reads a later payload of the same slot.
    std::atomic<std::uint32_t> slotSerial[kSlotCount];
};

inline constexpr std::size_t kTrailerAt = (kSectionSize + 7) / 8 * 8;
inline constexpr std::size_t kMappedSize = 81920;  // whole pages
static_assert(kTrailerAt + sizeof(SectionTrailer) <= kMappedSize);

/// A robust mutex in the section, mirrored by a named automatic event.
class CrossProcessLock {
public:
    CrossProcessLock(platform::Event event, platform::SharedLock* lock)
        : m_event(std::move(event)), m_lock(lock) {}
    /// Waits for the lock as long as it takes. True when the previous holder
    /// died holding it: what it guards may be half edited.
    bool Lock();
    void Unlock();

private:
    platform::Event m_event;
    platform::SharedLock* m_lock;
};

class IpcDirectory {
public:
    /// How long a payload waits for a free data slot.
    static const int kDataWaitMs;

    /// The directory of the current namespace, mapped on first use; null if
    /// the section or its locks cannot be had.
    static IpcDirectory* Current();

    /// The section's bytes (for tests and diagnostics).
    Bytes Section() { return Bytes(m_base, kSectionSize); }

    /// Index of the first server record named `name`, or -1. Lock held.
    int FindServerIndex(std::u16string_view name);
    /// Copies the record named `name` into `out`; its index, or -1. With
    /// `live`, a record whose window has ended is swept out first and not
    /// returned.
    int LookUp(std::u16string_view name, Record& out, bool live = false);
    /// Copies every record in use, in directory order, after sweeping out
    /// those of ended servers.
    std::vector<Record> Records();
    /// Publishes `record`, after filling in the window (`window()` runs under
    /// the lock) and this process's id; its index, or -1. A full directory or
    /// a name taken is first swept of ended servers.
    int Register(Record& record, const std::function<std::uint32_t()>& window);
    /// Removes every record named `name`; always 0.
    int Unregister(std::u16string_view name);

    int AddCommand(Record& record, std::u16string_view name, Handler handler,
                   std::u16string_view description);
    void RemoveCommand(Record& record, std::u16string_view name);
    int AddEvent(Record& record, std::u16string_view name, std::u16string_view description);
    void RemoveEvent(Record& record, std::u16string_view name);
    /// Subscribes `callback` of this process, reached through `window`; the
    /// subscriber id, or -1.
    int Subscribe(std::u16string_view server, std::u16string_view event, Handler callback,
                  std::uint32_t window);
    void Unsubscribe(std::u16string_view server, int id);
    /// The function of this process stored with object id `id`; null when
    /// none is (or the id belongs to another process).
    Handler Resolve(std::uint32_t id);

    /// Copies a payload into a free data slot; the payload's offset in the
    /// section, or 0 for size 0 or when every slot is in use. A slot whose
    /// holder process has ended counts as free.
    std::uint32_t PutData(const void* data, std::uint32_t size);
    /// PutData that waits while every slot is in use (their holders give
    /// them back once their receivers ran), up to kDataWaitMs; 0 then.
    std::uint32_t AwaitData(const void* data, std::uint32_t size);
    /// Frees the slot of a payload offset; other values are ignored.
    void ReleaseData(std::uint32_t payload);
    /// The message parameter that carries a payload offset from PutData:
    /// the offset, and in the upper half the filling of the slot. 0 for 0.
    std::uint64_t MessageParam(std::uint32_t payload);
    /// For the receiver of a message parameter: the payload's address, with
    /// the slot recorded as read by this process until Unclaim, so that it
    /// is not taken back while a handler reads it. Null when the parameter
    /// names no payload, or a filling that is gone (its sender died and the
    /// slot was taken back): then the message must not be run.
    void* Claim(std::uint64_t param);
    void Unclaim(std::uint64_t param);
    /// The address in this process of a payload offset; null for 0 or any
    /// value that is not the offset of a payload.
    void* Payload(std::uint32_t payload);

    /// Removes, as their owners would have, the server records and the
    /// subscriptions whose window has ended with its thread or process.
    void SweepDead();

    /// Takes the directory lock and never gives it back: lets a test process
    /// die holding it.
    void LockDirectoryForever() { m_directoryLock.Lock(); }

private:
    IpcDirectory(std::uint8_t* base, platform::Event directory, platform::Event data);

    // With the directory lock held: removes record `i` as unregistering
    // does, the subscriber `i` of event `e` of the record at `record` as
    // unsubscribing does, and every record and subscription of an ended
    // window.
    void RemoveRecordAt(std::int32_t i);
    void RemoveSubscriberAt(std::size_t record, std::int32_t e, std::int32_t i);
    void SweepDeadLocked();
    // The slot of a payload offset that Payload accepts.
    static std::uint32_t SlotOf(std::uint32_t payload) {
        return (payload - static_cast<std::uint32_t>(kSlotsAt) - 2) /
               static_cast<std::uint32_t>(kSlotSize);
    }
    // Copies the shared record named like `record` over it, if registered.
    void Refresh(Record& record);
    std::uint32_t NextObjectId();
    std::uint32_t TokenOf(Handler handler);
    Handler HandlerOf(std::uint32_t token);

    class Locked;

    std::uint8_t* m_base;
    SectionTrailer* m_trailer;
    CrossProcessLock m_directoryLock;
    CrossProcessLock m_dataLock;
    std::mutex m_tokenLock;
    std::unordered_map<Handler, std::uint32_t> m_tokens;
    std::unordered_map<std::uint32_t, Handler> m_handlers;
};

}  // namespace kiv::ipc::detail
