#include "platform/posix/NamedObjectTablePosix.h"

#include <fcntl.h>
#include <pthread.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bitset>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <new>

#include "platform/Namespace.h"
#include "platform/Waitable.h"
#include "platform/WaitableDiagnostics.h"
#include "platform/posix/ProcessIdentityPosix.h"
#include "platform/posix/SharedMappingPosix.h"

namespace kiv::platform::posix {
namespace {

constexpr std::uint32_t kMagic = 0x4B495654u;  // "KIVT"
constexpr std::uint32_t kLayoutVersion = 1;
constexpr std::uint32_t kObjectSlots = 512;
constexpr std::uint32_t kProcessSlots = 256;
constexpr std::uint32_t kRecordSlots = 4096;

}  // namespace

// One named object. Aligned to a cache line so that two objects used by
// different processes (the two events of a ping-pong) do not share one.
struct alignas(64) ObjectSlot {
    WaitState state;
    std::uint32_t kind;  // an ObjectKind; None marks a free slot
    std::int32_t maximum;
    std::uint32_t holders;  // handle records that name this object
    std::uint32_t nameLength;
    std::uint64_t uid;  // distinguishes successive objects of one slot
    char16_t name[kMaxObjectName];
};

// A process holding handles; pid 0 marks a free slot. The start time (clock
// ticks since boot, from /proc) tells a reused pid from the process recorded.
struct ProcessSlot {
    std::int32_t pid;
    std::uint32_t records;  // handle records of this process
    std::uint64_t startTime;
};

// The handles one process holds on one object. Object and process are slot
// indexes plus one; object 0 marks a free record.
struct HandleRecord {
    std::uint32_t object;
    std::uint32_t process;
    std::uint32_t count;
};

struct TableLayout {
    std::atomic<std::uint32_t> magic;
    std::uint32_t version;
    std::uint32_t objectSlots;
    std::uint32_t processSlots;
    std::uint32_t recordSlots;
    std::uint32_t layoutSize;
    std::uint64_t nextUid;
    pthread_mutex_t lock;
    std::uint64_t nameHash[kObjectSlots];  // 0 for a free slot: a quick filter for lookups
    ProcessSlot processes[kProcessSlots];
    HandleRecord records[kRecordSlots];
    ObjectSlot objects[kObjectSlots];
};

namespace {

ProcessIdentity Self() {
    return CurrentProcessIdentity();
}

std::uint64_t HashName(std::u16string_view name) {
    std::uint64_t h = 0xcbf29ce484222325ULL;
    for (char16_t c : name) {
        h ^= static_cast<std::uint64_t>(c);
        h *= 0x100000001b3ULL;
    }
    return h == 0 ? 1 : h;
}

bool IsValidKind(std::uint32_t kind) {
    return kind >= static_cast<std::uint32_t>(ObjectKind::ManualEvent) &&
           kind <= static_cast<std::uint32_t>(ObjectKind::Semaphore);
}

NamedObjectTable::Family FamilyOf(std::uint32_t kind) {
    return kind == static_cast<std::uint32_t>(ObjectKind::Semaphore)
               ? NamedObjectTable::Family::Semaphore
               : NamedObjectTable::Family::Event;
}

// The edits of the table, made with its lock held. Everything read from the
// table is checked before it is used as an index: another process may have
// died half way through an edit, or written anything there.
class Editor {
public:
    Editor(TableLayout& table, std::uint32_t selfHint)
        : m_t(table), m_self(Self()), m_hint(selfHint) {}

    std::uint32_t Hint() const { return m_hint; }

    static bool InUse(const ObjectSlot& o) { return o.kind != 0; }

    std::optional<std::uint32_t> FindObject(std::u16string_view name, std::uint64_t hash) const {
        for (std::uint32_t i = 0; i < kObjectSlots; ++i) {
            const ObjectSlot& o = m_t.objects[i];
            if (m_t.nameHash[i] == hash && InUse(o) && o.nameLength == name.size() &&
                std::memcmp(o.name, name.data(), name.size() * sizeof(char16_t)) == 0) {
                return i;
            }
        }
        return std::nullopt;
    }

