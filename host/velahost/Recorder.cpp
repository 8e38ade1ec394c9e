#include "host/velahost/Recorder.h"

#include <utility>

#include "host/codec/Status.h"

using codec::Json;

namespace {

/** "callback" for "IVelaCallback": objects are named as their interfaces are. */
std::string kindOf(const std::string& type) {
    const std::string package = "vendor.lumenforge.hardware.display.";
    const codec::Interface* const interface = codec::findInterface(package + type);
    return interface == nullptr ? type : interface->name;
}

std::string nameText(const std::string& kind, int64_t number) {
    return kind + " " + std::to_string(number);
}

}  // namespace

/** Holds the first half of a line until its call has ended. */
class Recorder::Watch : public binder::CallWatch {
  public:
    Watch(Recorder* recorder, Json line, const codec::Operation& operation, int64_t client)
        : mRecorder(recorder), mLine(std::move(line)), mOperation(operation), mClient(client) {}

    void ended(binder_status_t status, const AParcel* reply) override {
        mRecorder->ended(std::move(mLine), mOperation, status, reply, mClient);
    }

  private:
    Recorder* const mRecorder;
    Json mLine;
    const codec::Operation& mOperation;
    const int64_t mClient;
};

Recorder::Recorder(const std::string& path) : mFile(path) {
    const std::lock_guard guard(mLock);
    mFile.write({{"recording", 1}, {"interface", codec::display::IVela::descriptor}});
}

int64_t Recorder::clientOf(pid_t pid) {
    return mClients.emplace(pid, mClients.size() + 1).first->second;
}

Json Recorder::nameOf(const std::string& kind, AIBinder* object, int64_t client) {
    if (object == nullptr) return nullptr;
    auto found = mObjects.find(object);
    if (found == mObjects.end()) {
        Named named{.weak = ndk::ScopedAIBinder_Weak(AIBinder_Weak_new(object)),
                    .kind = kind,
                    .number = ++mCounts[kind],
                    .client = client};
        found = mObjects.emplace(object, std::move(named)).first;
    }
    return {{found->second.kind, found->second.number}};
}

int64_t Recorder::microseconds() const {
    const auto time = std::chrono::steady_clock::now() - mStart;
    return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
}

Json Recorder::commonFields(const char* key, const std::string& value, int64_t client) {
    return {{"n", ++mNumber}, {"time", microseconds()}, {"client", client}, {key, value}};
}

void Recorder::noticeEnds(std::vector<ndk::SpAIBinder>* alive) {
    for (auto it = mObjects.begin(); it != mObjects.end();) {
        const Named& named = it->second;
        alive->emplace_back(AIBinder_Weak_promote(named.weak.get()));
        AIBinder* const object = alive->back().get();
        if (object != nullptr && AIBinder_isAlive(object)) {
            ++it;
            continue;
        }
        // A callback that nobody refers to any more was unregistered by a request.
        if (object != nullptr || named.kind == "composer") {
            mFile.write(commonFields("gone", nameText(named.kind, named.number), named.client));
        }
        it = mObjects.erase(it);
    }
}

std::unique_ptr<binder::CallWatch> Recorder::observe(const binder::ObservedCall& call,
                                                     const AParcel* arguments) {
    const codec::Interface* const interface = codec::findInterface(call.descriptor);
    if (interface == nullptr || interface->isCallback == call.served ||
        call.code > interface->operations.size()) {
        return nullptr;
    }
    const codec::Operation& operation = *interface->operations[call.code - FIRST_CALL_TRANSACTION];
    // Given up after the lock: the last reference's end runs foreign code.
    std::vector<ndk::SpAIBinder> alive;
    const std::lock_guard guard(mLock);
    if (mFinished) return nullptr;
    noticeEnds(&alive);
    const int64_t client =
            clientOf(call.served ? AIBinder_getCallingPid() : binder::servingProcess(call.object));
    std::string target = interface->name;
    if (call.descriptor != std::string(codec::display::IVela::descriptor)) {
        target = nameText(target, nameOf(target, call.object, client).begin()->get<int64_t>());
    }
    Json list;
    const auto name = [&](const std::string& type, AIBinder* object)
                              REQUIRES(mLock) { return nameOf(kindOf(type), object, client); };
    if (!operation.readArguments(arguments, name, &list)) return nullptr;
    Json line = commonFields("interface", target, client);
    line[interface->isCallback ? "event" : "operation"] = operation.name;
    line["arguments"] = std::move(list);
    mOpen.insert(mNumber);
    return std::make_unique<Watch>(this, std::move(line), operation, client);
}

void Recorder::ended(Json line, const codec::Operation& operation, binder_status_t status,
                     const AParcel* reply, int64_t client) {
    ndk::ScopedAStatus answer;
    if (reply == nullptr || AParcel_readStatusHeader(reply, answer.getR()) != STATUS_OK) {
        answer = ndk::ScopedAStatus::fromStatus(status);
    }
    const std::lock_guard guard(mLock);
    if (mFinished) return;
    line["status"] = codec::statusToJson(answer.get());
    Json value;
    const auto name = [&](const std::string& type, AIBinder* object)
                              REQUIRES(mLock) { return nameOf(kindOf(type), object, client); };
    if (reply != nullptr && answer.isOk()) (void)operation.readResult(reply, name, &value);
    line["answer"] = std::move(value);
    line["took"] = microseconds() - line["time"].get<int64_t>();
    mFile.write(line);
    mOpen.erase(line["n"].get<int64_t>());
}

bool Recorder::finish() {
    const std::lock_guard guard(mLock);
    if (std::exchange(mFinished, true)) return true;
    mFile.write({{"end", mNumber}, {"open", mOpen}});
    return mFile.close();
}
