#include "media/MLrcControlImpl.h"

#include <kiv/media/MPlayerEvent.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <limits>

#include "platform/MediaEngine.h"

namespace kiv::media {

using platform::MediaStatus;

namespace {

// A clock that lags behind the wall clock (a stalled or starting pipeline)
// wakes the thread before the cue is due; it then sleeps at least this long.
constexpr int kMinSleepMs = 2;

}  // namespace

MLrcControlImpl::MLrcControlImpl(MediaClock clock, EventSink fire)
    : m_clock(std::move(clock)), m_fire(std::move(fire)) {}

MLrcControlImpl::~MLrcControlImpl() {
    Shutdown();
}

std::wstring MLrcControlImpl::DefaultPath(const std::wstring& locator) {
    const std::size_t slash = locator.find_last_of(L'/');
    const std::size_t dot = locator.find_last_of(L'.');
    const bool hasExtension =
        dot != std::wstring::npos && (slash == std::wstring::npos || dot > slash);
    return (hasExtension ? locator.substr(0, dot) : locator) + L".lrc";
}

void MLrcControlImpl::SetMedia(const std::wstring& locator) {
    std::lock_guard<std::mutex> lock(m_mutex);
    if (locator == m_locator) {
        // The same media again keeps the lyrics the application chose; a
        // new pipeline starts at 0.
        m_jumped = true;
        ++m_generation;
        WakeLocked();
        return;
    }
    m_locator = locator;
    m_defaultPending = false;
    InstallLocked(LrcLyrics{});
    // Read when first needed: a player whose sources change often (a
    // playlist's tags being read) does not look for lyrics each time. A
    // playing one (a source switched while started) needs them now.
    m_defaultPending = !locator.empty();
    if (m_playing) {
        WakeLocked();
    }
}

void MLrcControlImpl::LoadPendingLocked() {
    if (!m_defaultPending) {
        return;
    }
    m_defaultPending = false;
    LrcLyrics lyrics;
    LrcParser::ParseFile(DefaultPath(m_locator), lyrics);
    InstallLocked(std::move(lyrics));
}

unsigned int MLrcControlImpl::LoadLyrics(std::wstring path) {
    if (path.empty()) {
        std::lock_guard<std::mutex> lock(m_mutex);
        if (m_locator.empty()) {
            InstallLocked(LrcLyrics{});
            return MediaStatus::NOT_FOUND;
        }
        path = DefaultPath(m_locator);
    }
    LrcLyrics lyrics;
    const bool read = LrcParser::ParseFile(path, lyrics);
    const unsigned int status = !read                  ? MediaStatus::NOT_FOUND
                                : lyrics.lines.empty() ? MediaStatus::UNKNOWN_FORMAT
                                                       : 0;
    std::lock_guard<std::mutex> lock(m_mutex);
    m_defaultPending = false;
    InstallLocked(status == 0 ? std::move(lyrics) : LrcLyrics{});
    return status;
}

void MLrcControlImpl::InstallLocked(LrcLyrics lyrics) {
    m_lyrics = std::move(lyrics);
    m_cues.clear();
    const std::vector<LrcLine>& lines = m_lyrics.lines;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        const int line = static_cast<int>(i);
        m_cues.push_back({lines[i].timeMs, line, -1});
        // Words timed outside their line (before it, or once the next line
        // shows) are not announced, and neither is one timed before the
        // word it follows.
        int end = std::numeric_limits<int>::max();
        for (std::size_t next = i + 1; next < lines.size(); ++next) {
            if (lines[next].timeMs > lines[i].timeMs) {
                end = lines[next].timeMs;
                break;
            }
        }
        int last = lines[i].timeMs;
        for (std::size_t w = 0; w < lines[i].words.size(); ++w) {
            const int time = lines[i].words[w].timeMs;
            if (time >= last && time < end) {
                m_cues.push_back({time, line, static_cast<int>(w)});
                last = time;
            }
        }
    }
    m_cue = -1;
    m_jumped = true;
    ++m_generation;
    WakeLocked();
}

void MLrcControlImpl::SetPlaying(bool playing) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_playing = playing;
    WakeLocked();
}

void MLrcControlImpl::ClockMoved() {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_jumped = true;
    ++m_generation;
    WakeLocked();
}

void MLrcControlImpl::SetRate(double rate) {
    std::lock_guard<std::mutex> lock(m_mutex);
    m_rate = rate;
    WakeLocked();
}

void MLrcControlImpl::WakeLocked() {
    LoadPendingLocked();
    if (m_quit || m_cues.empty()) {
        return;
    }
    m_evaluate = true;
    if (!m_thread.joinable()) {
        m_thread = std::thread([this] { Run(); });
    }
    m_wake.notify_one();
}

void MLrcControlImpl::Shutdown() {
    std::thread thread;
    {
        std::lock_guard<std::mutex> lock(m_mutex);
        m_quit = true;
        thread = std::move(m_thread);
    }
    m_wake.notify_one();
    if (thread.joinable()) {
        thread.join();
    }
}

