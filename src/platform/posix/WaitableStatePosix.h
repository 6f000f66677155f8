// The state of one waitable object, as it lies in process memory (unnamed
// objects) or in the shared named-object table (named objects), and the
// handle body that refers to it.
//
// The futex word encodes the whole signal state, so that a waiter sleeps on
// exactly what it checked:
//   events:     bits 0..7 the units a wait can take (a manual event: 0 or 1),
//               bit 8 pulse pending (automatic events), bits 9..31 a sequence
//               bumped by every Set and Pulse;
//   semaphores: the count.
// An automatic event holds more than one unit only while threads wait on
// it: as on the device, each Set releases one more waiter while there are
// waiters, and at most one signal is kept for the next wait.
// `waiters` counts the threads inside a wait on the object, in any process;
// signalling skips the wake-up system call when it is 0. Every access is an
// atomic operation, so the thread sanitizer sees the ordering futexes give.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

#include "platform/Waitable.h"

namespace kiv::platform::posix {

enum class ObjectKind : std::uint32_t {
    None = 0,
    ManualEvent = 1,
    AutoEvent = 2,
    Semaphore = 3,
};

struct WaitState {
    std::atomic<std::uint32_t> word{0};
    std::atomic<std::uint32_t> waiters{0};
};

static_assert(std::atomic<std::uint32_t>::is_always_lock_free,
              "futex words must be plain 32-bit words");
static_assert(sizeof(WaitState) == 8, "WaitState is laid out in shared memory");

inline constexpr std::uint32_t kUnitMask = 0xFFu;
inline constexpr std::uint32_t kPulsePending = 0x100u;
inline constexpr std::uint32_t kSequenceStep = 0x200u;
inline constexpr std::uint32_t kSequenceMask = ~(kUnitMask | kPulsePending);

class NamedObjectTable;

}  // namespace kiv::platform::posix

namespace kiv::platform::detail {

// What a handle owns: either the state of an unnamed object, or one handle
// record of a named object in the shared table.
struct WaitableBody {
    posix::WaitState* state = nullptr;
    posix::ObjectKind kind = posix::ObjectKind::None;
    std::int32_t maximum = 0;
    bool shared = false;  // in shared memory: futexes must not be process-private
    posix::WaitState local;
    std::shared_ptr<posix::NamedObjectTable> table;
    std::uint32_t slot = 0;
    std::uint64_t uid = 0;
};

}  // namespace kiv::platform::detail

namespace kiv::platform::detail {

// Handles on states that other tables of the platform layer keep in their own
// shared memory (the window table's wake-up events), so that they are set and
// waited on by this one implementation.
struct WaitableAccess {
    /// An automatic or manual event whose state is `*state`, which the caller
    /// keeps alive longer than the handle; closing the handle leaves it.
    /// `shared`: the state lies in memory shared between processes.
    static Event EventOnState(posix::WaitState* state, EventReset reset, bool shared);
};

}  // namespace kiv::platform::detail
