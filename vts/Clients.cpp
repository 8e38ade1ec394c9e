#include "vts/Clients.h"

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <cstring>

namespace vts {
namespace {

constexpr char kRole[] = "--client";
constexpr unsigned kLongestLifeSeconds = 60;

ScopedAStatus sayAndHang(const std::string& line) {
    std::puts(line.c_str());
    std::fflush(stdout);
    for (;;)
        pause();
}

}  // namespace

std::string enroll(const Service& service, Kind kind, int64_t id, const Hear& hear) {
    const auto& [vela, composer, _] = service;
    if (kind == Kind::kCallback) {
        return told(
                vela->registerCallback(id, hear ? SharedRefBase::make<Callback>(hear) : nullptr));
    }
    if (kind == Kind::kSoftClient) {
        return told(vela->registerSoftVelaClient(
                id, hear ? SharedRefBase::make<SoftClient>(hear) : nullptr));
    }
    return told(composer->registerCallback(hear ? SharedRefBase::make<Compositor>(hear) : nullptr));
}

ClientProcess::ClientProcess(const std::string& instance, Kind kind, int64_t id) {
    const std::string kindText = std::to_string(static_cast<int>(kind));
    const std::string idText = std::to_string(id);
    int lines[2];
    if (pipe2(lines, O_CLOEXEC) != 0) return;
    mLines = fdopen(lines[0], "r");
    mPid = fork();
    if (mPid == 0) {
        dup2(lines[1], STDOUT_FILENO);
        execl("/proc/self/exe", "vts", kRole, instance.c_str(), kindText.c_str(), idText.c_str(),
              nullptr);
        _exit(1);
    }
    close(lines[1]);
}

ClientProcess::~ClientProcess() {
    kill();
    if (mLines != nullptr) std::fclose(mLines);
}

std::string ClientProcess::hear() {
    char line[256] = "";
    if (mLines == nullptr || std::fgets(line, sizeof line, mLines) == nullptr) return "";
    return std::string(line, std::strcspn(line, "\n"));
}

bool ClientProcess::kill() {
    const pid_t pid = std::exchange(mPid, -1);
    int status = 0;
    if (pid <= 0 || ::kill(pid, SIGKILL) != 0 || waitpid(pid, &status, 0) != pid) return false;
    return WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL;
}

void ClientProcess::playIfAsked(int argc, char** argv) {
    if (argc != 5 || std::strcmp(argv[1], kRole) != 0) return;
    alarm(kLongestLifeSeconds);
    const auto kind = static_cast<Kind>(std::atoi(argv[3]));
    const Service service = connect(argv[2], kind == Kind::kCompositor);
    const std::string status = enroll(service, kind, std::atoll(argv[4]), sayAndHang);
    (void)sayAndHang(status);
}

}  // namespace vts
