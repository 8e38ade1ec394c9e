#pragma once

#include <android-base/unique_fd.h>

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include <android-base/thread_annotations.h>

#include "host/velahost/Faults.h"
#include "host/velahost/OutFile.h"
#include "host/velahost/Recorder.h"
#include "host/velahost/Refusals.h"
#include "host/velahost/Registrations.h"
#include "host/velahost/TraceWriter.h"

/** Why something was not done; an empty text for what was. */
struct [[nodiscard]] Problem {
    std::string text;
    bool isUsage = false;

    explicit operator bool() const { return !text.empty(); }
};

/**
 * What watches the service's calls and lets them go wrong; all of it is switched on and off while
 * the service runs, and sees the calls that begin from then on. Any thread.
 */
class Watchers {
  public:
    /** The process's, which is never destroyed: calls may be under way to the end. */
    static Watchers& get();

    /** Begins to see the calls of this process; before there are any. */
    void install();

    /** Begins to write a "record", "journal" or "trace". */
    Problem write(const std::string& kind, const FileOptions& options);
    /** Adds OPERATION=WHAT[@EVERY]. */
    Problem fault(const std::vector<std::string>& rules);
    /** Ends what is written, whose file is then complete; "fault" takes all faults away. */
    Problem stop(const std::string& kind);
    /** Writes recorded lines to the pipe until its reader has gone. */
    void watch(android::base::unique_fd pipe);

    /** Forgets clients' objects that are gone, of which it keeps no more than that they were. */
    void forgetGone() { (void)mRegistrations->current(); }

    /** As Refusals::take. */
    std::vector<std::string> takeRefusals(pid_t client) { return mRefusals.take(client); }

    /** What there is, each as one would ask for it. */
    std::vector<std::string> state();

    /** Completes everything; false when some of it could not be written, which has been told. */
    bool finish();
    /** Removes the files that were made: there is nothing to be written. */
    void discard();

  private:
    using CallTaps = std::vector<std::shared_ptr<CallTap>>;
    class Fan;

    /** Something that is written to a file. */
    struct Written {
        std::string path;
        std::string made;  // the file, if it was not there before
        std::shared_ptr<Writer> writer;
        std::shared_ptr<CallTap> calls;  // null: it does not see them
        std::shared_ptr<lmfg::ChipObserver> chip;
        std::shared_ptr<TraceWriter> trace;
    };

    Watchers() = default;

    std::unique_ptr<binder::CallWatch> observe(const binder::ObservedCall& call,
                                               const AParcel* arguments);
    Written make(const std::string& kind, const FileOptions& options) REQUIRES(mLock);
    /** Lets calls from now on be seen by what there is now. */
    void changed() REQUIRES(mLock);

    const std::shared_ptr<Registrations> mRegistrations = std::make_shared<Registrations>();
    Refusals mRefusals;
    std::mutex mLock;
    std::map<std::string, Written> mWritten GUARDED_BY(mLock);
    std::shared_ptr<Faults> mFaults GUARDED_BY(mLock);
    std::vector<std::shared_ptr<Recorder>> mLive GUARDED_BY(mLock);
    std::shared_ptr<const CallTaps> mTaps GUARDED_BY(mLock);
    std::atomic<bool> mIsTapped{false};  // beyond the registrations
    // The platform's trace sink lives until the process ends.
    std::vector<std::shared_ptr<TraceWriter>> mTraces GUARDED_BY(mLock);
};
