#include "parcel/Parcel.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>

#include <fcntl.h>
#include <unistd.h>

#include "objects/Object.h"

namespace {

using Object = AParcel::Object;

/** As the kernel driver has it; of a binder, all is 0 behind the type only when it is null. */
struct Slot {
    uint32_t type = 0;
    uint32_t flags = 0;
    uint64_t object = 0;
    uint64_t cookie = 0;
};
static_assert(sizeof(Slot) == 24);

constexpr uint32_t typeOf(char a, char b) {
    return static_cast<uint32_t>(a) << 24 | static_cast<uint32_t>(b) << 16 | '*' << 8 | 0x85;
}
constexpr uint32_t kBinderType = typeOf('s', 'b');
constexpr uint32_t kDescriptorType = typeOf('f', 'd');

constexpr uint32_t typeOf(Object::Kind kind) {
    return kind == Object::Kind::kBinder ? kBinderType : kDescriptorType;
}

constexpr size_t kMaxSize = INT32_MAX;

/** What leads a token: the caller's strict-mode policy and work source, of which there are none. */
struct TokenLead {
    uint32_t policy = 1U << 31;
    int32_t workSource = -1;
    uint32_t header = static_cast<uint32_t>('S') << 24 | 'Y' << 16 | 'S' << 8 | 'T';
};

constexpr size_t padded(size_t size) {
    return (size + 3) & ~size_t{3};
}

void release(const Object& object) {
    if (object.kind == Object::Kind::kBinder) {
        AIBinder_decStrong(object.binder);
    } else if (object.fd >= 0) {
        close(object.fd);
    }
}

/** The first object whose slot ends behind the offset. */
template <typename Objects>
auto firstBehind(Objects& objects, size_t offset) {
    return std::partition_point(objects.begin(), objects.end(), [offset](const auto& object) {
        return object.offset + sizeof(Slot) <= offset;
    });
}

}  // namespace

AParcel::~AParcel() {
    clear();
}

void AParcel::clear() {
    for (const Object& object : mObjects)
        release(object);
    mObjects.clear();
    if (mData != mInline) free(mData);
    mData = mInline;
    mCapacity = kInlineSize;
    mSize = 0;
    mPosition = 0;
    noteChange();
}

void AParcel::noteChange() {
    mPlain = mObjects.empty() ? mSize : mObjects.front().offset;
}

bool AParcel::growTo(size_t capacity) {
    if (capacity <= mCapacity) return true;
    if (capacity > kMaxSize) return false;
    const size_t roomy = std::min(std::max(capacity, mCapacity * 2), kMaxSize);
    auto* const grown = static_cast<uint8_t*>(realloc(mData == mInline ? nullptr : mData, roomy));
    if (grown == nullptr) return false;
    if (mData == mInline) memcpy(grown, mInline, mSize);
    mData = grown;
    mCapacity = roomy;
    return true;
}

uint8_t* AParcel::resetForReceive(size_t size) {
    clear();
    mTarget = nullptr;
    return resizeForReceive(size);
}

uint8_t* AParcel::resizeForReceive(size_t size) {
    if (!growTo(size)) return nullptr;
    mSize = size;
    noteChange();
    return mData;
}

void AParcel::releaseObjects(size_t begin, size_t end) {
    const auto first = firstBehind(mObjects, begin);
    auto last = first;
    for (; last != mObjects.end() && last->offset < end; ++last)
        release(*last);
    mObjects.erase(first, last);
}

uint8_t* AParcel::place(size_t size) {
    if (size > kMaxSize || mPosition > kMaxSize - size) return nullptr;
    const size_t end = mPosition + size;
    if (!growTo(end)) return nullptr;
    if (mPosition < mSize) {
        if (!mObjects.empty()) releaseObjects(mPosition, end);
    } else if (mPosition > mSize) {
        memset(mData + mSize, 0, mPosition - mSize);
    }
    uint8_t* const room = mData + mPosition;
    mPosition = end;
    mSize = std::max(mSize, end);
    noteChange();
    return room;
}

uint8_t* AParcel::writeInPlace(size_t size) {
    if (size > kMaxSize) return nullptr;
    uint8_t* const room = place(padded(size));
    if (room != nullptr) memset(room + size, 0, padded(size) - size);
    return room;
}

binder_status_t AParcel::readInPlace(size_t size, const uint8_t** bytes) const {
    if (size > available() || padded(size) > available()) return STATUS_NOT_ENOUGH_DATA;
    if (mPosition + size > mPlain) {
        const auto object = firstBehind(mObjects, mPosition);
        if (object != mObjects.end() && object->offset < mPosition + size) {
            return STATUS_PERMISSION_DENIED;
        }
    }
    *bytes = mData + mPosition;
    mPosition += padded(size);
    return STATUS_OK;
}

binder_status_t AParcel::writeBytes(const void* bytes, size_t size) {
    uint8_t* const room = writeInPlace(size);
    if (room == nullptr) return STATUS_NO_MEMORY;
    memcpy(room, bytes, size);
    return STATUS_OK;
}

binder_status_t AParcel::readBytes(void* bytes, size_t size) const {
    const uint8_t* in = nullptr;
    const binder_status_t status = readInPlace(size, &in);
    if (status == STATUS_OK) memcpy(bytes, in, size);
    return status;
}

binder_status_t AParcel::adoptObject(const Object& object) {
    const size_t lowest = mObjects.empty() ? 0 : mObjects.back().offset + sizeof(Slot);
    Slot slot = {};
    const bool whole = object.offset % 4 == 0 && object.offset >= lowest && mSize >= sizeof(slot) &&
                       object.offset <= mSize - sizeof(slot);
    if (whole) memcpy(&slot, mData + object.offset, sizeof(slot));
    const bool held =
            object.kind == Object::Kind::kBinder ? object.binder != nullptr : object.fd >= 0;
    if (!held || slot.type != typeOf(object.kind)) {
        release(object);
        return STATUS_BAD_VALUE;
    }
    mObjects.push_back(object);
    noteChange();
    return STATUS_OK;
}

