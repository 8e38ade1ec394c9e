#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <android-base/thread_annotations.h>

#include "host/chip/ChipObserver.h"

/** Lets requests of the chip go wrong as the user asked. Thread-safe. */
class Faults : public lmfg::ChipObserver {
  public:
    /**
     * Adds "OPERATION=WHAT[@EVERY]": WHAT is a status (-22 or EINVAL), "silent", "twice" or
     * "delay:MS"; every EVERYth call of the operation has the fault, every one by default. The
     * operation "*" is each that takes WHAT, a status only where the chip answers. Empty, or what
     * is wrong and what there is instead.
     */
    std::string add(const std::string& text);

    /** What was added, in that order. */
    std::vector<std::string> rules();

    /** What add() takes, with a line for each operation. */
    static std::string help();

    std::optional<lmfg::ChipFault> fault(const lmfg::ChipCall& call) override;

  private:
    struct Rule {
        lmfg::ChipFault fault;
        uint64_t every = 1;
        uint64_t calls = 0;
    };

    std::mutex mLock;
    std::map<std::string, std::vector<Rule>> mRules GUARDED_BY(mLock);
    std::vector<std::string> mTexts GUARDED_BY(mLock);
};
