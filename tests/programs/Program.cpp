#include "tests/programs/Program.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <utility>

namespace {

constexpr int kPatienceMs = 30'000;

/** A file in memory, at its start, with that content. */
int memoryFile(const std::string& content) {
    const int fd = memfd_create("program", MFD_CLOEXEC);
    if (fd < 0) std::abort();
    if (write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
        std::abort();
    }
    lseek(fd, 0, SEEK_SET);
    return fd;
}

}  // namespace

std::string programFolder() {
    return std::filesystem::read_symlink("/proc/self/exe").parent_path();
}

std::string libraryFolder() {
    return std::filesystem::path(programFolder()).parent_path() / "lib";
}

Program::Program(const std::string& name, const std::vector<std::string>& arguments,
                 const std::string& input) {
    const std::string path = name.starts_with('/') ? name : programFolder() + "/" + name;
    std::vector<char*> argv{const_cast<char*>(path.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);

    std::array<int, 2> out{};
    if (pipe2(out.data(), O_CLOEXEC) != 0) std::abort();
    const int in = memoryFile(input);
    mErrors = memoryFile("");
    mPid = fork();
    if (mPid < 0) std::abort();
    if (mPid == 0) {
        // A killed test must not leave servers behind.
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        dup2(in, STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        dup2(mErrors, STDERR_FILENO);
        execv(path.c_str(), argv.data());
        _exit(127);
    }
    close(in);
    close(out[1]);
    mOut = out[0];
}

Program::~Program() {
    if (!mCode.has_value()) {
        sendSignal(SIGKILL);
        wait();
    }
    close(mOut);
    close(mErrors);
}

std::optional<std::string> Program::readLine() {
    while (true) {
        if (const size_t end = mBuffer.find('\n'); end != std::string::npos) {
            std::string line = mBuffer.substr(0, end);
            mBuffer.erase(0, end + 1);
            return line;
        }
        pollfd readable{.fd = mOut, .events = POLLIN, .revents = 0};
        if (poll(&readable, 1, kPatienceMs) <= 0) return std::nullopt;
        std::array<char, 4096> chunk{};
        const ssize_t count = read(mOut, chunk.data(), chunk.size());
        if (count <= 0) return std::nullopt;
        mBuffer.append(chunk.data(), static_cast<size_t>(count));
    }
}

std::string Program::readRest() {
    std::string text;
    while (auto line = readLine())
        text += *line + "\n";
    return text + std::exchange(mBuffer, {});
}

void Program::sendSignal(int signal) const {
    kill(mPid, signal);
}

int Program::wait() {
    if (!mCode.has_value()) {
        int status = 0;
        while (waitpid(mPid, &status, 0) < 0 && errno == EINTR) {
        }
        mCode = WIFEXITED(status) ? WEXITSTATUS(status) : -WTERMSIG(status);
    }
    return *mCode;
}

std::string Program::errors() const {
    struct stat info {};
    fstat(mErrors, &info);
    std::string text(static_cast<size_t>(info.st_size), '\0');
    const ssize_t count = pread(mErrors, text.data(), text.size(), 0);
    text.resize(count < 0 ? 0 : static_cast<size_t>(count));
    return text;
}

Result runProgram(const std::string& name, const std::vector<std::string>& arguments,
                  const std::string& input) {
    Program program(name, arguments, input);
    Result result{.code = 0, .out = program.readRest(), .errors = {}};
    result.code = program.wait();
    result.errors = program.errors();
    return result;
}
