// Caller memory for one fuzzed argument: an mmap'd block between two PROT_NONE pages, with the
// bytes the argument may touch pushed against one of the guards, so a single byte read or
// written past either end faults at once.
#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace keli_fuzz {

class Guarded {
public:
    // bytes: the extent the argument may touch; align: its element size (addresses stay
    // element-aligned but at odd multiples of it); against_end: which guard the extent meets.
    Guarded(size_t bytes, size_t align, bool against_end) : bytes_(bytes)
    {
        const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
        const size_t inner = (bytes + 2 * align + page - 1) / page * page;
        total_ = inner + 2 * page;
        void* base = mmap(nullptr, total_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        if (base == MAP_FAILED) abort();
        base_ = static_cast<unsigned char*>(base);
        mprotect(base_, page, PROT_NONE);
        mprotect(base_ + page + inner, page, PROT_NONE);
        unsigned char* lo = base_ + page;
        unsigned char* hi = base_ + page + inner;
        if (against_end) {
            uintptr_t at = reinterpret_cast<uintptr_t>(hi - bytes) / align * align;
            data_ = reinterpret_cast<unsigned char*>(at);
        } else {
            // One element in from the page start: odd in units of the element.
            data_ = lo + (align > 1 ? align : 1);
            if (bytes == 0) data_ = lo;
        }
    }
    ~Guarded() { munmap(base_, total_); }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    unsigned char* data() const { return data_; }
    size_t size() const { return bytes_; }
    std::vector<unsigned char> snapshot() const { return {data_, data_ + bytes_}; }
    bool same_as(const std::vector<unsigned char>& s) const
    {
        return s.size() == bytes_ && (bytes_ == 0 || std::memcmp(s.data(), data_, bytes_) == 0);
    }

private:
    unsigned char* base_ = nullptr;
    unsigned char* data_ = nullptr;
    size_t total_ = 0;
    size_t bytes_ = 0;
};

}  // namespace keli_fuzz
