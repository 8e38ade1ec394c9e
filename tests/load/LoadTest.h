#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

#include <aidl/velahost/IHost.h>
#include <aidl/vendor/lumenforge/hardware/display/IVelaComposerClient.h>
#include <android-base/thread_annotations.h>

#include "host/velactl/Callbacks.h"
#include "tests/load/HostTest.h"
#include "tests/support/ProcessHarness.h"

namespace load_test {

/** How much less is done by default: a sanitizer's processes are slow to start and to call. */
#ifdef SANITIZED
constexpr int kSlowness = 4;
#else
constexpr int kSlowness = 1;
#endif

/** What the allocator may keep; 20,000 calls that leak the smallest block each come to more. */
constexpr int64_t kGrowthKib = 512;

/** What a process has. */
struct Footprint {
    int64_t descriptors = 0;
    int64_t threads = 0;  // but those of the pool, which are started on demand and stay
    int64_t poolThreads = 0;
    int32_t objects = 0;
    int64_t memoryKib = 0;  // of its own, resident
};

/** Counts the events that callbacks of this process hear of, by kind and first argument. */
class Heard {
  public:
    template <typename Callback>
    std::shared_ptr<Callback> callback() {
        const auto note = [this](const auto& operation, const auto& arguments, auto*) {
            const std::lock_guard guard(mLock);
            ++mEvents[{operation, arguments[0].template get<int64_t>()}];
            return ndk::ScopedAStatus::ok();
        };
        const std::string type = codec::shortName(Callback::descriptor);
        return std::static_pointer_cast<Callback>(velactl::makeCallback(type, note));
    }
    /** How many events came; -1 when one came twice. */
    int count();
    void forget();

  private:
    std::mutex mLock;
    std::map<std::pair<std::string, int64_t>, int> mEvents GUARDED_BY(mLock);
};

/** A batch with one event of each kind, all about the same number, and their end. */
std::string eventsAbout(int number);
constexpr int kEventKinds = 7;

/** Tells a figure of the running test, for people and for its record. */
void figure(const std::string& name, int64_t value);

/** A host, and this process registered with it for all events. One thread calls it from here. */
class LoadTest : public HostTest {
  protected:
    void SetUp() override;

    /** Registers with the host, before others in its order and after them with the library. */
    void listen();
    /** Waits until the host has no more than before anybody else came; what it has then. */
    Footprint settle();
    /** Does the work, half of it before anything is counted: the host is then as it was. */
    void leaveNothing(int count, const std::function<void(int)>& work,
                      int64_t growthKib = kGrowthKib);

    Heard mHeard;

  private:
    Footprint footprint();

    std::shared_ptr<aidl::velahost::IHost> mControl;
    std::shared_ptr<display::IVelaComposerClient> mComposer;
    Footprint mFresh;
};

}  // namespace load_test
