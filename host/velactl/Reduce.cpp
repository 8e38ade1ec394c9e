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
#include <memory>
#include <numeric>
#include <string>
#include <utility>
#include <vector>

#include "host/velactl/Excerpt.h"
#include "host/velactl/Recording.h"
#include "host/velactl/Report.h"

namespace velactl {
namespace {

constexpr const char* kPlaceholder = "{}";
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
        : mRecording(recording), mOutput(std::move(output)), mCommand(std::move(command)) {
        const auto place = std::find(mCommand.begin(), mCommand.end(), kPlaceholder);
        mPlace = static_cast<size_t>(place - mCommand.begin());
        if (place == mCommand.end()) mCommand.emplace_back();
        mCommand[mPlace] = mOutput + ".try";
    }

    ~Search() { (void)unlink(mCommand[mPlace].c_str()); }

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
        return {};
    }

    [[nodiscard]] size_t left() const { return mBest.size(); }
    [[nodiscard]] size_t runs() const { return mRuns; }
    [[nodiscard]] int code() const { return mCode; }

  private:
    /** Runs the command with these calls; those with which it ends as it should become the output.
     */
    Failure attempt(const Calls& calls, bool* same) {
        const std::string& file = mCommand[mPlace];
        if (auto failure = writeFile(file, excerptOf(mRecording, calls))) return failure;
        int code = 0;
        if (auto failure = run(mCommand, &code)) return failure;
        if (mRuns++ == 0) mCode = code;
        *same = code == mCode && code != 0;
        if (!*same) return {};
        std::error_code error;
        std::filesystem::rename(file, mOutput, error);
        return error ? usageError("cannot write " + mOutput + ": " + error.message()) : Failure{};
    }

    const Recording& mRecording;
    const std::string mOutput;
    std::vector<std::string> mCommand;
    size_t mPlace = 0;  // of the recording's file among the command's words
    Calls mBest;
    size_t mRuns = 0;
    int mCode = 0;  // what the command ends with for the whole recording
};

Failure reduce(const std::string& file, std::string output, std::vector<std::string> command) {
    Recording recording;
    if (auto failure = readRecording(file, &recording)) return failure;
    if (output.empty()) output = besides(file, ".reduced");
    Search search(recording, output, std::move(command));
    if (auto failure = search.begin()) return failure;
    if (auto failure = search.reduce()) return failure;
    printResult(output + ": " + std::to_string(search.left()) + " of " +
                        std::to_string(recording.calls.size()) + " calls, for which it ends with " +
                        std::to_string(search.code()) + ", found in " +
                        std::to_string(search.runs()) + " runs",
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
                        std::to_string(needed) + " before that they need",
                {{"recording", output},
                 {"calls", part.size()},
                 {"of", recording.calls.size()},
                 {"needed", needed}});
    return {};
}

}  // namespace

void addReduceCommands(CLI::App* app, std::optional<int>* out) {
    const auto file = std::make_shared<std::string>();
    const auto output = std::make_shared<std::string>();
    const auto command = std::make_shared<std::vector<std::string>>();
    const auto range = std::make_shared<std::pair<int64_t, int64_t>>();

    CLI::App* reduceCommand =
            app->add_subcommand("reduce", "Find the shortest recording for which a command fails");
    reduceCommand->footer(
            "The command is run again and again, with the recording to try in the place of {}, or "
            "at its end. It\n"
            "fails when it ends with the code with which it ends for the whole recording.\n\n"
            "Examples:\n"
            "  velactl reduce session.jsonl -- ./my-check\n"
            "  velactl reduce session.jsonl -o small.jsonl -- timeout 10 ./my-check --recording "
            "{}\n");
    reduceCommand->add_option("RECORDING", *file, "What velahost --record wrote")->required();
    reduceCommand->add_option("-o,--output", *output,
                              "What is found; the recording's name with .reduced unless given");
    reduceCommand->add_option("COMMAND", *command, "Behind --")->required();
    reduceCommand->callback([=] { *out = report(reduce(*file, *output, *command)); });

    CLI::App* trimCommand = app->add_subcommand("trim", "Cut a part out of a recording");
    trimCommand->footer(
            "Examples:\n"
            "  velactl trim session.jsonl 40 60\n"
            "  velactl trim session.jsonl 40 60 -o part.jsonl\n");
    trimCommand->add_option("RECORDING", *file, "What velahost --record wrote")->required();
    trimCommand->add_option("FROM", range->first, "The first call, by its number n")->required();
    trimCommand->add_option("TO", range->second, "The last call")->required();
    trimCommand->add_option(
            "-o,--output", *output,
            "The part; - is stdout; the recording's name with .trimmed unless given");
    trimCommand->callback(
            [=] { *out = report(trim(*file, *output, range->first, range->second)); });
}

}  // namespace velactl
