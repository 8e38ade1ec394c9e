#include "host/velahost/Watchers.h"

#include <filesystem>
#include <utility>

#include <binder_host/Trace.h>

#include "host/chip/ChipHost.h"
#include "host/velahost/Journal.h"
#include "host/velahost/LiveOutput.h"

namespace {

constexpr const char* kRecord = "record";
constexpr const char* kJournal = "journal";
constexpr const char* kTrace = "trace";
constexpr const char* kFault = "fault";

/** True for one file under two names; devices and pipes may be written twice. */
bool isSameFile(const std::string& a, const std::string& b) {
    namespace fs = std::filesystem;
    std::error_code error;
    if (fs::exists(a, error) && !fs::is_regular_file(a, error)) return false;
    return fs::weakly_canonical(a, error) == fs::weakly_canonical(b, error);
}

Problem cannotHold(const std::string& path, const std::string& a, const std::string& b) {
    return {path + " cannot hold the " + a + " and the " + b, true};
}

}  // namespace

/** The ends of one call for all that want to see it; keeps them until then. */
class Watchers::Fan : public binder::CallWatch {
  public:
    Fan(std::shared_ptr<const CallTaps> taps, const binder::ObservedCall& call,
        const AParcel* arguments)
        : mTaps(std::move(taps)) {
        const int32_t start = AParcel_getDataPosition(arguments);
        for (const auto& tap : *mTaps) {
            AParcel_setDataPosition(arguments, start);
            if (auto watch = tap->observe(call, arguments); watch != nullptr) {
                mWatches.push_back(std::move(watch));
            }
        }
    }

    [[nodiscard]] bool isWanted() const { return !mWatches.empty(); }

    void ended(binder_status_t status, const AParcel* reply) override {
        for (const auto& watch : mWatches) {
            if (reply != nullptr) AParcel_setDataPosition(reply, 0);
            watch->ended(status, reply);
        }
    }

  private:
    const std::shared_ptr<const CallTaps> mTaps;
    std::vector<std::unique_ptr<binder::CallWatch>> mWatches;
};

Watchers& Watchers::get() {
    static auto& watchers = *new Watchers;
    return watchers;
}

void Watchers::install() {
    {
        const std::lock_guard guard(mLock);
        changed();
    }
    lmfg::hearRefusals([this](const std::string& why) { mRefusals.add(why); });
    binder::addCallObserver(
            [this](const auto& call, const auto* arguments) { return observe(call, arguments); });
}

std::unique_ptr<binder::CallWatch> Watchers::observe(const binder::ObservedCall& call,
                                                     const AParcel* arguments) {
    if (call.served) Refusals::beginRequest();
    if (!mIsTapped) return mRegistrations->observe(call, arguments);
    std::shared_ptr<const CallTaps> taps;
    {
        const std::lock_guard guard(mLock);
        const auto isLeft = [](const auto& live) { return !live->error().empty(); };
        if (std::erase_if(mLive, isLeft) > 0) changed();
        taps = mTaps;
    }
    auto fan = std::make_unique<Fan>(std::move(taps), call, arguments);
    return fan->isWanted() ? std::move(fan) : nullptr;
}

void Watchers::changed() {
    CallTaps taps{mRegistrations};
    lmfg::ChipObservers chip;
    TraceWriter* trace = nullptr;
    if (mFaults != nullptr) chip.push_back(mFaults);
    for (const auto& [kind, written] : mWritten) {
        if (written.calls != nullptr) taps.push_back(written.calls);
        if (written.chip != nullptr) chip.push_back(written.chip);
        if (written.trace != nullptr) trace = written.trace.get();
    }
    taps.insert(taps.end(), mLive.begin(), mLive.end());
    mIsTapped = taps.size() > 1;
    mTaps = std::make_shared<const CallTaps>(std::move(taps));
    lmfg::observeChip(std::move(chip));
    binder::setTraceSink(trace);
}

Watchers::Written Watchers::make(const std::string& kind, const FileOptions& options) {
    if (kind == kRecord) {
        const auto recorder = std::make_shared<Recorder>(std::make_unique<OutFile>(kind, options),
                                                         mRegistrations, false);
        return {.path = options.path, .writer = recorder, .calls = recorder};
    }
    if (kind == kJournal) {
        const auto journal = std::make_shared<Journal>(options);
        return {.path = options.path, .writer = journal, .chip = journal};
    }
    const auto trace = std::make_shared<TraceWriter>(options);
    mTraces.push_back(trace);
    return {.path = options.path, .writer = trace, .calls = trace, .chip = trace, .trace = trace};
}

Problem Watchers::write(const std::string& kind, const FileOptions& options) {
    if (kind != kRecord && kind != kJournal && kind != kTrace) {
        return {"there is no '" + kind + "' to write; there are record, journal and trace", true};
    }
    const std::lock_guard guard(mLock);
    if (const auto found = mWritten.find(kind); found != mWritten.end()) {
        return {"the " + kind + " is being written to " + found->second.path + "; end it first",
                true};
    }
    for (const auto& [other, written] : mWritten) {
        if (isSameFile(written.path, options.path)) {
            return cannotHold(options.path, other, kind);
        }
    }
    const std::string file = OutFile::partPath(options, 1);
    std::error_code error;
    const bool isThere = std::filesystem::exists(file, error);
    Written written = make(kind, options);
    if (!isThere) written.made = file;
    if (std::string why = written.writer->error(); !why.empty()) return {.text = std::move(why)};
    mWritten.emplace(kind, std::move(written));
    changed();
    return {};
}

Problem Watchers::fault(const std::vector<std::string>& rules) {
    if (rules.empty()) return {};
    const std::lock_guard guard(mLock);
    const auto faults = mFaults == nullptr ? std::make_shared<Faults>() : mFaults;
    if (std::string wrong = faults->add(rules); !wrong.empty()) return {std::move(wrong), true};
    mFaults = faults;
    changed();
    return {};
}

Problem Watchers::stop(const std::string& kind) {
    const std::lock_guard guard(mLock);
    if (kind == kFault) {
        mFaults = nullptr;
        changed();
        return {};
    }
    const auto found = mWritten.find(kind);
    if (found == mWritten.end()) return {"no " + kind + " is being written", true};
    const Written written = std::move(found->second);
    mWritten.erase(found);
    changed();
    return {written.writer->finish()};
}

void Watchers::watch(android::base::unique_fd pipe) {
    const std::lock_guard guard(mLock);
    mLive.push_back(std::make_shared<Recorder>(std::make_unique<LiveOutput>(std::move(pipe)),
                                               mRegistrations, true));
    changed();
}

std::vector<std::string> Watchers::state() {
    const std::lock_guard guard(mLock);
    std::vector<std::string> lines;
    for (const auto& [kind, written] : mWritten) {
        const std::string error = written.writer->error();
        lines.push_back(error.empty() ? kind + " " + written.path : error);
    }
    if (mFaults != nullptr) {
        for (const std::string& rule : mFaults->rules())
            lines.push_back(std::string(kFault) + " " + rule);
    }
    return lines;
}

bool Watchers::finish() {
    const std::lock_guard guard(mLock);
    for (const auto& live : mLive)
        (void)live->finish();
    bool isComplete = true;
    for (const auto& [kind, written] : mWritten)
        isComplete = written.writer->finish().empty() && isComplete;
    return isComplete;
}

void Watchers::discard() {
    const std::lock_guard guard(mLock);
    std::error_code ignored;
    for (const auto& [kind, written] : mWritten) {
        if (!written.made.empty()) std::filesystem::remove(written.made, ignored);
    }
}
