#include "calls/Marshal.h"

#include <optional>
#include <string>
#include <utility>

#include "calls/Exports.h"
#include "calls/Peers.h"
#include "calls/Proxy.h"

namespace binder {
namespace {

using android::base::unique_fd;

/** Takes in a binder that came with an end. */
Unpacked resolve(Peers& peers, const Peer& from, const ObjectRecord& record, unique_fd end,
                 StrongBinder* out) {
    const std::optional<PipeNumber> pipe = pipeOf(end);
    if (!pipe.has_value()) return Unpacked::kMalformed;
    const std::string owner(endpointOf(record));
    if (owner == peers.self().name()) {
        *out = Exports::get().find(record.id, end);
        return *out == nullptr ? Unpacked::kStale : Unpacked::kWhole;
    }
    Charge charge(from.account(), Resource::kEnds, 1);
    const std::shared_ptr<Route> route = charge.isMade() ? peers.route(owner) : nullptr;
    if (route == nullptr) return Unpacked::kIncomplete;
    *out = Proxy::received(route, record.id, *pipe, std::move(end), std::move(charge));
    return Unpacked::kWhole;
}

}  // namespace

Packed::Packed(const AParcel* parcel, std::vector<pid_t> waiting) {
    if (parcel == nullptr && waiting.empty()) return;
    Table table{.objects = {}, .waiting = std::move(waiting)};
    if (parcel != nullptr) mStatus = pack(*parcel, &table);
    mMessage.header.count = static_cast<uint32_t>(table.waiting.size());
    mMessage.header.objectCount = static_cast<uint32_t>(table.objects.size());
    mMessage.table = bytesOf(table);
}

binder_status_t Packed::packBinder(AIBinder& binder, ObjectRecord* record) {
    const std::string* owner = nullptr;
    SharedFd end;
    if (LocalObject* const local = localOf(&binder); local != nullptr) {
        const Peers* const peers = Peers::get();
        const auto exported = Exports::get().add(*local);
        if (peers == nullptr || !exported.has_value()) return STATUS_FAILED_TRANSACTION;
        owner = &peers->self().name();
        record->id = exported->id;
        end = exported->end;
    } else {
        const Proxy& proxy = proxyOf(binder);
        if (proxy.isDead()) return STATUS_DEAD_OBJECT;
        owner = &proxy.route()->name();
        record->id = proxy.id();
        end = proxy.end();
        if (end == nullptr) return STATUS_BAD_TYPE;
    }
    owner->copy(record->endpoint, sizeof(record->endpoint));
    const int fd = end->get();
    mMessage.descriptors.push_back({fd, std::move(end)});
    return STATUS_OK;
}

binder_status_t Packed::pack(const AParcel& parcel, Table* table) {
    const std::vector<AParcel::Object>& objects = parcel.objects();
    if (parcel.dataSize() + objects.size() * kOffsetSize > kMaxTransaction ||
        objects.size() > kMaxDescriptors) {
        return STATUS_FAILED_TRANSACTION;
    }
    for (const AParcel::Object& object : objects) {
        ObjectRecord& record = table->objects.emplace_back();
        record.offset = object.offset;
        if (object.kind == AParcel::Object::Kind::kBinder) {
            record.kind = ObjectRecord::Kind::kBinder;
            const binder_status_t status = packBinder(*object.binder, &record);
            if (status != STATUS_OK) return status;
        } else {
            record.kind = ObjectRecord::Kind::kDescriptor;
            mMessage.descriptors.push_back({object.fd});
        }
    }
    mMessage.data = {parcel.data(), parcel.dataSize()};
    mMessage.header.dataSize = static_cast<uint32_t>(parcel.dataSize());
    return STATUS_OK;
}

Unpacked unpack(const Peer& from, Incoming* message) {
    if (message->descriptorsLost) return Unpacked::kIncomplete;
    if (message->header.objectCount == 0) return Unpacked::kWhole;
    const std::optional<Table> table = parseTable(message->header, message->table);
    Peers* const peers = Peers::get();
    if (!table.has_value() || peers == nullptr) return Unpacked::kMalformed;

    Unpacked result = Unpacked::kWhole;
    // What the call itself brings comes before what its parcel does.
    auto descriptor = message->descriptors.end() - message->header.objectCount;
    for (const ObjectRecord& record : table->objects) {
        unique_fd fd = std::move(*descriptor++);
        AParcel::Object object{.kind = AParcel::Object::Kind::kDescriptor,
                               .offset = record.offset,
                               .binder = nullptr,
                               .fd = -1};
        if (record.kind == ObjectRecord::Kind::kBinder) {
            StrongBinder binder;
            const Unpacked resolved = resolve(*peers, from, record, std::move(fd), &binder);
            if (resolved == Unpacked::kMalformed) return resolved;
            if (resolved != Unpacked::kWhole) {
                result = resolved;
                continue;
            }
            object.kind = AParcel::Object::Kind::kBinder;
            object.binder = binder.release();
        } else {
            object.fd = fd.release();
        }
        if (message->parcel->adoptObject(object) != STATUS_OK) return Unpacked::kMalformed;
    }
    return result;
}

}  // namespace binder
