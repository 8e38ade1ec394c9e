#include "calls/Process.h"

#include <utility>

#include "calls/ThreadPool.h"

namespace binder {

Peers* joinProcesses() {
    return Peers::start([](std::shared_ptr<Peer> peer, std::shared_ptr<Connection> connection) {
        ThreadPool::get().add(std::move(peer), std::move(connection));
    });
}

}  // namespace binder
