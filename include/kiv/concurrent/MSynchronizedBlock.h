// A scoped hold of an MMutex: taken on construction, released on
// destruction.
#pragma once

#include <kiv/platform/KivApi.h>

namespace kiv::system::concurrent {

class MMutex;

class KIV_API MSynchronizedBlock {
public:
    /// Stores `m` (not owned) and takes it. A null `m` is stored and ignored.
    MSynchronizedBlock(MMutex* m);
    /// Copies the pointer without taking the mutex again; each copy still
    /// releases it when destroyed.
    MSynchronizedBlock(const MSynchronizedBlock& other);
    MSynchronizedBlock& operator=(const MSynchronizedBlock& other);
    /// Releases the stored mutex.
    ~MSynchronizedBlock();

private:
    MMutex* m_mutex;
};

}  // namespace kiv::system::concurrent
