// A compositor: makes two layers, presents a frame at each refresh event, answers requests for
// content samples, and starts anew when the service does.
//
// usage: compositor [FRAMES]     presents so many frames and ends; without a number goes on

#include <charconv>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <iostream>
#include <memory>
#include <mutex>

#include <aidl/vendor/lumenforge/hardware/display/BnVelaComposerCallback.h>
#include <aidl/vendor/lumenforge/hardware/display/IVela.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

using namespace aidl::vendor::lumenforge::hardware::display;
using ndk::ScopedAStatus;

constexpr int64_t kDisplay = 0;
constexpr int64_t kWallpaper = 1;
constexpr int64_t kCursor = 2;
constexpr int kRefreshEvent = 1;  // of handleDisplayEvent

/** What the binder threads tell the main thread. */
struct Mailbox {
    std::mutex lock;
    std::condition_variable changed;
    bool refresh = false;
    bool dead = false;

    void set(bool Mailbox::*what) {
        const std::lock_guard guard(lock);
        this->*what = true;
        changed.notify_all();
    }
};

class Callback : public BnVelaComposerCallback {
  public:
    explicit Callback(std::shared_ptr<Mailbox> mailbox) : mMailbox(std::move(mailbox)) {}

    ScopedAStatus onConfigChanged(int64_t, int32_t, const std::vector<int32_t>& values,
                                  std::vector<int32_t>* result) override {
        *result = values;  // accepted as proposed
        return ScopedAStatus::ok();
    }
    ScopedAStatus onRefreshRequested(int64_t) override {
        mMailbox->set(&Mailbox::refresh);
        return ScopedAStatus::ok();
    }
    ScopedAStatus onDisplayPowerChanged(int64_t, int32_t) override { return ScopedAStatus::ok(); }
    ScopedAStatus onContentSamplingRequested(int64_t display, int32_t, int64_t,
                                             ContentSamples* samples) override {
        *samples = {.value1 = 0, .list1 = {display, 128, 255}};
        std::cout << "sampled" << std::endl;
        return ScopedAStatus::ok();
    }

  private:
    const std::shared_ptr<Mailbox> mMailbox;
};

/** Draws frame after frame until the service dies or `frames`, which it counts down, is 0. */
ScopedAStatus compose(IVela& vela, const std::shared_ptr<Mailbox>& mailbox, long* frames) {
    std::shared_ptr<IVelaComposerClient> client;
    const auto callback = ndk::SharedRefBase::make<Callback>(mailbox);
    if (auto status = vela.createComposerClient(&client); !status.isOk()) return status;
    if (auto status = client->registerCallback(callback); !status.isOk()) return status;
    client->createLayer(kDisplay, kWallpaper);
    client->setLayerDisplayFrame(kDisplay, kWallpaper, {.right = 1080, .bottom = 2400});
    client->createLayer(kDisplay, kCursor);
    client->setLayerZOrder(kDisplay, kCursor, 1);
    client->buildLayerStack(kDisplay, {.layers = std::vector<Layer>(2)});
    int32_t result = 0;
    client->commitLayerStack(kDisplay, 1, &result);

    for (int32_t at = 0; *frames != 0; at = (at + 16) % 960) {
        // The simulated chip refreshes when it is asked to; a panel does so by itself.
        client->handleDisplayEvent(kDisplay, kRefreshEvent, 0, &result);
        std::unique_lock lock(mailbox->lock);
        mailbox->changed.wait(lock, [&] { return mailbox->refresh || mailbox->dead; });
        if (mailbox->dead) break;
        mailbox->refresh = false;
        lock.unlock();
        client->setLayerDisplayFrame(kDisplay, kCursor, {at, at, at + 96, at + 96});
        if (auto status = client->present(kDisplay, &result); !status.isOk()) return status;
        if (result == 1 && *frames > 0) --*frames;
    }
    return ScopedAStatus::ok();
}

int main(int argc, char** argv) {
    ABinderProcess_startThreadPool();
    const std::string name = std::string(IVela::descriptor) + "/default";
    const auto died = [](void* mailbox) {
        (*static_cast<std::shared_ptr<Mailbox>*>(mailbox))->set(&Mailbox::dead);
    };
    const auto unlinked = [](void* mailbox) {
        delete static_cast<std::shared_ptr<Mailbox>*>(mailbox);
    };
    const ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(died));
    AIBinder_DeathRecipient_setOnUnlinked(recipient.get(), unlinked);

    long frames = -1;
    if (argc > 1) {
        const char* const end = argv[1] + std::strlen(argv[1]);
        const auto [stop, error] = std::from_chars(argv[1], end, frames);
        if (argc > 2 || error != std::errc() || stop != end || frames < 0) {
            std::cerr << "usage: compositor [FRAMES], a number from 0\n";
            return 2;
        }
    }
    while (frames != 0) {
        const ndk::SpAIBinder binder(AServiceManager_waitForService(name.c_str()));
        const auto mailbox = std::make_shared<Mailbox>();
        const auto vela = IVela::fromBinder(binder);
        if (vela == nullptr || AIBinder_linkToDeath(binder.get(), recipient.get(),
                                                    new std::shared_ptr(mailbox)) != STATUS_OK) {
            continue;  // it died again
        }
        std::cout << "connected" << std::endl;
        const ScopedAStatus status = compose(*vela, mailbox, &frames);
        if (!status.isOk() && status.getStatus() != STATUS_DEAD_OBJECT) {
            std::cerr << status.getDescription() << std::endl;
            return 1;
        }
    }
    std::cout << "done" << std::endl;
}
