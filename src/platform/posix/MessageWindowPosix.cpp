// Message windows on a shared-memory window table.
//
// The table of a namespace, "/kiv.<namespace>.windows.table", holds a fixed
// number of windows and of queues ("ports", one per thread that owns windows
// or sends). It is guarded by one robust process-shared mutex: a process that
// dies holding it leaves it to the next taker, which checks every slot and
// sweeps the ports of dead processes before going on. Everything read from
// the table is bounds-checked before it is used as an index.
//
// A window's procedure is a function pointer of its owner process, kept in
// that process's own map (by handle), never in shared memory.
//
// A send is a record in the sender's port (a thread has at most kNesting
// sends outstanding, nested through procedures that send again) and a
// reference to it in the target port's queue of incoming sends. The owner
// runs the procedure, writes the result into the record and wakes the
// sender. Each port has one automatic event, set whenever something arrives
// for its thread: a post, a send, a reply, a quit request.
#include <pthread.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "foundation/Text.h"
#include "platform/MessageWindow.h"
#include "platform/Namespace.h"
#include "platform/Waitable.h"
#include "platform/posix/ProcessIdentityPosix.h"
#include "platform/posix/SharedMappingPosix.h"
#include "platform/posix/WaitableStatePosix.h"

namespace kiv::platform::posix {
namespace {

constexpr std::uint32_t kMagic = 0x4B49574Eu;  // "KIWN"
constexpr std::uint32_t kLayoutVersion = 2;
constexpr std::uint32_t kWindowSlots = 256;
constexpr std::uint32_t kPortSlots = 256;
constexpr std::uint32_t kPostSlots = static_cast<std::uint32_t>(kPostedQueueLength);
constexpr std::uint32_t kSendSlots = 128;  // incoming sends one queue holds
constexpr std::uint32_t kNesting = 8;      // sends one thread has outstanding
constexpr std::uint32_t kSlotBits = 12;    // a handle: generation << 12 | slot + 1
constexpr std::uint32_t kSlotMask = (1u << kSlotBits) - 1;
// How often a waiting sender looks whether the window or its owner is gone.
constexpr int kSendCheckMs = 50;
// How often a sender that found the target's queue full looks for room.
constexpr int kRoomCheckMs = 2;

static_assert(kWindowSlots < kSlotMask, "window slots must fit the handle");

enum SendState : std::uint32_t { kFree = 0, kPending = 1, kTaken = 2, kDone = 3 };

struct PostedMessage {
    std::uint32_t window;
    std::uint32_t message;
    std::uint64_t wParam;
    std::uint64_t lParam;
};

struct SendRecord {
    std::uint32_t state;   // a SendState
    std::uint32_t serial;  // bumped by every send from this record
    std::uint32_t window;
    std::uint32_t message;
    std::uint32_t target;  // the port that runs it, and its generation
    std::uint32_t targetGeneration;
    std::uint64_t wParam;
    std::uint64_t lParam;
    std::int64_t result;
    std::uint32_t ran;  // 1 once the procedure ran, 0 for a send that failed
    std::uint32_t reserved;
};

struct SendRef {
    std::uint32_t port;  // the sender's port, its generation, the record
    std::uint32_t portGeneration;
    std::uint32_t record;
    std::uint32_t serial;
};

// The queue of one thread; generation 0 marks a free slot.
struct alignas(64) PortSlot {
    WaitState signal;
    std::int32_t pid;
    std::int32_t tid;
    std::uint64_t startTime;
    std::uint32_t generation;
    std::uint32_t quitPending;
    std::int32_t quitCode;
    std::uint32_t postHead;
    std::uint32_t postCount;
    std::uint32_t sendHead;
    std::uint32_t sendCount;
    SendRef incoming[kSendSlots];
    SendRecord outgoing[kNesting];
    PostedMessage posted[kPostSlots];
};

// Handle 0 marks a free slot.
struct WindowSlot {
    std::uint32_t handle;
    std::uint32_t port;
    std::uint32_t portGeneration;
    std::uint32_t classLength;
    std::uint32_t titleLength;
    char16_t className[kMaxWindowText];
    char16_t title[kMaxWindowText];
};

}  // namespace

struct WindowTableLayout {
    std::atomic<std::uint32_t> magic;
    std::uint32_t version;
    std::uint32_t windowSlots;
    std::uint32_t portSlots;
    std::uint32_t layoutSize;
    std::uint32_t nextGeneration;
    pthread_mutex_t lock;
    PortSlot ports[kPortSlots];
    WindowSlot windows[kWindowSlots];
};

namespace {

using Layout = WindowTableLayout;

bool InitLayout(void* p) {
    std::memset(p, 0, sizeof(Layout));
    auto* t = new (p) Layout;
    t->version = kLayoutVersion;
    t->windowSlots = kWindowSlots;
    t->portSlots = kPortSlots;
    t->layoutSize = static_cast<std::uint32_t>(sizeof(Layout));
    t->nextGeneration = 0;
    pthread_mutexattr_t attr;
    if (pthread_mutexattr_init(&attr) != 0) {
        return false;
    }
    const bool ok = pthread_mutexattr_setpshared(&attr, PTHREAD_PROCESS_SHARED) == 0 &&
                    pthread_mutexattr_setrobust(&attr, PTHREAD_MUTEX_ROBUST) == 0 &&
                    pthread_mutex_init(&t->lock, &attr) == 0;
    pthread_mutexattr_destroy(&attr);
    if (ok) {
        t->magic.store(kMagic, std::memory_order_release);
    }
    return ok;
}

bool LayoutIsReady(const void* p) {
    const auto* t = static_cast<const Layout*>(p);
    return t->magic.load(std::memory_order_acquire) == kMagic && t->version == kLayoutVersion &&
           t->windowSlots == kWindowSlots && t->portSlots == kPortSlots &&
           t->layoutSize == sizeof(Layout);
}

void SignalPort(Layout& t, std::uint32_t port) {
    if (port < kPortSlots) {
        detail::WaitableAccess::EventOnState(&t.ports[port].signal, EventReset::Automatic, true)
            .Set();
    }
}

}  // namespace

// The table of one namespace as this process maps it, with the procedures
// of this process's windows.
class WindowTable {
public:
    static std::shared_ptr<WindowTable> Current();

