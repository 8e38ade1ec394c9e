#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/codec/Codec.h"

namespace lmfg {

/** A request that the product makes of the chip, or an event that the chip raises. */
struct ChipCall {
    bool isEvent = false;
    const char* operation = "";
    /** In declared order; result functions are left out. */
    codec::Json arguments;
    /** The request during which the chip raised this event, if it told so. */
    std::shared_ptr<const ChipCall> cause;
};

/**
 * Events that this thread raises while the object lives name the request as their cause. A chip
 * that raises them elsewhere than in the request keeps currentRequest() for that.
 */
class [[gnu::visibility("default")]] CausedBy {
  public:
    explicit CausedBy(std::shared_ptr<const ChipCall> request);
    ~CausedBy();
    CausedBy(const CausedBy&) = delete;
    CausedBy& operator=(const CausedBy&) = delete;

    /** The cause of this thread's events; null for none. */
    static const std::shared_ptr<const ChipCall>& current();
    /**
     * The request that this thread is making of the chip; null when there is none or when nobody
     * observes.
     */
    static const std::shared_ptr<const ChipCall>& currentRequest();
};

/** For a chip: tells the listener that this thread's request is refused. */
void tellRefusal(const std::string& why);
/**
 * Tells the listener why the chip, or a fault in its place, refuses a request, for people: "EINVAL:
 * display 9 is not there". Called on the request's thread, with the chip's lock held; set it before
 * there are requests.
 */
[[gnu::visibility("default")]] void hearRefusals(
        std::function<void(const std::string& why)> listener);

/** How a request is to go wrong. */
struct ChipFault {
    /** Answered in the chip's place, which is not called. */
    std::optional<int> status;
    /** How often the result function is called for one call of the chip's: 0 for never. */
    int answers = 1;
    /** Passes before the chip is called. */
    std::chrono::milliseconds delay{0};
};

/** Sees every request and every event. Any thread; what it does holds up the call. */
class [[gnu::visibility("default")]] ChipObserver {
  public:
    virtual ~ChipObserver();

    /** Asked once before a request; the first observer that wants a fault decides. */
    virtual std::optional<ChipFault> fault(const ChipCall& /*call*/) {
        return std::nullopt;
    }
    virtual void began(const ChipCall& /*call*/) {}
    /**
     * `answer` is null for none. A result function's arguments are an array; that it was not
     * called once is told by an object, {"answers": [...]}.
     */
    virtual void ended(const ChipCall& /*call*/, const codec::Json& /*answer*/) {}
    /** The call and all the events that name it as their cause are over. */
    virtual void settled(const ChipCall& /*call*/) {}
};

using ChipObservers = std::vector<std::shared_ptr<ChipObserver>>;

/** What a request answers, and so what can go wrong with it. */
enum class ChipAnswer {
    kNone,
    kResult,          // a number or bool
    kResultFunction,  // a function that is given a status and a value
    kTextFunction,    // a function that is given a text
};

struct ChipOperation {
    std::string name;
    ChipAnswer answer;
};

/** Every request, in the contract's order. */
[[gnu::visibility("default")]] const std::vector<ChipOperation>& chipOperations();

}  // namespace lmfg
