// The operator that deletes arrays, replaced for the whole process, Qt included.
#include "WatchedMemory.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <malloc.h>
#include <new>
#include <thread>
#include <vector>

namespace {

bool isWatching = false; // set and read on the main thread
std::thread::id mainThread;

bool staysUnwritten(const char* memory) {
    const std::vector<char> before(memory, memory + malloc_usable_size(const_cast<char*>(memory)));
    std::this_thread::sleep_for(std::chrono::milliseconds(5)); // the moment: nothing is waited for
    return std::memcmp(before.data(), memory, before.size()) == 0;
}

} // namespace

void watchDeletedMemory() {
    mainThread = std::this_thread::get_id();
    isWatching = true;
}

void operator delete[](void* memory) noexcept {
    if (memory && isWatching && std::this_thread::get_id() == mainThread &&
        !staysUnwritten(static_cast<char*>(memory))) {
        std::fputs("memory was written to after its end\n", stderr);
        std::abort();
    }
    std::free(memory);
}

void operator delete[](void* memory, std::size_t) noexcept {
    operator delete[](memory);
}
