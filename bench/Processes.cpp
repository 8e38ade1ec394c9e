#include "bench/Processes.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <system_error>

#include <sched.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

namespace bench {

void check(bool ok, const char* what) {
    if (ok) return;
    std::perror(what);
    // The parent's folder and children are the parent's: no destructors.
    std::_Exit(1);
}

std::vector<int> processors() {
    cpu_set_t set;
    check(sched_getaffinity(0, sizeof(set), &set) == 0, "sched_getaffinity");
    std::vector<int> found;
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        if (CPU_ISSET(i, &set)) found.push_back(i);
    }
    return found;
}

void runOn(int processor) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(processor, &set);
    check(sched_setaffinity(0, sizeof(set), &set) == 0, "sched_setaffinity");
}

RuntimeFolder::RuntimeFolder() : mPath(std::filesystem::temp_directory_path() / "bench-XXXXXX") {
    check(mkdtemp(mPath.data()) != nullptr, "mkdtemp");
    setenv("BINDER_RUNTIME_DIR", mPath.c_str(), 1);
}

RuntimeFolder::~RuntimeFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(mPath, ignored);
}

void Channel::send(const void* bytes, size_t size) const {
    const auto* next = static_cast<const char*>(bytes);
    for (const char* const end = next + size; next != end;) {
        const ssize_t count = ::send(mSocket, next, static_cast<size_t>(end - next), MSG_NOSIGNAL);
        check(count > 0, "send");
        next += count;
    }
}

void Channel::receive(void* bytes, size_t size) const {
    auto* next = static_cast<char*>(bytes);
    for (char* const end = next + size; next != end;) {
        const ssize_t count = ::recv(mSocket, next, static_cast<size_t>(end - next), 0);
        check(count > 0, "recv");
        next += count;
    }
}

Child::Child(const std::function<void(Channel)>& body) {
    int ends[2];
    check(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0, "socketpair");
    mPid = fork();
    check(mPid >= 0, "fork");
    if (mPid == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        close(ends[0]);
        body(Channel(ends[1]));
        std::_Exit(0);
    }
    close(ends[1]);
    mChannel = Channel(ends[0]);
}

Child::~Child() {
    kill(mPid, SIGKILL);
    waitpid(mPid, nullptr, 0);
    close(mChannel.socket());
}

void serveEcho(Channel channel) {
    std::vector<char> buffer(size_t{1} << 20);
    for (;;) {
        EchoSizes sizes{};
        size_t got = 0;
        do {
            const ssize_t count =
                    recv(channel.socket(), buffer.data() + got, buffer.size() - got, 0);
            if (count <= 0) return;
            got += static_cast<size_t>(count);
            std::memcpy(&sizes, buffer.data(), sizeof(sizes));
        } while (got < sizes.request);
        channel.send(buffer.data(), sizes.reply);
    }
}

void exchangeEcho(const Channel& channel, EchoSizes sizes, std::vector<char>* buffer) {
    std::memcpy(buffer->data(), &sizes, sizeof(sizes));
    channel.send(buffer->data(), sizes.request);
    channel.receive(buffer->data(), sizes.reply);
}

}  // namespace bench
