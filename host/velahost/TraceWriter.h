#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>

#include <android-base/thread_annotations.h>
#include <binder_host/Observer.h>
#include <binder_host/Trace.h>

#include "host/chip/ChipObserver.h"
#include "host/velahost/OutFile.h"
#include "host/velahost/Watcher.h"

/**
 * Writes a trace of the Chrome trace event format, which Perfetto and chrome://tracing read: a
 * slice for each request that is served, the chip's calls within it, the chip's events, the calls
 * of the clients' callbacks, and flows that lead from a request over the event that it caused to
 * the client that is told. Everything is flushed as it ends, so that the file is readable while the
 * host runs and after it was killed: readers do not insist on the bracket at its end. Any thread.
 */
class TraceWriter : public binder::TraceSink,
                    public lmfg::ChipObserver,
                    public CallTap,
                    public Writer {
  public:
    using Clock = std::chrono::steady_clock;

    /** Makes the file. */
    explicit TraceWriter(const FileOptions& options);

    TraceWriter(const TraceWriter&) = delete;
    TraceWriter& operator=(const TraceWriter&) = delete;

    std::string finish() override;
    std::string error() override;

    void beginSection(const char* name) override;
    void endSection() override;
    void beginAsyncSection(const char* name, int32_t cookie) override;
    void endAsyncSection(const char* name, int32_t cookie) override;
    void setCounter(const char* name, int64_t value) override;

    void began(const lmfg::ChipCall& call) override;
    void ended(const lmfg::ChipCall& call, const codec::Json& answer) override;
    void settled(const lmfg::ChipCall& call) override;

    /** Shows what clients are told on tracks of their own. */
    std::unique_ptr<binder::CallWatch> observe(const binder::ObservedCall& call,
                                               const AParcel* arguments) override;

  private:
    class ClientSlice;

    /** Where a slice lies. */
    struct Place {
        pid_t pid;
        pid_t tid;
        Clock::time_point time;
    };

    static Place here();
    void begin(std::string name, const char* category, codec::Json arguments);
    void end();
    void writeSlice(const Place& start, const std::string& name, const char* category,
                    const codec::Json& arguments);
    /** An arrow from the slice around one place to that around the other. */
    void writeFlow(const Place& from, const Place& to);
    void writeAsync(const char* phase, const char* name, int32_t cookie);
    /** Writes an event of that place, after the names of its process and thread. */
    void write(const char* phase, const Place& place, const codec::Json& rest);
    void nameTrack(const Place& place) REQUIRES(mLock);
    void writeLine(const codec::Json& line) REQUIRES(mLock);

    std::mutex mLock;
    OutFile mFile GUARDED_BY(mLock);
    const char* mSeparator GUARDED_BY(mLock) = "";
    std::set<pid_t> mNamed GUARDED_BY(mLock);  // processes and threads
    std::map<const lmfg::ChipCall*, Place> mRequests GUARDED_BY(mLock);
    uint64_t mFlows GUARDED_BY(mLock) = 0;
};