binder_status_t AParcel::writeSlot(const Object& object) {
    // A slot off the grid could be read back here but would be refused by whoever receives it.
    binder_status_t status = STATUS_BAD_VALUE;
    if (object.offset % 4 == 0) {
        status = writeValue(Slot{.type = typeOf(object.kind), .object = 1});
    }
    if (status != STATUS_OK) {
        release(object);
        return status;
    }
    mObjects.insert(firstBehind(mObjects, object.offset), object);
    noteChange();
    return STATUS_OK;
}

binder_status_t AParcel::readSlot(bool* isNull, const Object** object) const {
    Slot slot;
    if (available() < sizeof(slot)) return STATUS_NOT_ENOUGH_DATA;
    memcpy(&slot, mData + mPosition, sizeof(slot));
    *isNull = slot.type == kBinderType && slot.object == 0 && slot.cookie == 0;
    const auto found = firstBehind(mObjects, mPosition);
    *object = found != mObjects.end() && found->offset == mPosition ? &*found : nullptr;
    mPosition += sizeof(slot);
    return STATUS_OK;
}

binder_status_t AParcel::writeBinder(AIBinder* binder) {
    binder_status_t status = STATUS_OK;
    auto stability = binder::Stability::kUndeclared;
    if (binder == nullptr) {
        status = writeValue(Slot{.type = kBinderType});
    } else {
        // Whose object it is enforces its stability; of others' nothing else is known here.
        const auto own = binder::kOwnStability;
        stability = binder->isRemote() ? own : binder->offerStability(own);
        binder->incStrong();
        const auto offset = static_cast<uint32_t>(mPosition);
        status = writeSlot({Object::Kind::kBinder, offset, binder, -1});
    }
    return status == STATUS_OK ? writeValue(static_cast<uint32_t>(stability)) : status;
}

binder_status_t AParcel::readBinder(AIBinder** binder) const {
    bool isNull = false;
    uint32_t stability = 0;
    const Object* object = nullptr;
    binder_status_t status = readSlot(&isNull, &object);
    if (status != STATUS_OK) return status;
    const bool isBinder = object != nullptr && object->kind == Object::Kind::kBinder;
    if (!isNull && !isBinder) return STATUS_BAD_TYPE;
    status = readValue(&stability);
    if (status != STATUS_OK) return status;
    *binder = isBinder ? object->binder : nullptr;
    AIBinder_incStrong(*binder);
    return STATUS_OK;
}

binder_status_t AParcel::writeDescriptor(int fd) {
    return writeSlot({Object::Kind::kDescriptor, static_cast<uint32_t>(mPosition), nullptr, fd});
}

binder_status_t AParcel::readDescriptor(int* fd) const {
    bool isNull = false;
    const Object* object = nullptr;
    const binder_status_t status = readSlot(&isNull, &object);
    if (status != STATUS_OK) return status;
    if (object == nullptr || object->kind != Object::Kind::kDescriptor) return STATUS_BAD_TYPE;
    *fd = object->fd;
    return STATUS_OK;
}

binder_status_t AParcel::appendFrom(const AParcel& from, size_t start, size_t size) {
    if (start > from.mSize || size > from.mSize - start) return STATUS_BAD_VALUE;
    std::vector<Object> copies;
    binder_status_t status = STATUS_OK;
    for (const Object& object : from.mObjects) {
        if (object.offset < start || object.offset + sizeof(Slot) > start + size) continue;
        Object copy = object;
        copy.offset = static_cast<uint32_t>(mPosition + object.offset - start);
        if (copy.offset % 4 != 0) status = STATUS_BAD_VALUE;
        if (copy.kind == Object::Kind::kBinder) {
            AIBinder_incStrong(copy.binder);
        } else {
            copy.fd = fcntl(object.fd, F_DUPFD_CLOEXEC, 0);
            if (copy.fd < 0) status = STATUS_UNKNOWN_ERROR;
        }
        copies.push_back(copy);
    }
    const size_t position = mPosition;
    if (status == STATUS_OK && place(size) == nullptr) status = STATUS_NO_MEMORY;
    if (status != STATUS_OK) {
        for (const Object& copy : copies)
            release(copy);
        return status;
    }
    // A parcel may be appended to itself, and growing it has moved its data.
    memmove(mData + position, from.mData + start, size);
    mObjects.insert(firstBehind(mObjects, position), copies.begin(), copies.end());
    noteChange();
    return STATUS_OK;
}

std::vector<uint8_t> AParcel::interfaceToken(std::string_view descriptor) {
    AParcel parcel;
    parcel.writeValue(TokenLead());
    AParcel_writeString(&parcel, descriptor.data(), static_cast<int32_t>(descriptor.size()));
    return {parcel.data(), parcel.data() + parcel.dataSize()};
}

binder_status_t AParcel::writeInterfaceToken(const std::vector<uint8_t>& token) {
    return writeBytes(token.data(), token.size());
}

binder_status_t AParcel::checkInterfaceToken(const std::vector<uint8_t>& token) const {
    constexpr size_t kOwn = offsetof(TokenLead, header);  // what precedes is the caller's
    const uint8_t* found = nullptr;
    const bool isNamed = readInPlace(token.size(), &found) == STATUS_OK &&
                         memcmp(found + kOwn, token.data() + kOwn, token.size() - kOwn) == 0;
    return isNamed ? STATUS_OK : STATUS_BAD_TYPE;
}
