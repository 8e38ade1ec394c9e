#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <set>
#include <string>
#include <vector>

#include <android-base/thread_annotations.h>
#include <binder_host/Observer.h>

#include "host/codec/Operations.h"
#include "host/velahost/Output.h"
#include "host/velahost/Registrations.h"
#include "host/velahost/Watcher.h"

/**
 * Writes a line of JSON for each request of each client and for each call of a client's callback,
 * as they end; "n" numbers them in the order in which they began. Clients and their objects are
 * numbered as they appear. A request that the interface cannot read does not reach the service and
 * is left out. Each part of the output is a recording by itself: it ends where no call is under
 * way, or when it has twice its size, and begins by making again what clients had before it.
 * Thread-safe.
 */
class Recorder : public CallTap, public Writer {
  public:
    /** `live`: each line also names the client's process. */
    Recorder(std::unique_ptr<Output> output, std::shared_ptr<Registrations> registrations,
             bool live);

    std::unique_ptr<binder::CallWatch> observe(const binder::ObservedCall& call,
                                               const AParcel* arguments) override;

    /**
     * Writes a last line that tells how many calls there were, and which of them had not ended.
     */
    std::string finish() override;
    std::string error() override;

  private:
    class Watch;

    /** An object that recordings name, such as {"composer": 1}. */
    struct Named {
        ndk::ScopedAIBinder_Weak weak;
        std::string kind;
        int64_t number;
        int64_t client;
    };

    /** Since the recording began. */
    [[nodiscard]] int64_t microseconds() const REQUIRES(mLock);

    /** Objects to be given up after the lock: the last reference's end runs foreign code. */
    using Held = std::vector<ndk::SpAIBinder>;

    /** Begins the first or the next part. */
    void begin(Held* held) REQUIRES(mLock);
    void writeEnd() REQUIRES(mLock);
    void write(const codec::Json& line) REQUIRES(mLock);
    codec::Json commonFields(const char* key, const std::string& value, int64_t client)
            REQUIRES(mLock);
    int64_t clientOf(pid_t pid) REQUIRES(mLock);
    /** The object's name; gives it one when it has none. */
    codec::Json nameOf(const std::string& kind, AIBinder* object, int64_t client) REQUIRES(mLock);
    /** The number of an object that is not null. */
    int64_t numberOf(const std::string& kind, AIBinder* object, int64_t client) REQUIRES(mLock);
    /** Writes a line for each object whose client has let it go or is dead. */
    void noticeEnds(Held* held) REQUIRES(mLock);
    void ended(const Watch& watch, binder_status_t status, const AParcel* reply);

    std::mutex mLock;
    const std::unique_ptr<Output> mOutput PT_GUARDED_BY(mLock);
    const std::shared_ptr<Registrations> mRegistrations;
    const bool mLive;
    bool mFinished GUARDED_BY(mLock) = false;
    uint64_t mPart GUARDED_BY(mLock) = 0;
    std::chrono::steady_clock::time_point mStart GUARDED_BY(mLock);
    int64_t mNumber GUARDED_BY(mLock) = 0;
    std::set<int64_t> mOpen GUARDED_BY(mLock);  // numbers of calls that have not ended
    std::map<pid_t, int64_t> mClients GUARDED_BY(mLock);
    std::map<int64_t, std::string> mProcessNames GUARDED_BY(mLock);  // by client
    // The weak references keep the addresses from being used again.
    std::map<AIBinder*, Named> mObjects GUARDED_BY(mLock);
    std::map<std::string, int64_t> mCounts GUARDED_BY(mLock);
};