    std::optional<std::uint32_t> FreeObjectSlot() const {
        for (std::uint32_t i = 0; i < kObjectSlots; ++i) {
            if (!InUse(m_t.objects[i])) {
                return i;
            }
        }
        return std::nullopt;
    }

    void InitObject(std::uint32_t i, std::u16string_view name, std::uint64_t hash,
                    const NamedObjectTable::CreateParams& params) {
        ObjectSlot& o = m_t.objects[i];
        o.state.word.store(params.word, std::memory_order_relaxed);
        o.state.waiters.store(0, std::memory_order_relaxed);
        o.maximum = params.maximum;
        o.holders = 0;
        o.nameLength = static_cast<std::uint32_t>(name.size());
        std::memcpy(o.name, name.data(), name.size() * sizeof(char16_t));
        o.uid = ++m_t.nextUid;
        o.kind = static_cast<std::uint32_t>(params.kind);
        m_t.nameHash[i] = hash;
    }

    void FreeObject(std::uint32_t i) {
        ObjectSlot& o = m_t.objects[i];
        m_t.nameHash[i] = 0;
        o.kind = 0;
        o.holders = 0;
        o.nameLength = 0;
        o.uid = 0;
    }

    bool IsSelf(const ProcessSlot& p) const {
        return p.pid == m_self.pid && p.startTime == m_self.startTime;
    }

    std::optional<std::uint32_t> FindSelf() {
        if (m_hint < kProcessSlots && IsSelf(m_t.processes[m_hint])) {
            return m_hint;
        }
        for (std::uint32_t i = 0; i < kProcessSlots; ++i) {
            if (IsSelf(m_t.processes[i])) {
                m_hint = i;
                return i;
            }
        }
        return std::nullopt;
    }

    std::optional<std::uint32_t> FindOrAddSelf() {
        if (auto found = FindSelf()) {
            return found;
        }
        auto free = FreeProcessSlot();
        if (!free) {
            SweepDeadProcesses();
            free = FreeProcessSlot();
        }
        if (!free) {
            return std::nullopt;
        }
        m_t.processes[*free] = {m_self.pid, 0, m_self.startTime};
        m_hint = *free;
        return free;
    }

    std::optional<std::uint32_t> FindRecord(std::uint32_t object, std::uint32_t process) const {
        for (std::uint32_t r = 0; r < kRecordSlots; ++r) {
            const HandleRecord& h = m_t.records[r];
            if (h.object == object + 1 && h.process == process + 1) {
                return r;
            }
        }
        return std::nullopt;
    }

    // Adds one handle of this process on `object`.
    bool AddHandle(std::uint32_t object) {
        const auto self = FindOrAddSelf();
        if (!self) {
            return false;
        }
        if (const auto r = FindRecord(object, *self)) {
            HandleRecord& h = m_t.records[*r];
            if (h.count == UINT32_MAX) {
                return false;
            }
            ++h.count;
            return true;
        }
        auto free = FreeRecord();
        if (!free) {
            SweepDeadProcesses();
            free = FreeRecord();
        }
        if (!free || !IsSelf(m_t.processes[*self])) {
            return false;
        }
        HandleRecord& h = m_t.records[*free];
        h.process = *self + 1;
        h.count = 1;
        h.object = object + 1;  // last: the record is in use from here on
        ++m_t.objects[object].holders;
        ++m_t.processes[*self].records;
        return true;
    }

