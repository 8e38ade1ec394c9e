#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <iostream>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/log.h>
#include <binder_host/Observer.h>
#include <binder_host/ServiceManager.h>
#include <binder_host/Trace.h>
#include <CLI/CLI.hpp>

#include "host/chip/ChipHost.h"
#include "host/chip/SimulatedChip.h"
#include "host/velahost/Faults.h"
#include "host/velahost/Host.h"
#include "host/velahost/Journal.h"
#include "host/velahost/Processes.h"
#include "host/velahost/Recorder.h"
#include "host/velahost/RuntimeFolder.h"
#include "host/velahost/TraceWriter.h"

namespace {

constexpr const char* kLibrary = "vendor.lumenforge.hardware.display-impl.so";
constexpr const char* kEntry = "AIDL_REGISTER_IVela";
constexpr const char* kInstance = "vendor.lumenforge.hardware.display.IVela/default";

constexpr int kFailure = 1;
constexpr int kUsage = 2;

constexpr const char* kFooter =
        "Examples:\n"
        "  velahost --frames /tmp/frames --record session.jsonl\n"
        "  velahost --fault velaConfigureGet=EIO@3 --fault velaConfigureBatch=silent\n\n"
        "A fault is OPERATION=WHAT[@EVERY]; --fault help lists the operations and what each "
        "takes.\n"
        "Exit codes: 0 ended by a signal, 1 could not serve, 2 wrong usage.\n";

struct Options {
    std::string chip = "simulated";
    std::string library;
    uint32_t threads = 15;
    bool replace = false;
    std::string trace;
    std::string frames;
    std::string record;
    std::string journal;
    bool journalTimes = false;
    std::vector<std::string> faults;
};

/** What watches the service, as far as it was asked for. Lives until the process ends. */
struct Watchers {
    std::unique_ptr<Recorder> recorder;
    std::shared_ptr<Journal> journal;
    std::shared_ptr<TraceWriter> trace;
    lmfg::ChipObservers observers;  // of the chip
};

int fail(const std::string& text) {
    std::cerr << "velahost: " + text + "\n" << std::flush;
    return kFailure;
}

/** The product library of this build: in the folder "lib" beside that of the program. */
std::string defaultLibrary() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return program.parent_path().parent_path() / "lib" / kLibrary;
}

/** Calls the library's entry once; returns the exit code. The library is never unloaded. */
int publish(const std::string& library) {
    void* const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) return fail(std::string("cannot load the library: ") + dlerror());
    using Entry = int32_t();
    auto* const entry = reinterpret_cast<Entry*>(dlsym(handle, kEntry));
    if (entry == nullptr) return fail(library + " has no entry " + kEntry);
    if (const int32_t result = entry(); result != 0) {
        return fail(library + ": " + kEntry + " returned " + std::to_string(result));
    }
    return 0;
}

/** A service has many clients, each with connections of its own: allows all that the system does.
 */
void allowManyDescriptors() {
    rlimit limit{};
    if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return;
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);
}

/** Blocks SIGINT and SIGTERM here and in every thread started from now on. */
sigset_t blockStopSignals() {
    sigset_t signals;
    sigemptyset(&signals);
    sigaddset(&signals, SIGINT);
    sigaddset(&signals, SIGTERM);
    pthread_sigmask(SIG_BLOCK, &signals, nullptr);
    return signals;
}

/**
 * Stops the chip, so that no event runs while the process exits. False for an event that a client
 * does not answer, which cannot be stopped.
 */
bool stopChip(const std::shared_ptr<lmfg::SimulatedChip>& chip) {
    constexpr std::chrono::seconds kPatience{2};
    const auto stopped = std::make_shared<std::promise<void>>();
    auto done = stopped->get_future();
    std::thread stopper([chip, stopped] {
        chip->stop();
        stopped->set_value();
    });
    if (done.wait_for(kPatience) == std::future_status::ready) {
        stopper.join();
        return true;
    }
    std::cerr << "velahost: a client does not answer the chip's event; not waiting for it\n";
    stopper.detach();
    return false;
}

/** Opens what the options ask for; an exit code, 0 when all is well. */
int watch(const Options& options, Watchers* out) {
    if (!options.faults.empty()) {
        auto faults = std::make_shared<Faults>();
        for (const std::string& text : options.faults) {
            if (const std::string wrong = faults->add(text); !wrong.empty()) {
                fail("--fault: " + wrong);
                return kUsage;
            }
        }
        out->observers.push_back(std::move(faults));
    }
    if (!options.journal.empty()) {
        out->journal = std::make_shared<Journal>(options.journal, options.journalTimes);
        if (!out->journal->isOpen()) return fail("cannot write the journal to " + options.journal);
        out->observers.push_back(out->journal);
    }
    if (!options.trace.empty()) {
        out->trace = std::make_shared<TraceWriter>(options.trace);
        if (!out->trace->isOpen()) return fail("cannot write the trace to " + options.trace);
        out->observers.push_back(out->trace);
        binder::setTraceSink(out->trace.get());
        binder::addCallObserver([trace = out->trace](const auto& call, const AParcel*) {
            return trace->observe(call);
        });
    }
    if (!options.record.empty()) {
        out->recorder = std::make_unique<Recorder>(options.record);
        if (!out->recorder->isOpen()) return fail("cannot write the record to " + options.record);
        binder::addCallObserver([recorder = out->recorder.get()](const auto& call, const auto* in) {
            return recorder->observe(call, in);
        });
    }
    return 0;
}

