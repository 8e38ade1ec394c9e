#pragma once

#include <memory>
#include <string>
#include <vector>

#include <aidl/velahost/BnHost.h>
#include <binder_host/Observer.h>

#include "host/chip/SimulatedChip.h"

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
        *count = binder::liveObjects();
        return ndk::ScopedAStatus::ok();
    }

    ndk::ScopedAStatus takeRefusals(std::vector<std::string>* texts) override {
        if (mChip != nullptr) *texts = mChip->takeRefusals(AIBinder_getCallingPid());
        return ndk::ScopedAStatus::ok();
    }

  private:
    const std::shared_ptr<lmfg::SimulatedChip> mChip;
};
