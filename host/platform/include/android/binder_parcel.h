#pragma once

#include <stdbool.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/cdefs.h>
#include <uchar.h>

#include <android/binder_status.h>

struct AIBinder;
typedef struct AIBinder AIBinder;

/**
 * The data of one call or reply. Values are read in the order in which they were written; reading
 * and writing move one position. Used by one thread at a time.
 *
 * Reading returns STATUS_NOT_ENOUGH_DATA when the data ends before the value, fails where a binder
 * or a descriptor lies instead of it, and leaves outputs alone unless it returns STATUS_OK. Writing
 * returns STATUS_NO_MEMORY when the parcel cannot grow.
 */
struct AParcel;
typedef struct AParcel AParcel;

#pragma GCC visibility push(default)
__BEGIN_DECLS

/** An empty parcel, freed with AParcel_delete. */
AParcel* AParcel_create(void);
/** Null is allowed. Releases binders and closes descriptors that the parcel holds. */
void AParcel_delete(AParcel* parcel);
/** Empties the parcel and rewinds it. */
binder_status_t AParcel_reset(AParcel* parcel);

/** A position in bytes from AParcel_getDataPosition; STATUS_BAD_VALUE for a negative one. */
binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position);
int32_t AParcel_getDataPosition(const AParcel* parcel);
/** Bytes in all. */
int32_t AParcel_getDataSize(const AParcel* parcel);

/**
 * Appends size bytes of from, starting at start, with the binders and descriptors that lie wholly
 * within, at the position of to. STATUS_BAD_VALUE for a range outside from or a negative number.
 */
binder_status_t AParcel_appendFrom(const AParcel* from, AParcel* to, int32_t start, int32_t size);
/**
 * Copies len bytes from start on into buffer. STATUS_INVALID_OPERATION when the parcel holds
 * binders or descriptors, STATUS_BAD_VALUE for a range outside it.
 */
binder_status_t AParcel_marshal(const AParcel* parcel, uint8_t* buffer, size_t start, size_t len);
/** Makes the bytes, padded to four, the parcel's whole content and moves to its end. */
binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len);

// --- binders, descriptors, statuses ---

/** Null is allowed. The parcel takes a reference of its own. */
binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder);
/** *binder is null or a reference that the caller releases. STATUS_BAD_TYPE for other data. */
binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder);
/** Writes a duplicate, or null for -1. STATUS_UNKNOWN_ERROR for what is no open descriptor. */
binder_status_t AParcel_writeParcelFileDescriptor(AParcel* parcel, int fd);
/** *fd is -1 for null or a close-on-exec duplicate that the caller closes. */
binder_status_t AParcel_readParcelFileDescriptor(const AParcel* parcel, int* fd);
/** A failed transaction is not written: its status is returned. */
binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status);
/** *status is the caller's to delete. */
binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status);

// --- strings ---

/**
 * Gives room for a string of length bytes including the terminator, which may contain zeros, and
 * stores where in *buffer; length is -1 and buffer null for a null string. False refuses it.
 */
typedef bool (*AParcel_stringAllocator)(void* stringData, int32_t length, char** buffer);
/** Prepares for length strings, or for a null array when length is -1. False refuses it. */
typedef bool (*AParcel_stringArrayAllocator)(void* arrayData, int32_t length);
/** As AParcel_stringAllocator, for the string at index. */
typedef bool (*AParcel_stringArrayElementAllocator)(void* arrayData, size_t index, int32_t length,
                                                    char** buffer);
/** The string at index and its length without a terminator; null with length -1. */
typedef const char* (*AParcel_stringArrayElementGetter)(const void* arrayData, size_t index,
                                                        int32_t* outLength);

/**
 * length bytes of UTF-8, which may contain zeros; null with length -1. Malformed UTF-8 is written
 * as it converts. STATUS_BAD_VALUE where the last character is cut short, and for another length.
 */
binder_status_t AParcel_writeString(AParcel* parcel, const char* string, int32_t length);
/**
 * A string of a wrong length, without its terminator or without data is a null string.
 * STATUS_UNEXPECTED_NULL when a null string is refused, STATUS_NO_MEMORY for another.
 */
binder_status_t AParcel_readString(const AParcel* parcel, void* stringData,
                                   AParcel_stringAllocator allocator);
/** A null array has length -1. */
binder_status_t AParcel_writeStringArray(AParcel* parcel, const void* arrayData, int32_t length,
                                         AParcel_stringArrayElementGetter getter);
binder_status_t AParcel_readStringArray(const AParcel* parcel, void* arrayData,
                                        AParcel_stringArrayAllocator allocator,
                                        AParcel_stringArrayElementAllocator elementAllocator);

// --- arrays of anything ---

typedef binder_status_t (*AParcel_writeParcelableElement)(AParcel* parcel, const void* arrayData,
                                                          size_t index);
/** Prepares for length elements, or for a null array when length is -1. False refuses it. */
typedef bool (*AParcel_parcelableArrayAllocator)(void* arrayData, int32_t length);
typedef binder_status_t (*AParcel_readParcelableElement)(const AParcel* parcel, void* arrayData,
                                                         size_t index);

/** A null array has length -1. The first status of an element that is not ok ends it. */
binder_status_t AParcel_writeParcelableArray(AParcel* parcel, const void* arrayData, int32_t length,
                                             AParcel_writeParcelableElement elementWriter);
/**
 * STATUS_NO_MEMORY when the allocator refuses, even a null array. Each element takes four bytes of
 * data at least.
 */
binder_status_t AParcel_readParcelableArray(const AParcel* parcel, void* arrayData,
                                            AParcel_parcelableArrayAllocator allocator,
                                            AParcel_readParcelableElement elementReader);

