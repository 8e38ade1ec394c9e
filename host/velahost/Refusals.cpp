#include "host/velahost/Refusals.h"

#include <android/binder_ibinder.h>

namespace {

constexpr size_t kMostWaiting = 64;

thread_local std::vector<std::string> gOfRequest;

}  // namespace

void Refusals::beginRequest() {
    gOfRequest.clear();
}

const std::vector<std::string>& Refusals::ofRequest() {
    return gOfRequest;
}

void Refusals::add(const std::string& why) {
    gOfRequest.push_back(why);
    const std::lock_guard guard(mLock);
    mWaiting.emplace_back(AIBinder_getCallingPid(), why);
    if (mWaiting.size() > kMostWaiting) mWaiting.pop_front();
}

std::vector<std::string> Refusals::take(pid_t client) {
    const std::lock_guard guard(mLock);
    std::vector<std::string> taken;
    std::erase_if(mWaiting, [&](auto& it) {
        if (it.first == client) taken.push_back(std::move(it.second));
        return it.first == client;
    });
    return taken;
}