    ~WindowTable() { UnmapSharedObject(m_layout, sizeof(Layout)); }
    WindowTable(const WindowTable&) = delete;
    WindowTable& operator=(const WindowTable&) = delete;

    Layout& Table() { return *m_layout; }

    void SetProcedure(std::uint32_t handle, WindowProcedure procedure) {
        std::lock_guard<std::mutex> guard(m_procedureLock);
        m_procedures[handle] = procedure;
    }
    void DropProcedure(std::uint32_t handle) {
        std::lock_guard<std::mutex> guard(m_procedureLock);
        m_procedures.erase(handle);
    }
    WindowProcedure Procedure(std::uint32_t handle) {
        std::lock_guard<std::mutex> guard(m_procedureLock);
        const auto it = m_procedures.find(handle);
        return it == m_procedures.end() ? nullptr : it->second;
    }

private:
    explicit WindowTable(Layout* layout) : m_layout(layout) {}

    Layout* m_layout;
    std::mutex m_procedureLock;
    std::unordered_map<std::uint32_t, WindowProcedure> m_procedures;
};

namespace {

// The edits of the table; called with its lock held.
class Editor {
public:
    explicit Editor(Layout& t) : m_t(t) {}

    PortSlot* LivePort(std::uint32_t port, std::uint32_t generation) {
        if (port >= kPortSlots || generation == 0 || m_t.ports[port].generation != generation) {
            return nullptr;
        }
        return &m_t.ports[port];
    }

    WindowSlot* FindWindow(std::uint32_t handle) {
        const std::uint32_t slot = handle & kSlotMask;
        if (handle == 0 || slot == 0 || slot > kWindowSlots) {
            return nullptr;
        }
        WindowSlot& w = m_t.windows[slot - 1];
        if (w.handle != handle || LivePort(w.port, w.portGeneration) == nullptr) {
            return nullptr;
        }
        return &w;
    }

    std::uint32_t NextGeneration() {
        std::uint32_t g = ++m_t.nextGeneration;
        if (g == 0) {
            g = ++m_t.nextGeneration;
        }
        return g;
    }

    // Rings: head and count are read from shared memory and clamped first.
    static bool PushPosted(PortSlot& p, const PostedMessage& m) {
        const std::uint32_t count = std::min(p.postCount, kPostSlots);
        if (count == kPostSlots) {
            return false;
        }
        p.posted[(p.postHead % kPostSlots + count) % kPostSlots] = m;
        p.postCount = count + 1;
        return true;
    }
    static bool PopPosted(PortSlot& p, PostedMessage* m) {
        const std::uint32_t count = std::min(p.postCount, kPostSlots);
        if (count == 0) {
            return false;
        }
        const std::uint32_t head = p.postHead % kPostSlots;
        *m = p.posted[head];
        p.postHead = (head + 1) % kPostSlots;
        p.postCount = count - 1;
        return true;
    }
    static bool PushSend(PortSlot& p, const SendRef& r) {
        const std::uint32_t count = std::min(p.sendCount, kSendSlots);
        if (count == kSendSlots) {
            return false;
        }
        p.incoming[(p.sendHead % kSendSlots + count) % kSendSlots] = r;
        p.sendCount = count + 1;
        return true;
    }
    static bool PopSend(PortSlot& p, SendRef* r) {
        const std::uint32_t count = std::min(p.sendCount, kSendSlots);
        if (count == 0) {
            return false;
        }
        const std::uint32_t head = p.sendHead % kSendSlots;
        *r = p.incoming[head];
        p.sendHead = (head + 1) % kSendSlots;
        p.sendCount = count - 1;
        return true;
    }

