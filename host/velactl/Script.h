#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "host/velactl/Expectation.h"
#include "host/velactl/Session.h"
#include "host/velactl/SessionReport.h"

namespace velactl {

/** The commands of a session, for its help and its completion. */
struct ScriptCommand {
    const char* name;
    const char* usage;  // with what follows it
    const char* what;
};
const std::vector<ScriptCommand>& scriptCommands();

/**
 * Runs the lines of a session file, commands as scriptCommands() has them. Empty lines and those
 * that begin with # are skipped. Expectations are of the last operation: of objects only the named
 * fields count, in `like` a star stands for any text, a refusal counts until the next
 * `expect refusals`. A failure that no expectation follows ends the run, unless it is to keep
 * going. At a prompt everything is told at once. One thread.
 */
class Script {
  public:
    struct Options {
        std::string name;  // of the file, for messages; empty for a prompt
        bool keepGoing = false;
        bool failOnRefusal = false;
        bool onlyCheck = false;  // tell all wrong lines, and touch no service
    };
    /** The next line; `open` is how many blocks are open. */
    using NextLine = std::function<std::optional<std::string>(size_t open)>;

    Script(Options options, NextLine next)
        : mOptions(std::move(options)), mNext(std::move(next)), mReport(mOptions.name) {}

    /** Returns the exit code of the first failure, each of which it has reported. */
    int run();

    [[nodiscard]] const SessionReport& report() const { return mReport; }

  private:
    struct Line {
        size_t number = 0;
        std::string text;
        std::vector<std::string> words;
    };

    [[nodiscard]] bool isPrompt() const { return mOptions.name.empty(); }
    [[nodiscard]] std::string where(const Line& line) const;

    /** The next line that is not empty; none at the end. */
    std::optional<Line> read(size_t open);
    /** Runs one line, and the lines of a block. False when the run has to end. */
    bool runLine(const Line& line);
    bool runBlock(const Line& line);
    Failure readBlock(const Line& line, std::vector<Line>* body);
    Failure runCommand(const Line& line);
    void runOperation(const Line& line, bool mayFail);
    /** What is wrong with a line's words alone. */
    [[nodiscard]] Failure checkLine(const Line& line);
    Failure expect(const Line& line);
    /** Notes a failure and reports it; false when the run has to end. */
    bool failed(const Line& line, const Failure& failure);
    /** Notes and reports what no expectation followed: the last command's failure and refusals. */
    bool settle();

    const Options mOptions;
    const NextLine mNext;
    SessionReport mReport;
    Session mSession;
    size_t mNumber = 0;
    size_t mOpen = 0;            // blocks, while only checking
    bool mEnded = false;         // by `exit`
    std::vector<Line> mPending;  // lines of blocks, last first
    int mResult = kOk;
    // The last command's; an expectation takes failure and refusals away.
    Line mLast;
    Failure mFailure;
    std::vector<std::string> mRefusals;
    std::optional<Came> mCame;
    size_t mRefused = 0;
};

}  // namespace velactl
