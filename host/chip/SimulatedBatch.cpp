#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "host/chip/SimulatedChip.h"

namespace lmfg {

namespace {

constexpr size_t kMaxBatch = 64 * 1024;
constexpr size_t kMaxCommands = 1024;
constexpr size_t kMaxBatchesKept = 16;
constexpr size_t kMaxBatchText = 72;
// Longer than any client should take, short enough that a stalled one does not hold the asker for
// ever.
constexpr std::chrono::milliseconds kWaitLimit{10'000};

/** The beginning of a batch, for a table. */
std::string oneLine(std::string text) {
    const auto isControl = [](char c) { return static_cast<unsigned char>(c) < ' '; };
    std::replace_if(text.begin(), text.end(), isControl, ' ');
    return text.size() > kMaxBatchText ? cutText(text, kMaxBatchText) + "..." : text;
}

std::string samplesText(const VelaContentSamples& samples) {
    return std::to_string(samples.value1) + " " + listText(samples.list1) + " " +
           listText(samples.list2) + " " + listText(samples.list3) + " " + listText(samples.list4);
}

}  // namespace

void SimulatedChip::settle() {
    (void)mQueue.drain(kWaitLimit);
}

SimulatedChip::Outcome SimulatedChip::runBatch(const std::string& text) {
    {
        const std::lock_guard<std::mutex> guard(mLock);
        if (text.size() > kMaxBatch) {
            return {refuse("batch", -E2BIG, "a batch has at most 64 KiB"), {}};
        }
    }
    const BatchParse parse = parseBatch(text);
    {
        const std::lock_guard<std::mutex> guard(mLock);
        if (!parse.error.empty()) {
            return {refuse("batch", -EINVAL, "batch " + parse.error), parse.error};
        }
        if (parse.commands.size() > kMaxCommands) {
            return {refuse("batch", -E2BIG, "a batch has at most 1024 commands"), {}};
        }
        mState.batches.push_back({.number = ++mState.batchCount,
                                  .commands = parse.commands.size(),
                                  .text = oneLine(text)});
        if (mState.batches.size() > kMaxBatchesKept) mState.batches.pop_front();
    }
    std::string reply;
    for (const BatchCommand& command : parse.commands) {
        Outcome outcome = runCommand(command);
        if (outcome.status < 0) {
            const std::lock_guard<std::mutex> guard(mLock);
            const std::string where = "line " + std::to_string(command.line) + ": " + command.name;
            const bool isRegister = command.verb == Verb::kSet || command.verb == Verb::kGet;
            const std::string reason =
                    isRegister
                            ? registerReason(static_cast<int>(command.numbers[0]), outcome.status)
                            : raiseReason(outcome.status);
            return {refuse("batch", outcome.status,
                           std::string("batch ").append(where).append(": ").append(reason)),
                    where};
        }
        reply += command.name;
        if (!command.numbers.empty()) reply += " " + std::to_string(command.numbers[0]);
        reply += ": " + outcome.text + "\n";
    }
    return {0, reply};
}

SimulatedChip::Outcome SimulatedChip::runCommand(const BatchCommand& command) {
    // Waiting for events with the lock held would keep them from being recorded.
    if (command.verb == Verb::kWait) return {mQueue.drain(kWaitLimit), "done"};

    const std::lock_guard<std::mutex> guard(mLock);
    switch (command.verb) {
        case Verb::kSet:
            return {setRegister(static_cast<int>(command.numbers[0]), command.values), "ok"};
        case Verb::kGet: {
            const std::vector<int> params(command.numbers.begin() + 1, command.numbers.end());
            std::vector<int> values;
            const int status = getRegister(static_cast<int>(command.numbers[0]), params, values);
            return {status, listText(values)};
        }
        case Verb::kOsd:
            mState.osdState = static_cast<int>(command.numbers[0]);
            mState.osdOverflow = static_cast<int>(command.numbers[1]);
            return {0, "ok"};
        case Verb::kLast:
            return {0, mState.events.empty() ? "none" : mState.events.back().text()};
        case Verb::kEvents:
            return {0, eventsText()};
        case Verb::kClear:
            mState.registers.clear();
            mState.blobs.clear();
            mState.events.clear();
            mState.refusals.clear();
            mState.refusalCount = 0;
            return {0, "ok"};
        default:
            return queueEvent(command);
    }
}

SimulatedChip::Outcome SimulatedChip::queueEvent(const BatchCommand& command) {
    const std::vector<int64_t>& numbers = command.numbers;
    std::string what = command.name;
    for (const int64_t number : numbers)
        what += " " + std::to_string(number);

    int64_t number = -EINVAL;
    switch (command.verb) {
        case Verb::kFeature:
            number = raiseFeature(static_cast<int>(numbers[0]), command.values);
            break;
        case Verb::kRefresh:
            number = raiseRefresh(numbers[0]);
            break;
        case Verb::kPower:
            number = raisePower(numbers[0], static_cast<int>(numbers[1]));
            break;
        case Verb::kConfig:
            number = raise(what + " " + listText(command.values), [command](const auto& events) {
                return listText(events.configChanged(
                        command.numbers[0], static_cast<int>(command.numbers[1]), command.values));
            });
            break;
        case Verb::kSample:
            number = raise(what, [numbers](const auto& events) {
                return samplesText(events.contentSampling(numbers[0], static_cast<int>(numbers[1]),
                                                          numbers[2]));
            });
            break;
        case Verb::kSoftSet:
            number = raise(what + " " + listText(command.values), [command](const auto& events) {
                return std::to_string(events.softSetConfig(
                        command.numbers[0], static_cast<int>(command.numbers[1]), command.values));
            });
            break;
        case Verb::kSoftGet:
            number = raise(what + " " + listText(command.values), [command](const auto& events) {
                int status = 0;
                const std::vector<int> values = events.softGetConfig(
                        command.numbers[0], static_cast<int>(command.numbers[1]), command.values,
                        status);
                return std::to_string(status) + " " + listText(values);
            });
            break;
        case Verb::kQuery:
            number = raise(what + " " + command.text, [command](const auto& events) {
                return '"' +
                       events.stringQuery(static_cast<int>(command.numbers[0]), command.text) + '"';
            });
            break;
        default:
            break;
    }
    if (number < 0) return {static_cast<int>(number), {}};
    return {0, "event " + std::to_string(number) + " queued"};
}

std::string SimulatedChip::eventsText() const {
    std::string text = std::to_string(mState.events.size());
    for (const ChipEvent& event : mState.events) {
        text += "\n" + std::to_string(event.number) + ": " + event.text();
    }
    return text;
}

}  // namespace lmfg
