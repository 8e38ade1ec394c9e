#include "calls/Marshal.h"

#include <optional>
#include <string>
#include <utility>

#include "calls/Exports.h"
#include "calls/Peers.h"
#include "calls/Proxy.h"

namespace binder {
namespace {

bool isCounted(const Proxy& proxy) {
    return proxy.id() != kServiceManagerObject;
}

void tellOwner(Peer& owner, MessageKind kind, uint64_t id, const Peer& other) {
    Header message{};
    message.kind = kind;
    message.object = id;
    owner.sendControl(message, other.name());
}

/** The binder that came from the peer; null when it is of this process and gone. */
StrongBinder resolve(Peers& peers, const std::shared_ptr<Peer>& from, const ObjectRecord& record) {
    const auto stability = static_cast<Stability>(record.stability);
    if (record.endpoint.empty()) return Proxy::received(from, record.id, stability);
    if (record.endpoint == peers.self().name()) {
        Exports& exports = Exports::get();
        StrongBinder object = exports.find(record.id);
        exports.claim(kSelf, from->number(), record.id);
        exports.release(kSelf, record.id, 1);
        if (from->isDead()) exports.dropPeer(from->number());
        return object;
    }
    const std::shared_ptr<Peer> owner = peers.obtain(std::string(record.endpoint));
    StrongBinder proxy = Proxy::received(owner, record.id, stability);
    if (isCounted(proxyOf(*proxy))) tellOwner(*owner, MessageKind::kClaim, record.id, *from);
    return proxy;
}

}  // namespace

Packed::Packed(Peer& peer, const AParcel* parcel) : mPeer(peer) {
    if (parcel != nullptr) mStatus = pack(*parcel);
}

Packed::~Packed() {
    if (mSent) return;
    for (const uint64_t id : mCounted)
        Exports::get().release(mPeer.number(), id, 1);
    for (const AIBinder* const granted : mGranted) {
        const auto& proxy = static_cast<const Proxy&>(*granted);
        tellOwner(*proxy.owner(), MessageKind::kRevoke, proxy.id(), mPeer);
    }
}

binder_status_t Packed::packBinder(uint32_t offset, AIBinder& binder) {
    ObjectRecord record{.kind = ObjectRecord::Kind::kBinder, .offset = offset};
    if (LocalObject* const local = localOf(&binder); local != nullptr) {
        record.id = Exports::get().add(mPeer.number(), *local);
        mCounted.push_back(record.id);
        record.stability = static_cast<uint32_t>(local->offerStability(kOwnStability));
        if (mPeer.isDead()) {
            Exports::get().dropPeer(mPeer.number());
            return STATUS_DEAD_OBJECT;
        }
    } else {
        const Proxy& proxy = proxyOf(binder);
        if (proxy.isDead()) return STATUS_DEAD_OBJECT;
        record.id = proxy.id();
        record.stability = static_cast<uint32_t>(proxy.stability());
        record.endpoint = proxy.owner()->name();
        if (isCounted(proxy)) {
            tellOwner(*proxy.owner(), MessageKind::kGrant, proxy.id(), mPeer);
            mGranted.push_back(&binder);
        }
    }
    appendRecord(record, &mMessage.table);
    return STATUS_OK;
}

binder_status_t Packed::pack(const AParcel& parcel) {
    Header& header = mMessage.header;
    const std::vector<AParcel::Object>& objects = parcel.objects();
    if (parcel.dataSize() + objects.size() * kOffsetSize > kMaxTransaction) {
        return STATUS_FAILED_TRANSACTION;
    }
    for (const AParcel::Object& object : objects) {
        if (object.kind == AParcel::Object::Kind::kBinder) {
            const binder_status_t status = packBinder(object.offset, *object.binder);
            if (status != STATUS_OK) return status;
        } else {
            appendRecord({.kind = ObjectRecord::Kind::kDescriptor, .offset = object.offset},
                         &mMessage.table);
            mMessage.descriptors.push_back(object.fd);
        }
    }
    if (mMessage.table.size() > kMaxTransaction || mMessage.descriptors.size() > kMaxDescriptors) {
        return STATUS_FAILED_TRANSACTION;
    }
    mMessage.data = {parcel.data(), parcel.dataSize()};
    header.dataSize = static_cast<uint32_t>(parcel.dataSize());
    header.tableSize = static_cast<uint32_t>(mMessage.table.size());
    header.objectCount = static_cast<uint32_t>(objects.size());
    header.descriptorCount = static_cast<uint32_t>(mMessage.descriptors.size());
    return STATUS_OK;
}

Unpacked unpack(const std::shared_ptr<Peer>& from, Incoming* message) {
    if (message->header.objectCount == 0 && message->table.empty()) return Unpacked::kWhole;
    const auto records = parseTable(message->header, message->table);
    Peers* const peers = Peers::get();
    if (!records.has_value() || peers == nullptr) return Unpacked::kMalformed;

    bool stale = false;
    auto descriptor = message->descriptors.begin();
    for (const ObjectRecord& record : *records) {
        AParcel::Object object{.kind = AParcel::Object::Kind::kDescriptor,
                               .offset = record.offset,
                               .binder = nullptr,
                               .fd = -1};
        if (record.kind == ObjectRecord::Kind::kBinder) {
            object.kind = AParcel::Object::Kind::kBinder;
            object.binder = resolve(*peers, from, record).release();
            if (object.binder == nullptr) {
                stale = true;
                continue;
            }
        } else if (message->descriptorsLost) {
            continue;
        } else {
            object.fd = (descriptor++)->release();
        }
        if (message->parcel->adoptObject(object) != STATUS_OK) return Unpacked::kMalformed;
    }
    if (message->descriptorsLost) return Unpacked::kIncomplete;
    return stale ? Unpacked::kStale : Unpacked::kWhole;
}

}  // namespace binder
