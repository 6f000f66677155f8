// A memory source that keeps account, and helpers for the memory tests.
#pragma once

#include <kiv/memory/IMemoryAllocation.h>

#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <random>
#include <string>
#include <vector>

namespace kiv::test {

// Hands out memory that is 4-byte but never 8-byte aligned (the least a
// source promises), filled with kFill; counts requests, refuses on demand,
// and records every address given back that it does not hold (a foreign
// address, or one given back twice).
class CountingSource : public system::memory::IMemoryAllocation {
public:
    static constexpr unsigned char kFill = 0xA5;

    ~CountingSource() override {
        for (auto& [p, size] : live) {
            std::free(p - 4);
        }
    }
    void* Allocate(unsigned int n) override {
        ++requests;
        if (refuseAll || (refuse && refuse())) {
            return nullptr;
        }
        char* raw = static_cast<char*>(std::malloc(std::size_t{n} + 4));
        char* p = raw + 4;
        std::memset(p, kFill, n);
        live[p] = n;
        last = p;
        lastSize = n;
        ++grants;
        return p;
    }
    unsigned int Free(void* p) override {
        auto found = live.find(static_cast<char*>(p));
        if (found == live.end()) {
            ++badFrees;
            return 0;
        }
        freed.push_back(found->first);
        std::free(found->first - 4);
        live.erase(found);
        return 0;
    }
    bool Holds(const void* p) const {
        return live.count(static_cast<char*>(const_cast<void*>(p))) != 0;
    }
    // The allocation that contains [p, p + n), or null.
    char* Containing(const void* p, std::size_t n = 1) const {
        auto at = static_cast<const char*>(p);
        auto it = live.upper_bound(const_cast<char*>(at));
        if (it == live.begin()) {
            return nullptr;
        }
        --it;
        return at + n <= it->first + it->second ? it->first : nullptr;
    }

    std::map<char*, unsigned int> live;
    std::vector<char*> freed;
    std::function<bool()> refuse;
    bool refuseAll = false;
    unsigned int requests = 0;
    unsigned int grants = 0;
    unsigned int badFrees = 0;
    char* last = nullptr;
    unsigned int lastSize = 0;
};

inline bool AllBytes(const void* p, std::size_t n, unsigned char value) {
    auto bytes = static_cast<const unsigned char*>(p);
    for (std::size_t i = 0; i < n; ++i) {
        if (bytes[i] != value) {
            return false;
        }
    }
    return true;
}

// The seed of a randomised test: KIV_MEMORY_SEED if set, else a fresh one.
// It is printed, and every failure repeats it through a scoped trace.
inline std::uint64_t TestSeed() {
    const char* fixed = std::getenv("KIV_MEMORY_SEED");
    const std::uint64_t seed =
        fixed != nullptr ? std::strtoull(fixed, nullptr, 10) : std::random_device{}();
    std::printf("seed %llu (repeat with KIV_MEMORY_SEED=%llu)\n",
                static_cast<unsigned long long>(seed), static_cast<unsigned long long>(seed));
    return seed;
}

#define KIV_TRACE_SEED(seed) \
    SCOPED_TRACE("KIV_MEMORY_SEED=" + std::to_string(static_cast<unsigned long long>(seed)))

}  // namespace kiv::test