    // Frees record `r` and whatever it was the last reference to.
    void DropRecord(std::uint32_t r) {
        const HandleRecord h = m_t.records[r];
        m_t.records[r] = {0, 0, 0};
        if (h.object >= 1 && h.object <= kObjectSlots) {
            ObjectSlot& o = m_t.objects[h.object - 1];
            if (o.holders > 0) {
                --o.holders;
            }
            if (o.holders == 0 && InUse(o)) {
                FreeObject(h.object - 1);
            }
        }
        if (h.process >= 1 && h.process <= kProcessSlots) {
            ProcessSlot& p = m_t.processes[h.process - 1];
            if (p.records > 0) {
                --p.records;
            }
            if (p.records == 0) {
                p = {0, 0, 0};
            }
        }
    }

    void ReleaseHandle(std::uint32_t object) {
        const auto self = FindSelf();
        if (!self) {
            return;  // a forked child closing its parent's handles
        }
        const auto r = FindRecord(object, *self);
        if (!r) {
            return;
        }
        if (--m_t.records[*r].count == 0) {
            DropRecord(*r);
        }
    }

    // Drops every record of process slot `p` and frees the slot.
    void ReclaimProcess(std::uint32_t p) {
        for (std::uint32_t r = 0; r < kRecordSlots; ++r) {
            if (m_t.records[r].object != 0 && m_t.records[r].process == p + 1) {
                DropRecord(r);
            }
        }
        m_t.processes[p] = {0, 0, 0};
    }

    bool IsAlive(const ProcessSlot& p) const {
        if (p.pid <= 0) {
            return false;
        }
        if (p.pid == m_self.pid) {
            return p.startTime == m_self.startTime;
        }
        return ProcessIsAlive(p.pid, p.startTime);
    }

    void ReclaimDeadHoldersOf(std::uint32_t object) {
        std::bitset<kProcessSlots> holders;
        for (const HandleRecord& h : m_t.records) {
            if (h.object == object + 1 && h.process >= 1 && h.process <= kProcessSlots) {
                holders.set(h.process - 1);
            }
        }
        for (std::uint32_t p = 0; p < kProcessSlots; ++p) {
            if (holders.test(p) && !IsAlive(m_t.processes[p])) {
                ReclaimProcess(p);
            }
        }
    }

    void SweepDeadProcesses() {
        for (std::uint32_t p = 0; p < kProcessSlots; ++p) {
            if (m_t.processes[p].pid != 0 && !IsAlive(m_t.processes[p])) {
                ReclaimProcess(p);
            }
        }
    }

    bool RecordIsValid(const HandleRecord& h) const {
        return h.object >= 1 && h.object <= kObjectSlots && h.process >= 1 &&
               h.process <= kProcessSlots && h.count > 0 &&
               IsValidKind(m_t.objects[h.object - 1].kind) && m_t.processes[h.process - 1].pid > 0;
    }

    bool ObjectIsValid(std::uint32_t i) const {
        const ObjectSlot& o = m_t.objects[i];
        return IsValidKind(o.kind) && o.nameLength >= 1 && o.nameLength <= kMaxObjectName;
    }

    // Rebuilds the table after a process died holding its lock, half way
    // through any edit. The handle records are the truth; every count is
    // derived from them again, and what no valid record holds is freed.
    void Repair() {
        for (HandleRecord& h : m_t.records) {
            if (!RecordIsValid(h)) {
                h = {0, 0, 0};
            }
        }
        for (ObjectSlot& o : m_t.objects) {
            o.holders = 0;
        }
        for (ProcessSlot& p : m_t.processes) {
            p.records = 0;
        }
        for (const HandleRecord& h : m_t.records) {
            if (h.object != 0) {
                ++m_t.objects[h.object - 1].holders;
                ++m_t.processes[h.process - 1].records;
            }
        }
        for (std::uint32_t i = 0; i < kObjectSlots; ++i) {
            ObjectSlot& o = m_t.objects[i];
            if (!ObjectIsValid(i) || o.holders == 0) {
                if (o.holders != 0) {
                    DropRecordsOf(i);
                }
                FreeObject(i);
            } else {
                m_t.nameHash[i] = HashName({o.name, o.nameLength});
            }
        }
        for (ProcessSlot& p : m_t.processes) {
            if (p.records == 0) {
                p = {0, 0, 0};
            }
        }
        SweepDeadProcesses();
    }

