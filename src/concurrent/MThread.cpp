#include <kiv/concurrent/MThread.h>

#include "concurrent/MThreadImpl.h"

namespace kiv::system {

MThread::MThread() : m_impl(MThreadImpl::Create(nullptr)) {}

MThread::MThread(IRunnable* r) : m_impl(MThreadImpl::Create(r)) {}

MThread::MThread(MThread& other) : IRunnable(), m_impl(other.m_impl) {
    other.m_impl = nullptr;
}

MThread& MThread::operator=(MThread& other) {
    if (this != &other) {
        delete m_impl;
        m_impl = other.m_impl;
        other.m_impl = nullptr;
    }
    return *this;
}

MThread::~MThread() {
    delete m_impl;
}

void MThread::Run() {
    if (m_impl != nullptr) {
        m_impl->Run();
    }
}

void MThread::Start() {
    if (m_impl != nullptr) {
        m_impl->Start();
    }
}

void MThread::SetPriority(int p) {
    if (m_impl != nullptr) {
        m_impl->SetPriority(p);
    }
}

int MThread::GetPriority() {
    return m_impl != nullptr ? m_impl->GetPriority() : -1;
}

unsigned int MThread::GetId() {
    return m_impl != nullptr ? m_impl->GetId() : 0;
}

void MThread::WaitForStop() {
    if (m_impl != nullptr) {
        m_impl->WaitForStop();
    }
}

}  // namespace kiv::system
