#include <dlfcn.h>
#include <pthread.h>
#include <signal.h>

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

#include <android/binder_process.h>
#include <android/log.h>
#include <binder_host/ServiceManager.h>
#include <CLI/CLI.hpp>

#include "host/chip/ChipHost.h"
#include "host/chip/SimulatedChip.h"
#include "host/velahost/TraceWriter.h"
#include "host/velahost/TracingChip.h"

namespace {

constexpr const char* kLibrary = "vendor.lumenforge.hardware.display-impl.so";
constexpr const char* kEntry = "AIDL_REGISTER_IVela";
constexpr const char* kInstance = "vendor.lumenforge.hardware.display.IVela/default";

constexpr int kFailure = 1;
constexpr int kUsage = 2;

struct Options {
    std::string chip = "simulated";
    std::string library;
    uint32_t threads = 15;
    std::string trace;
    std::string frames;
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
 * Stops the chip, so that no event runs while the process exits. An event that a client never
 * answers cannot be stopped: then the process ends at once, without its static destructors.
 */
void stopChip(const std::shared_ptr<lmfg::Chip>& chip) {
    constexpr std::chrono::seconds kPatience{2};
    std::promise<void> stopped;
    auto done = stopped.get_future();
    std::thread stopper([&chip, &stopped] {
        chip->stop();
        stopped.set_value();
    });
    if (done.wait_for(kPatience) != std::future_status::ready) {
        std::cerr << "velahost: a client does not answer the chip's event; not waiting for it\n";
        std::_Exit(0);
    }
    stopper.join();
}

int serve(const Options& options) {
    const sigset_t stopSignals = blockStopSignals();
    // The product's lines are of debug priority, which hosts that are no device leave out.
    __android_log_set_minimum_priority(ANDROID_LOG_DEBUG);

    std::shared_ptr<TraceWriter> trace;
    std::shared_ptr<lmfg::Chip> chip;
    if (options.chip == "simulated") chip = std::make_shared<lmfg::SimulatedChip>(options.frames);
    if (!options.trace.empty()) {
        trace = std::make_shared<TraceWriter>(options.trace);
        if (!trace->isOpen()) return fail("cannot write the trace to " + options.trace);
        if (chip != nullptr) chip = std::make_shared<TracingChip>(std::move(chip), trace);
    }
    lmfg::installChip(chip);

    if (binder::startServiceManager() == binder::ServiceManagerHost::kNone) {
        return fail("cannot start the service manager (see the log)");
    }
    ABinderProcess_setThreadPoolMaxThreadCount(options.threads);
    if (const int code = publish(options.library); code != 0) return code;
    ABinderProcess_startThreadPool();
    std::cout << "velahost: serving " << kInstance << std::endl;

    int signal = 0;
    sigwait(&stopSignals, &signal);
    // From here on the chip raises nothing. Exiting then lets the library release its service
    // object; chip and service library outlive that.
    if (chip != nullptr) stopChip(chip);
    if (trace != nullptr) trace->finish();
    return 0;
}

}  // namespace

int main(int argc, char** argv) {
    Options options{.library = defaultLibrary()};
    CLI::App app("Serves the Vela display service until SIGINT or SIGTERM");
    app.add_option("--chip", options.chip, "Chip behind the service: simulated or absent")
            ->check(CLI::IsMember({"simulated", "absent"}))
            ->capture_default_str();
    app.add_option("--library", options.library, "Product library to load");
    app.add_option("--threads", options.threads, "Most threads started on demand")
            ->check(CLI::Range(0, 1000))
            ->capture_default_str();
    app.add_option("--trace", options.trace, "Write the chip's calls to this file, as JSON trace");
    app.add_option("--frames", options.frames, "Write presented frames to this folder")
            ->check(CLI::ExistingDirectory);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : kUsage;
    }
    return serve(options);
}
