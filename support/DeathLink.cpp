#include "support/DeathLink.h"

#include <map>

namespace lmfg::support {
namespace {

struct LiveRecords {
    std::mutex lock;
    std::map<const void*, const char*> types;  // by the record's address
};

/** Never destroyed: notifications and the service's own static object may outlast this file's. */
LiveRecords& liveRecords() {
    static auto& records = *new LiveRecords;
    return records;
}

}  // namespace

void linkToDeath(const std::shared_ptr<ndk::ICInterface>& client,
                 AIBinder_DeathRecipient* recipient, void* record) {
    if (client == nullptr) return;
    const ndk::SpAIBinder binder = client->asBinder();
    if (binder.get() == nullptr || recipient == nullptr) return;
    (void)AIBinder_linkToDeath(binder.get(), recipient, record);
}

void unlinkToDeath(const std::shared_ptr<ndk::ICInterface>& client,
                   AIBinder_DeathRecipient* recipient, void* record) {
    if (client == nullptr) return;
    const ndk::SpAIBinder binder = client->asBinder();
    if (binder.get() == nullptr || recipient == nullptr) return;
    (void)AIBinder_unlinkToDeath(binder.get(), recipient, record);
}

LiveRecord::LiveRecord(const void* record, const char* type) : mRecord(record) {
    LiveRecords& records = liveRecords();
    const std::lock_guard lock(records.lock);
    records.types.emplace(mRecord, type);
}

LiveRecord::~LiveRecord() {
    LiveRecords& records = liveRecords();
    const std::lock_guard lock(records.lock);
    records.types.erase(mRecord);
}

std::unique_lock<std::mutex> LiveRecord::lockIfLive(const void* cookie, const char* type) {
    LiveRecords& records = liveRecords();
    std::unique_lock lock(records.lock);
    const auto found = records.types.find(cookie);
    if (found == records.types.end() || found->second != type) lock.unlock();
    return lock;
}

}  // namespace lmfg::support
