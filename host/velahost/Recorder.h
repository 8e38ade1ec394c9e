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
#include "host/velahost/LineFile.h"

/**
 * Writes a line of JSON for each request of each client and for each call of a client's callback,
 * as they end; "n" numbers them in the order in which they began. Clients and their objects are
 * numbered as they appear. A request that the interface cannot read does not reach the service and
 * is left out. Thread-safe.
 */
class Recorder {
  public:
    /** Truncates or makes the file. */
    explicit Recorder(const std::string& path);

    [[nodiscard]] bool isOpen() const NO_THREAD_SAFETY_ANALYSIS { return mFile.isOpen(); }

    /** For addCallObserver(). */
    std::unique_ptr<binder::CallWatch> observe(const binder::ObservedCall& call,
                                               const AParcel* arguments);

    /**
     * Completes the file with a line that tells how many calls there were, and which of them had
     * not ended; false when some of it could not be written. Later calls are dropped.
     */
    bool finish();

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
    [[nodiscard]] int64_t microseconds() const;
    codec::Json commonFields(const char* key, const std::string& value, int64_t client)
            REQUIRES(mLock);
    int64_t clientOf(pid_t pid) REQUIRES(mLock);
    /** The object's name; gives it one when it has none. */
    codec::Json nameOf(const std::string& kind, AIBinder* object, int64_t client) REQUIRES(mLock);
    /** Writes a line for each object whose client has let it go or is dead. */
    void noticeEnds(std::vector<ndk::SpAIBinder>* alive) REQUIRES(mLock);
    void ended(codec::Json line, const codec::Operation& operation, binder_status_t status,
               const AParcel* reply, int64_t client);

    std::mutex mLock;
    LineFile mFile GUARDED_BY(mLock);
    bool mFinished GUARDED_BY(mLock) = false;
    const std::chrono::steady_clock::time_point mStart = std::chrono::steady_clock::now();
    int64_t mNumber GUARDED_BY(mLock) = 0;
    std::set<int64_t> mOpen GUARDED_BY(mLock);  // numbers of calls that have not ended
    std::map<pid_t, int64_t> mClients GUARDED_BY(mLock);
    // The weak references keep the addresses from being used again.
    std::map<AIBinder*, Named> mObjects GUARDED_BY(mLock);
    std::map<std::string, int64_t> mCounts GUARDED_BY(mLock);
};
