// The C library's allocator with a counter in front of it.
#include "process/Allocations.h"

#include <atomic>
#include <cstddef>

namespace {

std::atomic<long> taken{0};

} // namespace

extern "C" {

void* __libc_malloc(std::size_t);
void* __libc_calloc(std::size_t, std::size_t);
void* __libc_realloc(void*, std::size_t);

void* malloc(std::size_t size) {
    taken.fetch_add(1, std::memory_order_relaxed);
    return __libc_malloc(size);
}

void* calloc(std::size_t number, std::size_t size) {
    taken.fetch_add(1, std::memory_order_relaxed);
    return __libc_calloc(number, size);
}

void* realloc(void* old, std::size_t size) {
    taken.fetch_add(1, std::memory_order_relaxed);
    return __libc_realloc(old, size);
}
}

long allocations::count() {
    return taken.load(std::memory_order_relaxed);
}
