#include "Marshal.h"

#include <optional>
#include <utility>

#include "Death.h"
#include "Endpoint.h"
#include "Exports.h"

namespace binder {
namespace {

constexpr size_t kOffsetSize = sizeof(uint64_t);

/** Null when the object is of this process and gone. */
StrongBinder resolve(const Endpoint& self, const std::shared_ptr<Peer>& from,
                     const ObjectRecord& record, const std::shared_ptr<PendingAck>& ack) {
    if (record.endpoint == self.name()) return Exports::get().find(record.id);
    if (record.endpoint == from->name()) {
        return from->receivedFromOwner(record.id, record.descriptor);
    }
    const std::shared_ptr<Peer> owner = Endpoint::get()->peer(std::string(record.endpoint));
    return owner->receivedFromOther(record.id, record.descriptor, ack);
}

}  // namespace

Packed::Packed(Peer& peer, const AParcel* parcel) : mPeer(peer) {
    mMessage.header.magic = Header::kMagic;
    if (parcel != nullptr) mStatus = pack(*parcel);
}

Packed::~Packed() {
    if (mSent) return;
    for (const uint64_t id : mCounted)
        Exports::get().giveBack(mPeer, id, 1, 0);
    // The parcel still holds these, so that none of them ends here.
    if (mMessage.header.token != 0) mPeer.acknowledged(mMessage.header.token);
}

binder_status_t Packed::packBinder(const AParcel::Object& object,
                                   std::vector<StrongBinder>* foreign) {
    ObjectRecord record{.kind = ObjectRecord::Kind::kBinder,
                        .offset = object.offset,
                        .id = 0,
                        .endpoint = {},
                        .descriptor = object.binder->descriptor()};
    if (record.descriptor.size() > UINT16_MAX) return STATUS_FAILED_TRANSACTION;
    if (LocalObject* const local = object.binder->asLocal(); local != nullptr) {
        const Endpoint* const endpoint = Endpoint::get();
        const std::optional<uint64_t> id = Exports::get().add(mPeer, *local);
        if (!id.has_value() || endpoint == nullptr) return STATUS_DEAD_OBJECT;
        mCounted.push_back(*id);
        record.id = *id;
        record.endpoint = endpoint->name();
    } else {
        const ProxyObject& proxy = *object.binder->asProxy();
        foreign->push_back(share(object.binder));
        record.id = proxy.id();
        record.endpoint = proxy.peer()->name();
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
    std::vector<StrongBinder> foreign;
    for (const AParcel::Object& object : objects) {
        if (object.kind == AParcel::Object::Kind::kDescriptor) {
            appendRecord({.kind = ObjectRecord::Kind::kDescriptor,
                          .offset = object.offset,
                          .endpoint = {},
                          .descriptor = {}},
                         &mMessage.table);
            mMessage.descriptors.push_back(object.fd);
        } else if (const binder_status_t status = packBinder(object, &foreign);
                   status != STATUS_OK) {
            return status;
        }
    }
    if (mMessage.table.size() > kMaxTransaction || mMessage.descriptors.size() > kMaxDescriptors) {
        return STATUS_FAILED_TRANSACTION;
    }
    if (!foreign.empty()) {
        const std::optional<uint64_t> token = mPeer.awaitAck(std::move(foreign));
        if (!token.has_value()) return STATUS_DEAD_OBJECT;
        header.token = *token;
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
    const Endpoint* const self = Endpoint::get();
    if (!records.has_value() || self == nullptr) return Unpacked::kMalformed;

    // Acknowledges when the last binder is safely ours, which may be after this returns.
    const auto ack = message->header.token == 0
                             ? nullptr
                             : std::make_shared<PendingAck>(from, message->header.token);
    bool stale = false;
    auto descriptor = message->descriptors.begin();
    for (const ObjectRecord& record : *records) {
        AParcel::Object object{.kind = AParcel::Object::Kind::kDescriptor,
                               .offset = record.offset,
                               .binder = nullptr,
                               .fd = -1};
        if (record.kind == ObjectRecord::Kind::kBinder) {
            object.kind = AParcel::Object::Kind::kBinder;
            object.binder = resolve(*self, from, record, ack).release();
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
