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
     * Adds texts "OPERATION=WHAT[@EVERY]": WHAT is a status (-22 or EINVAL), "silent", "twice" or
     * "delay:MS"; every EVERYth call of the operation has the fault, every one by default. The
     * operation "*" is each that takes WHAT, a status only where the chip answers. Empty, or what
     * is wrong with one of them and what there is instead; then none is added.
     */
    std::string add(const std::vector<std::string>& texts);

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

    using Rules = std::map<std::string, std::vector<Rule>>;  // by operation

    /** Adds the text's rule to `out`; empty, or what is wrong. */
    static std::string parse(const std::string& text, Rules* out);

    std::mutex mLock;
    Rules mRules GUARDED_BY(mLock);
    std::vector<std::string> mTexts GUARDED_BY(mLock);
};
