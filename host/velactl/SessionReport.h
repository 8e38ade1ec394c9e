#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string>

#include "host/velactl/Report.h"

namespace velactl {

/** What a session came to, for people and for a CI. One thread. */
class SessionReport {
  public:
    explicit SessionReport(std::string name) : mName(std::move(name)) {}

    void answered() { ++mAnswers; }
    void refused(size_t count) { mRefusals += count; }
    /** A check on that line was made; a failure stands for one that was not met. */
    void checked(size_t line, const std::string& text, const Failure& failure);
    /** A line failed that checks nothing. */
    void failed(size_t line, const std::string& text, const Failure& failure);

    /** "sessions/panel: 9 answers, 9 of 9 expectations met, 0 errors, 0 refusals". */
    [[nodiscard]] std::string summary() const;
    [[nodiscard]] Json summaryJson() const;
    /** A test suite in JUnit's form, a case for each line that checks or that failed. */
    [[nodiscard]] std::string junit() const;

  private:
    struct Case {
        std::string text;
        std::string failure;  // the first; empty for none
    };

    const std::string mName;
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    std::map<size_t, Case> mCases;  // by line
    uint64_t mAnswers = 0;
    uint64_t mRefusals = 0;
    uint64_t mChecks = 0;
    uint64_t mUnmet = 0;
    uint64_t mErrors = 0;
};

}  // namespace velactl