    // The record a reference names, if it still waits in the given state.
    SendRecord* RecordOf(const SendRef& r, std::uint32_t state) {
        PortSlot* sender = LivePort(r.port, r.portGeneration);
        if (sender == nullptr || r.record >= kNesting) {
            return nullptr;
        }
        SendRecord& rec = sender->outgoing[r.record];
        return rec.serial == r.serial && rec.state == state ? &rec : nullptr;
    }

    std::optional<std::uint32_t> AllocatePort(const ProcessIdentity& self, std::int32_t tid) {
        auto free = FreePort();
        if (!free) {
            SweepDeadProcesses();
            free = FreePort();
        }
        if (!free) {
            return std::nullopt;
        }
        PortSlot& p = m_t.ports[*free];
        p.signal.word.store(0, std::memory_order_relaxed);
        p.pid = self.pid;
        p.tid = tid;
        p.startTime = self.startTime;
        p.quitPending = 0;
        p.quitCode = 0;
        p.postHead = p.postCount = p.sendHead = p.sendCount = 0;
        for (SendRecord& rec : p.outgoing) {
            rec.state = kFree;
        }
        p.generation = NextGeneration();  // last: the port is in use from here on
        return free;
    }

    std::optional<std::uint32_t> FreeWindowSlot() {
        for (std::uint32_t i = 0; i < kWindowSlots; ++i) {
            if (m_t.windows[i].handle == 0) {
                return i;
            }
        }
        return std::nullopt;
    }

    // Ends every send waiting for `port` (queued or running) with result 0,
    // or only those for `window` when it is not 0 and still queued.
    void FailSendsTo(std::uint32_t port, std::uint32_t generation, std::uint32_t window) {
        for (std::uint32_t q = 0; q < kPortSlots; ++q) {
            PortSlot& sender = m_t.ports[q];
            if (sender.generation == 0) {
                continue;
            }
            for (SendRecord& rec : sender.outgoing) {
                const bool forPort = rec.target == port && rec.targetGeneration == generation;
                const bool waiting = window == 0 ? (rec.state == kPending || rec.state == kTaken)
                                                 : (rec.state == kPending && rec.window == window);
                if (forPort && waiting) {
                    rec.result = 0;
                    rec.state = kDone;
                    m_wake.push_back(q);
                }
            }
        }
    }

    // Frees a port with its windows; whoever waits for it gets 0. Returns the
    // handles of the windows removed.
    std::vector<std::uint32_t> ReclaimPort(std::uint32_t port) {
        std::vector<std::uint32_t> removed;
        PortSlot& p = m_t.ports[port];
        const std::uint32_t generation = p.generation;
        for (WindowSlot& w : m_t.windows) {
            if (w.handle != 0 && w.port == port && w.portGeneration == generation) {
                removed.push_back(w.handle);
                w.handle = 0;
            }
        }
        FailSendsTo(port, generation, 0);
        p.generation = 0;
        p.pid = 0;
        p.tid = 0;
        p.postCount = p.sendCount = 0;
        return removed;
    }

    bool PortOwnerAlive(const PortSlot& p) {
        const ProcessIdentity self = CurrentProcessIdentity();
        if (p.pid == self.pid) {
            return p.startTime == self.startTime;
        }
        return ProcessIsAlive(p.pid, p.startTime);
    }

    void SweepDeadProcesses() {
        std::map<std::int32_t, bool> alive;  // one look per process
        for (std::uint32_t i = 0; i < kPortSlots; ++i) {
            const PortSlot& p = m_t.ports[i];
            if (p.generation == 0) {
                continue;
            }
            auto it = alive.find(p.pid);
            if (it == alive.end()) {
                it = alive.emplace(p.pid, PortOwnerAlive(p)).first;
            }
            if (!it->second) {
                ReclaimPort(i);
            }
        }
    }