/** Completes all files; an exit code. */
int finish(const Watchers& watchers) {
    int code = 0;
    const auto expect = [&code](bool complete, const char* what) {
        if (!complete) code = fail(std::string("could not write all of the ") + what);
    };
    if (watchers.recorder != nullptr) expect(watchers.recorder->finish(), "record");
    if (watchers.journal != nullptr) expect(watchers.journal->finish(), "journal");
    if (watchers.trace != nullptr) expect(watchers.trace->finish(), "trace");
    return code;
}

/** The process that serves the name and answers; 0 when there is none. */
pid_t serverOf(const char* name) {
    const ndk::SpAIBinder binder(AServiceManager_checkService(name));
    if (binder.get() == nullptr || AIBinder_ping(binder.get()) != STATUS_OK) return 0;
    return binder::servingProcess(binder.get());
}

int serve(const Options& options) {
    if (const auto problem = runtimeFolderProblem(); !problem.empty()) return fail(problem);
    const sigset_t stopSignals = blockStopSignals();
    // The product's lines are of debug priority, which hosts that are no device leave out.
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);

    if (binder::startServiceManager() == binder::ServiceManagerHost::kNone) {
        return fail("cannot start the service manager (see the log)");
    }
    ABinderProcess_setThreadPoolMaxThreadCount(options.threads);
    if (const pid_t pid = options.replace ? 0 : serverOf(kInstance); pid != 0) {
        return fail(processName(pid) + " serves " + kInstance +
                    " already; end it, take the name over with --replace, or set "
                    "BINDER_RUNTIME_DIR to a folder of your own");
    }

    // Never destroyed: calls may be under way when the process ends.
    static auto& watchers = *new Watchers;
    if (const int code = watch(options, &watchers); code != 0) return code;
    if (!options.frames.empty()) {
        std::error_code error;
        std::filesystem::create_directories(options.frames, error);
        if (error) return fail("cannot make " + options.frames + ": " + error.message());
    }
    std::shared_ptr<lmfg::SimulatedChip> chip;
    if (options.chip == "simulated") {
        chip = std::make_shared<lmfg::SimulatedChip>(options.frames);
        chip->setCaller(AIBinder_getCallingPid);
    }
    lmfg::installChip(chip, watchers.observers);

    if (const int code = publish(options.library); code != 0) return code;
    const auto host = ndk::SharedRefBase::make<Host>(chip);
    const std::string hostName = std::string(Host::descriptor) + "/default";
    if (AServiceManager_addService(host->asBinder().get(), hostName.c_str()) != EX_NONE) {
        return fail("cannot publish " + hostName);
    }
    allowManyDescriptors();
    ABinderProcess_startThreadPool();
    std::cout << "velahost: serving " << kInstance << std::endl;

    int signal = 0;
    sigwait(&stopSignals, &signal);
    // From here on the chip raises nothing. Exiting then lets the library release its service
    // object; chip and service library outlive that.
    const bool stopped = chip == nullptr || stopChip(chip);
    const int code = finish(watchers);
    // With an event under way the process ends at once, without its static destructors.
    if (!stopped) std::_Exit(code);
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    Options options{.library = defaultLibrary()};
    CLI::App app("Serves the Vela display service until SIGINT or SIGTERM");
    app.footer(kFooter);
    app.set_version_flag("--version", "velahost " VELA_VERSION);
    app.add_option("--chip", options.chip, "Chip behind the service: simulated or absent")
            ->check(CLI::IsMember({"simulated", "absent"}))
            ->capture_default_str();
    app.add_option("--library", options.library, "Product library to load");
    app.add_option("--threads", options.threads, "Most threads started on demand")
            ->check(CLI::Range(0, 1000))
            ->capture_default_str();
    app.add_flag("--replace", options.replace, "Take the service's name from whoever serves it");
    app.add_option("--record", options.record,
                   "Write every request and event of every client, to be replayed by velactl");
    app.add_option("--journal", options.journal,
                   "Write every call of the chip and every event that it raises");
    app.add_flag("--journal-times", options.journalTimes, "Let the journal tell times");
    app.add_option("--trace", options.trace, "Write requests, calls and events for a trace viewer");
    app.add_option("--frames", options.frames,
                   "Write presented frames to this folder, as JSON and SVG");
    app.add_option("--fault", options.faults, "Let calls of the chip go wrong; may be repeated")
            ->type_name("OPERATION=WHAT[@EVERY]");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) return app.exit(error);
        fail(std::string(error.what()) + "; see velahost --help");
        return kUsage;
    }
    return serve(options);
}
