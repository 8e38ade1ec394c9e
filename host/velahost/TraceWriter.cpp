#include "host/velahost/TraceWriter.h"

#include <pthread.h>
#include <unistd.h>

#include <array>
#include <string_view>
#include <utility>
#include <vector>

#include "host/codec/Operations.h"
#include "host/velahost/Processes.h"

using codec::Json;
using lmfg::ChipCall;

namespace {

constexpr const char* kHead = "[";
constexpr const char* kEnd = "\n]\n";

struct OpenSlice {
    const TraceWriter* writer;
    TraceWriter::Clock::time_point start;
    std::string name;
    const char* category;
    Json arguments;
};

thread_local std::vector<OpenSlice> gOpenSlices;

double microseconds(TraceWriter::Clock::duration time) {
    return std::chrono::duration<double, std::micro>(time).count();
}

std::string threadName() {
    std::array<char, 16> name{};
    pthread_getname_np(pthread_self(), name.data(), name.size());
    return std::string(name.data()) == "velahost" ? "binder" : name.data();
}

}  // namespace

/** A callback's call, shown on a track of the client that is called. */
class TraceWriter::ClientSlice : public binder::CallWatch {
  public:
    ClientSlice(TraceWriter* writer, pid_t client, std::string name)
        : mWriter(writer), mFrom(here()), mTo{client, client, mFrom.time}, mName(std::move(name)) {}

    void ended(binder_status_t /*status*/, const AParcel* /*reply*/) override {
        mWriter->writeSlice(mTo, mName, "client", Json::object());
        mWriter->writeFlow(mFrom, mTo);
    }

  private:
    TraceWriter* const mWriter;
    const Place mFrom;
    const Place mTo;
    const std::string mName;
};

TraceWriter::TraceWriter(const FileOptions& options) : mFile("trace", options) {
    const std::lock_guard guard(mLock);
    (void)mFile.begin(kHead);
}

TraceWriter::Place TraceWriter::here() {
    return {getpid(), gettid(), Clock::now()};
}

std::string TraceWriter::finish() {
    const std::lock_guard guard(mLock);
    (void)mFile.write(kEnd);
    mFile.close();
    return mFile.error();
}

std::string TraceWriter::error() {
    const std::lock_guard guard(mLock);
    return mFile.error();
}

void TraceWriter::beginSection(const char* name) {
    // Generated code says "AIDL::ndk::INTERFACE::OPERATION::server" or "::client".
    std::string_view text = name;
    Json arguments = Json::object();
    const char* category = "section";
    if (constexpr std::string_view kPrefix = "AIDL::ndk::"; text.starts_with(kPrefix)) {
        text.remove_prefix(kPrefix.size());
        const bool served = text.ends_with("::server");
        category = served ? "request" : "callback";
        text = text.substr(0, text.rfind("::"));
        if (served && AIBinder_isHandlingTransaction()) {
            arguments["client"] = processName(AIBinder_getCallingPid());
        }
    }
    begin(std::string(text), category, std::move(arguments));
}

void TraceWriter::endSection() {
    end();
}

void TraceWriter::beginAsyncSection(const char* name, int32_t cookie) {
    writeAsync("b", name, cookie);
}

void TraceWriter::endAsyncSection(const char* name, int32_t cookie) {
    writeAsync("e", name, cookie);
}

void TraceWriter::setCounter(const char* name, int64_t value) {
    write("C", here(), {{"name", name}, {"args", {{"value", value}}}});
}

void TraceWriter::began(const ChipCall& call) {
    begin(call.operation, call.isEvent ? "event" : "chip", {{"arguments", call.arguments.dump()}});
    const Place place = here();
    std::optional<Place> from;
    {
        const std::lock_guard guard(mLock);
        if (!call.isEvent) mRequests.emplace(&call, place);
        const auto cause = mRequests.find(call.cause.get());
        if (cause != mRequests.end()) from = cause->second;
    }
    if (from) writeFlow(*from, place);
}

void TraceWriter::ended(const ChipCall& /*call*/, const Json& /*answer*/) {
    end();
}

void TraceWriter::settled(const ChipCall& call) {
    const std::lock_guard guard(mLock);
    mRequests.erase(&call);
}

std::unique_ptr<binder::CallWatch> TraceWriter::observe(const binder::ObservedCall& call,
                                                        const AParcel* /*arguments*/) {
    const codec::Interface* const interface = codec::findInterface(call.descriptor);
    if (call.served || interface == nullptr || call.code > interface->operations.size()) return {};
    const auto* const operation = interface->operations[call.code - FIRST_CALL_TRANSACTION];
    return std::make_unique<ClientSlice>(
            this, binder::servingProcess(call.object),
            codec::shortName(call.descriptor) + "::" + operation->name);
}

void TraceWriter::begin(std::string name, const char* category, Json arguments) {
    // An earlier trace may have ended within a slice.
    if (!gOpenSlices.empty() && gOpenSlices.back().writer != this) gOpenSlices.clear();
    gOpenSlices.push_back({this, Clock::now(), std::move(name), category, std::move(arguments)});
}

void TraceWriter::end() {
    // This one may have begun within a slice.
    if (gOpenSlices.empty() || gOpenSlices.back().writer != this) return;
    const OpenSlice slice = std::move(gOpenSlices.back());
    gOpenSlices.pop_back();
    writeSlice({getpid(), gettid(), slice.start}, slice.name, slice.category, slice.arguments);
}

void TraceWriter::writeSlice(const Place& start, const std::string& name, const char* category,
                             const Json& arguments) {
    write("X", start,
          {{"name", name},
           {"cat", category},
           {"dur", microseconds(Clock::now() - start.time)},
           {"args", arguments}});
}

void TraceWriter::writeFlow(const Place& from, const Place& to) {
    Json flow{{"name", "event"}, {"cat", "flow"}};
    {
        const std::lock_guard guard(mLock);
        flow["id"] = ++mFlows;
    }
    write("s", from, flow);
    flow["bp"] = "e";
    write("f", to, flow);
}

void TraceWriter::writeAsync(const char* phase, const char* name, int32_t cookie) {
    write(phase, here(), {{"name", name}, {"cat", "async"}, {"id", cookie}});
}

void TraceWriter::write(const char* phase, const Place& place, const Json& rest) {
    Json line{{"ph", phase},
              {"ts", microseconds(place.time.time_since_epoch())},
              {"pid", place.pid},
              {"tid", place.tid}};
    line.update(rest);
    const std::lock_guard guard(mLock);
    if (mFile.fills() > 0) {
        (void)mFile.write(kEnd);
        (void)mFile.begin(kHead);
        mSeparator = "";
        mNamed.clear();
    }
    nameTrack(place);
    writeLine(line);
}

void TraceWriter::nameTrack(const Place& place) {
    const auto name = [&](const char* what, const std::string& text) REQUIRES(mLock) {
        writeLine({{"ph", "M"},
                   {"name", what},
                   {"pid", place.pid},
                   {"tid", place.tid},
                   {"args", {{"name", text}}}});
    };
    const bool isOurs = place.pid == getpid();
    if (mNamed.insert(place.pid).second) {
        name("process_name", isOurs ? "velahost" : "client " + processName(place.pid));
        if (!isOurs) name("thread_name", "callbacks");
    }
    if (isOurs && place.tid == gettid() && mNamed.insert(place.tid).second) {
        name("thread_name", threadName());
    }
}

void TraceWriter::writeLine(const Json& line) {
    (void)mFile.write(mSeparator + ("\n" + textOf(line)));
    mSeparator = ",";
}