    // Makes the table consistent again after a holder of its lock died in
    // the middle of any edit.
    void Repair() {
        for (PortSlot& p : m_t.ports) {
            if (p.generation == 0) {
                continue;
            }
            p.postHead %= kPostSlots;
            p.postCount = std::min(p.postCount, kPostSlots);
            p.sendHead %= kSendSlots;
            p.sendCount = std::min(p.sendCount, kSendSlots);
            for (SendRecord& rec : p.outgoing) {
                if (rec.state > kDone) {
                    rec.state = kFree;
                }
            }
            if (p.pid <= 0) {
                p.generation = 0;
            }
        }
        for (std::uint32_t i = 0; i < kWindowSlots; ++i) {
            WindowSlot& w = m_t.windows[i];
            if (w.handle != 0 && (!WindowIsValid(w) || (w.handle & kSlotMask) != i + 1)) {
                w.handle = 0;
            }
        }
        SweepDeadProcesses();
    }

    bool WindowIsValid(const WindowSlot& w) {
        return LivePort(w.port, w.portGeneration) != nullptr && w.classLength <= kMaxWindowText &&
               w.titleLength <= kMaxWindowText;
    }

    WindowCensus Census() {
        WindowCensus c;
        c.consistent = true;
        for (const PortSlot& p : m_t.ports) {
            if (p.generation != 0) {
                ++c.queues;
                c.consistent = c.consistent && p.postCount <= kPostSlots &&
                               p.sendCount <= kSendSlots && p.pid > 0;
            }
        }
        for (std::uint32_t i = 0; i < kWindowSlots; ++i) {
            const WindowSlot& w = m_t.windows[i];
            if (w.handle != 0) {
                ++c.windows;
                c.consistent = c.consistent && WindowIsValid(w) && (w.handle & kSlotMask) == i + 1;
            }
        }
        return c;
    }

    std::vector<std::uint32_t>& Wakes() { return m_wake; }

private:
    std::optional<std::uint32_t> FreePort() {
        for (std::uint32_t i = 0; i < kPortSlots; ++i) {
            if (m_t.ports[i].generation == 0) {
                return i;
            }
        }
        return std::nullopt;
    }

    Layout& m_t;
    std::vector<std::uint32_t> m_wake;  // ports to signal once the lock is released
};

// Holds the table lock; repairs the table when the previous holder died.
// The ports an edit woke are signalled after the lock is released.
class Guard {
public:
    explicit Guard(WindowTable& table) : m_t(table.Table()), m_editor(m_t) {
        const int rc = pthread_mutex_lock(&m_t.lock);
        if (rc == EOWNERDEAD) {
            m_editor.Repair();
            m_locked = pthread_mutex_consistent(&m_t.lock) == 0;
            if (!m_locked) {
                pthread_mutex_unlock(&m_t.lock);
            }
        } else {
            m_locked = rc == 0;
        }
    }
    ~Guard() { Unlock(); }
    Guard(const Guard&) = delete;
    Guard& operator=(const Guard&) = delete;

    bool Locked() const { return m_locked; }
    Editor& Edit() { return m_editor; }
    Layout& Table() { return m_t; }
    void Wake(std::uint32_t port) { m_editor.Wakes().push_back(port); }
    void Keep() { m_keep = true; }

    void Unlock() {
        if (!m_locked || m_keep) {
            return;
        }
        m_locked = false;
        pthread_mutex_unlock(&m_t.lock);
        for (std::uint32_t port : m_editor.Wakes()) {
            SignalPort(m_t, port);
        }
        m_editor.Wakes().clear();
    }

private:
    Layout& m_t;
    Editor m_editor;
    bool m_locked = false;
    bool m_keep = false;
};

// The port of the calling thread in the table of the current namespace.
// Released, with the thread's windows, when the thread ends.
struct ThreadPort {
    std::shared_ptr<WindowTable> table;
    std::int32_t pid = 0;
    std::uint32_t index = 0;
    std::uint32_t generation = 0;
    Event signal;

