// The named-object table of one namespace: a shared-memory object that holds
// the state of every named event and semaphore of the namespace, and who
// holds handles to each.
//
// A process keeps one handle record per object it holds, with a count of its
// handles, so the table's size does not grow with handles that a process
// opens and never closes. An object lives while any record names it. The
// table lock is a robust process-shared mutex: a process that dies holding it
// leaves it to the next taker, which repairs the table. Records of a process
// that died are reclaimed when that is noticed: when the table lock is found
// abandoned, when this process first attaches the table, when a slot runs
// out, and when a name that the dead process held is opened.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/posix/WaitableStatePosix.h"

namespace kiv::platform::posix {

struct TableLayout;

class NamedObjectTable {
public:
    enum class Family { Event, Semaphore };

    /// How to create an object that does not exist yet.
    struct CreateParams {
        ObjectKind kind;
        std::uint32_t word;  // initial futex word
        std::int32_t maximum;
    };

    /// An object opened for this process; it holds one handle record count.
    struct Opened {
        WaitState* state;
        ObjectKind kind;
        std::int32_t maximum;
        std::uint32_t slot;
        std::uint64_t uid;
    };

    /// What the table holds, as counted by Census.
    struct CensusResult {
        int objects = 0;
        int processes = 0;
        int records = 0;
        bool consistent = false;
    };

    /// The table of the namespace in KIV_NAMESPACE now, attached on first use
    /// and kept while handles or the cache refer to it. Null if it cannot be
    /// opened or has an unknown layout.
    static std::shared_ptr<NamedObjectTable> Current();

    ~NamedObjectTable();
    NamedObjectTable(const NamedObjectTable&) = delete;
    NamedObjectTable& operator=(const NamedObjectTable&) = delete;

    /// Opens `name` of `family` for this process; if there is no such object
    /// and `create` is given, creates it first. `*existed` tells whether an
    /// object of that name was there. Empty on a name of the other family, a
    /// full table or a table that cannot be locked.
    std::optional<Opened> Open(std::u16string_view name, Family family, const CreateParams* create,
                               bool* existed);
    /// Drops one handle of this process on the object in `slot`; destroys
    /// the object with its last handle. Ignored if `uid` no longer names it.
    void Close(std::uint32_t slot, std::uint64_t uid);

    /// Where a lookup by name last found its object, so that the next one
    /// can skip the search while the object stays the same.
    struct Found {
        std::uint32_t slot = UINT32_MAX;
        std::uint64_t uid = 0;
    };
    /// Calls `use(context, state, kind)` with the table lock held on the live
    /// object `name` of `family`, found first where `*found` says and else by
    /// name; records where it was. Adds no handle and reads no process's
    /// liveness. False, calling nothing, if there is no such object now.
    bool UseExisting(std::u16string_view name, Family family, Found* found,
                     void (*use)(void* context, WaitState& state, ObjectKind kind), void* context);

    /// Counts objects, processes and records under the lock, and checks that
    /// the derived counts agree with the records. Reclaims nothing itself.
    std::optional<CensusResult> Census();
    /// Takes the table lock and never releases it: for tests of a process
    /// that dies holding it.
    bool LockAndKeep();

private:
    explicit NamedObjectTable(TableLayout* layout);

    class Guard;
    friend class Guard;

    TableLayout* m_layout;
    // This process's slot in the process table, as last found; checked
    // before use because a fork or a reclaim can make it stale.
    std::uint32_t m_selfHint = 0;
};

}  // namespace kiv::platform::posix
