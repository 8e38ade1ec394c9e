#include "host/velahost/Recorder.h"

#include <utility>

#include "host/codec/Status.h"
#include "host/velahost/Processes.h"
#include "host/velahost/Refusals.h"

using codec::Json;

namespace {

std::string nameText(const std::string& kind, int64_t number) {
    return kind + " " + std::to_string(number);
}

}  // namespace

/** Holds the first half of a line until its call has ended. */
class Recorder::Watch : public binder::CallWatch {
  public:
    Watch(Recorder* recorder, uint64_t part, Json line, const codec::Operation& operation,
          int64_t client)
        : part(part),
          line(std::move(line)),
          operation(operation),
          client(client),
          mRecorder(recorder) {}

    void ended(binder_status_t status, const AParcel* reply) override {
        mRecorder->ended(*this, status, reply);
    }

    const uint64_t part;
    const Json line;
    const codec::Operation& operation;
    const int64_t client;

  private:
    Recorder* const mRecorder;
};

Recorder::Recorder(std::unique_ptr<Output> output, std::shared_ptr<Registrations> registrations,
                   bool live)
    : mOutput(std::move(output)), mRegistrations(std::move(registrations)), mLive(live) {
    Held held;
    const std::lock_guard guard(mLock);
    begin(&held);
}

void Recorder::begin(Held* held) {
    ++mPart;
    mStart = std::chrono::steady_clock::now();
    mNumber = 0;
    mOpen.clear();
    mClients.clear();
    mProcessNames.clear();
    mObjects.clear();
    mCounts.clear();
    const Json head{
            {"recording", 1}, {"interface", codec::display::IVela::descriptor}, {"refusals", true}};
    if (!mOutput->begin(textOf(head) + "\n")) return;
    for (Registration& it : mRegistrations->current()) {
        const int64_t client = clientOf(it.client);
        std::string target = "vela";
        if (it.target.get() != nullptr) {
            target = nameText("composer", numberOf("composer", it.target.get(), client));
        }
        Json line = commonFields("interface", target, client);
        line["operation"] = it.operation->name;
        line["arguments"] = std::move(it.arguments);
        line["status"] = "ok";
        Json object =
                it.object.get() == nullptr ? Json() : nameOf(it.kind, it.object.get(), client);
        if (it.isMade) {
            line["answer"] = std::move(object);
        } else {
            line["arguments"].push_back(std::move(object));
            line["answer"] = nullptr;
        }
        line["earlier"] = true;
        write(line);
        held->push_back(std::move(it.target));
        held->push_back(std::move(it.object));
    }
}

void Recorder::write(const Json& line) {
    (void)mOutput->write(textOf(line) + "\n");
}

void Recorder::writeEnd() {
    write({{"end", mNumber}, {"open", mOpen}});
}

int64_t Recorder::clientOf(pid_t pid) {
    const auto [found, isNew] = mClients.emplace(pid, mClients.size() + 1);
    if (isNew && mLive) mProcessNames.emplace(found->second, processName(pid));
    return found->second;
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

int64_t Recorder::numberOf(const std::string& kind, AIBinder* object, int64_t client) {
    return nameOf(kind, object, client).begin()->get<int64_t>();
}

int64_t Recorder::microseconds() const {
    const auto time = std::chrono::steady_clock::now() - mStart;
    return std::chrono::duration_cast<std::chrono::microseconds>(time).count();
}

Json Recorder::commonFields(const char* key, const std::string& value, int64_t client) {
    Json fields{{"n", ++mNumber}, {"time", microseconds()}, {"client", client}};
    if (mLive) fields["process"] = mProcessNames[client];
    fields[key] = value;
    return fields;
}

void Recorder::noticeEnds(Held* held) {
    for (auto it = mObjects.begin(); it != mObjects.end();) {
        const Named& named = it->second;
        held->emplace_back(AIBinder_Weak_promote(named.weak.get()));
        AIBinder* const object = held->back().get();
        if (object != nullptr && AIBinder_isAlive(object)) {
            ++it;
            continue;
        }
        // A callback that nobody refers to any more was unregistered by a request.
        if (object != nullptr || named.kind == "composer") {
            write(commonFields("gone", nameText(named.kind, named.number), named.client));
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
    Held held;
    const std::lock_guard guard(mLock);
    if (mFinished || !mOutput->error().empty()) return nullptr;
    if (mOutput->fills() > (mOpen.empty() ? 0 : 1)) {
        writeEnd();
        begin(&held);
    }
    noticeEnds(&held);
    const int64_t client =
            clientOf(call.served ? AIBinder_getCallingPid() : binder::servingProcess(call.object));
    std::string target = interface->name;
    if (call.descriptor != std::string(codec::display::IVela::descriptor)) {
        target = nameText(target, numberOf(target, call.object, client));
    }
    Json list;
    const auto name = [&](const std::string& type, AIBinder* object)
                              REQUIRES(mLock) { return nameOf(kindOf(type), object, client); };
    if (!operation.readArguments(arguments, name, &list)) return nullptr;
    Json line = commonFields("interface", target, client);
    line[interface->isCallback ? "event" : "operation"] = operation.name;
    line["arguments"] = std::move(list);
    mOpen.insert(mNumber);
    return std::make_unique<Watch>(this, mPart, std::move(line), operation, client);
}

void Recorder::ended(const Watch& watch, binder_status_t status, const AParcel* reply) {
    ndk::ScopedAStatus answer;
    if (reply == nullptr || AParcel_readStatusHeader(reply, answer.getR()) != STATUS_OK) {
        answer = ndk::ScopedAStatus::fromStatus(status);
    }
    const std::lock_guard guard(mLock);
    // A part that had to end before the call did has named it as open.
    if (mFinished || watch.part != mPart) return;
    Json line = watch.line;
    line["status"] = codec::statusToJson(answer.get());
    Json value;
    const auto name = [&](const std::string& type, AIBinder* object) REQUIRES(mLock) {
        return nameOf(kindOf(type), object, watch.client);
    };
    if (reply != nullptr && answer.isOk()) (void)watch.operation.readResult(reply, name, &value);
    line["answer"] = std::move(value);
    line["took"] = microseconds() - line["time"].get<int64_t>();
    const std::vector<std::string>& refusals = Refusals::ofRequest();
    if (line.contains("operation") && !refusals.empty()) line["refused"] = refusals;
    write(line);
    mOpen.erase(line["n"].get<int64_t>());
}

std::string Recorder::finish() {
    const std::lock_guard guard(mLock);
    if (!std::exchange(mFinished, true)) {
        writeEnd();
        mOutput->close();
    }
    return mOutput->error();
}

std::string Recorder::error() {
    const std::lock_guard guard(mLock);
    return mOutput->error();
}
