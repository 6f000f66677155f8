// A player on MPlayerBase whose primitives record their calls and return the
// statuses a test chooses, and a listener that records what it receives.
#pragma once

#include <kiv/media/IPlayerListener.h>
#include <kiv/media/MPlayerBase.h>
#include <kiv/media/MPlayerEvent.h>

#include <gtest/gtest.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kiv::test {

class RecordingPlayer : public media::MPlayerBase {
public:
    ~RecordingPlayer() override { ShutDownListeners(); }

    using MPlayerBase::AddControl;
    using MPlayerBase::EndPlayback;
    using MPlayerBase::FireEvent;
    using MPlayerBase::GetDataSource;
    using MPlayerBase::RemoveControl;

    unsigned int Close() override { return Record("Close"); }

    /// The names of the primitives called so far, in order; then forgets them.
    std::vector<std::string> TakeCalls() {
        auto calls = std::move(m_calls);
        m_calls.clear();
        return calls;
    }
    /// Makes primitive `name` return `status` from now on.
    void Fail(const std::string& name, unsigned int status) { m_statuses[name] = status; }

    double rate = 1.5;
    int mediaTime = 1200;
    int duration = 9000;
    media::IDataSource* loaded = nullptr;

protected:
    double DoGetRate() override { return Record("DoGetRate"), rate; }
    unsigned int DoSetRate(double) override { return Record("DoSetRate"); }
    int DoGetMediaTime() override { return Record("DoGetMediaTime"), mediaTime; }
    unsigned int DoSetMediaTime(int) override { return Record("DoSetMediaTime"); }
    int DoGetDuration() override { return Record("DoGetDuration"), duration; }
    unsigned int DoInitialize() override { return Record("DoInitialize"); }
    unsigned int DoDeinitialize() override { return Record("DoDeinitialize"); }
    unsigned int DoStart() override { return Record("DoStart"); }
    unsigned int DoPause() override { return Record("DoPause"); }
    unsigned int DoStop() override { return Record("DoStop"); }
    unsigned int DoSetDataSource(media::IDataSource* source) override {
        const unsigned int status = Record("DoSetDataSource");
        if (status == 0) {
            loaded = source;
        }
        return status;
    }

private:
    unsigned int Record(const std::string& name) {
        m_calls.push_back(name);
        const auto chosen = m_statuses.find(name);
        return chosen != m_statuses.end() ? chosen->second : 0;
    }

    std::vector<std::string> m_calls;
    std::map<std::string, unsigned int> m_statuses;
};

/// One delivered event: its type, its player and the thread it came on.
struct Delivery {
    unsigned char type;
    media::IPlayer* player;
    std::thread::id thread;
};

class RecordingListener : public media::IPlayerListener {
public:
    void OnPlayerEvent(const media::MPlayerEvent& event) override {
        std::lock_guard<std::mutex> hold(m_lock);
        m_deliveries.push_back(
            {event.GetEventType(), event.GetPlayer(), std::this_thread::get_id()});
        m_changed.notify_all();
    }

    /// Waits (at most 20 s) until `count` events have arrived; returns all.
    std::vector<Delivery> WaitFor(std::size_t count) {
        std::unique_lock<std::mutex> hold(m_lock);
        m_changed.wait_for(hold, std::chrono::seconds(20),
                           [&] { return m_deliveries.size() >= count; });
        return m_deliveries;
    }

    /// Waits (at most 20 s) until an event of `type` (or `other`) has
    /// arrived; false if none did.
    bool WaitForType(unsigned char type, int other = -1) {
        std::unique_lock<std::mutex> hold(m_lock);
        return m_changed.wait_for(hold, std::chrono::seconds(20), [&] {
            for (const auto& delivery : m_deliveries) {
                if (delivery.type == type || delivery.type == other) {
                    return true;
                }
            }
            return false;
        });
    }

    /// The types of the events that arrived up to now, in order.
    std::vector<unsigned char> Types() {
        std::lock_guard<std::mutex> hold(m_lock);
        std::vector<unsigned char> types;
        for (const auto& delivery : m_deliveries) {
            types.push_back(delivery.type);
        }
        return types;
    }

    /// The types fired by `player` up to now: fires a marker event and waits
    /// for it, so everything fired before has been delivered. Forgets them.
    /// Only one listener of a player may use it: it takes any marker as its own.
    std::vector<unsigned char> Settle(RecordingPlayer& player) {
        player.FireEvent(kMarker);
        std::unique_lock<std::mutex> hold(m_lock);
        if (!m_changed.wait_for(hold, std::chrono::seconds(20), [&] {
                return !m_deliveries.empty() && m_deliveries.back().type == kMarker;
            })) {
            ADD_FAILURE() << "the marker event was not delivered";
        }
        std::vector<unsigned char> types;
        for (const auto& delivery : m_deliveries) {
            if (delivery.type != kMarker) {
                types.push_back(delivery.type);
            }
        }
        m_deliveries.clear();
        return types;
    }

    // A type the tested operations never fire.
    static constexpr unsigned char kMarker = 200;

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    std::vector<Delivery> m_deliveries;
};

}  // namespace kiv::test
