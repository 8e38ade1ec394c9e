#include <algorithm>
#include <atomic>
#include <map>
#include <string>
#include <thread>
#include <vector>

#include "host/codec/Operations.h"
#include "tests/load/LoadTest.h"

namespace load_test {
namespace {

using codec::Json;
using ndk::ScopedAStatus;
using process_test::findService;

constexpr int kClients = 10;
constexpr int kThreads = 10;
constexpr int kCallers = kClients * kThreads;
constexpr int kCallsPerEvent = 50;
constexpr int kRestarts = 5;

// Each client has a callback, each caller a register of the chip and a layer of its own.
constexpr int kFirstId = 100;
constexpr int kFirstRegister = 768;
constexpr int kFirstLayer = 2000;

/** Arguments with which most calls are more than refused. */
Json argumentOf(const codec::Parameter& parameter, int number, bool isGiven) {
    static const auto& values = *new std::map<std::string, Json>{
            {"boolean", true},
            {"byte[]", {1, 2}},
            {"int[]", {1, 2, 3}},
            {"float[]", std::vector<float>(16, 0.5)},
            {"String", "get 512"},
            {"BufferInfo", {{"value1", 1}}},
            {"DisplayConfigVariableInfo", {{"value1", 64}, {"value2", 64}}},
            {"HwcRect", {{"right", 2}, {"bottom", 2}}},
            {"LayerStack", Json::parse(R"({"layers": [{}, {}], "list1": [1, 2]})")},
    };
    if (const auto found = values.find(parameter.type); found != values.end()) return found->second;
    if (parameter.type.starts_with('I')) return isGiven ? Json(1) : Json();  // a callback
    if (parameter.name == "id") return 1 + number % 4;
    if (parameter.name == "layer") return number;
    return parameter.name == "display" || parameter.name == "event" ? 0 : 1;
}

/** Those of an interface's operations that any number of clients may call at any time. */
template <typename Operations>
auto callable(const Operations& operations) {
    std::vector<const typename Operations::value_type*> list;
    for (const auto& operation : operations) {
        // A buffer's descriptor is closed twice: nobody may open another meanwhile. And nobody may
        // register with the library, as a new composer client does, while it raises events.
        const bool takesBuffer = std::ranges::any_of(operation.parameters, [](const auto& it) {
            return it.type == "ParcelFileDescriptor";
        });
        if (!takesBuffer && operation.result != "IVelaComposerClient") list.push_back(&operation);
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
        mTurn = 0;
        // An answer whose object's process has died is null.
        return mVela != nullptr && mVela->createComposerClient(&mComposer).isOk() &&
               mComposer != nullptr && mComposer->createLayer(0, kFirstLayer + mNumber).isOk();
    }

    /** In turn a call whose answer tells which it answers, one of all others, and now and then one
     * that raises events about a number of its own. */
    Answer call(bool mayRaise) {
        const int turn = ++mTurn;
        const bool raises = mayRaise && turn % kCallsPerEvent == 0;
        const ScopedAStatus status = raises          ? raise(mNumber * 10'000 + turn)
                                     : turn % 2 == 0 ? callOwn(turn / 2)
                                                     : callAny(static_cast<size_t>(turn) / 2);
        const binder_status_t failure = status.getStatus();
        if (failure == STATUS_DEAD_OBJECT || failure == STATUS_FAILED_TRANSACTION) {
            return Answer::kServiceGone;
        }
        return mIsRight ? Answer::kRight : Answer::kWrong;
    }

  private:
    ScopedAStatus raise(int about) {
        std::string reply;
        ScopedAStatus status = mVela->velaConfigureBatch(0, eventsAbout(about), &reply);
        mIsRight = reply.ends_with("wait: done\n");
        return status;
    }

    ScopedAStatus callOwn(int turn) {
        const int own = kFirstRegister + mNumber;
        if (turn % 3 == 0) {
            display::LutData table;
            ScopedAStatus status =
                    mComposer->getLayerToneMappingLut(kFirstLayer + mNumber, turn, &table);
            mIsRight = table.value2 == turn % 0x10000;
            return status;
        }
        if (turn % 3 == 1) {
            mWritten = turn;
            std::vector<int32_t> result;
            const display::VendorConfig type{own};
            ScopedAStatus status = mComposer->configureValues(type, {mWritten}, &result);
            mIsRight = result == std::vector{0};
            return status;
        }
        std::vector<int32_t> values;
        ScopedAStatus status = mVela->velaConfigureGet(own, {}, &values);
        mIsRight = values == std::vector{mWritten};
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
        ScopedAStatus status = callOf(*mVela, *vela[index]);
        const std::string& name = vela[index]->name;
        const bool isServed = name == "registerCallback" ||
                              !codec::findOperation(codec::composerOperations(), name);
        mIsRight &= isServed || status.getServiceSpecificError() == -2;
        return status;
    }

    const int mNumber;
    int mTurn = 0;
    int32_t mWritten = 0;
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
    leaveNothing(harness::countOr(20'000), [this](int calls) {
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
