#pragma once

#include <android-base/unique_fd.h>

#include <cstdint>
#include <string>
#include <utility>

#include "host/velahost/Output.h"

/** A pipe whose reader nobody waits for: lines that it has no room for are lost, and counted. */
class LiveOutput : public Output {
  public:
    explicit LiveOutput(android::base::unique_fd pipe) : mPipe(std::move(pipe)) {}

    bool begin(const std::string& head) override;
    bool write(const std::string& text) override;
    void close() override { mPipe.reset(); }
    [[nodiscard]] const std::string& error() const override { return mError; }

  private:
    /** Writes what is pending; false when some of it still is. */
    bool drain();

    android::base::unique_fd mPipe;
    std::string mPending;  // the end of a line that the pipe has taken in part
    uint64_t mLost = 0;
    std::string mError;
};
