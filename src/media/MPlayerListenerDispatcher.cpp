#include "media/MPlayerListenerDispatcher.h"

#include <kiv/concurrent/MSynchronizedBlock.h>
#include <kiv/media/IPlayerListener.h>

#include <algorithm>
#include <new>

namespace kiv::media {

using system::concurrent::MSynchronizedBlock;

namespace {

// The dispatcher whose thread is the calling thread, if any.
thread_local const MPlayerListenerDispatcher* t_running = nullptr;

}  // namespace

MPlayerListenerDispatcher* MPlayerListenerDispatcher::Create() {
    auto* dispatcher = new (std::nothrow) MPlayerListenerDispatcher;
    if (dispatcher != nullptr) {
        dispatcher->m_thread.Start();
    }
    return dispatcher;
}

MPlayerListenerDispatcher::MPlayerListenerDispatcher() : m_thread(this) {}

MPlayerListenerDispatcher::~MPlayerListenerDispatcher() = default;

void MPlayerListenerDispatcher::Add(IPlayerListener* listener) {
    MSynchronizedBlock hold(&m_listenerLock);
    m_listeners.push_back(listener);
}

void MPlayerListenerDispatcher::Remove(IPlayerListener* listener) {
    MSynchronizedBlock hold(&m_listenerLock);
    std::erase(m_listeners, listener);
}

void MPlayerListenerDispatcher::Post(std::unique_ptr<MPlayerEvent> event) {
    {
        MSynchronizedBlock hold(&m_queueLock);
        if (m_closing) {
            return;
        }
        m_queue.push_back(std::move(event));
    }
    m_wake.Notify();
}

void MPlayerListenerDispatcher::Close() {
    std::deque<std::unique_ptr<MPlayerEvent>> dropped;
    const bool onOwnThread = t_running == this;
    {
        MSynchronizedBlock hold(&m_queueLock);
        m_closing = true;
        m_freeOnExit = onOwnThread;
        dropped.swap(m_queue);
    }
    if (onOwnThread) {
        return;  // Run frees the dispatcher when the listener returns
    }
    m_wake.Notify();
    m_thread.WaitForStop();
    delete this;
}

bool MPlayerListenerDispatcher::IsClosing() {
    MSynchronizedBlock hold(&m_queueLock);
    return m_closing;
}

void MPlayerListenerDispatcher::Run() {
    t_running = this;
    std::deque<std::unique_ptr<MPlayerEvent>> batch;
    while (true) {
        {
            MSynchronizedBlock hold(&m_queueLock);
            if (m_closing) {
                break;
            }
            batch.swap(m_queue);
        }
        if (batch.empty()) {
            m_wake.Wait();
            continue;
        }
        for (const auto& event : batch) {
            if (!Deliver(*event)) {
                break;
            }
        }
        batch.clear();
    }
    batch.clear();
    t_running = nullptr;
    bool freeSelf = false;
    {
        MSynchronizedBlock hold(&m_queueLock);
        freeSelf = m_freeOnExit;
    }
    if (freeSelf) {
        // Closed from a listener: nobody waits for this thread, and nothing
        // touches the dispatcher after this.
        delete this;
    }
}

bool MPlayerListenerDispatcher::Deliver(const MPlayerEvent& event) {
    MSynchronizedBlock hold(&m_listenerLock);
    m_delivering = m_listeners;
    for (IPlayerListener* listener : m_delivering) {
        if (IsClosing()) {
            return false;
        }
        // A listener may have removed another one (or itself) from within
        // its call; a removed listener is not called again.
        if (std::find(m_listeners.begin(), m_listeners.end(), listener) == m_listeners.end()) {
            continue;
        }
        MPlayerEvent copy(event);
        listener->OnPlayerEvent(copy);
    }
    return !IsClosing();
}

}  // namespace kiv::media
