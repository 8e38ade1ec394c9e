#include "host/velactl/Monitor.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>

#include <array>
#include <cerrno>
#include <memory>

#include <aidl/vendor/lumenforge/hardware/display/IVela.h>
#include <aidl/vendor/lumenforge/hardware/display/IVelaComposerClient.h>
#include <android/binder_process.h>

#include "host/velactl/Callbacks.h"
#include "host/velactl/Report.h"
#include "host/velactl/Service.h"

namespace velactl {
namespace {

using display::IVela;
using display::IVelaComposerClient;

/** Everything that one monitor has registered; its destructor takes it back. */
class Registration {
  public:
    Registration(std::shared_ptr<IVela> vela, const MonitorOptions& options)
        : mVela(std::move(vela)), mOptions(options) {}

    ~Registration() {
        // The service may be gone, which unregisters as well.
        if (mCallback != nullptr) (void)mVela->registerCallback(mOptions.id, nullptr);
        if (mSoftClient != nullptr) (void)mVela->registerSoftVelaClient(mOptions.id, nullptr);
    }

    Registration(const Registration&) = delete;
    Registration& operator=(const Registration&) = delete;

    /** Registers what the options ask for; returns an exit code, having reported a failure. */
    int run() {
        auto callback = ndk::SharedRefBase::make<PrintingCallback>();
        if (auto status = mVela->registerCallback(mOptions.id, callback); !status.isOk()) {
            return reportStatus("registerCallback", status);
        }
        mCallback = callback;
        if (mOptions.soft) {
            auto client = ndk::SharedRefBase::make<PrintingSoftClient>(mOptions);
            if (auto status = mVela->registerSoftVelaClient(mOptions.id, client); !status.isOk()) {
                return reportStatus("registerSoftVelaClient", status);
            }
            mSoftClient = client;
        }
        return mOptions.composer ? registerComposer() : static_cast<int>(kOk);
    }

  private:
    int registerComposer() {
        if (auto status = mVela->createComposerClient(&mComposer); !status.isOk()) {
            return reportStatus("createComposerClient", status);
        }
        auto callback = ndk::SharedRefBase::make<PrintingComposerCallback>(mOptions);
        if (auto status = mComposer->registerCallback(callback); !status.isOk()) {
            return reportStatus("registerCallback of the composer client", status);
        }
        mComposerCallback = callback;
        return kOk;
    }

    const std::shared_ptr<IVela> mVela;
    const MonitorOptions mOptions;
    std::shared_ptr<PrintingCallback> mCallback;
    std::shared_ptr<PrintingSoftClient> mSoftClient;
    std::shared_ptr<IVelaComposerClient> mComposer;
    std::shared_ptr<PrintingComposerCallback> mComposerCallback;
};

/** Turns SIGINT and SIGTERM of every thread started from now on into a readable descriptor. */
ndk::ScopedFileDescriptor stopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return ndk::ScopedFileDescriptor(signalfd(-1, &signals, SFD_CLOEXEC));
}

void onServiceDied(void* cookie) {
    eventfd_write(*static_cast<const int*>(cookie), 1);
}

/** Returns whether the service died; otherwise a signal asked to stop. */
bool waitForEnd(int signalFd, int deathFd) {
    std::array<pollfd, 2> fds{pollfd{.fd = signalFd, .events = POLLIN, .revents = 0},
                              pollfd{.fd = deathFd, .events = POLLIN, .revents = 0}};
    while (poll(fds.data(), fds.size(), -1) < 0 && errno == EINTR) {
    }
    return fds[1].revents != 0;
}

}  // namespace

int monitor(const MonitorOptions& options) {
    const ndk::ScopedFileDescriptor signals = stopSignals();
    std::string error;
    const auto vela = connect(&error);
    if (vela == nullptr) return fail(kNoService, error);
    ABinderProcess_startThreadPool();

    // A late notification may still be running when this returns, hence static.
    static const int deathFd = eventfd(0, EFD_CLOEXEC);
    const ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(onServiceDied));
    const ndk::SpAIBinder binder = vela->asBinder();
    if (AIBinder_linkToDeath(binder.get(), recipient.get(), const_cast<int*>(&deathFd)) !=
        STATUS_OK) {
        return fail(kNoService, instanceName() + " died");
    }

    Registration registration(vela, options);
    if (const int code = registration.run(); code != kOk) return code;
    printLine({{"event", "registered"},
               {"id", options.id},
               {"soft", options.soft},
               {"composer", options.composer}});
    if (waitForEnd(signals.get(), deathFd)) return fail(kNoService, instanceName() + " died");
    return kOk;
}

}  // namespace velactl
