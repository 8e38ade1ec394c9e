#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <vector>

#include <android/binder_ibinder.h>
#include <android/binder_parcel.h>
#include <android/binder_status.h>

/**
 * The bytes of one transaction or reply, and the binders and descriptors that its data refers to.
 *
 * The bytes are a device's: every value is padded to four, and a binder or a descriptor stands in
 * the data as a slot of 24. The object itself is in objects() under that slot's offset; a slot
 * whose offset is not listed there is not an object, whatever its bytes say, so data from a peer
 * cannot forge one.
 *
 * Used by one thread at a time. Owns its buffer, one strong reference for each binder and each
 * descriptor in objects().
 */
struct AParcel {
    struct Object {
        enum class Kind : uint32_t { kBinder = 1, kDescriptor = 2 };
        Kind kind;
        uint32_t offset;   // of the slot in the data
        AIBinder* binder;  // kBinder: a strong reference; never null
        int fd;            // kDescriptor: owned; never negative
    };

    /** What a parcel holds without an allocation of its own. */
    static constexpr size_t kInlineSize = 256;

    AParcel() {}  // were it defaulted, make_unique() would fill the buffer with zeros
    ~AParcel();
    AParcel(const AParcel&) = delete;
    AParcel& operator=(const AParcel&) = delete;

    // --- for the transport ---

    const uint8_t* data() const { return mData; }
    size_t dataSize() const { return mSize; }
    /** In ascending order of their offsets. */
    const std::vector<Object>& objects() const { return mObjects; }

    /**
     * Empties the parcel and returns room for size bytes that become its data; null when out of
     * memory. Never null up to kInlineSize.
     */
    uint8_t* resetForReceive(size_t size);

    /** Changes the size of data being received, keeping what fits; null when out of memory. */
    uint8_t* resizeForReceive(size_t size);

    /**
     * Adopts an object that came with received data: takes over the reference or the descriptor. An
     * offset that does not name a whole, aligned slot of that kind is refused with STATUS_BAD_VALUE
     * (the object is released). Offsets must ascend.
     */
    binder_status_t adoptObject(const Object& object);

    /**
     * The binder that AIBinder_prepareTransaction made this parcel for; null for any other parcel.
     */
    const AIBinder* target() const { return mTarget; }
    void setTarget(const AIBinder* binder) { mTarget = binder; }

    // --- the interface token that leads each transaction ---

    /** The token of the interface of that name, as it stands in a parcel. */
    static std::vector<uint8_t> interfaceToken(std::string_view descriptor);
    binder_status_t writeInterfaceToken(const std::vector<uint8_t>& token);
    /**
     * Leaves the position behind the token; STATUS_BAD_TYPE when it is missing or names another.
     */
    binder_status_t checkInterfaceToken(const std::vector<uint8_t>& token) const;

    // --- for AParcel_* ---

    size_t position() const { return mPosition; }
    void setPosition(size_t position) const { mPosition = position; }
    /** Bytes from the position to the end. */
    size_t available() const { return mPosition < mSize ? mSize - mPosition : 0; }

    /** Releases objects and data; the target stays. */
    void clear();

    /**
     * Room for size bytes at the position, padded with zeros, and moves behind it. Null when the
     * parcel would become too large. Objects that stood there are released.
     */
    uint8_t* writeInPlace(size_t size);
    /**
     * *bytes is the size bytes at the position, which moves behind their padding. Else
     * STATUS_NOT_ENOUGH_DATA, or STATUS_PERMISSION_DENIED where an object's slot reaches into them.
     */
    binder_status_t readInPlace(size_t size, const uint8_t** bytes) const;

    /** A value of whole words. Nearly all parcels hold nothing else: that costs no further call. */
    template <typename T>
    requires std::is_trivially_copyable_v<T> binder_status_t writeValue(T value) {
        static_assert(sizeof(T) % 4 == 0);
        const size_t begin = mPosition;
        const size_t end = begin + sizeof(T);
        if (begin > mPlain || end > mCapacity || !mObjects.empty()) return writeElsewhere(value);
        mPosition = end;
        if (mPlain < end) mSize = mPlain = end;
        memcpy(mData + begin, &value, sizeof(T));
        return STATUS_OK;
    }
    template <typename T>
    requires std::is_trivially_copyable_v<T> binder_status_t readValue(T* value)
    const {
        static_assert(sizeof(T) % 4 == 0);
        const size_t begin = mPosition;
        if (begin + sizeof(T) > mPlain) return readBytes(value, sizeof(T));
        mPosition = begin + sizeof(T);
        memcpy(value, mData + begin, sizeof(T));
        return STATUS_OK;
    }

    /**
     * Writes a slot and a word of stability, and takes a reference of its own; a null binder is a
     * slot without an object.
     */
    binder_status_t writeBinder(AIBinder* binder);
    /** *binder is null or a new reference. */
    binder_status_t readBinder(AIBinder** binder) const;
    /** Writes a slot and takes over the descriptor, whatever the result. */
    binder_status_t writeDescriptor(int fd);
    /** *fd remains the parcel's. */
    binder_status_t readDescriptor(int* fd) const;

    /** Copies bytes and the objects that lie wholly within, as AParcel_appendFrom promises. */
    binder_status_t appendFrom(const AParcel& from, size_t start, size_t size);

  private:
    // What the inline functions leave: they are long, and rare.
    template <typename T>
    [[gnu::noinline]] binder_status_t writeElsewhere(T value) {
        return writeBytes(&value, sizeof(T));
    }
    binder_status_t writeBytes(const void* bytes, size_t size);
    binder_status_t readBytes(void* bytes, size_t size) const;

    void noteChange();
    uint8_t* place(size_t size);
    bool growTo(size_t capacity);
    void releaseObjects(size_t begin, size_t end);
    binder_status_t writeSlot(const Object& object);
    binder_status_t readSlot(bool* isNull, const Object** object) const;

    // Positions are those of an int32_t: nothing that is added to one overflows.
    mutable size_t mPosition = 0;
    size_t mPlain = 0;  // where the data ends, or its first object begins
    uint8_t* mData = mInline;
    size_t mSize = 0;
    size_t mCapacity = kInlineSize;
    std::vector<Object> mObjects;
    const AIBinder* mTarget = nullptr;
    alignas(8) uint8_t mInline[kInlineSize];
};
