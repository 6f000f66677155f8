#include <kiv/concurrent/MConcurObject.h>

#include <new>

#include "concurrent/MConcurObjectImpl.h"

namespace kiv::system::concurrent {

MConcurObjectImpl::MConcurObjectImpl()
    : m_notify(platform::Semaphore::Create(0, 1)), m_generation(new (std::nothrow) Generation) {}

MConcurObjectImpl::~MConcurObjectImpl() {
    delete m_generation;
}

const platform::Event* MConcurObjectImpl::ReferenceCurrent(Generation** generation) {
    // The reference is taken before the object's lock is left: a NotifyAll
    // could otherwise retire and free the generation in between.
    m_lock.Enter();
    Generation* g = m_generation;
    const platform::Event* event = nullptr;
    if (g != nullptr) {
        std::lock_guard<std::mutex> guard(g->lock);
        if (!g->retired) {
            ++g->references;
            event = &g->event;
        }
    }
    m_lock.Leave();
    *generation = g;
    return event;
}

void MConcurObjectImpl::Drop(Generation* generation) {
    bool retired;
    {
        std::lock_guard<std::mutex> guard(generation->lock);
        if (--generation->references == 0) {
            generation->retired = true;
        }
        retired = generation->retired;
    }
    if (retired) {
        delete generation;
    }
}

void MConcurObjectImpl::Notify() {
    // A notify semaphore already holding its one unit refuses the release,
    // so at most one notification is remembered.
    m_notify.Release(1);
}

void MConcurObjectImpl::NotifyAll() {
    Generation* current = nullptr;
    const platform::Event* event = ReferenceCurrent(&current);
    if (event != nullptr) {
        event->Set();
    }
    auto* fresh = new (std::nothrow) Generation;
    Generation* old = nullptr;
    if (fresh != nullptr) {
        m_lock.Enter();
        old = m_generation;
        m_generation = fresh;
        m_lock.Leave();
    }
    if (event != nullptr) {
        Drop(current);
    }
    if (old != nullptr) {
        Drop(old);  // the object's own reference to the generation it replaced
    }
}

unsigned char MConcurObjectImpl::Wait(int timeout) {
    Generation* generation = nullptr;
    const platform::Event* event = ReferenceCurrent(&generation);
    if (event == nullptr) {
        return 0;
    }
    // The notify semaphore comes first: when both are signalled, the wait
    // consumes the remembered Notify.
    const int result = platform::WaitForAny({&m_notify, event}, timeout);
    Drop(generation);
    // A failed wait (an object that could not be created) counts as not woken.
    return result == 0 || result == 1 ? 1 : 0;
}

unsigned char MConcurObjectImpl::Wait() {
    return Wait(platform::kInfinite);
}

// Out of memory leaves the facade without an implementation, as a failed
// creation does: its waits then fail at once.
MConcurObject::MConcurObject() : m_impl(new (std::nothrow) MConcurObjectImpl) {}

MConcurObject::MConcurObject(MConcurObject& other) : m_impl(other.m_impl) {
    other.m_impl = nullptr;
}

MConcurObject& MConcurObject::operator=(MConcurObject& other) {
    if (this != &other) {
        delete m_impl;
        m_impl = other.m_impl;
        other.m_impl = nullptr;
    }
    return *this;
}

MConcurObject::~MConcurObject() {
    delete m_impl;
}

void MConcurObject::Notify() {
    if (m_impl != nullptr) {
        m_impl->Notify();
    }
}

void MConcurObject::NotifyAll() {
    if (m_impl != nullptr) {
        m_impl->NotifyAll();
    }
}

unsigned char MConcurObject::Wait(int timeout) {
    return m_impl != nullptr ? m_impl->Wait(timeout) : 0;
}

unsigned char MConcurObject::Wait() {
    return m_impl != nullptr ? m_impl->Wait() : 0;
}

}  // namespace kiv::system::concurrent