    ~ThreadPort() {
        if (table == nullptr || pid != getpid()) {
            return;  // a forked child does not own its parent's port
        }
        std::vector<std::uint32_t> removed;
        {
            Guard lock(*table);
            if (lock.Locked() && lock.Edit().LivePort(index, generation) != nullptr) {
                removed = lock.Edit().ReclaimPort(index);
            }
        }
        for (std::uint32_t handle : removed) {
            table->DropProcedure(handle);
        }
    }
};

thread_local std::unique_ptr<ThreadPort> t_port;

PortSlot& Slot(ThreadPort& port) {
    return port.table->Table().ports[port.index];
}

// The calling thread's port in the current namespace's table; with
// `create`, allocated when there is none. Null when the table is unusable.
ThreadPort* MyPort(bool create) {
    std::shared_ptr<WindowTable> table = WindowTable::Current();
    if (table == nullptr) {
        return nullptr;
    }
    if (t_port != nullptr) {
        if (t_port->pid != getpid()) {
            t_port->table = nullptr;  // inherited through fork: not ours to release
            t_port.reset();
        } else if (t_port->table != table) {
            t_port.reset();  // another namespace now: leave the old one
        } else {
            return t_port.get();
        }
    }
    if (!create) {
        return nullptr;
    }
    auto port = std::make_unique<ThreadPort>();
    {
        Guard lock(*table);
        if (!lock.Locked()) {
            return nullptr;
        }
        const auto index = lock.Edit().AllocatePort(CurrentProcessIdentity(), CurrentThreadId());
        if (!index) {
            return nullptr;
        }
        port->index = *index;
        port->generation = table->Table().ports[*index].generation;
    }
    port->pid = getpid();
    port->signal = detail::WaitableAccess::EventOnState(&table->Table().ports[port->index].signal,
                                                        EventReset::Automatic, true);
    port->table = std::move(table);
    t_port = std::move(port);
    return t_port.get();
}

bool IsMine(const WindowSlot& w, const ThreadPort& port) {
    return w.port == port.index && w.portGeneration == port.generation;
}

// Runs the sends queued for the calling thread; returns how many ran.
int RunIncomingSends(ThreadPort& me) {
    WindowTable& table = *me.table;
    int ran = 0;
    for (;;) {
        SendRef ref{};
        SendRecord call{};
        {
            Guard lock(table);
            if (!lock.Locked() || lock.Edit().LivePort(me.index, me.generation) == nullptr ||
                !Editor::PopSend(Slot(me), &ref)) {
                return ran;
            }
            SendRecord* rec = lock.Edit().RecordOf(ref, kPending);
            if (rec == nullptr) {
                continue;  // the sender gave up or is gone
            }
            const WindowSlot* w = lock.Edit().FindWindow(rec->window);
            if (w == nullptr || !IsMine(*w, me)) {
                rec->result = 0;
                rec->state = kDone;
                lock.Wake(ref.port);
                continue;
            }
            rec->state = kTaken;
            call = *rec;
        }
        ++ran;
        const WindowProcedure procedure = table.Procedure(call.window);
        const std::intptr_t result = procedure == nullptr
                                         ? 0
                                         : procedure(WindowFromValue(call.window), call.message,
                                                     static_cast<std::uintptr_t>(call.wParam),
                                                     static_cast<std::intptr_t>(call.lParam));
        Guard lock(table);
        if (lock.Locked()) {
            if (SendRecord* rec = lock.Edit().RecordOf(ref, kTaken)) {
                rec->result = result;
                rec->ran = 1;
                rec->state = kDone;
                lock.Wake(ref.port);
            }
        }
    }
}

// Waits for the reply to the send in record `r` of the calling thread;
// `*ran` tells whether the procedure ran.
std::intptr_t AwaitReply(ThreadPort& me, std::uint32_t r, std::uint32_t serial, bool* ran) {
    *ran = false;
    WindowTable& table = *me.table;
    for (;;) {
        {
            Guard lock(table);
            if (!lock.Locked()) {
                return 0;
            }
            SendRecord& rec = Slot(me).outgoing[r];
            if (lock.Edit().LivePort(me.index, me.generation) == nullptr || rec.serial != serial ||
                rec.state == kFree) {
                return 0;
            }
            if (rec.state == kDone) {
                rec.state = kFree;
                *ran = rec.ran != 0;
                return static_cast<std::intptr_t>(rec.result);
            }
        }
        if (RunIncomingSends(me) > 0) {
            continue;
        }
        if (WaitFor(me.signal, kSendCheckMs) != kWaitTimeout) {
            continue;
        }
        // Nothing arrived for a while: give up if the window or its owner is
        // gone. A send the owner already runs is waited for as long as the
        // owner lives.
        Guard lock(table);
        if (!lock.Locked()) {
            return 0;
        }
        SendRecord& rec = Slot(me).outgoing[r];
        if (rec.serial != serial || (rec.state != kPending && rec.state != kTaken)) {
            continue;
        }
        PortSlot* target = lock.Edit().LivePort(rec.target, rec.targetGeneration);
        if (target != nullptr && !lock.Edit().PortOwnerAlive(*target)) {
            lock.Edit().ReclaimPort(rec.target);
            target = nullptr;
        }
        if (target == nullptr ||
            (rec.state == kPending && lock.Edit().FindWindow(rec.window) == nullptr)) {
            rec.state = kFree;
            ++rec.serial;  // a late answer finds no record
            return 0;
        }
    }
}

}  // namespace

std::shared_ptr<WindowTable> WindowTable::Current() {
    const std::string shmName = SystemObjectName("windows", L"table");
    return OnePerNamespace<WindowTable>(shmName, [&]() -> std::shared_ptr<WindowTable> {
        void* p = MapSharedObject(shmName, sizeof(Layout), LayoutIsReady, InitLayout);
        if (p == nullptr) {
            return nullptr;
        }
        std::shared_ptr<WindowTable> table(new WindowTable(static_cast<Layout*>(p)));
        // Windows left by processes that died since the table was last used.
        Guard lock(*table);
        if (lock.Locked()) {
            lock.Edit().SweepDeadProcesses();
        }
        return table;
    });
}

}  // namespace kiv::platform::posix

