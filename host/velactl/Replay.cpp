#include "host/velactl/Replay.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

#include <android/binder_process.h>

#include "host/codec/Operations.h"
#include "host/codec/Status.h"
#include "host/velactl/Callbacks.h"
#include "host/velactl/Compare.h"
#include "host/velactl/Platform.h"
#include "host/velactl/Recording.h"

namespace velactl {
namespace {

using codec::display::IVela;
using codec::display::IVelaComposerClient;
using Kind = RecordedCall::Kind;

struct Difference {
    size_t line;
    std::string what;  // the call
    std::string field;
    Json was;
    Json is;
};

std::string callText(const RecordedCall& call) {
    return call.target + " " + call.operation + " " + Json(call.arguments).dump();
}

/** The events that were recorded, as they come again. Thread-safe. */
class Events {
  public:
    Events(std::shared_ptr<const Recording> recording, std::chrono::milliseconds patience)
        : mRecording(std::move(recording)),
          mPatience(patience),
          mCalls(mRecording->calls),
          mCame(mRecording->calls.size()) {}

    /** Answers an event as it was answered. */
    ndk::ScopedAStatus answer(const std::string& target, const std::string& operation,
                              const Json& arguments, Json* answer) {
        const std::lock_guard guard(mLock);
        size_t i = 0;
        while (i < mCalls.size() &&
               (mCalls[i].kind != Kind::kEvent || mCame[i] || mCalls[i].target != target ||
                mCalls[i].operation != operation)) {
            ++i;
        }
        if (i == mCalls.size()) {
            mUnexpected.push_back(target + " " + operation + " " + arguments.dump());
            return ndk::ScopedAStatus::ok();
        }
        mCame[i] = true;
        const Json recorded = mCalls[i].arguments;
        if (const auto at = differenceAt(recorded, arguments, false, "arguments"); !at.empty()) {
            mDifferences.push_back({.line = mCalls[i].line,
                                    .what = callText(mCalls[i]),
                                    .field = at,
                                    .was = valueAt(recorded, at, "arguments"),
                                    .is = valueAt(arguments, at, "arguments")});
        }
        *answer = mCalls[i].answer;
        ndk::ScopedAStatus status;
        std::string error;
        (void)codec::statusFromJson(mCalls[i].status, &status, &error);
        mChanged.notify_all();
        return status;
    }

    /** Waits for the event of that index; false when it does not come. */
    bool await(size_t index) {
        std::unique_lock lock(mLock);
        const auto deadline = std::chrono::steady_clock::now() + mPatience;
        while (!mCame[index]) {
            if (mChanged.wait_until(lock, deadline) == std::cv_status::timeout) break;
        }
        return mCame[index];
    }

    std::vector<Difference> takeDifferences() {
        const std::lock_guard guard(mLock);
        return std::exchange(mDifferences, {});
    }
    std::vector<std::string> takeUnexpected() {
        const std::lock_guard guard(mLock);
        return std::exchange(mUnexpected, {});
    }

  private:
    const std::shared_ptr<const Recording> mRecording;
    const std::chrono::milliseconds mPatience;
    // What is read here of the calls does not change meanwhile.
    const std::vector<RecordedCall>& mCalls;
    std::mutex mLock;
    std::condition_variable mChanged;
    // Guarded by mLock.
    std::vector<bool> mCame;
    std::vector<Difference> mDifferences;
    std::vector<std::string> mUnexpected;
};

/** One thread; only the callbacks are called from others. */
class Replay {
  public:
    Replay(const std::shared_ptr<Recording>& recording, std::chrono::milliseconds patience)
        : mRecording(*recording), mEvents(std::make_shared<Events>(recording, patience)) {}

    Failure run() {
        if (auto failure = connect(&mVela)) return failure;
        mSettle = settler();
        if (mRecording.tellsRefusals) mTakeRefusals = refusalTaker();
        ABinderProcess_startThreadPool();
        Progress progress("replaying " + mRecording.file);
        std::vector<RecordedCall>& calls = mRecording.calls;
        for (size_t i = 0; i < calls.size(); ++i) {
            if (auto failure = step(i)) return failure;
            collect(calls[i]);
            progress.reached(i + 1, calls.size());
        }
        return {};
    }

