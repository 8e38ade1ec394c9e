#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <future>
#include <iostream>
#include <memory>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <android/binder_manager.h>
#include <android/binder_process.h>
#include <android/log.h>
#include <CLI/CLI.hpp>

#include "host/chip/ChipHost.h"
#include "host/chip/SimulatedChip.h"
#include "host/codec/StandardFiles.h"
#include "host/velahost/Faults.h"
#include "host/velahost/Frames.h"
#include "host/velahost/Host.h"
#include "host/velahost/RuntimeFolder.h"
#include "host/velahost/Takeover.h"
#include "host/velahost/Watchers.h"

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
        "Exit codes: 0 ended by a signal or replaced, 1 could not serve or not write all, 2 wrong "
        "usage.\n";

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
    uint64_t recordLimit = 0;
    std::vector<std::string> faults;
};

int fail(const std::string& text) {
    std::cerr << "velahost: " + text + "\n" << std::flush;
    return kFailure;
}

/** Prints the text; an exit code. */
int print(const std::string& text) {
    errno = 0;
    std::cout << text << std::flush;
    return std::cout ? 0 : fail(std::string("cannot write to stdout: ") + std::strerror(errno));
}

/** The product library of this build: in the folder "lib" beside that of the program. */
std::string defaultLibrary() {
    std::error_code error;
    const auto program = std::filesystem::read_symlink("/proc/self/exe", error);
    return program.parent_path().parent_path() / "lib" / kLibrary;
}

using Entry = int32_t();

/** The library's entry; null when it cannot be loaded, which is told. It is never unloaded. */
Entry* load(const std::string& library) {
    void* const handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        fail(std::string("cannot load the library: ") + dlerror());
        return nullptr;
    }
    auto* const entry = reinterpret_cast<Entry*>(dlsym(handle, kEntry));
    if (entry == nullptr) fail(library + " has no entry " + kEntry);
    return entry;
}

/**
 * A service has many clients, each with connections of its own: allows all that the system does.
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

/** Begins what the options ask for; an exit code, 0 when all is well. */
int watch(const Options& options) {
    const std::pair<const char*, const std::string&> files[] = {
            {"record", options.record}, {"journal", options.journal}, {"trace", options.trace}};
    for (const auto& [kind, path] : files) {
        if (path.empty()) continue;
        const Problem problem = Watchers::get().write(
                kind, {.path = path, .limit = options.recordLimit, .times = options.journalTimes});
        if (!problem) continue;
        fail(problem.text);
        return problem.isUsage ? kUsage : kFailure;
    }
    return 0;
}

/** Makes the folder for the frames; an exit code. */
int makeFolder(const std::string& folder) {
    std::error_code error;
    if (!folder.empty()) std::filesystem::create_directories(folder, error);
    if (!error && !folder.empty() && access(folder.c_str(), W_OK | X_OK) != 0) {
        error.assign(errno, std::generic_category());
    }
    return error ? fail("cannot make " + folder + ": " + error.message()) : 0;
}

int serve(const Options& options) {
    if (const auto problem = runtimeFolderProblem(); !problem.empty()) return fail(problem);
    const sigset_t stopSignals = blockStopSignals();
    // A reader that has gone is an error of the write, not the end of the service.
    (void)std::signal(SIGPIPE, SIG_IGN);
    // The product's lines are of debug priority, which hosts that are no device leave out.
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);

    if (const Problem problem = Watchers::get().fault(options.faults); problem) {
        fail("--fault: " + problem.text);
        return kUsage;
    }
    if (const std::string error = becomeHost(options.replace); !error.empty()) return fail(error);
    ABinderProcess_setThreadPoolMaxThreadCount(options.threads);

    // The files last: nothing is written, and nothing overwritten, for a host that cannot serve.
    Entry* const entry = load(options.library);
    if (entry == nullptr) return kFailure;
    if (const int code = makeFolder(options.frames); code != 0) return code;
    const auto frames = std::make_shared<Frames>(options.frames);
    std::shared_ptr<lmfg::SimulatedChip> chip;
    if (options.chip == "simulated") {
        lmfg::SimulatedChip::FrameSink sink;
        if (!options.frames.empty()) {
            sink = [frames](auto number, const auto& json, const auto& svg) {
                frames->write(number, json, svg);
            };
        }
        chip = std::make_shared<lmfg::SimulatedChip>(std::move(sink));
    }
    lmfg::installChip(chip);
    Watchers::get().install();
    if (const int code = watch(options); code != 0) {
        Watchers::get().discard();
        return code;
    }

    if (const int32_t result = entry(); result != 0) {
        Watchers::get().discard();
        return fail(options.library + ": " + kEntry + " returned " + std::to_string(result));
    }
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
    const int code = Watchers::get().finish() && frames->isComplete() ? 0 : kFailure;
    // With an event under way the process ends at once, without its static destructors.
    if (!stopped) std::_Exit(code);
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    openStandardFiles();
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
    app.add_flag("--replace", options.replace, "End the velahost that serves, and serve instead");
    app.add_option("--record", options.record,
                   "Write every request and event of every client, to be replayed by velactl");
    auto* const journal =
            app.add_option("--journal", options.journal,
                           "Write every call of the chip and every event that it raises");
    app.add_flag("--journal-times", options.journalTimes, "Let the journal tell times")
            ->needs(journal);
    app.add_option("--trace", options.trace, "Write requests, calls and events for a trace viewer");
    app.add_option("--record-limit", options.recordLimit,
                   "Write record, journal and trace as numbered files of about this size")
            ->type_name("SIZE")
            ->transform(CLI::AsSizeValue(false))
            ->check(CLI::Range(int64_t{1}, int64_t{1} << 50));
    app.add_option("--frames", options.frames,
                   "Write presented frames to this folder, as JSON and SVG");
    app.add_option("--fault", options.faults, "Let calls of the chip go wrong; may be repeated")
            ->type_name("OPERATION=WHAT[@EVERY]");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        if (error.get_exit_code() == 0) {
            std::ostringstream text;
            (void)app.exit(error, text);
            return print(text.str());
        }
        fail(std::string(error.what()) + "; see velahost --help");
        return kUsage;
    }
    if (options.recordLimit != 0 && options.record.empty() && options.journal.empty() &&
        options.trace.empty()) {
        fail("--record-limit is of --record, --journal or --trace");
        return kUsage;
    }
    if (std::find(options.faults.begin(), options.faults.end(), "help") != options.faults.end()) {
        return print(Faults::help() + "\n");
    }
    return serve(options);
}
