#include "host/velactl/Script.h"

#include <charconv>
#include <chrono>
#include <cstdint>
#include <thread>

#include "host/velactl/Descriptions.h"
#include "host/velactl/Platform.h"
#include "host/velactl/Service.h"

namespace velactl {
namespace {

constexpr uint64_t kMostRepeats = 1'000'000;
constexpr uint64_t kLongestSleepMs = 600'000;

std::optional<uint64_t> parseCount(const std::vector<std::string>& words, uint64_t most) {
    uint64_t value = 0;
    if (words.size() != 2) return std::nullopt;
    const char* const end = words[1].data() + words[1].size();
    const auto [stop, error] = std::from_chars(words[1].data(), end, value);
    return error == std::errc() && stop == end && value <= most ? std::optional(value)
                                                                : std::nullopt;
}

}  // namespace

const std::vector<ScriptCommand>& scriptCommands() {
    static const auto& commands = *new std::vector<ScriptCommand>{
            {"vela", "vela OPERATION [JSON...]", "an operation of the main service"},
            {"composer", "composer OPERATION [JSON...]", "one of the session's composer client"},
            {"try", "try vela|composer OPERATION [JSON...]", "the same; it may be refused or fail"},
            {"expect", "expect ok | error KIND CODE | JSON | like \"TEXT*\" | refusals N",
             "what the last operation has to come to"},
            {"sleep", "sleep MS", "waits"},
            {"repeat", "repeat N", "the lines up to end, N times"},
            {"end", "end", "ends what is repeated"},
            {"list", "list", "every operation and record"},
            {"dump", "dump", "the chip's state"},
            {"screenshot", "screenshot FILE.svg", "draws the frame of the primary display"},
            {"help", "help [NAME]", "this, or what a command or an operation does"},
            {"exit", "exit", "ends, as quit does"},
            {"quit", "quit", "ends"},
    };
    return commands;
}

int Script::run() {
    Progress progress(mOptions.name);
    while (!mEnded) {
        const auto line = read(mOpen);
        if (!line) break;
        if (!runLine(*line)) return mResult;
        progress.reached(mNumber, 0);
    }
    if (mOpen > 0) (void)failed(mLast, usageError("repeat without end"));
    (void)settle();
    return mResult;
}

std::optional<Script::Line> Script::read(size_t open) {
    while (auto text = mNext(open)) {
        Line line{.number = ++mNumber, .text = {}, .words = splitWords(*text)};
        line.text = std::move(*text);
        if (!line.words.empty() && !line.words.front().starts_with('#')) return line;
    }
    return std::nullopt;
}

std::string Script::where(const Line& line) const {
    return isPrompt() ? "" : mOptions.name + ":" + std::to_string(line.number);
}

bool Script::failed(const Line& line, const Failure& failure) {
    const int code = velactl::report(where(line), failure);
    if (mResult == kOk) mResult = code;
    if (line.words.front() != "expect") mReport.failed(line.number, line.text, failure);
    return mOptions.keepGoing || mOptions.onlyCheck;
}

bool Script::settle() {
    const std::vector<std::string> refusals = std::exchange(mRefusals, {});
    for (const std::string& refusal : refusals)
        noteRefusal(where(mLast), mLast.words[1], refusal);
    Failure failure = std::exchange(mFailure, {});
    if (!failure && !refusals.empty() && mOptions.failOnRefusal) {
        failure = unmetError("refusal", mLast.words[1] + ": " + refusals.back());
    }
    return !failure || failed(mLast, failure);
}

bool Script::runLine(const Line& line) {
    if (mOptions.onlyCheck) {
        const Failure failure = checkLine(line);
        return !failure || failed(line, failure);
    }
    if (line.words.front() != "expect" && !settle()) return false;
    if (line.words.front() == "repeat") return runBlock(line);
    const Failure failure = runCommand(line);
    if (failure) return failed(line, failure);
    return !isPrompt() || settle();
}

Failure Script::readBlock(const Line& line, std::vector<Line>* body) {
    size_t depth = 1;
    const auto take = [this, &depth]() -> std::optional<Line> {
        if (mPending.empty()) return read(depth);
        Line next = std::move(mPending.back());
        mPending.pop_back();
        return next;
    };
    while (auto next = take()) {
        if (next->words.front() == "repeat") ++depth;
        if (next->words.front() == "end" && --depth == 0) return {};
        body->push_back(std::move(*next));
    }
    return usageError("repeat without end (line " + std::to_string(line.number) + ")");
}

bool Script::runBlock(const Line& line) {
    // Before its lines are asked for: a prompt would take them for nothing.
    if (const Failure failure = checkLine(line)) return failed(line, failure);
    std::vector<Line> body;
    if (const Failure failure = readBlock(line, &body)) return failed(line, failure);
    const uint64_t times = *parseCount(line.words, kMostRepeats);
    const std::vector<Line> outer = std::exchange(mPending, {});
    Progress progress(mOptions.name);
    for (uint64_t i = 0; i < times && !mEnded; ++i) {
        mPending.assign(body.rbegin(), body.rend());
        while (!mPending.empty() && !mEnded) {
            const Line next = std::move(mPending.back());
            mPending.pop_back();
            if (!runLine(next)) return false;
        }
        progress.reached(i + 1, times);
    }
    mPending = outer;
    return true;
}

Failure Script::checkLine(const Line& line) {
    const std::vector<std::string>& words = line.words;
    const std::string& command = words.front();
    const std::vector<std::string> rest(words.begin() + 1, words.end());
    if (command == "vela" || command == "composer") return Session::check(command, rest);
    if (command == "try") {
        const bool isOperation = !rest.empty() && (rest[0] == "vela" || rest[0] == "composer");
        return isOperation ? Session::check(rest[0], {rest.begin() + 1, rest.end()})
                           : usageError("usage: try vela|composer OPERATION [JSON...]");
    }
    if (command == "expect") {
        Expectation expectation;
        return Expectation::parse(words, &expectation);
    }
    if (command == "sleep" && !parseCount(words, kLongestSleepMs)) {
        return usageError("usage: sleep MS, up to " + std::to_string(kLongestSleepMs));
    }
    if (command == "repeat") {
        if (!parseCount(words, kMostRepeats)) {
            return usageError("usage: repeat N, up to " + std::to_string(kMostRepeats));
        }
        if (mOptions.onlyCheck && mOpen++ == 0) mLast = line;
    }
    if (command == "end") {
        if (mOpen == 0) return usageError("end without repeat");
        --mOpen;
    }
    std::vector<std::string> names;
    for (const ScriptCommand& it : scriptCommands()) {
        if (command == it.name) {
            const bool tooMany = words.size() > splitWords(it.usage).size();
            return tooMany ? usageError("usage: " + std::string(it.usage)) : Failure{};
        }
        names.emplace_back(it.name);
    }
    std::string all;
    for (const std::string& name : names)
        all += (all.empty() ? "" : ", ") + name;
    return usageError("no command '" + command + "'; there are " + all);
}

void Script::runOperation(const Line& line, bool mayFail) {
    mLast = line;
    if (mayFail) mLast.words.erase(mLast.words.begin());
    const std::vector<std::string>& words = mLast.words;
    Session::Result result = mSession.run(words[0], {words.begin() + 1, words.end()});
    mFailure = result.failure;
    if (mFailure.code == kOk || mFailure.code == kErrorStatus) {
        const size_t refused = mayFail ? 0 : result.refusals.size();
        mRefused += refused;
        mReport.refused(refused);
        mCame = Came{.status = mFailure ? mFailure.error : Json("ok"),
                     .answer = result.answer,
                     .refusals = {}};
        if (mSession.tellsRefusals()) mCame->refusals = mRefused;
    }
    if (!mFailure) {
        mReport.answered();
        printAnswer(result.answer);
        // A failure's refusals stand in its own text.
        mRefusals = std::move(result.refusals);
    }
    if (!mayFail || (mFailure && mFailure.code != kErrorStatus)) return;
    mFailure = {};
    mRefusals.clear();
}

Failure Script::runCommand(const Line& line) {
    if (auto failure = checkLine(line)) return failure;
    const std::vector<std::string>& words = line.words;
    const std::string& command = words.front();
    if (command == "vela" || command == "composer" || command == "try") {
        runOperation(line, command == "try");
        return mFailure.code == kErrorStatus ? Failure{} : std::exchange(mFailure, {});
    }
    if (command == "expect") return expect(line);
    if (command == "list") return list();
    if (command == "dump") return dump();
    if (command == "exit" || command == "quit") mEnded = true;
    if (command == "sleep") {
        const auto time = parseCount(words, kLongestSleepMs).value_or(0);
        std::this_thread::sleep_for(std::chrono::milliseconds(time));
    }
    if (command == "screenshot") {
        return words.size() == 2 ? screenshot(0, words[1])
                                 : usageError("usage: screenshot FILE.svg");
    }
    if (command == "help") {
        std::string text;
        for (const ScriptCommand& it : scriptCommands()) {
            if (words.size() == 1 || words[1] == it.name) {
                text += std::string(it.usage) + "\n    " + it.what + "\n";
            }
        }
        if (text.empty()) return describe(words[1]);
        printText(text);
    }
    return {};
}

Failure Script::expect(const Line& line) {
    if (!mCame) return usageError("expect follows an operation");
    Expectation expectation;
    if (auto failure = Expectation::parse(line.words, &expectation)) return failure;
    Failure failure = expectation.check(*mCame);
    mReport.checked(line.number, line.text, failure);
    if (!expectation.isOfRefusals()) mFailure = {};
    if (!failure && expectation.isOfAnswer()) mRefusals.clear();
    if (!failure && expectation.isOfRefusals()) {
        mRefusals.clear();
        mCame->refusals = mRefused = 0;
    }
    return failure;
}

}  // namespace velactl