namespace kiv::platform {

using posix::Editor;
using posix::Guard;
using posix::MyPort;
using posix::ThreadPort;
using posix::WindowTable;

HWND CreateMessageWindow(std::wstring_view className, std::wstring_view title,
                         WindowProcedure procedure) {
    const std::u16string cls = text::ToUtf16(className);
    const std::u16string ttl = text::ToUtf16(title);
    if (procedure == nullptr || cls.size() > kMaxWindowText || ttl.size() > kMaxWindowText) {
        return nullptr;
    }
    ThreadPort* me = MyPort(true);
    if (me == nullptr) {
        return nullptr;
    }
    std::uint32_t handle = 0;
    {
        Guard lock(*me->table);
        if (!lock.Locked() || lock.Edit().LivePort(me->index, me->generation) == nullptr) {
            return nullptr;
        }
        auto slot = lock.Edit().FreeWindowSlot();
        if (!slot) {
            lock.Edit().SweepDeadProcesses();
            slot = lock.Edit().FreeWindowSlot();
        }
        if (!slot) {
            return nullptr;
        }
        posix::WindowSlot& w = lock.Table().windows[*slot];
        handle = (lock.Edit().NextGeneration() << posix::kSlotBits) | (*slot + 1);
        if ((handle >> posix::kSlotBits) == 0) {
            handle |= 1u << posix::kSlotBits;
        }
        w.port = me->index;
        w.portGeneration = me->generation;
        w.classLength = static_cast<std::uint32_t>(cls.size());
        w.titleLength = static_cast<std::uint32_t>(ttl.size());
        std::copy(cls.begin(), cls.end(), w.className);
        std::copy(ttl.begin(), ttl.end(), w.title);
        // The procedure is known before any other thread can find the window.
        me->table->SetProcedure(handle, procedure);
        w.handle = handle;  // last: the window exists from here on
    }
    return WindowFromValue(handle);
}

bool DestroyMessageWindow(HWND window) {
    ThreadPort* me = MyPort(false);
    const std::uint32_t handle = WindowValue(window);
    if (me == nullptr) {
        return false;
    }
    {
        Guard lock(*me->table);
        if (!lock.Locked()) {
            return false;
        }
        posix::WindowSlot* w = lock.Edit().FindWindow(handle);
        if (w == nullptr || !posix::IsMine(*w, *me)) {
            return false;
        }
        lock.Edit().FailSendsTo(me->index, me->generation, handle);
        w->handle = 0;
    }
    me->table->DropProcedure(handle);
    return true;
}

bool PostWindowMessage(HWND window, unsigned int message, std::uintptr_t wParam,
                       std::intptr_t lParam) {
    const std::shared_ptr<WindowTable> table = WindowTable::Current();
    if (table == nullptr) {
        return false;
    }
    Guard lock(*table);
    if (!lock.Locked()) {
        return false;
    }
    const posix::WindowSlot* w = lock.Edit().FindWindow(WindowValue(window));
    if (w == nullptr) {
        return false;
    }
    const std::uint32_t port = w->port;
    posix::PortSlot& target = lock.Table().ports[port];
    const posix::PostedMessage m{w->handle, message, static_cast<std::uint64_t>(wParam),
                                 static_cast<std::uint64_t>(lParam)};
    if (!Editor::PushPosted(target, m)) {
        if (!lock.Edit().PortOwnerAlive(target)) {
            lock.Edit().ReclaimPort(port);  // the queue of a dead process
        }
        return false;
    }
    lock.Wake(port);
    return true;
}

std::intptr_t SendWindowMessage(HWND window, unsigned int message, std::uintptr_t wParam,
                                std::intptr_t lParam) {
    std::intptr_t result = 0;
    SendWindowMessageChecked(window, message, wParam, lParam, &result);
    return result;
}

SendOutcome SendWindowMessageChecked(HWND window, unsigned int message, std::uintptr_t wParam,
                                     std::intptr_t lParam, std::intptr_t* result) {
    *result = 0;
    ThreadPort* me = MyPort(true);
    const std::uint32_t handle = WindowValue(window);
    if (me == nullptr) {
        return SendOutcome::Failed;
    }
    std::uint32_t record = 0;
    std::uint32_t serial = 0;
    for (;;) {
        {
            Guard lock(*me->table);
            if (!lock.Locked() || lock.Edit().LivePort(me->index, me->generation) == nullptr) {
                return SendOutcome::Failed;
            }
            const posix::WindowSlot* w = lock.Edit().FindWindow(handle);
            if (w == nullptr) {
                return SendOutcome::NoWindow;
            }
            if (posix::IsMine(*w, *me)) {
                record = posix::kNesting;  // the caller's own window: called directly
                break;
            }
            posix::PortSlot& target = lock.Table().ports[w->port];
            if (!lock.Edit().PortOwnerAlive(target)) {
                lock.Edit().ReclaimPort(w->port);
                return SendOutcome::NoWindow;
            }
            posix::PortSlot& mine = posix::Slot(*me);
            record = 0;
            while (record < posix::kNesting && mine.outgoing[record].state != posix::kFree) {
                ++record;
            }
            // Every record is held by a send further up this thread's own
            // stack: waiting could not free one.
            if (record == posix::kNesting) {
                return SendOutcome::Failed;
            }
            posix::SendRecord& rec = mine.outgoing[record];
            serial = rec.serial + 1;
            if (Editor::PushSend(target, {me->index, me->generation, record, serial})) {
                rec.serial = serial;
                rec.window = handle;
                rec.message = message;
                rec.target = w->port;
                rec.targetGeneration = w->portGeneration;
                rec.wParam = static_cast<std::uint64_t>(wParam);
                rec.lParam = static_cast<std::uint64_t>(lParam);
                rec.result = 0;
                rec.ran = 0;
                rec.state = posix::kPending;
                lock.Wake(w->port);
                break;
            }
        }
        // The owner's queue is full: run what is sent to this thread (the
        // owner may be waiting on it) and look again shortly.
        if (posix::RunIncomingSends(*me) == 0) {
            WaitFor(me->signal, posix::kRoomCheckMs);
        }
    }
    if (record == posix::kNesting) {
        const WindowProcedure procedure = me->table->Procedure(handle);
        if (procedure == nullptr) {
            return SendOutcome::NoWindow;
        }
        *result = procedure(window, message, wParam, lParam);
        return SendOutcome::Ran;
    }
    bool ran = false;
    *result = posix::AwaitReply(*me, record, serial, &ran);
    return ran ? SendOutcome::Ran : SendOutcome::NoWindow;
}

int GetWindowMessage(WindowMessage* out, int timeoutMs) {
    ThreadPort* me = MyPort(true);
    if (me == nullptr || out == nullptr) {
        return -1;
    }
    const std::uint32_t start = TickCount();
    bool timedOut = false;
    for (;;) {
        posix::RunIncomingSends(*me);
        {
            Guard lock(*me->table);
            if (!lock.Locked() || lock.Edit().LivePort(me->index, me->generation) == nullptr) {
                return -1;
            }
            posix::PortSlot& mine = posix::Slot(*me);
            posix::PostedMessage m{};
            while (Editor::PopPosted(mine, &m)) {
                const posix::WindowSlot* w = lock.Edit().FindWindow(m.window);
                if (w != nullptr && posix::IsMine(*w, *me)) {
                    *out = {WindowFromValue(m.window), m.message,
                            static_cast<std::uintptr_t>(m.wParam),
                            static_cast<std::intptr_t>(m.lParam)};
                    return 1;
                }
            }
            if (mine.quitPending != 0) {
                mine.quitPending = 0;
                *out = {nullptr, kQuitMessage,
                        static_cast<std::uintptr_t>(static_cast<std::intptr_t>(mine.quitCode)), 0};
                return 0;
            }
        }
        if (timedOut || timeoutMs == 0) {
            return -1;
        }
        int wait = kInfinite;
        if (timeoutMs != kInfinite) {
            const std::uint32_t elapsed = TickCount() - start;
            const auto limit = static_cast<std::uint32_t>(timeoutMs);
            wait = elapsed >= limit ? 0 : static_cast<int>(limit - elapsed);
        }
        const int rc = WaitFor(me->signal, wait);
        if (rc == kWaitFailed) {
            return -1;
        }
        timedOut = rc == kWaitTimeout;  // one more look, then give up
    }
}

std::intptr_t DispatchWindowMessage(const WindowMessage& message) {
    const std::shared_ptr<WindowTable> table = WindowTable::Current();
    if (table == nullptr) {
        return 0;
    }
    const WindowProcedure procedure = table->Procedure(WindowValue(message.window));
    return procedure == nullptr
               ? 0
               : procedure(message.window, message.message, message.wParam, message.lParam);
}

bool PumpWindowMessages(int timeoutMs, int* exitCode) {
    const std::uint32_t start = TickCount();
    for (;;) {
        int wait = timeoutMs;
        if (timeoutMs > 0) {
            const std::uint32_t elapsed = TickCount() - start;
            const auto limit = static_cast<std::uint32_t>(timeoutMs);
            wait = elapsed >= limit ? 0 : static_cast<int>(limit - elapsed);
        }
        WindowMessage m;
        const int rc = GetWindowMessage(&m, wait);
        if (rc == 0) {
            if (exitCode != nullptr) {
                *exitCode = static_cast<int>(static_cast<std::intptr_t>(m.wParam));
            }
            return true;
        }
        if (rc < 0) {
            return false;
        }
        DispatchWindowMessage(m);
    }
}

void PostQuitWindowMessage(int exitCode) {
    ThreadPort* me = MyPort(true);
    if (me == nullptr) {
        return;
    }
    Guard lock(*me->table);
    if (lock.Locked() && lock.Edit().LivePort(me->index, me->generation) != nullptr) {
        posix::PortSlot& mine = posix::Slot(*me);
        mine.quitPending = 1;
        mine.quitCode = exitCode;
        lock.Wake(me->index);
    }
}

HWND FindMessageWindow(std::optional<std::wstring_view> className,
                       std::optional<std::wstring_view> title) {
    const std::shared_ptr<WindowTable> table = WindowTable::Current();
    if (table == nullptr) {
        return nullptr;
    }
    std::u16string cls;
    std::u16string ttl;
    if (className) {
        cls = text::ToUtf16(*className);
    }
    if (title) {
        ttl = text::ToUtf16(*title);
    }
    Guard lock(*table);
    if (!lock.Locked()) {
        return nullptr;
    }
    for (posix::WindowSlot& w : lock.Table().windows) {
        if (w.handle == 0 || !lock.Edit().WindowIsValid(w)) {
            continue;
        }
        const bool classMatches =
            !className || std::u16string_view(w.className, w.classLength) == cls;
        const bool titleMatches = !title || std::u16string_view(w.title, w.titleLength) == ttl;
        if (!classMatches || !titleMatches) {
            continue;
        }
        if (!lock.Edit().PortOwnerAlive(lock.Table().ports[w.port])) {
            lock.Edit().ReclaimPort(w.port);
            continue;
        }
        return WindowFromValue(w.handle);
    }
    return nullptr;
}

std::uint32_t GetWindowOwner(HWND window, std::uint32_t* processId) {
    const std::shared_ptr<WindowTable> table = WindowTable::Current();
    if (table == nullptr) {
        return 0;
    }
    Guard lock(*table);
    if (!lock.Locked()) {
        return 0;
    }
    const posix::WindowSlot* w = lock.Edit().FindWindow(WindowValue(window));
    if (w == nullptr) {
        return 0;
    }
    const posix::PortSlot& owner = lock.Table().ports[w->port];
    if (!lock.Edit().PortOwnerAlive(owner)) {
        lock.Edit().ReclaimPort(w->port);
        return 0;
    }
    if (processId != nullptr) {
        *processId = static_cast<std::uint32_t>(owner.pid);
    }
    return static_cast<std::uint32_t>(owner.tid);
}

bool TakeWindowCensus(WindowCensus* out) {
    const std::shared_ptr<WindowTable> table = WindowTable::Current();
    if (table == nullptr || out == nullptr) {
        return false;
    }
    Guard lock(*table);
    if (!lock.Locked()) {
        return false;
    }
    *out = lock.Edit().Census();
    return true;
}

bool HoldWindowTableLockForever() {
    const std::shared_ptr<WindowTable> table = WindowTable::Current();
    if (table == nullptr) {
        return false;
    }
    Guard lock(*table);
    lock.Keep();
    return lock.Locked();
}

}  // namespace kiv::platform
