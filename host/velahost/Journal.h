#pragma once

#include <chrono>
#include <list>
#include <mutex>
#include <string>
#include <vector>

#include <android-base/thread_annotations.h>

#include "host/chip/ChipObserver.h"
#include "host/velahost/OutFile.h"
#include "host/velahost/Watcher.h"

/**
 * Writes a line for each request that the product makes of the chip and for each event that the
 * chip raises. A request's line is followed by those of its events, and the requests stand in the
 * order in which they began, whatever the threads did: two runs that do the same write the same. So
 * a line waits until all before it are complete. Thread-safe.
 */
class Journal : public lmfg::ChipObserver, public Writer {
  public:
    /** Makes the file. `times`: each line tells when its call began and how long it took. */
    explicit Journal(const FileOptions& options);

    void began(const lmfg::ChipCall& call) override;
    void ended(const lmfg::ChipCall& call, const codec::Json& answer) override;
    void settled(const lmfg::ChipCall& call) override;

    /** Writes what still waits first. */
    std::string finish() override;
    std::string error() override;

  private:
    using Clock = std::chrono::steady_clock;

    /** A request, or an event that names no cause, with the events that it caused. */
    struct Entry {
        const lmfg::ChipCall* call;
        std::vector<codec::Json> lines;
        bool settled = false;
    };
    struct Open {
        const lmfg::ChipCall* call;
        Clock::time_point since;
    };

    Entry* find(const lmfg::ChipCall* call) REQUIRES(mLock);
    /** The entry whose lines the call's belongs to; null for none. */
    Entry* entryOf(const lmfg::ChipCall& call) REQUIRES(mLock);
    void writeSettled() REQUIRES(mLock);

    std::mutex mLock;
    OutFile mFile GUARDED_BY(mLock);
    const bool mTimes;
    const Clock::time_point mStart = Clock::now();
    std::list<Entry> mEntries GUARDED_BY(mLock);
    std::list<Open> mOpen GUARDED_BY(mLock);
};
