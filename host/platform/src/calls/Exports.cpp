#include "calls/Exports.h"

#include <array>
#include <cassert>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include "base/Log.h"
#include "base/Random.h"
#include "base/Worker.h"
#include "transport/IoThread.h"
#include "transport/Pipe.h"

namespace binder {

using android::base::unique_fd;

/** One exported object, as long as it is held; the I/O thread sees its pipe hang up. */
class Exports::Entry final : public Watched {
  public:
    Entry(LocalObject& object, unique_fd reader)
        : object(share(object)),
          id(randomNumber()),
          reader(std::move(reader)),
          pipe(pipeOf(this->reader)) {}

    int fd() const override { return reader.get(); }
    void onEvents(uint32_t /*events*/) override { Exports::get().hungUp(*this); }

    StrongBinder object;
    const uint64_t id;
    const unique_fd reader;
    const std::optional<PipeNumber> pipe;
};

Exports& Exports::get() {
    static Exports* const instance = new Exports;  // outlives every thread
    return *instance;
}

std::shared_ptr<Exports::Entry> Exports::makeLocked(LocalObject& object) {
    std::array<int, 2> ends{};
    if (pipe2(ends.data(), O_CLOEXEC | O_NONBLOCK) != 0) return nullptr;
    const unique_fd writer(ends[1]);  // until there is another
    auto entry = std::make_shared<Entry>(object, unique_fd(ends[0]));
    // Of an end of the other side, the reading end tells unasked. Each one is told once.
    if (!IoThread::get().watch(entry, EPOLLET)) return nullptr;
    mEntries[entry->id] = entry;
    mOfObjects[&object] = entry;
    return entry;
}

std::optional<Exports::Exported> Exports::add(LocalObject& object) {
    unique_fd writer;
    uint64_t id = 0;
    {
        const std::lock_guard lock(mLock);
        const auto known = mOfObjects.find(&object);
        const std::shared_ptr<Entry> entry =
                known == mOfObjects.end() ? makeLocked(object) : known->second;
        if (entry != nullptr) {
            // A further writing end also ends a hang-up of which the I/O thread has yet to hear.
            const std::string path = "/proc/self/fd/" + std::to_string(entry->reader.get());
            writer.reset(open(path.c_str(), O_WRONLY | O_CLOEXEC));
            id = entry->id;
        }
    }
    if (writer < 0) {
        complain(ANDROID_LOG_ERROR, "Cannot send an object: %s", strerror(errno));
        return std::nullopt;
    }
    return Exported{.id = id, .end = std::make_shared<const unique_fd>(std::move(writer))};
}

void Exports::hungUp(Entry& entry) {
    StrongBinder object;
    {
        const std::lock_guard lock(mLock);
        // The object may be under way again.
        if (!isOtherEndGone(entry.reader)) return;
        IoThread::get().forget(entry);
        object = std::move(entry.object);
        [[maybe_unused]] const size_t known =
                mOfObjects.erase(localOf(object.get())) + mEntries.erase(entry.id);
        assert(known == 2);
    }
    Worker::get().release(std::move(object));
}

void Exports::addPermanent(uint64_t id, LocalObject& object) {
    StrongBinder last = share(object);  // released without the lock
    const std::lock_guard lock(mLock);
    mPermanent.swap(last);
    mPermanentId = id;
}

StrongBinder Exports::find(uint64_t id) {
    const std::lock_guard lock(mLock);
    if (id == mPermanentId && mPermanent != nullptr) return share(*mPermanent);
    const auto entry = mEntries.find(id);
    return entry == mEntries.end() ? nullptr : share(*entry->second->object);
}

StrongBinder Exports::find(uint64_t id, int end) {
    const auto pipe = pipeOf(end);
    const std::lock_guard lock(mLock);
    const auto entry = mEntries.find(id);
    if (entry == mEntries.end() || !pipe.has_value() || pipe != entry->second->pipe) return nullptr;
    return share(*entry->second->object);
}

}  // namespace binder
