#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>

#include <android-base/thread_annotations.h>

#include "objects/Object.h"
#include "transport/Message.h"

namespace binder {

/**
 * The local objects that other processes refer to. Each has a pipe, of which this process keeps the
 * reading end, and goes with a writing end under a random number that one has to have been given.
 * While any writing end exists, in whatever process or message, the object is held; when the last
 * is closed the reading end hangs up, and the worker releases the object. It gets another pipe and
 * number when it is exported again. Any thread.
 */
class Exports {
  public:
    static Exports& get();

    /** An object on its way to another process. */
    struct Exported {
        uint64_t id;
        SharedFd end;
    };
    /** Nothing, logged, when no descriptors are left. */
    std::optional<Exported> add(LocalObject& object);

    /** Keeps the object for good under a number that everybody knows, instead of another one. */
    void addPermanent(uint64_t id, LocalObject& object);
    /** The object to call; null when there is none of that number. */
    StrongBinder find(uint64_t id);
    /** The object that the end holds; null when it does not belong to the number's. */
    StrongBinder find(uint64_t id, int end);

  private:
    class Entry;

    std::shared_ptr<Entry> makeLocked(LocalObject& object) REQUIRES(mLock);
    void hungUp(Entry& entry);

    std::mutex mLock;
    std::unordered_map<uint64_t, std::shared_ptr<Entry>> mEntries GUARDED_BY(mLock);
    std::unordered_map<const LocalObject*, std::shared_ptr<Entry>> mOfObjects GUARDED_BY(mLock);
    StrongBinder mPermanent GUARDED_BY(mLock);
    uint64_t mPermanentId GUARDED_BY(mLock) = 0;
};

}  // namespace binder
