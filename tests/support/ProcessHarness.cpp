#include "tests/support/ProcessHarness.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>

extern char** environ;

namespace harness {
namespace {

constexpr std::string_view kRoleOption = "--role=";
constexpr std::string_view kCountOption = "--count=";
constexpr int kSilenceMs = 30'000;

std::optional<int> gCount;
std::filesystem::path gRuntimeFolder;

std::map<std::string, std::function<void(Parent&)>>& roles() {
    static std::map<std::string, std::function<void(Parent&)>> instance;
    return instance;
}

void makeRuntimeFolder() {
    std::string path = std::filesystem::temp_directory_path() / "binder-test-XXXXXX";
    if (mkdtemp(path.data()) == nullptr) abort();
    gRuntimeFolder = path;
    setenv("BINDER_RUNTIME_DIR", path.c_str(), 1);
}

int play(const std::string& name, std::vector<std::string> arguments) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const auto role = roles().find(name);
    if (role == roles().end()) {
        fprintf(stderr, "No role is named %s\n", name.c_str());
        return 2;
    }
    gRuntimeFolder = getenv("BINDER_RUNTIME_DIR");
    Parent parent(std::move(arguments));
    role->second(parent);
    return 0;
}

void writeLine(int fd, std::string_view line) {
    const std::string bytes = std::string(line) + "\n";
    for (size_t sent = 0; sent < bytes.size();) {
        const ssize_t result = write(fd, bytes.data() + sent, bytes.size() - sent);
        if (result <= 0) return;
        sent += static_cast<size_t>(result);
    }
}

}  // namespace

int run(int argc, char** argv) {
    signal(SIGPIPE, SIG_IGN);
    const std::vector<std::string> arguments(argv + 1, argv + argc);
    for (const std::string& argument : arguments) {
        if (argument.starts_with(kCountOption)) {
            gCount = std::stoi(argument.substr(kCountOption.size()));
        }
    }
    if (!arguments.empty() && arguments[0].starts_with(kRoleOption)) {
        return play(arguments[0].substr(kRoleOption.size()),
                    {arguments.begin() + 1, arguments.end()});
    }
    makeRuntimeFolder();
    testing::InitGoogleMock(&argc, argv);
    const int result = RUN_ALL_TESTS();
    std::error_code ignored;
    std::filesystem::remove_all(gRuntimeFolder, ignored);
    return result;
}

int countOr(int fallback) {
    return gCount.value_or(fallback);
}

const std::filesystem::path& runtimeFolder() {
    return gRuntimeFolder;
}

size_t openDescriptors(pid_t pid) {
    const std::filesystem::directory_iterator folder("/proc/" + std::to_string(pid) + "/fd");
    const auto count = static_cast<size_t>(std::distance(begin(folder), end(folder)));
    return pid == getpid() ? count - 1 : count;  // the iterator's own
}

Role::Role(const char* name, std::function<void(Parent&)> body) {
    roles()[name] = std::move(body);
}

void Parent::say(std::string_view line) {
    writeLine(STDOUT_FILENO, line);
}

std::optional<std::string> Parent::hear() {
    std::string line;
    for (char c; read(STDIN_FILENO, &c, 1) == 1;) {
        if (c == '\n') return line;
        line += c;
    }
    return std::nullopt;
}

void Parent::untilGone() {
    while (hear().has_value()) {
    }
}

Child::Child(const std::string& role, const std::vector<std::string>& arguments) {
    int toChild[2];
    int fromChild[2];
    if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(fromChild, O_CLOEXEC) != 0) {
        ADD_FAILURE() << "no pipes left";
        return;
    }
    mIn = toChild[1];
    mOut = fromChild[0];

    std::vector<std::string> words = {"/proc/self/exe", std::string(kRoleOption) + role};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, toChild[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, fromChild[1], STDOUT_FILENO);
    const int error = posix_spawn(&mPid, pointers[0], &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(toChild[0]);
    close(fromChild[1]);
    if (error != 0) {
        mPid = -1;
        ADD_FAILURE() << "cannot start role " << role;
    }
}

Child::~Child() {
    kill();
    if (mIn >= 0) close(mIn);
    if (mOut >= 0) close(mOut);
}

Child::Child(Child&& other) noexcept
    : mPid(std::exchange(other.mPid, -1)),
      mIn(std::exchange(other.mIn, -1)),
      mOut(std::exchange(other.mOut, -1)),
      mHeard(std::move(other.mHeard)) {}

void Child::say(std::string_view line) {
    writeLine(mIn, line);
}

std::string Child::hear() {
    for (;;) {
        if (const size_t end = mHeard.find('\n'); end != std::string::npos) {
            const std::string line = mHeard.substr(0, end);
            mHeard.erase(0, end + 1);
            return line;
        }
        pollfd event{.fd = mOut, .events = POLLIN, .revents = 0};
        char buffer[512];
        if (poll(&event, 1, kSilenceMs) <= 0) return "(nothing)";
        const ssize_t got = read(mOut, buffer, sizeof(buffer));
        if (got <= 0) return "(nothing)";
        mHeard.append(buffer, static_cast<size_t>(got));
    }
}

void Child::signal(int number) {
    if (mPid > 0) ::kill(mPid, number);
}

void Child::kill() {
    if (mPid <= 0) return;
    signal(SIGKILL);
    await();
}

int Child::finish() {
    if (mIn >= 0) close(std::exchange(mIn, -1));
    return mPid > 0 ? await() : -1;
}

int Child::await() {
    int status = 0;
    while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
    }
    mPid = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
}

}  // namespace harness
