#include <kiv/system/MWatchDog.h>

#include <algorithm>
#include <cwchar>
#include <new>
#include <span>
#include <string>
#include <system_error>

#include "foundation/Text.h"
#include "platform/Process.h"
#include "system/MWatchDogImpl.h"

namespace kiv::system {
namespace {

constexpr unsigned int kNoImplementation = 0xFF;
constexpr unsigned int kBadPath = static_cast<unsigned int>(-1);
constexpr unsigned int kNotRunning = static_cast<unsigned int>(-1);
constexpr unsigned int kAlreadyRunning = static_cast<unsigned int>(-2);

// Longest single wait; a longer remaining time is waited in several.
constexpr std::uint32_t kLongestWaitMs = 0x7FFFFFFF;

}  // namespace

// --- implementation ---------------------------------------------------------

MWatchDogImpl::MWatchDogImpl()
    : m_resetEvent(platform::Event::Create(L"KIV_WATCH_DOG_RESET_EVENT",
                                           platform::EventReset::Automatic, false)),
      m_stop(platform::Event::Create(platform::EventReset::Manual, false)) {}

MWatchDogImpl::~MWatchDogImpl() {
    std::lock_guard guard(m_lock);
    StopThread();
}

unsigned int MWatchDogImpl::StartWatchDog(const wchar_t* path, unsigned int timeout) {
    if (path == nullptr || text::BoundedLength(path, kPathCapacity) >= kPathCapacity) {
        return kBadPath;
    }
    std::lock_guard guard(m_lock);
    if (m_running.load()) {
        return kAlreadyRunning;
    }
    const std::size_t length = std::wcslen(path);
    std::copy(path, path + length + 1, m_programPath);
    m_timeout.store(timeout);
    m_stop.Reset();
    try {
        m_watchThread = std::thread([this] { WatchThread(); });
        m_running.store(true);
    } catch (const std::system_error&) {
        // No thread: nothing is watched, as when the device cannot create
        // one; the call still succeeds.
    }
    return 0;
}

unsigned int MWatchDogImpl::ResetWatchDog() {
    if (!m_running.load()) {
        return kNotRunning;
    }
    m_resetEvent.Set();
    return 0;
}

unsigned int MWatchDogImpl::StopWatchDog() {
    std::lock_guard guard(m_lock);
    if (!m_running.load()) {
        return kNotRunning;
    }
    StopThread();
    return 0;
}

// A thread cannot be ended from outside safely here: it is asked to stop
// and waited for. It stops at once from its wait; once it has started the
// program it has already ended.
void MWatchDogImpl::StopThread() {
    if (m_watchThread.joinable()) {
        m_stop.Set();
        m_watchThread.join();
    }
    m_running.store(false);
}

void MWatchDogImpl::WatchThread() {
    // An event that could not be created is left out of the wait, which
    // would otherwise fail at once.
    const platform::Waitable* objects[2] = {};
    std::size_t count = 0;
    int resetIndex = -1;
    if (m_resetEvent.IsValid()) {
        resetIndex = static_cast<int>(count);
        objects[count++] = &m_resetEvent;
    }
    objects[count++] = &m_stop;
    const std::uint32_t timeout = m_timeout.load();
    m_lastReset.store(platform::TickCount());
    // The thread sleeps until the timeout would run out instead of looking
    // every millisecond; it looks at least once, for at least 1 ms, so a
    // timeout of 0 starts the program after one short wait.
    do {
        const std::uint32_t elapsed = platform::TickCount() - m_lastReset.load();
        const std::uint32_t remaining = elapsed < timeout ? timeout - elapsed : 0;
        const auto waitMs =
            static_cast<int>(std::clamp<std::uint32_t>(remaining, 1, kLongestWaitMs));
        const int woken = platform::WaitForAny(
            std::span<const platform::Waitable* const>(objects, count), waitMs);
        if (woken == resetIndex) {
            m_lastReset.store(platform::TickCount());
        } else if (woken != platform::kWaitTimeout) {
            return;  // stopped (or no stop event to wait on): nothing is started
        }
    } while (platform::TickCount() - m_lastReset.load() < timeout);

    // The path is a file name as the file object takes it; the program is
    // reaped in the background when it ends.
    platform::DetachedProcess::Start(std::wstring(m_programPath));
}

// --- facade -------------------------------------------------------------------

MWatchDog::MWatchDog() : m_impl(new (std::nothrow) MWatchDogImpl) {}

MWatchDog::MWatchDog(const MWatchDog& other) : m_impl(ShareImplementation(other.m_impl)) {}

MWatchDog& MWatchDog::operator=(const MWatchDog& other) {
    AssignImplementation(m_impl, other.m_impl);
    return *this;
}

MWatchDog::~MWatchDog() {
    DropImplementation(m_impl);
}

unsigned int MWatchDog::StartWatchDog(const wchar_t* path, unsigned int timeout) {
    return m_impl != nullptr ? m_impl->StartWatchDog(path, timeout) : kNoImplementation;
}

unsigned int MWatchDog::ResetWatchDog() {
    return m_impl != nullptr ? m_impl->ResetWatchDog() : kNoImplementation;
}

unsigned int MWatchDog::StopWatchDog() {
    return m_impl != nullptr ? m_impl->StopWatchDog() : kNoImplementation;
}

}  // namespace kiv::system