    void DropRecordsOf(std::uint32_t object) {
        for (std::uint32_t r = 0; r < kRecordSlots; ++r) {
            if (m_t.records[r].object == object + 1) {
                DropRecord(r);
            }
        }
    }

    NamedObjectTable::CensusResult Census() const {
        NamedObjectTable::CensusResult result;
        bool consistent = true;
        std::uint32_t holders[kObjectSlots] = {};
        std::uint32_t records[kProcessSlots] = {};
        for (const HandleRecord& h : m_t.records) {
            if (h.object == 0) {
                continue;
            }
            ++result.records;
            if (!RecordIsValid(h)) {
                consistent = false;
                continue;
            }
            ++holders[h.object - 1];
            ++records[h.process - 1];
        }
        for (std::uint32_t i = 0; i < kObjectSlots; ++i) {
            const ObjectSlot& o = m_t.objects[i];
            if (!InUse(o)) {
                consistent = consistent && holders[i] == 0 && m_t.nameHash[i] == 0;
                continue;
            }
            ++result.objects;
            consistent = consistent && ObjectIsValid(i) && o.holders == holders[i] &&
                         holders[i] > 0 && m_t.nameHash[i] == HashName({o.name, o.nameLength});
        }
        for (std::uint32_t p = 0; p < kProcessSlots; ++p) {
            const ProcessSlot& s = m_t.processes[p];
            if (s.pid == 0) {
                consistent = consistent && records[p] == 0;
                continue;
            }
            ++result.processes;
            consistent = consistent && s.records == records[p] && records[p] > 0;
        }
        result.consistent = consistent;
        return result;
    }

private:
    std::optional<std::uint32_t> FreeProcessSlot() const {
        for (std::uint32_t i = 0; i < kProcessSlots; ++i) {
            if (m_t.processes[i].pid == 0) {
                return i;
            }
        }
        return std::nullopt;
    }

    std::optional<std::uint32_t> FreeRecord() const {
        for (std::uint32_t r = 0; r < kRecordSlots; ++r) {
            if (m_t.records[r].object == 0) {
                return r;
            }
        }
        return std::nullopt;
    }

    TableLayout& m_t;
    ProcessIdentity m_self;
    std::uint32_t m_hint;
};

bool InitLayout(TableLayout* t) {
    t->version = kLayoutVersion;
    t->objectSlots = kObjectSlots;
    t->processSlots = kProcessSlots;
    t->recordSlots = kRecordSlots;
    t->layoutSize = static_cast<std::uint32_t>(sizeof(TableLayout));
    t->nextUid = 0;
    pthread_mutexattr_t attr;
    if (pthread_mutexattr_init(&attr) != 0) {
        return false;
    }
    bool ok = pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED) == 0 &&
              pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST) == 0 &&
              pthread_mutex_init(&t->lock, &attr) == 0;
    pthread_mutexattr_destroy(&attr);
    if (ok) {
        t->magic.store(kMagic, std::memory_order_release);
    }
    return ok;
}

bool LayoutMatches(const TableLayout* t) {
    return t->version == kLayoutVersion && t->objectSlots == kObjectSlots &&
           t->processSlots == kProcessSlots && t->recordSlots == kRecordSlots &&
           t->layoutSize == sizeof(TableLayout);
}

