#include <kiv/concurrent/MMutex.h>

#include <new>

#include "concurrent/MMutexImpl.h"

namespace kiv::system::concurrent {

// Out of memory leaves the facade without an implementation, as a failed
// creation does: its operations then do nothing.
MMutex::MMutex() : m_impl(new (std::nothrow) MMutexImpl) {}

MMutex::MMutex(MMutex& other) : m_impl(other.m_impl) {
    other.m_impl = nullptr;
}

MMutex& MMutex::operator=(MMutex& other) {
    if (this != &other) {
        delete m_impl;
        m_impl = other.m_impl;
        other.m_impl = nullptr;
    }
    return *this;
}

MMutex::~MMutex() {
    delete m_impl;
}

void MMutex::Aquire() {
    if (m_impl != nullptr) {
        m_impl->Enter();
    }
}

void MMutex::Release() {
    if (m_impl != nullptr) {
        m_impl->Leave();
    }
}

}  // namespace kiv::system::concurrent
