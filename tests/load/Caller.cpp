#include "tests/load/Caller.h"

#include <algorithm>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "host/codec/Operations.h"
#include "host/velactl/Callbacks.h"
#include "tests/load/LoadTest.h"

namespace load_test {
namespace {

using codec::Json;
using ndk::ScopedAStatus;

constexpr int32_t kFirstOwnRegister = 768;
constexpr int64_t kFirstOwnLayer = 2000;
constexpr int32_t kFirstOwnAddress = 100;

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
    if (parameter.name == "layer") return 1000 + number;
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

/** A callback that nobody listens to. */
std::shared_ptr<ndk::ICInterface> idleCallback(const std::string& type, const Json&, std::string*) {
    return velactl::makeCallback(type, [](auto&, auto&, auto*) { return ScopedAStatus::ok(); });
}

}  // namespace

bool Caller::connect(std::shared_ptr<display::IVela> vela) {
    mVela = std::move(vela);
    mTurn = 0;
    // An answer whose object's process has died is null.
    return mVela != nullptr && mVela->createComposerClient(&mComposer).isOk() &&
           mComposer != nullptr && mComposer->createLayer(0, kFirstOwnLayer + mNumber).isOk();
}

Caller::Answer Caller::call() {
    const int turn = mTurn++;
    return answerOf(turn % 2 == 0 ? callOwn(turn / 2) : callAny(static_cast<size_t>(turn) / 2));
}

Caller::Answer Caller::raise() {
    const int about = mNumber * 10'000 + ++mRaised;
    std::string reply;
    const ScopedAStatus status = mVela->velaConfigureBatch(0, eventsAbout(about), &reply);
    mIsRight = reply.ends_with("wait: done\n");
    return answerOf(status);
}

Caller::Answer Caller::answerOf(const ScopedAStatus& status) const {
    const binder_status_t failure = status.getStatus();
    if (failure == STATUS_DEAD_OBJECT || failure == STATUS_FAILED_TRANSACTION) {
        return Answer::kServiceGone;
    }
    return mIsRight ? Answer::kRight : Answer::kWrong;
}

ScopedAStatus Caller::callOwn(int turn) {
    const int32_t own = kFirstOwnRegister + mNumber;
    const int32_t panel = mNumber % 4;
    const int32_t address = kFirstOwnAddress + mNumber;
    const auto byte = static_cast<uint8_t>(mWritten);
    int32_t code = -1;
    std::vector<int32_t> values;
    std::vector<uint8_t> bytes;
    ScopedAStatus status;
    switch (turn % 8) {
        case 0:
            status = mVela->velaConfigureSet(own, {++mWritten}, &code);
            mIsRight = code == 0;
            break;
        case 1:
            status = mVela->velaConfigureGet(own, {}, &values);
            mIsRight = values == std::vector{mWritten};
            break;
        case 2:
            status = mComposer->configureValues(display::VendorConfig{own}, {++mWritten}, &values);
            mIsRight = values == std::vector{0};
            break;
        case 3:
            status = mComposer->configureValues(display::VendorConfig{own}, {}, &values);
            mIsRight = values == std::vector{mWritten};
            break;
        case 4: {
            display::LutData table;
            const int32_t variant = ++mWritten % 0x10000;
            status = mComposer->getLayerToneMappingLut(kFirstOwnLayer + mNumber, variant, &table);
            mIsRight = table.value2 == variant;
            break;
        }
        case 5:
            status = mVela->panelReadWrite(true, panel, address, false, {byte}, 0, &bytes);
            mIsRight = bytes.empty();
            break;
        case 6:
            status = mVela->panelReadWrite(false, panel, address, false, {}, 1, &bytes);
            mIsRight = bytes == std::vector{byte};
            break;
        default: {
            const std::string name = "set " + std::to_string(own);
            std::string reply;
            status = mVela->velaConfigureBatch(
                    0, name + " " + std::to_string(++mWritten) + ";g" + name.substr(1), &reply);
            mIsRight = reply ==
                       name + ": ok\ng" + name.substr(1) + ": [" + std::to_string(mWritten) + "]\n";
        }
    }
    return status;
}

ScopedAStatus Caller::callAny(size_t turn) {
    static const auto& vela = *new auto(callable(codec::velaOperations()));
    static const auto& composer = *new auto(callable(codec::composerOperations()));
    const size_t all = vela.size() + composer.size();
    const auto callOf = [&](auto& target, const auto& operation) {
        std::vector<Json> arguments;
        for (const auto& parameter : operation.parameters)
            arguments.push_back(argumentOf(parameter, mNumber, turn / all % 2 == 0));
        codec::Outcome outcome = operation.call(target, arguments, idleCallback);
        mIsRight = outcome.usageError.empty();
        return std::move(outcome.status);
    };
    const size_t index = (turn + static_cast<size_t>(mNumber)) % all;
    if (index >= vela.size()) return callOf(*mComposer, *composer[index - vela.size()]);
    ScopedAStatus status = callOf(*mVela, *vela[index]);
    const bool isServed =
            vela[index]->name == "registerCallback" ||
            codec::findOperation(codec::composerOperations(), vela[index]->name) == nullptr;
    if (!isServed) mIsRight &= status.getServiceSpecificError() == -2;
    return status;
}

}  // namespace load_test
