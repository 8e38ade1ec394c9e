// What a call costs beside the least that a round trip between two processes can cost: one byte to
// a thread of another process and back over a Unix socket. Both are measured in turns in one run,
// on one processor and across two: where the scheduler puts the two ends matters more than anything
// else.

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <android/binder_process.h>

#include "binder_host/ServiceManager.h"

namespace {

using Nanoseconds = std::chrono::nanoseconds;

constexpr char kService[] = "bench.roundtrip";
constexpr int kRounds = 40;
constexpr int kCallsPerRound = 500;

void check(bool ok, const char* what) {
    if (ok) return;
    perror(what);
    exit(1);
}

const AIBinder_Class* echoClass() {
    static const AIBinder_Class* const clazz = AIBinder_Class_define(
            "bench.IEcho", [](void* args) { return args; }, [](void*) {},
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) -> binder_status_t {
                return STATUS_OK;
            });
    return clazz;
}

void echoBytes(int socket) {
    char byte;
    while (read(socket, &byte, 1) == 1 && write(socket, &byte, 1) == 1) {
    }
}

void serve() {
    const ndk::SpAIBinder echo(AIBinder_new(echoClass(), nullptr));
    check(AServiceManager_addService(echo.get(), kService) == EX_NONE, "addService");
    ABinderProcess_startThreadPool();
    ABinderProcess_joinThreadPool();
}

template <typename Body>
pid_t start(Body body) {
    const pid_t pid = fork();
    check(pid >= 0, "fork");
    if (pid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        body();
        _exit(0);
    }
    return pid;
}

void runOn(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    check(sched_setaffinity(0, sizeof(set), &set) == 0, "sched_setaffinity");
}

/** The processors this process may use. */
std::vector<int> processors() {
    cpu_set_t set;
    check(sched_getaffinity(0, sizeof(set), &set) == 0, "sched_getaffinity");
    std::vector<int> found;
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        if (CPU_ISSET(i, &set)) found.push_back(i);
    }
    return found;
}

void callBinder(AIBinder* echo) {
    ndk::ScopedAParcel in;
    ndk::ScopedAParcel out;
    binder_status_t status = AIBinder_prepareTransaction(echo, in.getR());
    if (status == STATUS_OK) {
        status = AIBinder_transact(echo, FIRST_CALL_TRANSACTION, in.getR(), out.getR(), 0);
    }
    check(status == STATUS_OK, "transact");
}

void callSocket(int socket) {
    char byte = 0;
    check(write(socket, &byte, 1) == 1 && read(socket, &byte, 1) == 1, "echo");
}

template <typename Call>
void measure(Call call, std::vector<Nanoseconds>* times) {
    for (int i = 0; i < kCallsPerRound; ++i) {
        const auto start = std::chrono::steady_clock::now();
        call();
        times->push_back(std::chrono::steady_clock::now() - start);
    }
}

double medianInMicroseconds(std::vector<Nanoseconds> times) {
    const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
    std::ranges::nth_element(times, middle);
    return static_cast<double>(middle->count()) / 1000;
}

void compare(const char* title, int clientProcessor, int serverProcessor) {
    std::string folder = std::filesystem::temp_directory_path() / "binder-bench-XXXXXX";
    check(mkdtemp(folder.data()) != nullptr, "mkdtemp");
    setenv("BINDER_RUNTIME_DIR", folder.c_str(), 1);

    // Both servers are forked before this process uses binder.
    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
    int go[2];
    check(pipe(go) == 0, "pipe");
    const pid_t bytes = start([&] {
        runOn(serverProcessor);
        echoBytes(ends[1]);
    });
    const pid_t server = start([&] {
        runOn(serverProcessor);
        char byte;
        check(read(go[0], &byte, 1) == 1, "read");
        serve();
    });

    runOn(clientProcessor);
    check(binder::startServiceManager() == binder::ServiceManagerHost::kThisProcess,
          "startServiceManager");
    ABinderProcess_startThreadPool();
    check(write(go[1], "", 1) == 1, "write");
    const ndk::SpAIBinder echo(AServiceManager_waitForService(kService));
    check(AIBinder_associateClass(echo.get(), echoClass()), "associateClass");

    std::vector<Nanoseconds> socketTimes;
    std::vector<Nanoseconds> binderTimes;
    for (int round = 0; round < kRounds; ++round) {
        measure([&] { callSocket(ends[0]); }, &socketTimes);
        measure([&] { callBinder(echo.get()); }, &binderTimes);
    }
    const double socketTime = medianInMicroseconds(std::move(socketTimes));
    const double binderTime = medianInMicroseconds(std::move(binderTimes));
    printf("%-14s  socket echo %6.2f us  binder call %6.2f us  ratio %5.2f\n", title, socketTime,
           binderTime, binderTime / socketTime);
    fflush(stdout);

    for (const pid_t child : {bytes, server}) {
        kill(child, SIGKILL);
        waitpid(child, nullptr, 0);
    }
    std::filesystem::remove_all(folder);
}

}  // namespace

int main() {
    const std::vector<int> available = processors();
    const auto measured = [](pid_t child) {
        int status = 0;
        return waitpid(child, &status, 0) == child && WIFEXITED(status) && WEXITSTATUS(status) == 0;
    };
    // A process has one runtime folder for life: each comparison gets processes of its own.
    bool ok = measured(start([&] { compare("one processor", available[0], available[0]); }));
    if (available.size() > 1) {
        ok = measured(start([&] { compare("two processors", available[0], available[1]); })) && ok;
    }
    return ok ? 0 : 1;
}
