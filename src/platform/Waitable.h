// Waitable kernel objects: events, semaphores, and waits on them.
//
// The one implementation of the device's kernel objects for the whole
// library. Objects are either unnamed, living in this process, or named,
// living in a table shared by every process of the current KIV_NAMESPACE and
// found by name. An object lives as long as a handle to it is open anywhere:
// closing the last handle (the last one in any process, for a named object)
// destroys it, so a signal on an object nobody holds is lost. Handles of a
// process that dies are reclaimed when another process notices the death.
//
// Waits block in the kernel (futexes); nothing polls. Timeouts are
// milliseconds: kInfinite (-1) waits forever, 0 polls, and any other value is
// read as an unsigned 32-bit count, as the device reads it.
//
// A handle may be used from any thread. Closing a handle while another thread
// of this process waits on it through that same handle is not allowed.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <memory>
#include <span>
#include <string_view>

namespace kiv::platform {

namespace detail {
struct WaitableBody;
struct WaitableAccess;
}  // namespace detail

/// Timeout that waits forever.
inline constexpr int kInfinite = -1;
/// Result of a wait that timed out (the device's WAIT_TIMEOUT).
inline constexpr int kWaitTimeout = 258;
/// Result of a wait that could not be made: an invalid handle, an empty list
/// or more than kMaxWaitObjects objects (the device's WAIT_FAILED).
inline constexpr int kWaitFailed = -1;
/// Most objects one wait-for-any takes.
inline constexpr int kMaxWaitObjects = 64;
/// Longest object name in characters (UTF-16 code units).
inline constexpr std::size_t kMaxObjectName = 260;

/// An owning handle on an event or a semaphore; movable, not copyable.
/// A default-constructed or moved-from handle is invalid.
class Waitable {
public:
    Waitable() noexcept = default;
    Waitable(Waitable&& other) noexcept;
    Waitable& operator=(Waitable&& other) noexcept;
    Waitable(const Waitable&) = delete;
    Waitable& operator=(const Waitable&) = delete;
    /// Closes the handle.
    ~Waitable();

    /// True while the handle refers to an object.
    bool IsValid() const noexcept { return m_body != nullptr; }
    /// Drops this handle; the object is destroyed with its last handle.
    void Close() noexcept;

protected:
    explicit Waitable(detail::WaitableBody* body) noexcept : m_body(body) {}

    detail::WaitableBody* m_body = nullptr;

    friend int WaitForAny(std::span<const Waitable* const> objects, int timeoutMs);
};

/// Whether an event stays signalled until reset (manual) or is consumed by
/// the one wait it releases (automatic).
enum class EventReset { Manual, Automatic };

class Event : public Waitable {
public:
    Event() noexcept = default;

    /// A new unnamed event. Invalid only when memory is exhausted.
    static Event Create(EventReset reset, bool initiallySignalled);
    /// Creates the named event, or opens it if an event of that name exists,
    /// in which case `reset` and `initiallySignalled` are ignored. `*existed`
    /// (if given) tells which happened. An empty name creates an unnamed
    /// event. Invalid if the name belongs to a semaphore, is longer than
    /// kMaxObjectName, or the shared table is full or unusable.
    static Event Create(std::wstring_view name, EventReset reset, bool initiallySignalled,
                        bool* existed = nullptr);
    /// Opens an existing named event; invalid if there is none.
    static Event Open(std::wstring_view name);

    /// Signals the event. An automatic event releases one waiter and resets,
    /// or stays signalled until a wait consumes it. False on an invalid handle.
    bool Set() const;
    /// Makes the event non-signalled.
    bool Reset() const;
    /// Releases the threads waiting now (a manual event: all of them; an
    /// automatic one: one of them) and leaves the event non-signalled. Pulses
    /// of an automatic event that come before a waiter took the previous one
    /// release one waiter together.
    bool Pulse() const;

private:
    explicit Event(detail::WaitableBody* body) noexcept : Waitable(body) {}

    friend struct detail::WaitableAccess;
};

/// Sets a named event on behalf of a process that never waits on it, such
/// as a producer that signals on every item. It holds no handle: a Set
/// reaches the event only while some handle anywhere holds it, and is lost
/// otherwise, exactly as creating the event, setting it and closing the
/// handle at once would do, so a signal never outlives the event's holders.
/// Unlike that sequence it costs no lookup by name while the event remains
/// the same object: only the table lock (no system call when uncontended)
/// and, when a thread waits, the wake-up. Not for use by two threads at once.
class EventSignaller {
public:
    /// Signals the event `name` of the namespace in KIV_NAMESPACE now.
    explicit EventSignaller(std::wstring_view name);
    ~EventSignaller();
    EventSignaller(const EventSignaller&) = delete;
    EventSignaller& operator=(const EventSignaller&) = delete;

    /// Sets the event as Event::Set does. False if no event of that name
    /// exists now (the signal is lost) or the table is unusable.
    bool Set();

private:
    struct Target;
    std::unique_ptr<Target> m_target;
};

class Semaphore : public Waitable {
public:
    Semaphore() noexcept = default;

    /// A new unnamed semaphore holding `initial` of at most `maximum` units.
    /// Invalid unless 0 <= initial <= maximum; a maximum of 0 is allowed and
    /// gives a semaphore that never holds a unit.
    static Semaphore Create(int initial, int maximum);
    /// Creates the named semaphore, or opens the existing one of that name
    /// (then `initial` and `maximum` are ignored); see Event::Create.
    static Semaphore Create(std::wstring_view name, int initial, int maximum,
                            bool* existed = nullptr);
    /// Opens an existing named semaphore; invalid if there is none.
    static Semaphore Open(std::wstring_view name);

    /// Adds `n` units and wakes up to `n` waiters; `*previous` (if given)
    /// receives the count before. Fails, changing nothing, when n < 1 or the
    /// count would pass the maximum.
    bool Release(int n = 1, int* previous = nullptr) const;

private:
    explicit Semaphore(detail::WaitableBody* body) noexcept : Waitable(body) {}
};

/// Waits until `object` is signalled: 0 when it was (an automatic event or a
/// semaphore unit is consumed), kWaitTimeout or kWaitFailed otherwise.
int WaitFor(const Waitable& object, int timeoutMs);

/// Waits until one of `objects` is signalled and returns its index. When
/// several are, the lowest index wins, and only that object is consumed.
/// Returns kWaitTimeout or kWaitFailed otherwise.
int WaitForAny(std::span<const Waitable* const> objects, int timeoutMs);
int WaitForAny(std::initializer_list<const Waitable*> objects, int timeoutMs);

/// Milliseconds from a monotonic clock, wrapping at 32 bits (the device's
/// GetTickCount). Differences of two readings are valid across the wrap when
/// taken unsigned.
std::uint32_t TickCount();

}  // namespace kiv::platform
