#include "transport/PZThread.h"

#include <atomic>
#include <cerrno>
#include <memory>
#include <pthread.h>
#include <system_error>

namespace {

std::atomic<int> running{0};

struct ThreadStart {
    std::string name;
    std::function<void()> fn;
};

void* threadMain(void* arg) {
    {
        std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(arg));
        PZThread::setCurrentName(start->name);
        start->fn();
    }
    running.fetch_sub(1, std::memory_order_acq_rel);
    return nullptr;
}

} // namespace

void PZThread::detach(std::string name, std::function<void()> fn) {
    auto start = std::make_unique<ThreadStart>(ThreadStart{std::move(name), std::move(fn)});
    pthread_attr_t attr;
    pthread_attr_init(&attr);
    pthread_attr_setstacksize(&attr, kStackSize);
    pthread_attr_setdetachstate(&attr, PTHREAD_CREATE_DETACHED);
    running.fetch_add(1, std::memory_order_acq_rel);
    pthread_t thread;
    const int rc = pthread_create(&thread, &attr, threadMain, start.get());
    pthread_attr_destroy(&attr);
    if (rc != 0) {
        running.fetch_sub(1, std::memory_order_acq_rel);
        throw std::system_error(rc, std::generic_category(), "pthread_create");
    }
    start.release(); // now owned by the new thread
}

void PZThread::setCurrentName(const std::string& name) {
    pthread_setname_np(pthread_self(), name.substr(0, 15).c_str());
}

int PZThread::runningCount() {
    return running.load(std::memory_order_acquire);
}
