#include "host/velactl/Monitor.h"

#include <poll.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <android/binder_process.h>

#include "host/codec/Operations.h"
#include "host/velactl/Callbacks.h"
#include "host/velactl/Platform.h"
#include "host/velactl/Report.h"
#include "host/velactl/Service.h"

namespace velactl {
namespace {

namespace display = codec::display;
using display::ISoftVelaClient;
using display::IVela;
using display::IVelaCallback;
using display::IVelaComposerCallback;
using display::IVelaComposerClient;

/** How the lines name the callbacks' operations, and the answer that the options give. */
struct EventKind {
    const char* operation;
    const char* event;
    Json answer;  // null for none
};

std::vector<EventKind> eventKinds(const MonitorOptions& options) {
    return {{"onFeatureChanged", "feature", nullptr},
            {"setConfig", "soft-set", options.softResult},
            {"getConfig", "soft-get", options.softValues},
            {"onConfigChanged", "config", options.configResult},
            {"onRefreshRequested", "refresh", nullptr},
            {"onDisplayPowerChanged", "power", nullptr},
            {"onContentSamplingRequested", "sampling",
             codec::Codec<display::ContentSamples>::write(options.samples)}};
}

/** Prints each event as a line of JSON, and answers as the options say. */
CallbackHandler printingHandler(const std::string& descriptor, const MonitorOptions& options) {
    return [operations = codec::findInterface(descriptor)->operations, kinds = eventKinds(options),
            softError = options.softError](const std::string& operation, const Json& arguments,
                                           Json* answer) {
        const auto kind = std::find_if(kinds.begin(), kinds.end(), [&](const EventKind& it) {
            return it.operation == operation;
        });
        const auto named = std::find_if(operations.begin(), operations.end(),
                                        [&](const auto* it) { return it->name == operation; });
        Json line{{"event", kind->event}};
        for (size_t i = 0; i < arguments.size(); ++i)
            line[(*named)->parameters[i].name] = arguments[i];
        if (operation == "getConfig" && softError != 0) {
            line["error"] = softError;
            printLine(line);
            return ndk::ScopedAStatus::fromServiceSpecificError(softError);
        }
        if (!kind->answer.is_null()) line["answer"] = *answer = kind->answer;
        printLine(line);
        return ndk::ScopedAStatus::ok();
    };
}

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

    /** Registers what the options ask for. */
    Failure run() {
        auto callback = make<IVelaCallback>();
        if (auto failure = statusError("registerCallback",
                                       mVela->registerCallback(mOptions.id, callback))) {
            return failure;
        }
        mCallback = callback;
        if (mOptions.soft) {
            auto client = make<ISoftVelaClient>();
            if (auto failure = statusError("registerSoftVelaClient",
                                           mVela->registerSoftVelaClient(mOptions.id, client))) {
                return failure;
            }
            mSoftClient = client;
        }
        return mOptions.composer ? registerComposer() : Failure{};
    }

  private:
    template <typename T>
    std::shared_ptr<T> make() {
        return std::static_pointer_cast<T>(makeCallback(codec::Codec<std::shared_ptr<T>>::type(),
                                                        printingHandler(T::descriptor, mOptions)));
    }

    Failure registerComposer() {
        if (auto failure =
                    statusError("createComposerClient", mVela->createComposerClient(&mComposer))) {
            return failure;
        }
        mComposerCallback = make<IVelaComposerCallback>();
        return statusError("registerCallback of the composer client",
                           mComposer->registerCallback(mComposerCallback));
    }

    const std::shared_ptr<IVela> mVela;
    const MonitorOptions mOptions;
    std::shared_ptr<IVelaCallback> mCallback;
    std::shared_ptr<ISoftVelaClient> mSoftClient;
    std::shared_ptr<IVelaComposerClient> mComposer;
    std::shared_ptr<IVelaComposerCallback> mComposerCallback;
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

Failure died() {
    return noService(instanceName() + " died; " + restartAdvice());
}

/**
 * Returns whether the service died; otherwise a signal asked to stop, or nobody reads stdout any
 * more.
 */
bool waitForEnd(int signalFd, int deathFd) {
    std::array<pollfd, 3> fds{pollfd{.fd = signalFd, .events = POLLIN, .revents = 0},
                              pollfd{.fd = deathFd, .events = POLLIN, .revents = 0},
                              pollfd{.fd = STDOUT_FILENO, .events = 0, .revents = 0}};
    while (poll(fds.data(), fds.size(), -1) < 0 && errno == EINTR) {
    }
    return fds[1].revents != 0;
}

}  // namespace

Failure monitor(const MonitorOptions& options) {
    const ndk::ScopedFileDescriptor signals = stopSignals();
    std::shared_ptr<IVela> vela;
    if (auto failure = connect(&vela)) return failure;
    ABinderProcess_startThreadPool();

    // A late notification may still be running when this returns, hence static.
    static const int deathFd = eventfd(0, EFD_CLOEXEC);
    const ndk::ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(onServiceDied));
    const ndk::SpAIBinder binder = vela->asBinder();
    if (AIBinder_linkToDeath(binder.get(), recipient.get(), const_cast<int*>(&deathFd)) !=
        STATUS_OK) {
        return died();
    }

    Registration registration(vela, options);
    if (auto failure = registration.run()) return failure;
    printLine({{"event", "registered"},
               {"id", options.id},
               {"soft", options.soft},
               {"composer", options.composer}});
    return waitForEnd(signals.get(), deathFd) ? died() : Failure{};
}

}  // namespace velactl