// Maps the table named `shmName`, creating and initialising it if needed.
// Attaching is serialised by a file lock on the shared-memory object, which
// the kernel drops if the holder dies; a table whose initialiser died is
// initialised again (nobody can have used it).
TableLayout* MapTable(const std::string& shmName) {
    const int fd = OpenOwnedSharedObject(shmName, sizeof(TableLayout));
    if (fd < 0) {
        return nullptr;
    }
    TableLayout* result = nullptr;
    int rc;
    do {
        rc = flock(fd, LOCK_EX);
    } while (rc != 0 && errno == EINTR);
    struct stat st {};
    if (rc == 0 && fstat(fd, &st) == 0) {
        const bool fresh = st.st_size == 0;
        const auto size = static_cast<off_t>(sizeof(TableLayout));
        if ((fresh && ftruncate(fd, size) == 0) || st.st_size == size) {
            void* p = mmap(nullptr, sizeof(TableLayout), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
            if (p != MAP_FAILED) {
                auto* t = static_cast<TableLayout*>(p);
                bool ok = true;
                if (t->magic.load(std::memory_order_acquire) != kMagic) {
                    if (!fresh) {
                        std::memset(p, 0, sizeof(TableLayout));
                    }
                    t = new (p) TableLayout;
                    ok = InitLayout(t);
                } else {
                    ok = LayoutMatches(t);
                }
                if (ok) {
                    result = t;
                } else {
                    munmap(p, sizeof(TableLayout));
                }
            }
        }
        flock(fd, LOCK_UN);
    }
    close(fd);
    return result;
}

}  // namespace

// Holds the table lock; repairs the table when the previous holder died.
class NamedObjectTable::Guard {
public:
    explicit Guard(NamedObjectTable& table) : m_table(table) {
        pthread_mutex_t* lock = &table.m_layout->lock;
        const int rc = pthread_mutex_lock(lock);
        if (rc == EOWNERDEAD) {
            Editor editor(*table.m_layout, table.m_selfHint);
            editor.Repair();
            table.m_selfHint = editor.Hint();
            m_locked = pthread_mutex_consistent(lock) == 0;
            if (!m_locked) {
                pthread_mutex_unlock(lock);
            }
        } else {
            m_locked = rc == 0;
        }
    }
    ~Guard() {
        if (m_locked && !m_keep) {
            pthread_mutex_unlock(&m_table.m_layout->lock);
        }
    }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

    bool Locked() const { return m_locked; }
    void Keep() { m_keep = true; }

private:
    NamedObjectTable& m_table;
    bool m_locked = false;
    bool m_keep = false;
};

NamedObjectTable::NamedObjectTable(TableLayout* layout) : m_layout(layout) {}

NamedObjectTable::~NamedObjectTable() {
    munmap(m_layout, sizeof(TableLayout));
}

std::shared_ptr<NamedObjectTable> NamedObjectTable::Current() {
    // KIV_NAMESPACE is read on every call: the table's system-wide name
    // carries the namespace.
    const std::string shmName = SystemObjectName("waitables", L"table");
    return OnePerNamespace<NamedObjectTable>(shmName, [&]() -> std::shared_ptr<NamedObjectTable> {
        TableLayout* layout = MapTable(shmName);
        if (layout == nullptr) {
            return nullptr;
        }
        std::shared_ptr<NamedObjectTable> table(new NamedObjectTable(layout));
        // Handles left by processes that died since the table was last used.
        Guard lock(*table);
        if (lock.Locked()) {
            Editor editor(*layout, table->m_selfHint);
            editor.SweepDeadProcesses();
            table->m_selfHint = editor.Hint();
        }
        return table;
    });
}

