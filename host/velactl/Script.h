#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/velactl/Session.h"

namespace velactl {

/**
 * Runs the lines of a session file:
 *   vela|composer OPERATION [JSON...]     prints the answer
 *   expect ok                             the last answer's status is ok
 *   expect error KIND CODE                it is that error
 *   expect JSON                           it is that value; of objects only the named fields count
 *   sleep MS
 *   repeat N ... end                      may be nested
 * Empty lines and those that begin with # are skipped. A failure that no expectation follows ends
 * the run, unless it is to keep going. One thread.
 */
class Script {
  public:
    struct Options {
        std::string name;  // of the file, for messages; empty for a prompt
        bool keepGoing = false;
    };
    using NextLine = std::function<std::optional<std::string>()>;

    Script(Options options, NextLine next) : mOptions(std::move(options)), mNext(std::move(next)) {}

    /** Returns the exit code of the first failure, each of which it has reported. */
    int run();

  private:
    struct Line {
        size_t number = 0;
        std::vector<std::string> words;
    };

    /** The next line that is not empty; none at the end. */
    std::optional<Line> read();
    /** Runs one line, and the lines of a block. False when the run has to end. */
    bool runLine(const Line& line);
    bool runBlock(const Line& line);
    Failure readBlock(const Line& line, std::vector<Line>* body);
    Failure runCommand(const Line& line);
    Failure expect(const std::vector<std::string>& words);
    /** Notes a failure and reports it; false when the run has to end. */
    bool failed(const Line& line, const Failure& failure);
    /** The same for a command's failure that no expectation followed. */
    bool settle();

    const Options mOptions;
    const NextLine mNext;
    Session mSession;
    size_t mNumber = 0;
    std::vector<Line> mPending;  // lines of blocks, last first
    int mResult = kOk;
    // The last command's; an expectation takes the failure away.
    Line mLast;
    Failure mFailure;
    bool mHasAnswer = false;
    Json mAnswer;
    Json mStatus;
};

}  // namespace velactl
