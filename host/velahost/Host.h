#pragma once

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include <aidl/velahost/BnHost.h>
#include <binder_host/Observer.h>

#include "host/chip/SimulatedChip.h"
#include "host/velahost/Processes.h"
#include "host/velahost/Watchers.h"

/** What the host offers of its chip, which may be null. Any thread. */
class Host : public aidl::velahost::BnHost {
  public:
    explicit Host(std::shared_ptr<lmfg::SimulatedChip> chip) : mChip(std::move(chip)) {}

    ndk::ScopedAStatus settle() override {
        if (mChip != nullptr) mChip->settle();
        return ndk::ScopedAStatus::ok();
    }

    ndk::ScopedAStatus picture(int32_t display, std::string* svg) override {
        *svg = mChip == nullptr ? "" : mChip->picture(display);
        return ndk::ScopedAStatus::ok();
    }

    ndk::ScopedAStatus liveObjects(int32_t* count) override {
        mWatchers.forgetGone();
        *count = binder::liveObjects();
        return ndk::ScopedAStatus::ok();
    }

    ndk::ScopedAStatus end() override {
        std::cerr << "velahost: ended by " + processName(AIBinder_getCallingPid()) + "\n"
                  << std::flush;
        kill(getpid(), SIGTERM);  // which the main thread waits for
        return ndk::ScopedAStatus::ok();
    }

    ndk::ScopedAStatus write(const std::string& kind, const std::string& file, int64_t limit,
                             bool times) override {
        if (!file.starts_with('/') || limit < 0)
            return answer({.text = "expected a whole path and a limit", .isUsage = true});
        return answer(mWatchers.write(
                kind, {.path = file, .limit = static_cast<uint64_t>(limit), .times = times}));
    }

    ndk::ScopedAStatus fault(const std::vector<std::string>& rules) override {
        return answer(mWatchers.fault(rules));
    }

    ndk::ScopedAStatus stop(const std::string& kind) override {
        return answer(mWatchers.stop(kind));
    }

    ndk::ScopedAStatus state(std::vector<std::string>* out) override {
        *out = mWatchers.state();
        return ndk::ScopedAStatus::ok();
    }

    ndk::ScopedAStatus watch(const ndk::ScopedFileDescriptor& pipe) override {
        mWatchers.watch(android::base::unique_fd(fcntl(pipe.get(), F_DUPFD_CLOEXEC, 0)));
        return ndk::ScopedAStatus::ok();
    }

    ndk::ScopedAStatus takeRefusals(std::vector<std::string>* texts) override {
        *texts = mWatchers.takeRefusals(AIBinder_getCallingPid());
        return ndk::ScopedAStatus::ok();
    }

  private:
    static ndk::ScopedAStatus answer(const Problem& problem) {
        if (!problem) return ndk::ScopedAStatus::ok();
        return ndk::ScopedAStatus::fromExceptionCodeWithMessage(
                problem.isUsage ? EX_ILLEGAL_ARGUMENT : EX_ILLEGAL_STATE, problem.text.c_str());
    }

    Watchers& mWatchers = Watchers::get();
    const std::shared_ptr<lmfg::SimulatedChip> mChip;
};