    [[nodiscard]] const std::vector<Difference>& differences() const { return mDifferences; }

    [[nodiscard]] Json summary() const {
        return {{"requests", mRequests},
                {"events", mEventCount},
                {"composerClients", mComposers.size()},
                {"differences", mDifferences.size()}};
    }

  private:
    Failure step(size_t index) {
        RecordedCall& call = mRecording.calls[index];
        if (call.kind == Kind::kGone) return leave(call.target);
        if (call.kind == Kind::kEvent) {
            ++mEventCount;
            if (!mEvents->await(index)) {
                mDifferences.push_back({.line = call.line,
                                        .what = callText(call),
                                        .field = "event",
                                        .was = "came",
                                        .is = "did not come"});
            }
            return {};
        }
        ++mRequests;
        if (call.target == "vela") return request(codec::velaOperations(), *mVela, &call);
        const auto composer = mComposers.find(call.target);
        if (composer == mComposers.end() || composer->second == nullptr) return {};
        return request(codec::composerOperations(), *composer->second, &call);
    }

    template <typename Interface>
    Failure request(const std::vector<codec::CallableOperation<Interface>>& operations,
                    Interface& target, RecordedCall* call) {
        const auto find = [this](const std::string& type, const Json& json, std::string* error) {
            return object(type, json, error);
        };
        const auto outcome = codec::findOperation(operations, call->operation)
                                     ->call(target, call->arguments, find);
        if (!outcome.usageError.empty()) {
            return usageError(mRecording.file + ":" + std::to_string(call->line) + ": " +
                              outcome.usageError);
        }
        if (outcome.status.getStatus() == STATUS_DEAD_OBJECT) {
            return statusError(callText(*call), outcome.status);
        }
        if (call->operation.starts_with("register")) mRegistrations.push_back(*call);
        const Json status = codec::statusToJson(outcome.status.get());
        Json answer = outcome.value;
        if (outcome.object != nullptr) {
            answer = call->answer.is_object() ? call->answer
                                              : Json{{"composer", mComposers.size() + 1}};
            mComposers["composer " + answer.begin()->dump()] =
                    std::static_pointer_cast<IVelaComposerClient>(outcome.object);
        }
        Json refused = call->refused;
        if (mTakeRefusals) {
            const auto refusals = mTakeRefusals();
            refused = refusals.empty() ? Json() : Json(refusals);
        }
        // So that what the request raised reaches the clients of its time, as on record.
        mSettle();
        compare(*call, "status", call->status, status);
        compare(*call, "answer", call->answer, answer);
        if (status == call->status && answer == call->answer) {
            compare(*call, "refused", call->refused, refused);
        }
        call->refused = refused;
        call->status = status;
        call->answer = answer;
        return {};
    }

    void compare(const RecordedCall& call, const char* field, const Json& was, const Json& is) {
        const std::string at = differenceAt(was, is, false, field);
        if (at.empty()) return;
        mDifferences.push_back({.line = call.line,
                                .what = callText(call),
                                .field = at,
                                .was = valueAt(was, at, field),
                                .is = valueAt(is, at, field)});
    }

    /** Takes over what the callbacks saw differently. */
    void collect(const RecordedCall& call) {
        for (Difference& difference : mEvents->takeDifferences())
            mDifferences.push_back(std::move(difference));
        for (std::string& event : mEvents->takeUnexpected()) {
            // Its line may be among those that were lost.
            if (mRecording.cut) continue;
            mDifferences.push_back({.line = call.line,
                                    .what = std::move(event),
                                    .field = "event",
                                    .was = "did not come",
                                    .is = "came"});
        }
    }