// --- scalars ---

binder_status_t AParcel_writeInt32(AParcel* parcel, int32_t value);
binder_status_t AParcel_writeUint32(AParcel* parcel, uint32_t value);
binder_status_t AParcel_writeInt64(AParcel* parcel, int64_t value);
binder_status_t AParcel_writeUint64(AParcel* parcel, uint64_t value);
binder_status_t AParcel_writeFloat(AParcel* parcel, float value);
binder_status_t AParcel_writeDouble(AParcel* parcel, double value);
binder_status_t AParcel_writeBool(AParcel* parcel, bool value);
binder_status_t AParcel_writeChar(AParcel* parcel, char16_t value);
binder_status_t AParcel_writeByte(AParcel* parcel, int8_t value);

binder_status_t AParcel_readInt32(const AParcel* parcel, int32_t* value);
binder_status_t AParcel_readUint32(const AParcel* parcel, uint32_t* value);
binder_status_t AParcel_readInt64(const AParcel* parcel, int64_t* value);
binder_status_t AParcel_readUint64(const AParcel* parcel, uint64_t* value);
binder_status_t AParcel_readFloat(const AParcel* parcel, float* value);
binder_status_t AParcel_readDouble(const AParcel* parcel, double* value);
binder_status_t AParcel_readBool(const AParcel* parcel, bool* value);
binder_status_t AParcel_readChar(const AParcel* parcel, char16_t* value);
binder_status_t AParcel_readByte(const AParcel* parcel, int8_t* value);

// --- arrays of scalars ---

/**
 * Gives room for length elements in *outBuffer, which stays the caller's; length is -1 for a null
 * array. False refuses: STATUS_UNEXPECTED_NULL for null, else STATUS_NO_MEMORY.
 */
typedef bool (*AParcel_int32ArrayAllocator)(void* arrayData, int32_t length, int32_t** outBuffer);
typedef bool (*AParcel_uint32ArrayAllocator)(void* arrayData, int32_t length, uint32_t** outBuffer);
typedef bool (*AParcel_int64ArrayAllocator)(void* arrayData, int32_t length, int64_t** outBuffer);
typedef bool (*AParcel_uint64ArrayAllocator)(void* arrayData, int32_t length, uint64_t** outBuffer);
typedef bool (*AParcel_floatArrayAllocator)(void* arrayData, int32_t length, float** outBuffer);
typedef bool (*AParcel_doubleArrayAllocator)(void* arrayData, int32_t length, double** outBuffer);
typedef bool (*AParcel_charArrayAllocator)(void* arrayData, int32_t length, char16_t** outBuffer);
typedef bool (*AParcel_byteArrayAllocator)(void* arrayData, int32_t length, int8_t** outBuffer);
/** Arrays of bool need not lie in memory as such, so they are given and taken one by one. */
typedef bool (*AParcel_boolArrayAllocator)(void* arrayData, int32_t length);
typedef bool (*AParcel_boolArrayGetter)(const void* arrayData, size_t index);
typedef void (*AParcel_boolArraySetter)(void* arrayData, size_t index, bool value);

/** A null array has length -1, or 0 to stand for an empty one; STATUS_BAD_VALUE otherwise. */
binder_status_t AParcel_writeInt32Array(AParcel* parcel, const int32_t* data, int32_t length);
binder_status_t AParcel_writeUint32Array(AParcel* parcel, const uint32_t* data, int32_t length);
binder_status_t AParcel_writeInt64Array(AParcel* parcel, const int64_t* data, int32_t length);
binder_status_t AParcel_writeUint64Array(AParcel* parcel, const uint64_t* data, int32_t length);
binder_status_t AParcel_writeFloatArray(AParcel* parcel, const float* data, int32_t length);
binder_status_t AParcel_writeDoubleArray(AParcel* parcel, const double* data, int32_t length);
binder_status_t AParcel_writeBoolArray(AParcel* parcel, const void* arrayData, int32_t length,
                                       AParcel_boolArrayGetter getter);
binder_status_t AParcel_writeCharArray(AParcel* parcel, const char16_t* data, int32_t length);
binder_status_t AParcel_writeByteArray(AParcel* parcel, const int8_t* data, int32_t length);

/**
 * STATUS_BAD_VALUE for a length below -1, STATUS_NO_MEMORY for one of more elements than bytes are
 * left, STATUS_NOT_ENOUGH_DATA when the elements are not all there; none reaches the allocator.
 */
binder_status_t AParcel_readInt32Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int32ArrayAllocator allocator);
binder_status_t AParcel_readUint32Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint32ArrayAllocator allocator);
binder_status_t AParcel_readInt64Array(const AParcel* parcel, void* arrayData,
                                       AParcel_int64ArrayAllocator allocator);
binder_status_t AParcel_readUint64Array(const AParcel* parcel, void* arrayData,
                                        AParcel_uint64ArrayAllocator allocator);
binder_status_t AParcel_readFloatArray(const AParcel* parcel, void* arrayData,
                                       AParcel_floatArrayAllocator allocator);
binder_status_t AParcel_readDoubleArray(const AParcel* parcel, void* arrayData,
                                        AParcel_doubleArrayAllocator allocator);
binder_status_t AParcel_readBoolArray(const AParcel* parcel, void* arrayData,
                                      AParcel_boolArrayAllocator allocator,
                                      AParcel_boolArraySetter setter);
binder_status_t AParcel_readCharArray(const AParcel* parcel, void* arrayData,
                                      AParcel_charArrayAllocator allocator);
binder_status_t AParcel_readByteArray(const AParcel* parcel, void* arrayData,
                                      AParcel_byteArrayAllocator allocator);

__END_DECLS
#pragma GCC visibility pop
