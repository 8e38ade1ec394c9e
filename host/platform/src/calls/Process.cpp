#include "calls/Process.h"

#include <utility>

#include "calls/OnewayInbox.h"
#include "calls/ThreadPool.h"

namespace binder {

Peers* joinProcesses() {
    if (Peers* const peers = Peers::get(); peers != nullptr) return peers;
    ThreadPool& pool = ThreadPool::get();
    if (!pool.prepare()) return nullptr;
    return Peers::start(
            {.serve =
                     [&pool](Line line, ConnectionKind kind) {
                         if (kind == ConnectionKind::kCall) {
                             pool.add(std::move(line));
                             return;
                         }
                         OnewayInbox::serve(std::move(line), [&pool](StrongBinder object) {
                             pool.serveOnewaysOf(std::move(object));
                         });
                     },
             .letGo = [&pool](const Connection& connection) { pool.letGo(connection); }});
}

}  // namespace binder
