#include "transport/Greeter.h"

#include <cerrno>
#include <cstring>
#include <optional>
#include <utility>

#include <fcntl.h>
#include <sys/epoll.h>
#include <unistd.h>

#include "base/Log.h"

namespace binder {
namespace {

using android::base::unique_fd;

// Connections that have yet to say hello; a process says it at once.
constexpr size_t kMaxNewcomers = 64;
// Until accepting is tried again when not even a refusal was possible.
constexpr std::chrono::milliseconds kPause{100};
constexpr std::chrono::seconds kBetweenComplaints{1};

}  // namespace

/** A connection whose hello has yet to come, or to come whole. */
class Greeter::Newcomer final : public Watched {
  public:
    enum class State { kNotYet, kRefused, kGreeted };

    Newcomer(std::weak_ptr<Greeter> greeter, unique_fd socket, const ucred& credentials)
        : mGreeter(std::move(greeter)), mSocket(std::move(socket)), mCredentials(credentials) {}

    int fd() const override { return mSocket.get(); }
    void onEvents(uint32_t /*events*/) override {
        if (const std::shared_ptr<Greeter> greeter = mGreeter.lock()) greeter->greetAll();
    }

    State read(const std::string& ownName) {
        // The bytes behind the hello are somebody else's to read: ask for no more than the hello.
        while (mArrived < sizeof(mHello)) {
            const ssize_t got = recv(mSocket, reinterpret_cast<char*>(&mHello) + mArrived,
                                     sizeof(mHello) - mArrived, MSG_DONTWAIT);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0 && errno == EAGAIN) return State::kNotYet;
            if (got <= 0) return State::kRefused;
            mArrived += static_cast<size_t>(got);
        }
        const std::optional<std::string_view> name = parseHello(mHello);
        if (name.has_value() && pidOfEndpoint(*name) == mCredentials.pid && *name != ownName) {
            return State::kGreeted;
        }
        log(ANDROID_LOG_WARN, "Refusing a connection of process %d: no valid hello",
            mCredentials.pid);
        return State::kRefused;
    }

    /** Watches for more of the hello. */
    bool await(const std::shared_ptr<Newcomer>& self) {
        mIsWatched = mIsWatched || IoThread::get().watch(self, EPOLLIN);
        return mIsWatched;
    }
    void forget() const {
        if (mIsWatched) IoThread::get().forget(*this);
    }

    // Once greeted, and forgotten:
    std::string name() const { return std::string(*parseHello(mHello)); }
    std::shared_ptr<Connection> connection() {
        return std::make_shared<Connection>(std::move(mSocket), mHello.kind, mCredentials.pid,
                                            mCredentials.uid);
    }

  private:
    const std::weak_ptr<Greeter> mGreeter;
    unique_fd mSocket;
    const ucred mCredentials;
    Hello mHello{};
    size_t mArrived = 0;
    bool mIsWatched = false;
};

Greeter::Greeter(const Endpoint& self, OnGreeted onGreeted)
    : mSelf(self),
      mOnGreeted(std::move(onGreeted)),
      mSpare(open("/dev/null", O_RDONLY | O_CLOEXEC)) {}

bool Greeter::start() {
    return IoThread::get().watch(shared_from_this(), EPOLLIN);
}

void Greeter::onEvents(uint32_t /*events*/) {
    greetAll();
}

void Greeter::greetAll() {
    if (!mIsPaused) accept();
    for (auto next = mNewcomers.begin(); next != mNewcomers.end();) {
        const std::shared_ptr<Newcomer> newcomer = *next;
        const Newcomer::State state = newcomer->read(mSelf.name());
        if (state == Newcomer::State::kNotYet && newcomer->await(newcomer)) {
            ++next;
            continue;
        }
        newcomer->forget();
        next = mNewcomers.erase(next);
        if (state == Newcomer::State::kGreeted) {
            mOnGreeted(newcomer->name(), newcomer->connection());
        }
    }
    for (; mNewcomers.size() > kMaxNewcomers; mNewcomers.pop_front())
        mNewcomers.front()->forget();
}

void Greeter::accept() {
    for (;;) {
        // Another thread may have taken its place for a moment: it comes before any connection.
        if (mSpare < 0) mSpare.reset(open("/dev/null", O_RDONLY | O_CLOEXEC));
        if (mSpare < 0) {
            pause();
            return;
        }
        unique_fd socket(accept4(mSelf.listener(), nullptr, nullptr, SOCK_CLOEXEC));
        if (socket < 0) {
            if (errno == EINTR || errno == ECONNABORTED) continue;
            if (errno == EAGAIN) return;
            if (refuseOne()) continue;
            return;
        }
        ucred credentials{};
        if (!trustedCredentialsOf(socket, &credentials)) {
            log(ANDROID_LOG_WARN, "Refusing a connection of process %d of user %u", credentials.pid,
                credentials.uid);
            continue;
        }
        mNewcomers.push_back(
                std::make_shared<Newcomer>(weak_from_this(), std::move(socket), credentials));
    }
}

bool Greeter::refuseOne() {
    // A connection that is not taken would wake the thread for ever. That there is no descriptor
    // for one is told whether or not there is a connection.
    mSpare.reset();
    unique_fd refused(accept4(mSelf.listener(), nullptr, nullptr, SOCK_CLOEXEC));
    const int error = refused < 0 ? errno : 0;
    if (error != 0) {
        if (error != EAGAIN) pause();
        return false;
    }
    const auto now = std::chrono::steady_clock::now();
    if (now - mLastComplaint > kBetweenComplaints) {
        log(ANDROID_LOG_ERROR, "Refusing connections: no descriptors left");
        mLastComplaint = now;
    }
    return true;
}

void Greeter::pause() {
    IoThread::get().forget(*this);
    mIsPaused = true;
    IoThread::get().after(kPause, [weak = weak_from_this()] {
        const std::shared_ptr<Greeter> self = weak.lock();
        if (self == nullptr) return;
        self->mIsPaused = false;
        if (self->start()) {
            self->greetAll();
        } else {
            self->pause();
        }
    });
}

}  // namespace binder
