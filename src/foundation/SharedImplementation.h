// The implementation that copies of a service facade share (MRegistry,
// MShell, MProcessManager ...): counted, and deleted with its last facade.
#pragma once

#include <atomic>

namespace kiv {

template <class Derived>
class SharedImplementation {
public:
    void AddRef() noexcept { m_refs.fetch_add(1, std::memory_order_relaxed); }
    /// Drops one reference; the last one deletes the implementation.
    void Release() noexcept {
        if (m_refs.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            delete static_cast<Derived*>(this);
        }
    }

protected:
    SharedImplementation() = default;
    ~SharedImplementation() = default;

private:
    std::atomic<unsigned int> m_refs{1};
};

/// The implementation pointer for a facade copied from one holding `impl`.
template <class Impl>
Impl* ShareImplementation(Impl* impl) noexcept {
    if (impl != nullptr) {
        impl->AddRef();
    }
    return impl;
}

/// A facade's assignment: `mine` drops its implementation and shares `theirs`.
template <class Impl>
void AssignImplementation(Impl*& mine, Impl* theirs) noexcept {
    if (mine != theirs) {
        ShareImplementation(theirs);
        if (mine != nullptr) {
            mine->Release();
        }
        mine = theirs;
    }
}

/// A facade's destruction: drops its reference.
template <class Impl>
void DropImplementation(Impl*& mine) noexcept {
    if (mine != nullptr) {
        mine->Release();
        mine = nullptr;
    }
}

}  // namespace kiv
