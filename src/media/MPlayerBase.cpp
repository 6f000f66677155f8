#include <kiv/media/IControl.h>
#include <kiv/media/MPlayerBase.h>
#include <kiv/media/MPlayerEvent.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <new>

#include "media/MPlayerListenerDispatcher.h"
#include "media/MPlayerState.h"

namespace kiv::media {
namespace {

// The dispatcher is made by the application's thread and read by whichever
// thread fires an event.
std::atomic_ref<MPlayerListenerDispatcher*> Dispatcher(MPlayerListenerDispatcher*& field) {
    return std::atomic_ref<MPlayerListenerDispatcher*>(field);
}

}  // namespace

// Orders the ends of playback that engine threads report against the state
// operations of the application's thread. An operation reads the state, runs
// its primitive and stores the new state; an end that came in between would
// be overwritten (a STARTED player whose engine already stopped) or doubled
// (an end and then a stop by request). So an end that arrives during an
// operation waits here and is applied once the operation is over. The lock
// is only held for a few instructions, never across a primitive: an engine
// thread that reports an end never waits for the application.
class MPlayerBase::EndGate {
public:
    std::mutex mutex;
    int operations = 0;
    unsigned char pending = 0;  // the first end reported during them
};

// One state operation of the application's thread.
class MPlayerBase::Operation {
public:
    explicit Operation(MPlayerBase& player) : m_player(player) {
        std::lock_guard<std::mutex> lock(m_player.m_endGate->mutex);
        ++m_player.m_endGate->operations;
    }
    ~Operation() {
        EndGate& gate = *m_player.m_endGate;
        std::lock_guard<std::mutex> lock(gate.mutex);
        if (--gate.operations == 0 && gate.pending != 0) {
            const unsigned char type = gate.pending;
            gate.pending = 0;
            // A Pause or Stop that ran meanwhile already ended the playback
            // the end belonged to.
            if (MPlayerState::Move(m_player, MPlayerState::Started(), MPlayerState::Ready())) {
                m_player.FireEvent(type);
            }
        }
    }
    Operation(const Operation&) = delete;
    Operation& operator=(const Operation&) = delete;

private:
    MPlayerBase& m_player;
};

MPlayerBase::MPlayerBase()
    : m_option(0),
      m_state(MPlayerState::Uninitialized()),
      m_dataSource(nullptr),
      m_dispatcher(nullptr),
      m_endGate(new EndGate) {}

MPlayerBase::~MPlayerBase() {
    ShutDownListeners();
    delete m_endGate;
}

IControl* MPlayerBase::GetControl(std::string name) {
    for (IControl* control : m_controls) {
        if (control->GetName() == name) {
            return control;
        }
    }
    return nullptr;
}

void MPlayerBase::GetControls(std::vector<IControl*>& controls) {
    controls.insert(controls.end(), m_controls.begin(), m_controls.end());
}

double MPlayerBase::GetRate() {
    return MPlayerState::Of(*this)->GetRate(*this);
}

unsigned int MPlayerBase::SetRate(double rate) {
    return MPlayerState::Of(*this)->SetRate(*this, rate);
}

int MPlayerBase::GetMediaTime() {
    return MPlayerState::Of(*this)->GetMediaTime(*this);
}

unsigned int MPlayerBase::SetMediaTime(int time) {
    // Not an operation that holds ends back: it changes no state, and an end
    // that the engine reported before the seek is fired before it.
    return MPlayerState::Of(*this)->SetMediaTime(*this, time);
}

int MPlayerBase::GetDuration() {
    return MPlayerState::Of(*this)->GetDuration(*this);
}

unsigned int MPlayerBase::Initialize() {
    Operation operation(*this);
    return MPlayerState::Of(*this)->Initialize(*this);
}

unsigned int MPlayerBase::Deinitialize() {
    Operation operation(*this);
    return MPlayerState::Of(*this)->Deinitialize(*this);
}

unsigned int MPlayerBase::Start() {
    Operation operation(*this);
    return MPlayerState::Of(*this)->Start(*this);
}

unsigned int MPlayerBase::Pause() {
    Operation operation(*this);
    return MPlayerState::Of(*this)->Pause(*this);
}

unsigned int MPlayerBase::Stop() {
    Operation operation(*this);
    return MPlayerState::Of(*this)->Stop(*this);
}

unsigned int MPlayerBase::SetDataSource(IDataSource* source) {
    if (source == nullptr) {
        m_dataSource = nullptr;
        return 0;
    }
    // The results of Stop and Start are not reported: only a failed load
    // fails the switch.
    const bool wasStarted = MPlayerState::Of(*this) == MPlayerState::Started();
    if (wasStarted) {
        Stop();
    }
    const unsigned int status = MPlayerState::Of(*this)->LoadSource(*this, source);
    if (status != 0) {
        return status;
    }
    m_dataSource = source;
    if (wasStarted) {
        Start();
    }
    // Also when nothing was playing, and when the player is not initialized
    // and only noted the source.
    FireEvent(MPlayerEvent::RESTARTED);
    return 0;
}

signed char MPlayerBase::GetState() {
    return MPlayerState::Of(*this)->Code();
}

void MPlayerBase::SetOption(unsigned char option) {
    m_option = option;
}

unsigned char MPlayerBase::GetOption() {
    return m_option;
}

void MPlayerBase::AddPlayerListener(IPlayerListener* listener) {
    if (listener == nullptr) {
        return;
    }
    MPlayerListenerDispatcher* dispatcher =
        Dispatcher(m_dispatcher).load(std::memory_order_acquire);
    if (dispatcher == nullptr) {
        dispatcher = MPlayerListenerDispatcher::Create();
        if (dispatcher == nullptr) {
            return;
        }
        Dispatcher(m_dispatcher).store(dispatcher, std::memory_order_release);
    }
    dispatcher->Add(listener);
}

void MPlayerBase::RemovePlayerListener(IPlayerListener* listener) {
    MPlayerListenerDispatcher* dispatcher =
        Dispatcher(m_dispatcher).load(std::memory_order_acquire);
    if (dispatcher != nullptr) {
        dispatcher->Remove(listener);
    }
}

IDataSource* MPlayerBase::GetDataSource() {
    return m_dataSource;
}

void MPlayerBase::AddControl(IControl* control) {
    if (control != nullptr) {
        m_controls.push_back(control);
    }
}

void MPlayerBase::RemoveControl(IControl* control) {
    std::erase(m_controls, control);
}

void MPlayerBase::FireEvent(unsigned char type) {
    MPlayerListenerDispatcher* dispatcher =
        Dispatcher(m_dispatcher).load(std::memory_order_acquire);
    if (dispatcher == nullptr) {
        return;  // no listener ever: the event is lost
    }
    std::unique_ptr<MPlayerEvent> event(new (std::nothrow) MPlayerEvent(this, type));
    if (event != nullptr) {
        dispatcher->Post(std::move(event));
    }
}

unsigned char MPlayerBase::EndPlayback(unsigned char type) {
    std::lock_guard<std::mutex> lock(m_endGate->mutex);
    if (m_endGate->operations > 0) {
        if (m_endGate->pending == 0) {
            m_endGate->pending = type;
        }
        return 1;
    }
    if (!MPlayerState::Move(*this, MPlayerState::Started(), MPlayerState::Ready())) {
        return 0;
    }
    FireEvent(type);
    return 1;
}

void MPlayerBase::ShutDownListeners() {
    MPlayerListenerDispatcher* dispatcher =
        Dispatcher(m_dispatcher).exchange(nullptr, std::memory_order_acq_rel);
    if (dispatcher != nullptr) {
        dispatcher->Close();
    }
}

}  // namespace kiv::media
