#include "base/Thread.h"

#include <csignal>
#include <cstring>
#include <memory>
#include <utility>

#include <pthread.h>

#include "base/Log.h"

namespace binder {
namespace {

void* runBody(void* argument) {
    const std::unique_ptr<std::function<void()>> body(
            static_cast<std::function<void()>*>(argument));
    (*body)();
    return nullptr;
}

}  // namespace

bool startThread(const char* name, std::function<void()> body) {
    auto argument = std::make_unique<std::function<void()>>(std::move(body));
    pthread_t thread;
    const int error = pthread_create(&thread, nullptr, runBody, argument.get());
    if (error != 0) {
        log(ANDROID_LOG_ERROR, "Cannot start thread %s: %s", name, strerror(error));
        return false;
    }
    (void)argument.release();  // runBody owns it
    pthread_setname_np(thread, name);
    pthread_detach(thread);
    return true;
}

bool startQuietThread(const char* name, std::function<void()> body) {
    sigset_t all;
    sigset_t before;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before);
    const bool started = startThread(name, std::move(body));
    pthread_sigmask(SIG_SETMASK, &before, nullptr);
    return started;
}

}  // namespace binder
