#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include <android-base/thread_annotations.h>

#include "host/chip/Chip.h"
#include "host/chip/ChipObserver.h"
#include "host/chip/LibraryCodec.h"

namespace lmfg {

/** The observers, which change while calls are under way. Any thread. */
class ObserverSwitch {
  public:
    void set(ChipObservers observers);
    /** Who sees a call that begins now, to its end; null for nobody. */
    std::shared_ptr<const ChipObservers> get() const;

  private:
    std::atomic<bool> mIsObserved{false};
    mutable std::mutex mLock;
    std::shared_ptr<const ChipObservers> mObservers GUARDED_BY(mLock);
};

/** What a service object's opaque pointer points to. */
struct ServiceState {
    std::shared_ptr<Chip> chip;
    std::shared_ptr<ObserverSwitch> observers = std::make_shared<ObserverSwitch>();
};

/** A call as its observers see it, from construction to destruction. One thread. */
class ObservedCall {
  public:
    ObservedCall(std::shared_ptr<const ChipObservers> observers, ChipCall call);
    ~ObservedCall();
    ObservedCall(const ObservedCall&) = delete;
    ObservedCall& operator=(const ObservedCall&) = delete;

    /** The fault that the call is to have. */
    ChipFault fault();
    template <typename T>
    void answered(const T& value) {
        mAnswer = codec::Codec<T>::write(value);
    }
    template <typename... T>
    void resultGiven(const T&... values) {
        mResults.push_back(codec::Json::array({codec::Codec<T>::write(values)...}));
    }
    /** The call has a result function: how often it was called is part of the answer. */
    void expectResult() { mHasResult = true; }

  private:
    const std::shared_ptr<const ChipObservers> mObservers;
    const std::shared_ptr<const ChipCall> mCall;
    std::shared_ptr<const ChipCall> mOuter;
    codec::Json mAnswer;
    bool mHasResult = false;
    std::vector<codec::Json> mResults;
};

template <typename T>
inline constexpr bool kIsFunction = false;
template <typename R, typename... P>
inline constexpr bool kIsFunction<std::function<R(P...)>> = true;

template <typename T>
codec::Json argumentsWith(codec::Json&& list, const T& value) {
    if constexpr (!kIsFunction<T>) list.push_back(codec::Codec<T>::write(value));
    return std::move(list);
}

template <typename... A>
codec::Json argumentsOf(const A&... arguments) {
    codec::Json list = codec::Json::array();
    ((list = argumentsWith(std::move(list), arguments)), ...);
    return list;
}

/**
 * Makes a result function one that tells the observers and calls the caller's as often as the
 * fault wants it; leaves other arguments alone.
 */
template <typename T>
void watchResult(ObservedCall& /*call*/, const ChipFault& /*fault*/, T& /*argument*/) {}
template <typename... P>
void watchResult(ObservedCall& call, const ChipFault& fault, std::function<void(P...)>& result) {
    call.expectResult();
    result = [&call, times = fault.answers, inner = std::move(result)](P... values) {
        for (int i = 0; i < times; ++i) {
            call.resultGiven<std::remove_cvref_t<P>...>(values...);
            inner(values...);
        }
    };
}

/** Hands the status to a result function in the chip's place. */
template <typename T>
void refuseTo(T& /*argument*/, int /*status*/) {}
template <typename V>
void refuseTo(std::function<void(int32_t, const V&)>& result, int status) {
    result(status, V());
}

template <typename R>
R refusal(int status) {
    if constexpr (std::is_same_v<R, bool>) {
        return status >= 0;
    } else if constexpr (std::is_constructible_v<R, int32_t>) {
        return R(status);
    } else {
        return R();
    }
}

/** Makes the request of the chip, as the observers see it and may let it go wrong. */
template <typename R, typename... P>
R forward(const ServiceState& state, const char* operation, R (Chip::*method)(P...),
          std::type_identity_t<P>... arguments) {
    Chip& chip = *state.chip;
    auto observers = state.observers->get();
    if (observers == nullptr) return (chip.*method)(std::forward<P>(arguments)...);

    ObservedCall call(std::move(observers),
                      {.operation = operation, .arguments = argumentsOf(arguments...)});
    const ChipFault fault = call.fault();
    (watchResult(call, fault, arguments), ...);
    std::this_thread::sleep_for(fault.delay);
    if (fault.status) (refuseTo(arguments, *fault.status), ...);
    const auto run = [&]() -> R {
        return fault.status ? refusal<R>(*fault.status)
                            : (chip.*method)(std::forward<P>(arguments)...);
    };
    if constexpr (std::is_same_v<R, int> || std::is_same_v<R, bool>) {
        const R result = run();
        call.answered(result);
        return result;
    } else if constexpr (std::is_same_v<R, Chip::Return<int32_t>>) {
        R result = run();
        if (result.isOk()) call.answered(static_cast<int32_t>(result));
        return result;
    } else {
        return run();
    }
}

}  // namespace lmfg
