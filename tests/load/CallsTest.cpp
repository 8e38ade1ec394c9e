#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "host/codec/Operations.h"
#include "tests/load/LoadTest.h"

namespace load_test {
namespace {

using codec::Json;
using ndk::ScopedAStatus;

constexpr int kClients = 10;
constexpr int kThreads = 10;
constexpr int kCallers = kClients * kThreads;
constexpr int kCallsPerEvent = 50;
constexpr int kRestarts = 5;

// Each client has a callback, each caller a register of the chip for itself.
constexpr int kFirstId = 100;
constexpr int kFirstRegister = 768;

/** Some argument of each type; most of them are not refused. */
Json argumentOf(const codec::Parameter& parameter, int number, bool isGiven) {
    const std::string& type = parameter.type;
    if (type.ends_with("[]")) return Json::array({1, 2, 3});
    if (type == "boolean") return true;
    if (type == "String") return "get 512";
    if (type.starts_with('I')) return isGiven ? Json(1) : Json();  // a callback
    if (parameter.name == "id") return 1 + number % 4;
    if (parameter.name == "layer") return number;
    if (parameter.name == "display" || parameter.name == "event") return 0;
    if (type == "int" || type == "long" || type == "VendorConfig") return 1;
    return Json::object();
}

/** Those of an interface's operations that any number of clients may call at any time. */
template <typename Operations>
auto callable(const Operations& operations) {
    std::vector<const typename Operations::value_type*> list;
    for (const auto& operation : operations) {
        // A buffer's descriptor is closed twice: nobody may open another meanwhile. And nobody may
        // register with the library, as a new composer client does, while it raises events.
        const std::string signature = operation.signature();
        if (signature.find("ParcelFileDescriptor") == std::string::npos &&
            signature.find("createComposerClient") == std::string::npos) {
            list.push_back(&operation);
        }
    }
    return list;
}

/** One of many that call at once. One thread. */
class Caller {
  public:
    enum class Answer { kRight, kWrong, kServiceGone };

    explicit Caller(int number) : mNumber(number) {}

    /** False when the service goes meanwhile. */
    bool connect(std::shared_ptr<display::IVela> vela) {
        mVela = std::move(vela);
        // An answer whose object's process has died is null.
        return mVela != nullptr && mVela->createComposerClient(&mComposer).isOk() &&
               mComposer != nullptr && mComposer->createLayer(0, mNumber).isOk();
    }

