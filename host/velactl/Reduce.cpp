#include "host/velactl/Reduce.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <numeric>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/velactl/Excerpt.h"
#include "host/velactl/Recording.h"
#include "host/velactl/Report.h"

namespace velactl {
namespace {

constexpr std::string_view kPlaceholder = "{}";
constexpr int kCannotRun = 126;  // the shell's codes for a command that it cannot run, or find
constexpr int kNotFound = 127;
constexpr int kSignalled = 128;

/** "session.trimmed.jsonl" for "session.jsonl". */
std::string besides(const std::string& file, const std::string& what) {
    std::filesystem::path path(file);
    const std::string extension = path.extension();
    return path.replace_extension(what + (extension.empty() ? ".jsonl" : extension));
}

Calls allCalls(const Recording& recording) {
    Calls all(recording.calls.size());
    std::iota(all.begin(), all.end(), 0);
    return all;
}

/** Runs a command that says nothing; its exit code as a shell tells it. */
Failure run(std::vector<std::string> words, int* out) {
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    for (const int fd : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO})
        posix_spawn_file_actions_addopen(&actions, fd, "/dev/null", O_RDWR, 0);
    pid_t pid = 0;
    const int error = posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) return usageError("cannot run " + words[0] + ": " + std::strerror(error));
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    *out = WIFEXITED(status) ? WEXITSTATUS(status) : kSignalled + WTERMSIG(status);
    return {};
}

/** Looks for the calls for which a command ends as it does for all of them. */
class Search {
  public:
    Search(const Recording& recording, std::string output, std::vector<std::string> command)
        : mRecording(recording),
          mOutput(std::move(output)),
          mTried(mOutput + ".try"),
          mCommand(std::move(command)) {
        bool isNamed = false;
        for (std::string& word : mCommand) {
            for (size_t at = 0; (at = word.find(kPlaceholder, at)) != std::string::npos;) {
                word.replace(at, kPlaceholder.size(), mTried);
                at += mTried.size();
                isNamed = true;
            }
        }
        if (!isNamed) mCommand.push_back(mTried);
    }

    ~Search() { (void)unlink(mTried.c_str()); }

    Search(const Search&) = delete;
    Search& operator=(const Search&) = delete;

    Failure begin() {
        mBest = allCalls(mRecording);
        bool same = false;
        if (auto failure = attempt(mBest, &same)) return failure;
        if (mCode == 0) {
            return usageError(mCommand[0] + " ends with 0 for the whole recording; it has to fail");
        }
        if (mCode == kCannotRun || mCode == kNotFound) {
            return usageError(mCommand[0] + " ends with " + std::to_string(mCode) +
                              ": a command of it cannot be run");
        }
        return {};
    }

    /** Leaves out pieces, halved again and again, until no single call can go. */
    Failure reduce() {
        Progress progress("reducing " + mRecording.file);
        const size_t all = mBest.size();
        bool isShorter = true;
        for (size_t piece = std::max<size_t>(all / 2, 1); piece > 1 || isShorter;
             piece = std::max<size_t>(piece / 2, 1)) {
            isShorter = false;
            // From the end, since what others need stands before them.
            for (size_t end = mBest.size(); end > 0;) {
                const size_t begin = end > piece ? end - piece : 0;
                Calls rest(mBest.begin(), mBest.begin() + static_cast<ptrdiff_t>(begin));
                rest.insert(rest.end(), mBest.begin() + static_cast<ptrdiff_t>(end), mBest.end());
                rest = withoutOrphans(mRecording, rest);
                bool same = false;
                if (auto failure = attempt(rest, &same)) return failure;
                if (same) mBest = std::move(rest);
                isShorter = isShorter || same;
                end = std::min(begin, mBest.size());
                progress.reached(all - mBest.size(), all);
            }
        }
        return !mBest.empty() ? Failure{}
                              : usageError(mCommand[0] + " ends with " + std::to_string(mCode) +
                                           " without any call, too; does it read {}?");
    }

    [[nodiscard]] size_t left() const { return mBest.size(); }
    [[nodiscard]] size_t runs() const { return mRuns; }
    [[nodiscard]] int code() const { return mCode; }

  private:
    /**
     * Runs the command with these calls; those with which it ends as it should become the output.
     */
    Failure attempt(const Calls& calls, bool* same) {
        const std::string text = excerptOf(mRecording, calls);
        if (auto failure = writeFile(mTried, text)) return failure;
        int code = 0;
        if (auto failure = run(mCommand, &code)) return failure;
        if (mRuns++ == 0) mCode = code;
        *same = code == mCode && code != 0;
        return *same ? replaceFile(mOutput, text) : Failure{};
    }

    const Recording& mRecording;
    const std::string mOutput;
    const std::string mTried;  // the file that the command is given
    std::vector<std::string> mCommand;
    Calls mBest;
    size_t mRuns = 0;
    int mCode = 0;  // what the command ends with for the whole recording
};

}  // namespace

Failure reduce(const std::string& file, std::string output, std::vector<std::string> command) {
    Recording recording;
    if (auto failure = readRecording(file, &recording)) return failure;
    if (output.empty()) output = besides(file, ".reduced");
    if (output == "-") return usageError("what is found is written to a file, not to stdout");
    Search search(recording, output, std::move(command));
    if (auto failure = search.begin()) return failure;
    if (auto failure = search.reduce()) return failure;
    printResult(output + ": " + std::to_string(search.left()) + " of " +
                        std::to_string(recording.calls.size()) + " calls, for which it ends with " +
                        std::to_string(search.code()) + ", found in " +
                        std::to_string(search.runs()) + " runs\n",
                {{"recording", output},
                 {"calls", search.left()},
                 {"of", recording.calls.size()},
                 {"code", search.code()},
                 {"runs", search.runs()}});
    return {};
}

Failure trim(const std::string& file, std::string output, int64_t from, int64_t to) {
    Recording recording;
    if (auto failure = readRecording(file, &recording)) return failure;
    Calls part = allCalls(recording);
    std::erase_if(part, [&](size_t i) {
        return recording.calls[i].order < from || recording.calls[i].order > to;
    });
    if (part.empty()) {
        return usageError(file + " has no calls from " + std::to_string(from) + " to " +
                          std::to_string(to));
    }
    const Calls kept = withNeeded(recording, part);
    if (output.empty()) output = besides(file, ".trimmed");
    if (auto failure = writeFile(output, excerptOf(recording, kept))) return failure;
    if (output == "-") return {};
    const size_t needed = kept.size() - part.size();
    printResult(output + ": " + std::to_string(part.size()) + " of " +
                        std::to_string(recording.calls.size()) + " calls, and " +
                        std::to_string(needed) + " before that they need\n",
                {{"recording", output},
                 {"calls", part.size()},
                 {"of", recording.calls.size()},
                 {"needed", needed}});
    return {};
}

}  // namespace velactl
