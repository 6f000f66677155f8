// A buffer whose last byte sits just before an inaccessible page: reading
// or writing past its end ends the test with a fault.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace kiv::media::test {

class GuardedBuffer {
public:
    explicit GuardedBuffer(std::size_t size) : m_size(size) {
        const std::size_t page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        const std::size_t body = (size + page - 1) / page * page;
        m_mappedSize = body + 2 * page;
        void* base = mmap(nullptr, m_mappedSize, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED) {
            throw std::runtime_error("mmap failed");
        }
        m_base = static_cast<std::uint8_t*>(base);
        if (body > 0 && mprotect(m_base + page, body, PROT_READ | PROT_WRITE) != 0) {
            throw std::runtime_error("mprotect failed");
        }
        m_data = m_base + page + body - size;
    }
    ~GuardedBuffer() { munmap(m_base, m_mappedSize); }
    GuardedBuffer(const GuardedBuffer&) = delete;
    GuardedBuffer& operator=(const GuardedBuffer&) = delete;

    std::uint8_t* data() { return m_data; }
    std::size_t size() const { return m_size; }

private:
    std::size_t m_size;
    std::size_t m_mappedSize = 0;
    std::uint8_t* m_base = nullptr;
    std::uint8_t* m_data = nullptr;
};

}  // namespace kiv::media::test