void MLrcControlImpl::Run() {
    std::unique_lock<std::mutex> lock(m_mutex);
    std::vector<unsigned char> events;
    while (!m_quit) {
        if (!m_evaluate && !m_playing) {
            m_wake.wait(lock, [this] { return m_quit || m_evaluate; });
            continue;
        }
        m_evaluate = false;
        const std::uint64_t generation = m_generation;
        // The clock is read without the lock: it may wait for a seek.
        lock.unlock();
        const int now = m_clock();
        lock.lock();
        if (m_quit) {
            break;
        }
        if (generation != m_generation) {
            continue;  // moved while the clock was read: read it again
        }
        events.clear();
        if (now >= 0) {
            AdvanceLocked(now, events);
        }
        const int sleepMs = m_playing && now >= 0 ? SleepMsLocked(now) : -1;
        if (!events.empty()) {
            lock.unlock();
            for (unsigned char type : events) {
                m_fire(type);
            }
            lock.lock();
        }
        const auto woken = [this] { return m_quit || m_evaluate; };
        if (sleepMs < 0) {
            m_wake.wait(lock, woken);
        } else {
            m_wake.wait_for(lock, std::chrono::milliseconds(sleepMs), woken);
        }
    }
}

void MLrcControlImpl::AdvanceLocked(int now, std::vector<unsigned char>& events) {
    const auto after = std::upper_bound(m_cues.begin(), m_cues.end(), now,
                                        [](int t, const Cue& cue) { return t < cue.timeMs; });
    const int target = static_cast<int>(after - m_cues.begin()) - 1;
    const int oldLine = m_cue >= 0 ? m_cues[m_cue].line : -1;
    const int oldWord = m_cue >= 0 ? m_cues[m_cue].word : -1;
    if (!m_jumped && target > m_cue) {
        // Played on: everything passed, in order.
        int line = oldLine;
        for (int k = m_cue + 1; k <= target; ++k) {
            if (m_cues[k].line != line) {
                line = m_cues[k].line;
                events.push_back(MPlayerEvent::LRC_LINE_CHANGE);
            }
            if (m_cues[k].word >= 0) {
                events.push_back(MPlayerEvent::LRC_WORD_CHANGE);
            }
        }
    } else if (target != m_cue) {
        // Jumped (or playing backwards): where the position landed.
        const int line = target >= 0 ? m_cues[target].line : -1;
        const int word = target >= 0 ? m_cues[target].word : -1;
        if (line != oldLine) {
            events.push_back(MPlayerEvent::LRC_LINE_CHANGE);
        }
        if (word >= 0 && (word != oldWord || line != oldLine)) {
            events.push_back(MPlayerEvent::LRC_WORD_CHANGE);
        }
    }
    m_cue = target;
    m_jumped = false;
}

int MLrcControlImpl::SleepMsLocked(int now) const {
    double mediaMs = 0;
    if (m_rate > 0) {
        if (m_cue + 1 >= static_cast<int>(m_cues.size())) {
            return -1;
        }
        mediaMs = m_cues[m_cue + 1].timeMs - now;
    } else if (m_rate < 0) {
        if (m_cue < 0) {
            return -1;
        }
        mediaMs = now - m_cues[m_cue].timeMs + 1;
    } else {
        return -1;
    }
    const double wallMs = std::ceil(mediaMs / std::fabs(m_rate));
    return static_cast<int>(std::clamp(wallMs, static_cast<double>(kMinSleepMs),
                                       static_cast<double>(std::numeric_limits<int>::max() / 2)));
}

int MLrcControlImpl::GetLineCount() {
    std::lock_guard<std::mutex> lock(m_mutex);
    LoadPendingLocked();
    return static_cast<int>(m_lyrics.lines.size());
}

std::wstring MLrcControlImpl::GetLineText(int index) {
    std::lock_guard<std::mutex> lock(m_mutex);
    LoadPendingLocked();
    if (index < 0 || index >= static_cast<int>(m_lyrics.lines.size())) {
        return {};
    }
    return m_lyrics.lines[static_cast<std::size_t>(index)].text;
}

int MLrcControlImpl::GetLineTime(int index) {
    std::lock_guard<std::mutex> lock(m_mutex);
    LoadPendingLocked();
    if (index < 0 || index >= static_cast<int>(m_lyrics.lines.size())) {
        return -1;
    }
    return m_lyrics.lines[static_cast<std::size_t>(index)].timeMs;
}

int MLrcControlImpl::GetCurrentLine() {
    const int now = m_clock();
    std::lock_guard<std::mutex> lock(m_mutex);
    LoadPendingLocked();
    return now < 0 ? -1 : LrcParser::LineAt(m_lyrics, now);
}

int MLrcControlImpl::GetCurrentWord() {
    const int now = m_clock();
    std::lock_guard<std::mutex> lock(m_mutex);
    LoadPendingLocked();
    const int line = now < 0 ? -1 : LrcParser::LineAt(m_lyrics, now);
    return line < 0 ? -1 : LrcParser::WordAt(m_lyrics.lines[static_cast<std::size_t>(line)], now);
}

}  // namespace kiv::media
