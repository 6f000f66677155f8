// Events, semaphores and waits on futexes. A wait for any of several objects
// sleeps in one futex_waitv call on all their words.
#include "platform/Waitable.h"

#include <linux/futex.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <new>
#include <string>

#include "foundation/Text.h"
#include "platform/posix/NamedObjectTablePosix.h"
#include "platform/posix/WaitableStatePosix.h"

#ifndef SYS_futex_waitv
#define SYS_futex_waitv 449  // Linux 5.16, the same number on every architecture
#endif

namespace kiv::platform {
namespace {

using detail::WaitableBody;
using posix::kPulsePending;
using posix::kSequenceMask;
using posix::kSequenceStep;
using posix::kUnitMask;
using posix::NamedObjectTable;
using posix::ObjectKind;

void FutexWake(const WaitableBody& b, int count) {
    syscall(SYS_futex, reinterpret_cast<std::uint32_t*>(&b.state->word),
            FUTEX_WAKE | (b.shared ? 0 : FUTEX_PRIVATE_FLAG), count, nullptr, nullptr, 0);
}

// Called after a signal was published with a sequentially consistent
// read-modify-write. A waiter counts itself in before its last look at the
// word, so either it sees the signal or this sees the waiter.
void WakeWaiters(const WaitableBody& b, int count) {
    if (b.state->waiters.load(std::memory_order_seq_cst) != 0) {
        FutexWake(b, count);
    }
}

bool IsEvent(const WaitableBody* b) {
    return b != nullptr && (b->kind == ObjectKind::ManualEvent || b->kind == ObjectKind::AutoEvent);
}

// Takes what `b` offers to a waiter whose wait began when the word read
// `begin`; true if the wait is satisfied.
bool TryTake(const WaitableBody& b, std::uint32_t begin) {
    std::atomic<std::uint32_t>& word = b.state->word;
    std::uint32_t v = word.load(std::memory_order_acquire);
    switch (b.kind) {
        case ObjectKind::ManualEvent:
            // A Set or Pulse since the wait began releases it, even if a
            // Reset or the pulse itself has cleared the signal again.
            return (v & kUnitMask) != 0 || (v & kSequenceMask) != (begin & kSequenceMask);
        case ObjectKind::AutoEvent:
            for (;;) {
                if ((v & kUnitMask) != 0) {
                    if (word.compare_exchange_weak(v, v - 1, std::memory_order_acquire,
                                                   std::memory_order_acquire)) {
                        return true;
                    }
                } else if ((v & kPulsePending) != 0 &&
                           (v & kSequenceMask) != (begin & kSequenceMask)) {
                    // Only a waiter that was waiting before the pulse takes it.
                    if (word.compare_exchange_weak(v, v & ~kPulsePending, std::memory_order_acquire,
                                                   std::memory_order_acquire)) {
                        return true;
                    }
                } else {
                    return false;
                }
            }
        case ObjectKind::Semaphore:
            while (v > 0) {
                if (word.compare_exchange_weak(v, v - 1, std::memory_order_acquire,
                                               std::memory_order_acquire)) {
                    return true;
                }
            }
            return false;
        case ObjectKind::None:
            break;
    }
    return false;
}

int TakeFirst(WaitableBody* const* bodies, int n, const std::uint32_t* begin) {
    for (int i = 0; i < n; ++i) {
        if (TryTake(*bodies[i], begin[i])) {
            return i;
        }
    }
    return -1;
}

// A waker of automatic events and semaphores wakes one waiter per unit. A
// thread waiting on several objects can absorb the wake-ups of more than one
// of them but takes only one object; it passes the others' wake-ups on.
void PassOnWakeups(WaitableBody* const* bodies, int n, int taken) {
    for (int i = 0; i < n; ++i) {
        const WaitableBody& b = *bodies[i];
        if (i == taken || b.kind == ObjectKind::ManualEvent) {
            continue;
        }
        const std::uint32_t v = b.state->word.load(std::memory_order_relaxed);
        const bool available = b.kind == ObjectKind::Semaphore ? v > 0 : (v & kUnitMask) != 0;
        if (available) {
            WakeWaiters(b, 1);
        }
    }
}

// Counts a waiter out. The last waiter to leave an automatic event trims
// the units granted for waiters that timed out to the one signal it keeps.
void LeaveWait(const WaitableBody& b) {
    if (b.state->waiters.fetch_sub(1, std::memory_order_seq_cst) != 1 ||
        b.kind != ObjectKind::AutoEvent) {
        return;
    }
    std::atomic<std::uint32_t>& word = b.state->word;
    std::uint32_t v = word.load(std::memory_order_relaxed);
    while ((v & kUnitMask) > 1 &&
           !word.compare_exchange_weak(v, (v & ~kUnitMask) | 1u, std::memory_order_relaxed)) {
    }
}

timespec DeadlineAfter(std::uint32_t ms) {
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    t.tv_sec += static_cast<time_t>(ms / 1000);
    t.tv_nsec += static_cast<long>(ms % 1000) * 1000000L;
    if (t.tv_nsec >= 1000000000L) {
        t.tv_sec += 1;
        t.tv_nsec -= 1000000000L;
    }
    return t;
}

int WaitBodies(WaitableBody* const* bodies, int n, int timeoutMs) {
    std::uint32_t begin[kMaxWaitObjects];
    for (int i = 0; i < n; ++i) {
        begin[i] = bodies[i]->state->word.load(std::memory_order_acquire);
    }
    int taken = TakeFirst(bodies, n, begin);
    if (taken >= 0) {
        return taken;
    }
    if (timeoutMs == 0) {
        return kWaitTimeout;
    }
    const bool infinite = timeoutMs == kInfinite;
    const timespec deadline = DeadlineAfter(static_cast<std::uint32_t>(timeoutMs));

    for (int i = 0; i < n; ++i) {
        bodies[i]->state->waiters.fetch_add(1, std::memory_order_seq_cst);
    }
    futex_waitv entries[kMaxWaitObjects] = {};
    int result = kWaitFailed;
    for (;;) {
        // The words are read before the attempt to take: a signal that comes
        // after the attempt then changes a word and the sleep returns at once.
        for (int i = 0; i < n; ++i) {
            entries[i].val = bodies[i]->state->word.load(std::memory_order_seq_cst);
            entries[i].uaddr = reinterpret_cast<std::uintptr_t>(&bodies[i]->state->word);
            entries[i].flags = FUTEX_32 | (bodies[i]->shared ? 0 : FUTEX_PRIVATE_FLAG);
        }
        taken = TakeFirst(bodies, n, begin);
        if (taken >= 0) {
            result = taken;
            break;
        }
        const long rc = syscall(SYS_futex_waitv, entries, n, 0, infinite ? nullptr : &deadline,
                                CLOCK_MONOTONIC);
        if (rc >= 0 || errno == EAGAIN || errno == EINTR) {
            continue;
        }
        if (errno == ETIMEDOUT) {
            taken = TakeFirst(bodies, n, begin);
            result = taken >= 0 ? taken : kWaitTimeout;
        }
        break;
    }
    for (int i = 0; i < n; ++i) {
        LeaveWait(*bodies[i]);
    }
    if (result >= 0 && n > 1) {
        PassOnWakeups(bodies, n, result);
    }
    return result;
}

// Signals an event's state as Set does; true if the word changed, so that
// waiters are to be woken.
bool PublishSet(posix::WaitState& state, ObjectKind kind) {
    const bool manual = kind == ObjectKind::ManualEvent;
    std::atomic<std::uint32_t>& word = state.word;
    std::uint32_t v = word.load(std::memory_order_relaxed);
    do {
        const std::uint32_t units = v & kUnitMask;
        // A manual event has one unit; an automatic one a unit per waiter
        // and one more for the next wait.
        const std::uint32_t limit =
            manual ? 1u
                   : std::min<std::uint32_t>(kUnitMask,
                                             state.waiters.load(std::memory_order_seq_cst) + 1);
        if (units >= limit) {
            return false;
        }
    } while (!word.compare_exchange_weak(v, ((v + kSequenceStep) & ~kPulsePending) + 1,
                                         std::memory_order_seq_cst, std::memory_order_relaxed));
    return true;
}

WaitableBody* NewLocalBody(ObjectKind kind, std::uint32_t word, std::int32_t maximum) {
    auto* body = new (std::nothrow) WaitableBody;
    if (body != nullptr) {
        body->kind = kind;
        body->maximum = maximum;
        body->local.word.store(word, std::memory_order_relaxed);
        body->state = &body->local;
    }
    return body;
}

WaitableBody* OpenNamedBody(std::wstring_view name, NamedObjectTable::Family family,
                            const NamedObjectTable::CreateParams* create, bool* existed) {
    bool found = false;
    if (existed != nullptr) {
        *existed = false;
    }
    std::shared_ptr<NamedObjectTable> table = NamedObjectTable::Current();
    if (table == nullptr) {
        return nullptr;
    }
    const std::optional<NamedObjectTable::Opened> opened =
        table->Open(text::ToUtf16(name), family, create, &found);
    if (existed != nullptr) {
        *existed = found;
    }
    if (!opened) {
        return nullptr;
    }
    auto* body = new (std::nothrow) WaitableBody;
    if (body == nullptr) {
        table->Close(opened->slot, opened->uid);
        return nullptr;
    }
    body->state = opened->state;
    body->kind = opened->kind;
    body->maximum = opened->maximum;
    body->shared = true;
    body->table = std::move(table);
    body->slot = opened->slot;
    body->uid = opened->uid;
    return body;
}

ObjectKind EventKind(EventReset reset) {
    return reset == EventReset::Manual ? ObjectKind::ManualEvent : ObjectKind::AutoEvent;
}

}  // namespace

Waitable::Waitable(Waitable&& other) noexcept : m_body(other.m_body) {
    other.m_body = nullptr;
}

Waitable& Waitable::operator=(Waitable&& other) noexcept {
    if (this != &other) {
        Close();
        m_body = other.m_body;
        other.m_body = nullptr;
    }
    return *this;
}

Waitable::~Waitable() {
    Close();
}

void Waitable::Close() noexcept {
    if (m_body == nullptr) {
        return;
    }
    if (m_body->table != nullptr) {
        m_body->table->Close(m_body->slot, m_body->uid);
    }
    delete m_body;
    m_body = nullptr;
}

Event Event::Create(EventReset reset, bool initiallySignalled) {
    return Event(NewLocalBody(EventKind(reset), initiallySignalled ? 1u : 0u, 0));
}

Event Event::Create(std::wstring_view name, EventReset reset, bool initiallySignalled,
                    bool* existed) {
    if (name.empty()) {
        if (existed != nullptr) {
            *existed = false;
        }
        return Create(reset, initiallySignalled);
    }
    const NamedObjectTable::CreateParams params{EventKind(reset), initiallySignalled ? 1u : 0u, 0};
    return Event(OpenNamedBody(name, NamedObjectTable::Family::Event, &params, existed));
}

Event Event::Open(std::wstring_view name) {
    return Event(OpenNamedBody(name, NamedObjectTable::Family::Event, nullptr, nullptr));
}

bool Event::Set() const {
    if (!IsEvent(m_body)) {
        return false;
    }
    if (PublishSet(*m_body->state, m_body->kind)) {
        WakeWaiters(*m_body, m_body->kind == ObjectKind::ManualEvent ? INT_MAX : 1);
    }
    return true;
}

struct EventSignaller::Target {
    std::shared_ptr<NamedObjectTable> table;
    std::u16string name;
    NamedObjectTable::Found found;
};

EventSignaller::EventSignaller(std::wstring_view name)
    : m_target(new (std::nothrow) Target{NamedObjectTable::Current(), text::ToUtf16(name), {}}) {}

EventSignaller::~EventSignaller() = default;

bool EventSignaller::Set() {
    if (m_target == nullptr || m_target->table == nullptr) {
        return false;
    }
    struct Outcome {
        posix::WaitState* state = nullptr;
        ObjectKind kind = ObjectKind::None;
        bool changed = false;
    } outcome;
    const bool found = m_target->table->UseExisting(
        m_target->name, NamedObjectTable::Family::Event, &m_target->found,
        [](void* context, posix::WaitState& state, ObjectKind kind) {
            auto* out = static_cast<Outcome*>(context);
            *out = {&state, kind, PublishSet(state, kind)};
        },
        &outcome);
    if (!found) {
        return false;
    }
    // The wake-up comes after the table lock is released. Should the last
    // holder close the event meanwhile and its slot be used again, the
    // wake-up is a spurious one for the slot's new object, whose waiters
    // look at their word and sleep again.
    if (outcome.changed) {
        WaitableBody body;
        body.state = outcome.state;
        body.kind = outcome.kind;
        body.shared = true;
        WakeWaiters(body, outcome.kind == ObjectKind::ManualEvent ? INT_MAX : 1);
    }
    return true;
}

bool Event::Reset() const {
    if (!IsEvent(m_body)) {
        return false;
    }
    m_body->state->word.fetch_and(kSequenceMask, std::memory_order_seq_cst);
    return true;
}

bool Event::Pulse() const {
    if (!IsEvent(m_body)) {
        return false;
    }
    std::atomic<std::uint32_t>& word = m_body->state->word;
    if (m_body->kind == ObjectKind::ManualEvent) {
        // A new sequence without the signal: every waiter that began before
        // it is released (see TryTake), later ones are not.
        std::uint32_t v = word.load(std::memory_order_relaxed);
        while (!word.compare_exchange_weak(v, (v + kSequenceStep) & kSequenceMask,
                                           std::memory_order_seq_cst, std::memory_order_relaxed)) {
        }
        WakeWaiters(*m_body, INT_MAX);
        return true;
    }
    if (m_body->state->waiters.load(std::memory_order_seq_cst) == 0) {
        word.fetch_and(kSequenceMask, std::memory_order_seq_cst);
        return true;
    }
    std::uint32_t v = word.load(std::memory_order_relaxed);
    while (!word.compare_exchange_weak(v, ((v + kSequenceStep) & kSequenceMask) | kPulsePending,
                                       std::memory_order_seq_cst, std::memory_order_relaxed)) {
    }
    WakeWaiters(*m_body, 1);
    return true;
}

Semaphore Semaphore::Create(int initial, int maximum) {
    if (initial < 0 || maximum < 0 || initial > maximum) {
        return Semaphore();
    }
    return Semaphore(
        NewLocalBody(ObjectKind::Semaphore, static_cast<std::uint32_t>(initial), maximum));
}

Semaphore Semaphore::Create(std::wstring_view name, int initial, int maximum, bool* existed) {
    if (initial < 0 || maximum < 0 || initial > maximum) {
        if (existed != nullptr) {
            *existed = false;
        }
        return Semaphore();
    }
    if (name.empty()) {
        if (existed != nullptr) {
            *existed = false;
        }
        return Create(initial, maximum);
    }
    const NamedObjectTable::CreateParams params{ObjectKind::Semaphore,
                                                static_cast<std::uint32_t>(initial), maximum};
    return Semaphore(OpenNamedBody(name, NamedObjectTable::Family::Semaphore, &params, existed));
}

Semaphore Semaphore::Open(std::wstring_view name) {
    return Semaphore(OpenNamedBody(name, NamedObjectTable::Family::Semaphore, nullptr, nullptr));
}

bool Semaphore::Release(int n, int* previous) const {
    if (m_body == nullptr || m_body->kind != ObjectKind::Semaphore || n < 1) {
        return false;
    }
    const auto maximum = static_cast<std::uint32_t>(m_body->maximum);
    const auto units = static_cast<std::uint32_t>(n);
    std::atomic<std::uint32_t>& word = m_body->state->word;
    std::uint32_t v = word.load(std::memory_order_relaxed);
    do {
        if (v > maximum || units > maximum - v) {
            return false;
        }
    } while (!word.compare_exchange_weak(v, v + units, std::memory_order_seq_cst,
                                         std::memory_order_relaxed));
    if (previous != nullptr) {
        *previous = static_cast<int>(v);
    }
    WakeWaiters(*m_body, n);
    return true;
}

int WaitFor(const Waitable& object, int timeoutMs) {
    const Waitable* one = &object;
    return WaitForAny(std::span<const Waitable* const>(&one, 1), timeoutMs);
}

int WaitForAny(std::span<const Waitable* const> objects, int timeoutMs) {
    if (objects.empty() || objects.size() > static_cast<std::size_t>(kMaxWaitObjects)) {
        return kWaitFailed;
    }
    WaitableBody* bodies[kMaxWaitObjects];
    const int n = static_cast<int>(objects.size());
    for (int i = 0; i < n; ++i) {
        if (objects[i] == nullptr || objects[i]->m_body == nullptr) {
            return kWaitFailed;
        }
        bodies[i] = objects[i]->m_body;
    }
    return WaitBodies(bodies, n, timeoutMs);
}

int WaitForAny(std::initializer_list<const Waitable*> objects, int timeoutMs) {
    return WaitForAny(std::span<const Waitable* const>(objects.begin(), objects.size()), timeoutMs);
}

std::uint32_t TickCount() {
    timespec t{};
    clock_gettime(CLOCK_MONOTONIC, &t);
    const auto ms = static_cast<std::uint64_t>(t.tv_sec) * 1000u +
                    static_cast<std::uint64_t>(t.tv_nsec) / 1000000u;
    return static_cast<std::uint32_t>(ms);
}

Event detail::WaitableAccess::EventOnState(posix::WaitState* state, EventReset reset, bool shared) {
    auto* body = new (std::nothrow) WaitableBody;
    if (body == nullptr || state == nullptr) {
        delete body;
        return Event();
    }
    body->state = state;
    body->kind = EventKind(reset);
    body->shared = shared;
    return Event(body);
}

}  // namespace kiv::platform
