// A library with which nothing can be forked: it starts a thread as soon as it is loaded.
#include <pthread.h>
#include <unistd.h>

namespace {

void* waitForEver(void*) {
    for (;;)
        pause();
}

[[gnu::constructor]] void startThread() {
    pthread_t thread;
    pthread_create(&thread, nullptr, waitForEver, nullptr);
}

} // namespace