    std::shared_ptr<ndk::ICInterface> object(const std::string& type, const Json& json,
                                             std::string* error) {
        if (!json.is_object() || json.size() != 1) {
            *error = "expected null or {\"callback\": NUMBER}";
            return nullptr;
        }
        const std::string name = json.begin().key() + " " + json.begin()->dump();
        auto& callback = mCallbacks[name];
        if (callback == nullptr) {
            callback = makeCallback(type,
                                    [events = mEvents, name](const std::string& operation,
                                                             const Json& arguments, Json* answer) {
                                        return events->answer(name, operation, arguments, answer);
                                    });
        }
        return callback;
    }

    /** An object's client let go of it or died. */
    Failure leave(const std::string& target) {
        mComposers[target] = nullptr;
        const Json object{{nameOf(target), numberOf(target)}};
        for (RecordedCall& call : mRegistrations) {
            if (call.target != "vela" || call.arguments.back() != object) continue;
            call.arguments.back() = nullptr;
            const auto none = [](const auto&, const auto&, auto*) { return nullptr; };
            (void)codec::findOperation(codec::velaOperations(), call.operation)
                    ->call(*mVela, call.arguments, none);
        }
        return {};
    }

    Recording& mRecording;
    const std::shared_ptr<Events> mEvents;  // shared with callbacks that may outlive this
    std::shared_ptr<IVela> mVela;
    std::function<void()> mSettle;
    std::function<std::vector<std::string>()> mTakeRefusals;  // where both sides tell of them
    std::map<std::string, std::shared_ptr<IVelaComposerClient>> mComposers;
    std::map<std::string, std::shared_ptr<ndk::ICInterface>> mCallbacks;
    std::vector<RecordedCall> mRegistrations;
    std::vector<Difference> mDifferences;
    size_t mRequests = 0;
    size_t mEventCount = 0;
};

void printOutcome(const Recording& recording, const Replay& replay) {
    Json json = replay.summary();
    std::string text = "replayed " + json["requests"].dump() + " requests and " +
                       json["events"].dump() + " events";
    const auto& differences = replay.differences();
    if (differences.empty()) {
        text += ": all answers as recorded";
    } else {
        const Difference& first = differences.front();
        json["first"] = {{"line", first.line},
                         {"call", first.what},
                         {"field", first.field},
                         {"was", first.was},
                         {"is", first.is}};
        text += ": " + std::to_string(differences.size()) +
                (differences.size() == 1 ? " difference" : " differences");
        text = recording.file + ":" + std::to_string(first.line) + ": " + first.what + "\n  " +
               first.field + " was " + first.was.dump() + "\n  " + first.field + " is  " +
               first.is.dump() + "\n" + text;
    }
    printResult(text + "\n", json);
    constexpr int64_t kFirstRequests = 10;
    const auto isBefore = [&differences](const RecordedCall& it) {
        return it.kind == Kind::kRequest && it.line < differences.front().line;
    };
    if (!differences.empty() &&
        std::count_if(recording.calls.begin(), recording.calls.end(), isBefore) < kFirstRequests) {
        note("", "one of the first requests differs: is the service fresh? " + freshAdvice(),
             {{"note", {{"description", "one of the first requests differs"}}}});
    }
}

}  // namespace

Failure replay(const std::shared_ptr<Recording>& recording, std::chrono::milliseconds patience,
               bool* equal) {
    const auto isRequest = [](const RecordedCall& it) { return it.kind == Kind::kRequest; };
    if (std::none_of(recording->calls.begin(), recording->calls.end(), isRequest)) {
        return usageError(recording->file + ": there is no request in it to replay");
    }
    Replay replay(recording, patience);
    if (auto failure = replay.run()) return failure;
    printOutcome(*recording, replay);
    *equal = replay.differences().empty();
    return {};
}

Failure replay(const std::string& file, bool update, bool* equal) {
    // Shared with callbacks, which may be called to the end.
    const auto recording = std::make_shared<Recording>();
    if (auto failure = readRecording(file, recording.get())) return failure;
    if (recording->cut) {
        std::cerr << "velactl: " << printable(file) << ":" << recording->text.size()
                  << ": the recording ends here, without its last line; velahost was killed\n";
    }
    if (auto failure = replay(recording, kEventPatience, equal)) return failure;
    *equal = *equal || update;
    return update ? writeRecording(*recording) : Failure{};
}

}  // namespace velactl
