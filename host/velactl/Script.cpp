#include "host/velactl/Script.h"

#include <charconv>
#include <chrono>
#include <cstdint>
#include <thread>

#include "host/velactl/Compare.h"

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

int Script::run() {
    Progress progress(mOptions.name);
    while (const auto line = read()) {
        if (!runLine(*line)) return mResult;
        progress.reached(mNumber, 0);
    }
    (void)settle();
    return mResult;
}

std::optional<Script::Line> Script::read() {
    while (const auto text = mNext()) {
        Line line{.number = ++mNumber, .words = splitWords(*text)};
        if (!line.words.empty() && !line.words.front().starts_with('#')) return line;
    }
    return std::nullopt;
}

bool Script::failed(const Line& line, const Failure& failure) {
    const std::string where =
            mOptions.name.empty() ? "" : mOptions.name + ":" + std::to_string(line.number);
    const int code = report(where, failure);
    if (mResult == kOk) mResult = code;
    return mOptions.keepGoing;
}

bool Script::settle() {
    const Failure failure = std::exchange(mFailure, {});
    return !failure || failed(mLast, failure);
}

bool Script::runLine(const Line& line) {
    if (line.words.front() != "expect" && !settle()) return false;
    if (line.words.front() == "repeat") return runBlock(line);
    const Failure failure = runCommand(line);
    return !failure || failed(line, failure);
}

Failure Script::readBlock(const Line& line, std::vector<Line>* body) {
    size_t depth = 1;
    const auto take = [this]() -> std::optional<Line> {
        if (mPending.empty()) return read();
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
    std::vector<Line> body;
    if (const Failure failure = readBlock(line, &body)) return failed(line, failure);
    const auto times = parseCount(line.words, kMostRepeats);
    if (!times) {
        return failed(line, usageError("usage: repeat N, up to " + std::to_string(kMostRepeats)));
    }
    const std::vector<Line> outer = std::exchange(mPending, {});
    Progress progress(mOptions.name);
    for (uint64_t i = 0; i < *times; ++i) {
        mPending.assign(body.rbegin(), body.rend());
        while (!mPending.empty()) {
            const Line next = std::move(mPending.back());
            mPending.pop_back();
            if (!runLine(next)) return false;
        }
        progress.reached(i + 1, *times);
    }
    mPending = outer;
    return true;
}

Failure Script::runCommand(const Line& line) {
    const std::string& command = line.words.front();
    if (command == "vela" || command == "composer") {
        mLast = line;
        mAnswer = nullptr;
        mStatus = "ok";
        mHasAnswer = true;
        mFailure = mSession.run(command, {line.words.begin() + 1, line.words.end()}, &mAnswer);
        if (!mFailure) {
            printAnswer(mAnswer);
        } else if (mFailure.code != kErrorStatus) {
            return std::exchange(mFailure, {});
        } else {
            mStatus = mFailure.error;
        }
        return {};
    }
    if (command == "expect") return expect(line.words);
    if (command == "sleep") {
        const auto time = parseCount(line.words, kLongestSleepMs);
        if (!time) return usageError("usage: sleep MS, up to " + std::to_string(kLongestSleepMs));
        std::this_thread::sleep_for(std::chrono::milliseconds(*time));
        return {};
    }
    return usageError("no command '" + command +
                      "'; there are vela, composer, expect, sleep, repeat and end");
}

Failure Script::expect(const std::vector<std::string>& words) {
    if (!mHasAnswer) return usageError("expect follows an operation");
    mFailure = {};
    const auto unmet = [&](const std::string& expected) {
        const std::string came = mStatus == "ok" ? "ok, " + mAnswer.dump()
                                                 : mStatus["kind"].get<std::string>() + " error " +
                                                           mStatus["code"].dump();
        Failure failure = usageError("expected " + expected + ", came " + came);
        failure.code = kErrorStatus;
        failure.error["kind"] = "expectation";
        return failure;
    };
    if (words.size() == 2 && words[1] == "ok") return mStatus == "ok" ? Failure{} : unmet("ok");
    if (words.size() == 4 && words[1] == "error") {
        const Json code = Json::parse(words[3], nullptr, false);
        if (!code.is_number_integer()) return usageError("not a code: " + words[3]);
        const bool met =
                mStatus.is_object() && mStatus["kind"] == words[2] && mStatus["code"] == code;
        return met ? Failure{} : unmet(words[2] + " error " + words[3]);
    }
    if (words.size() != 2) return usageError("usage: expect ok | error KIND CODE | JSON");
    const Json expected = Json::parse(words[1], nullptr, false);
    if (expected.is_discarded()) return usageError("not JSON: " + words[1]);
    if (mStatus != "ok") return unmet(expected.dump());
    const std::string at = differenceAt(expected, mAnswer, true, "answer");
    if (at.empty()) return {};
    return unmet(expected.dump() + (at == "answer" ? "" : " (" + at + " differs)"));
}

}  // namespace velactl
