#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <signal.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/time.h>

#include "calls/Marshal.h"
#include "calls/Process.h"
#include "fuzz/OpenDescriptors.h"
#include "transport/Connection.h"

// Arbitrary bytes, with descriptors, over a socket: received in two pieces, interrupted by signals,
// and unpacked. Nothing that came along stays open.

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

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static binder::Peers* const peers = startProcess();
    static const auto peer = std::make_shared<binder::Peer>(peers->self(), "1.0123456789abcdef");
    static const int file = memfd_create("fuzz", MFD_CLOEXEC);
    if (size < sizeof(Plan)) return 0;
    const Plan plan{data[0], data[1], data[2], data[3]};
    std::vector<uint8_t> bytes(data + sizeof(Plan), data + size);
    if (bytes.size() >= sizeof(binder::Header) && plan.repair % 4 != 0) {
        // Most inputs are to get past the header.
        binder::Header header;
        std::copy_n(bytes.data(), sizeof(header), reinterpret_cast<uint8_t*>(&header));
        header.magic = binder::Header::kMagic;
        header.descriptorCount = plan.descriptors % 4;
        header.tableSize %= 256;
        header.dataSize = static_cast<uint32_t>(bytes.size() - sizeof(header)) -
                          std::min<uint32_t>(header.tableSize,
                                             static_cast<uint32_t>(bytes.size() - sizeof(header)));
        header.kind = static_cast<binder::MessageKind>(1 + plan.repair % 8);
        header.count %= 16;
        std::copy_n(reinterpret_cast<const uint8_t*>(&header), sizeof(header), bytes.data());
    }
    const auto before = fuzz::openDescriptors();
    int ends[2];
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) abort();
    {
        const android::base::unique_fd sender(ends[0]);
        const auto kind = static_cast<binder::ConnectionKind>(1 + plan.kind % 3);
        Connection connection(android::base::unique_fd(ends[1]), kind, 1, 0);
        connection.countUnfinished(std::make_shared<binder::UnfinishedDescriptors>());
        const size_t cut = std::min<size_t>(plan.cut, bytes.size());
        const std::vector<int> descriptors(plan.descriptors % 4, file);
        const std::vector<int> late(plan.repair == 0 ? 1 : 0, file);
        for (const bool first : {true, false}) {
            const size_t at = first ? 0 : cut;
            const size_t count = first ? cut : bytes.size() - cut;
            if (count > 0) sendPiece(sender, bytes.data() + at, count, first ? descriptors : late);
            binder::Incoming message;
            const auto received = connection.receive(&message, Connection::Wait::kNo);
            if (received == Connection::Received::kNotYet) continue;
            if (received != Connection::Received::kMessage) break;
            if (message.parcel != nullptr) binder::unpack(peer, &message);
        }
    }
    if (fuzz::openDescriptors() != before) abort();
    return 0;
}