std::optional<NamedObjectTable::Opened> NamedObjectTable::Open(std::u16string_view name,
                                                               Family family,
                                                               const CreateParams* create,
                                                               bool* existed) {
    *existed = false;
    if (name.empty() || name.size() > kMaxObjectName) {
        return std::nullopt;
    }
    const std::uint64_t hash = HashName(name);
    Guard lock(*this);
    if (!lock.Locked()) {
        return std::nullopt;
    }
    Editor editor(*m_layout, m_selfHint);
    std::optional<std::uint32_t> slot = editor.FindObject(name, hash);
    if (slot) {
        // An object whose only holders died is gone: it must not be handed
        // out with the state they left.
        editor.ReclaimDeadHoldersOf(*slot);
        if (!Editor::InUse(m_layout->objects[*slot])) {
            slot.reset();
        }
    }
    *existed = slot.has_value();
    if (*existed) {
        const ObjectSlot& o = m_layout->objects[*slot];
        if (!IsValidKind(o.kind) || FamilyOf(o.kind) != family || o.maximum < 0) {
            return std::nullopt;
        }
    } else {
        if (create == nullptr) {
            return std::nullopt;
        }
        slot = editor.FreeObjectSlot();
        if (!slot) {
            editor.SweepDeadProcesses();
            slot = editor.FreeObjectSlot();
        }
        if (!slot) {
            return std::nullopt;
        }
        editor.InitObject(*slot, name, hash, *create);
    }
    const bool added = editor.AddHandle(*slot);
    m_selfHint = editor.Hint();
    if (!added) {
        if (!*existed) {
            editor.FreeObject(*slot);
        }
        return std::nullopt;
    }
    ObjectSlot& o = m_layout->objects[*slot];
    return Opened{&o.state, static_cast<ObjectKind>(o.kind), o.maximum, *slot, o.uid};
}

bool NamedObjectTable::UseExisting(std::u16string_view name, Family family, Found* found,
                                   void (*use)(void* context, WaitState& state, ObjectKind kind),
                                   void* context) {
    if (name.empty() || name.size() > kMaxObjectName) {
        return false;
    }
    Guard lock(*this);
    if (!lock.Locked()) {
        return false;
    }
    // The uid tells whether the slot still holds the object found last time:
    // a slot freed and used again gets a new one.
    std::optional<std::uint32_t> slot;
    if (found->slot < kObjectSlots && Editor::InUse(m_layout->objects[found->slot]) &&
        m_layout->objects[found->slot].uid == found->uid) {
        slot = found->slot;
    } else {
        slot = Editor(*m_layout, m_selfHint).FindObject(name, HashName(name));
    }
    if (!slot) {
        *found = Found{};
        return false;
    }
    ObjectSlot& o = m_layout->objects[*slot];
    *found = Found{*slot, o.uid};
    if (!IsValidKind(o.kind) || FamilyOf(o.kind) != family) {
        return false;
    }
    use(context, o.state, static_cast<ObjectKind>(o.kind));
    return true;
}

void NamedObjectTable::Close(std::uint32_t slot, std::uint64_t uid) {
    if (slot >= kObjectSlots) {
        return;
    }
    Guard lock(*this);
    if (!lock.Locked()) {
        return;
    }
    const ObjectSlot& o = m_layout->objects[slot];
    if (!Editor::InUse(o) || o.uid != uid) {
        return;
    }
    Editor editor(*m_layout, m_selfHint);
    editor.ReleaseHandle(slot);
    m_selfHint = editor.Hint();
}

std::optional<NamedObjectTable::CensusResult> NamedObjectTable::Census() {
    Guard lock(*this);
    if (!lock.Locked()) {
        return std::nullopt;
    }
    return Editor(*m_layout, m_selfHint).Census();
}

bool NamedObjectTable::LockAndKeep() {
    Guard lock(*this);
    lock.Keep();
    return lock.Locked();
}

}  // namespace kiv::platform::posix

namespace kiv::platform {

bool TakeNamedObjectCensus(NamedObjectCensus* out) {
    const auto table = posix::NamedObjectTable::Current();
    if (table == nullptr || out == nullptr) {
        return false;
    }
    const auto census = table->Census();
    if (!census) {
        return false;
    }
    *out = {census->objects, census->processes, census->records, census->consistent};
    return true;
}

bool HoldNamedObjectTableLockForever() {
    const auto table = posix::NamedObjectTable::Current();
    return table != nullptr && table->LockAndKeep();
}

}  // namespace kiv::platform