    /**
     * In turn a call whose answer tells which it answers, one of all others, and now and then one
     * that raises events about a number of its own.
     */
    Answer call(bool mayRaise) {
        ++mTurn;
        ScopedAStatus status;
        if (mayRaise && mTurn % kCallsPerEvent == 0) {
            status = callOwn(eventsAbout(mNumber * 10'000 + mTurn), "wait: done\n");
            // On a busy machine it may take longer than the chip waits.
            while (status.isOk() && !mIsRight)
                status = callOwn("wait", "wait: done\n");
        } else if (mTurn % 2 == 0) {
            const std::string own = std::to_string(kFirstRegister + mNumber);
            const std::string value = std::to_string(mTurn);
            status = callOwn("set " + own + " " + value + ";get " + own, ": [" + value + "]\n");
        } else {
            status = callAny(static_cast<size_t>(mTurn) / 2);
        }
        const binder_status_t failure = status.getStatus();
        if (failure == STATUS_DEAD_OBJECT || failure == STATUS_FAILED_TRANSACTION) {
            return Answer::kServiceGone;
        }
        return mIsRight ? Answer::kRight : Answer::kWrong;
    }

  private:
    ScopedAStatus callOwn(const std::string& request, const std::string& end) {
        std::string reply;
        ScopedAStatus status = mTurn % 4 == 0 ? mVela->velaConfigureBatch(0, request, &reply)
                                              : mComposer->configureBatch(display::VendorConfig{0},
                                                                          request, &reply);
        mIsRight = reply.ends_with(end);
        return status;
    }

    ScopedAStatus callAny(size_t turn) {
        static const auto& vela = *new auto(callable(codec::velaOperations()));
        static const auto& composer = *new auto(callable(codec::composerOperations()));
        const size_t all = vela.size() + composer.size();
        const auto idle = [](const auto& type, auto&, auto*) {
            return velactl::makeCallback(type,
                                         [](auto&, auto&, auto*) { return ScopedAStatus::ok(); });
        };
        const auto callOf = [&](auto& target, const auto& operation) {
            std::vector<Json> arguments;
            for (const auto& parameter : operation.parameters)
                arguments.push_back(argumentOf(parameter, mNumber, turn / all % 2 == 0));
            codec::Outcome outcome = operation.call(target, arguments, idle);
            mIsRight = outcome.usageError.empty();
            return std::move(outcome.status);
        };
        const size_t index = (turn + static_cast<size_t>(mNumber)) % all;
        if (index >= vela.size()) return callOf(*mComposer, *composer[index - vela.size()]);
        return callOf(*mVela, *vela[index]);
    }

    const int mNumber;
    int mTurn = 0;
    bool mIsRight = false;
    std::shared_ptr<display::IVela> mVela;
    std::shared_ptr<display::IVelaComposerClient> mComposer;
};

/**
 * A client that calls as often as it is told whenever it is told to, or until it is told to end;
 * tells of each caller that has found the service, and how many calls there were and were right.
 */
const harness::Role kCallersRole("callers", [](harness::Parent& parent) {
    const int client = std::stoi(parent.arguments.at(0));
    const int each = std::stoi(parent.arguments.at(1));
    Heard heard;
    const auto callback = heard.callback<display::IVelaCallback>();
    (void)findService()->registerCallback(kFirstId + client, callback);
    std::vector<Caller> callers;
    const auto connect = [&parent](Caller& caller) {
        while (!caller.connect(findService())) {
        }
        parent.say("connected");
    };
    for (int i = 0; i < kThreads; ++i)
        connect(callers.emplace_back(client * kThreads + i));
    while (parent.hear() == "go") {
        std::atomic<bool> isEnding = false;
        std::atomic<int> calls = 0;
        std::atomic<int> answers = 0;
        std::vector<std::thread> threads;
        threads.reserve(callers.size());
        for (Caller& caller : callers) {
            threads.emplace_back([&] {
                for (int i = 0; each == 0 ? !isEnding : i < each; ++i) {
                    const Caller::Answer answer = caller.call(each != 0);
                    if (answer == Caller::Answer::kServiceGone) {
                        connect(caller);
                        continue;
                    }
                    ++calls;
                    if (answer == Caller::Answer::kRight) ++answers;
                }
            });
        }
        if (each == 0) isEnding = parent.hear().has_value();
        for (std::thread& thread : threads)
            thread.join();
        parent.say(std::to_string(calls));
        parent.say(std::to_string(answers));
    }
    parent.say(std::to_string(heard.count()));
    parent.untilGone();
});

class CallsTest : public LoadTest {
  protected:
    void startClients(int calls) {
        for (int i = 0; i < kClients; ++i)
            mClients.emplace_back("callers", std::vector{std::to_string(i), std::to_string(calls)});
        awaitClients();
    }
    void awaitClients() {
        for (int i = 0; i < kCallers; ++i)
            ASSERT_EQ(mClients[static_cast<size_t>(i % kClients)].hear(), "connected");
    }
    void tellClients(const char* what) {
        for (harness::Child& client : mClients)
            client.say(what);
    }
    /** Adds up what the clients tell of their calls. */
    void hearClients() {
        for (harness::Child& client : mClients) {
            mCalls += std::stoi(client.hear());
            mAnswers += std::stoi(client.hear());
        }
        EXPECT_EQ(mAnswers, mCalls);
    }
    void tellFigures() const {
        figure("calls", mCalls);
        figure("answers", mAnswers);
    }

    std::vector<harness::Child> mClients;
    int mCalls = 0;
    int mAnswers = 0;
};

TEST_F(CallsTest, EachCallIsAnsweredOnceAndEachEventHeardOnce) {
    leaveNothing(harness::countOr(20'000 / kSlowness), [this](int calls) {
        // In rounds, for none of which anybody loses patience.
        const int each = std::min(calls / kCallers, 100);
        const int rounds = calls / kCallers / each;
        const int events = rounds * each / kCallsPerEvent * kCallers;
        mCalls = mAnswers = 0;
        startClients(each);
        listen();
        for (int i = 0; i < rounds; ++i) {
            tellClients("go");
            hearClients();
        }
        EXPECT_EQ(mCalls, rounds * each * kCallers);
        EXPECT_TRUE(harness::eventually([&] { return mHeard.count() == events * kEventKinds; }))
                << mHeard.count() << " of " << events * kEventKinds << " events";
        tellClients("end");
        for (harness::Child& client : mClients)
            EXPECT_EQ(client.hear(), std::to_string(events + 1)) << "with that of listen()";
        figure("events", events * (kEventKinds + kClients));
        mClients.clear();
    });
    tellFigures();
}

TEST_F(CallsTest, ClientsFindAHostThatIsRestartedUnderLoad) {
    startClients(0);
    tellClients("go");
    for (int i = 0; i < kRestarts; ++i) {
        killHost();
        startHost();
        awaitClients();
    }
    tellClients("end");
    hearClients();
    mClients.clear();
    listen();
    settle();
    figure("restarts", kRestarts);
    tellFigures();
}

}  // namespace
}  // namespace load_test
