#include <algorithm>
#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include "calls/Marshal.h"
#include "calls/Process.h"
#include "fuzz/OpenDescriptors.h"
#include "transport/Connection.h"
#include "transport/Wire.h"

// Arbitrary bytes, with descriptors, over a socket: received in two pieces, interrupted by signals,
// and unpacked. Nothing that came along stays open, or on the sender's account.

namespace {

using binder::Connection;

/** What the first bytes of the input say. */
struct Plan {
    uint8_t kind;
    uint8_t descriptors;
    uint8_t cut;
    uint8_t repair;
};

binder::Peers* startProcess() {
    std::string folder = std::filesystem::temp_directory_path() / "binder-fuzz-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) abort();
    setenv("BINDER_RUNTIME_DIR", folder.c_str(), 1);
    static std::string removed;
    removed = folder;
    std::atexit([] { std::filesystem::remove_all(removed); });
    // Interrupts whatever waits, without having it restarted.
    struct sigaction action {};
    action.sa_handler = [](int) {};
    sigaction(SIGALRM, &action, nullptr);
    const itimerval often{.it_interval = {0, 500}, .it_value = {0, 500}};
    setitimer(ITIMER_REAL, &often, nullptr);
    return binder::joinProcesses();
}

void sendPiece(int socket, const uint8_t* data, size_t size, const std::vector<int>& descriptors) {
    iovec buffer{const_cast<uint8_t*>(data), size};
    msghdr message{};
    message.msg_iov = &buffer;
    message.msg_iovlen = 1;
    alignas(cmsghdr) char control[CMSG_SPACE(binder::kMaxDescriptors * sizeof(int))];
    if (!descriptors.empty()) {
        const size_t bytes = descriptors.size() * sizeof(int);
        message.msg_control = control;
        message.msg_controllen = CMSG_SPACE(bytes);
        cmsghdr* const header = CMSG_FIRSTHDR(&message);
        *header = {.cmsg_len = CMSG_LEN(bytes), .cmsg_level = SOL_SOCKET, .cmsg_type = SCM_RIGHTS};
        std::copy_n(reinterpret_cast<const char*>(descriptors.data()), bytes,
                    reinterpret_cast<char*>(CMSG_DATA(header)));
    }
    while (sendmsg(socket, &message, MSG_NOSIGNAL | MSG_DONTWAIT) < 0 && errno == EINTR) {
    }
}

/** A file, and a pipe's end, as goes with a binder. The other end stays open. */
std::array<int, 2> openFiles() {
    std::array<int, 2> pipe{};
    if (pipe2(pipe.data(), O_CLOEXEC) != 0) abort();
    return {memfd_create("fuzz", MFD_CLOEXEC), pipe[1]};
}

/** Most inputs are to get past the header. */
void repair(const Plan& plan, size_t descriptors, std::vector<uint8_t>* bytes) {
    binder::Header header;
    if (bytes->size() < sizeof(header)) return;
    std::copy_n(bytes->data(), sizeof(header), reinterpret_cast<uint8_t*>(&header));
    header.magic = binder::Header::kMagic;
    header.kind = static_cast<binder::MessageKind>(1 + plan.repair % 7);
    header.count = header.kind == binder::MessageKind::kCall ? header.count % 16 : 0;
    header.objectCount = static_cast<uint32_t>(descriptors);
    const size_t rest = bytes->size() - sizeof(header);
    const size_t table = binder::tableSizeOf(header);
    header.dataSize = static_cast<uint32_t>(rest - std::min(rest, table));
    if (header.dataSize == 0) header.objectCount = 0;
    std::copy_n(reinterpret_cast<const uint8_t*>(&header), sizeof(header), bytes->data());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static binder::Peers* const peers = startProcess();
    static const std::array<int, 2> files = openFiles();
    if (peers == nullptr || size < sizeof(Plan)) return 0;
    const Plan plan{data[0], data[1], data[2], data[3]};
    std::vector<uint8_t> bytes(data + sizeof(Plan), data + size);
    std::vector<int> descriptors;
    for (int i = 0; i < plan.descriptors % 4; ++i)
        descriptors.push_back(files.at(plan.descriptors >> (i + 2) & 1));
    if (plan.repair != 0) repair(plan, descriptors.size(), &bytes);
    const auto before = fuzz::openDescriptors();
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) abort();
    {
        const android::base::unique_fd sender(ends[0]);
        const auto kind = static_cast<binder::ConnectionKind>(plan.kind % 2);
        // Its account is to be even at its end.
        const binder::Peer peer(1, {});
        Connection connection(android::base::unique_fd(ends[1]), kind,
                              {.pid = 1, .uid = 0, .gid = 0}, peer.account());
        const size_t cut = std::min<size_t>(plan.cut, bytes.size());
        const std::vector<int> late(plan.repair == 0 ? 1 : 0, files[0]);
        for (const bool first : {true, false}) {
            const size_t at = first ? 0 : cut;
            const size_t count = first ? cut : bytes.size() - cut;
            if (count > 0) sendPiece(sender, bytes.data() + at, count, first ? descriptors : late);
            binder::Incoming message;
            const auto received = connection.receive(&message, {});
            if (received == binder::Received::kNotYet) continue;
            if (received != binder::Received::kMessage) break;
            (void)binder::unpack(peer, &message);
        }
    }
    if (fuzz::openDescriptors() != before) abort();
    return 0;
}
