#include <cstring>
#include <string>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include <android/binder_parcel.h>
#include <android/binder_parcel_utils.h>

#include "parcel/Parcel.h"
#include "parcel/Status.h"
#include "parcel/Utf.h"

AParcel* AParcel_create() {
    return new AParcel;
}

void AParcel_delete(AParcel* parcel) {
    delete parcel;
}

binder_status_t AParcel_reset(AParcel* parcel) {
    parcel->clear();
    return STATUS_OK;
}

binder_status_t AParcel_setDataPosition(const AParcel* parcel, int32_t position) {
    if (position < 0) return STATUS_BAD_VALUE;
    parcel->setPosition(static_cast<size_t>(position));
    return STATUS_OK;
}

int32_t AParcel_getDataPosition(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->position());
}

int32_t AParcel_getDataSize(const AParcel* parcel) {
    return static_cast<int32_t>(parcel->dataSize());
}

binder_status_t AParcel_appendFrom(const AParcel* from, AParcel* to, int32_t start, int32_t size) {
    if (start < 0 || size < 0) return STATUS_BAD_VALUE;
    return to->appendFrom(*from, static_cast<size_t>(start), static_cast<size_t>(size));
}

binder_status_t AParcel_marshal(const AParcel* parcel, uint8_t* buffer, size_t start, size_t len) {
    if (!parcel->objects().empty()) return STATUS_INVALID_OPERATION;
    if (start > parcel->dataSize() || len > parcel->dataSize() - start) return STATUS_BAD_VALUE;
    if (len > 0) memcpy(buffer, parcel->data() + start, len);
    return STATUS_OK;
}

binder_status_t AParcel_unmarshal(AParcel* parcel, const uint8_t* buffer, size_t len) {
    if (len > INT32_MAX) return STATUS_BAD_VALUE;
    parcel->clear();
    uint8_t* const room = parcel->writeInPlace(len);
    if (room == nullptr) return STATUS_NO_MEMORY;
    if (len > 0) memcpy(room, buffer, len);
    return STATUS_OK;
}

binder_status_t AParcel_writeStrongBinder(AParcel* parcel, AIBinder* binder) {
    return parcel->writeBinder(binder);
}

binder_status_t AParcel_readStrongBinder(const AParcel* parcel, AIBinder** binder) {
    return parcel->readBinder(binder);
}

binder_status_t AParcel_writeParcelFileDescriptor(AParcel* parcel, int fd) {
    if (fd == -1) return parcel->writeValue<int32_t>(0);
    const int duplicate = fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (duplicate < 0) return STATUS_UNKNOWN_ERROR;
    // Presence, and that nothing but the descriptor follows.
    binder_status_t status = parcel->writeValue<int32_t>(1);
    if (status == STATUS_OK) status = parcel->writeValue<int32_t>(0);
    if (status != STATUS_OK) {
        close(duplicate);
        return status;
    }
    return parcel->writeDescriptor(duplicate);
}

binder_status_t AParcel_readParcelFileDescriptor(const AParcel* parcel, int* fd) {
    int32_t present = 0;
    binder_status_t status = parcel->readValue(&present);
    if (status != STATUS_OK) return status;
    if (present == 0) {
        *fd = -1;
        return STATUS_OK;
    }
    int held = -1;
    int32_t hasMore = 0;
    status = parcel->readValue(&hasMore);
    if (status == STATUS_OK) status = parcel->readDescriptor(&held);
    if (status != STATUS_OK) return status;
    const int duplicate = fcntl(held, F_DUPFD_CLOEXEC, 0);
    if (duplicate < 0) return STATUS_UNKNOWN_ERROR;
    *fd = duplicate;
    return STATUS_OK;
}

binder_status_t AParcel_writeStatusHeader(AParcel* parcel, const AStatus* status) {
    const AStatus& written = binder::valueOf(status);
    // There is no answer to tell of: the caller gets the status from the transaction itself.
    if (written.exception == EX_TRANSACTION_FAILED) return written.error;
    binder_status_t result = parcel->writeValue(written.exception);
    if (result != STATUS_OK || written.exception == EX_NONE) return result;

    // A message is for people: one that is no text must not cost the caller the exception.
    const bool isText = binder::utf16Length(written.message).has_value();
    result = ndk::AParcel_writeString(parcel, isText ? written.message : std::string());
    if (result != STATUS_OK) return result;
    result = parcel->writeValue<int32_t>(0);  // no remote stack trace
    if (result != STATUS_OK || written.exception != EX_SERVICE_SPECIFIC) return result;
    return parcel->writeValue(written.error);
}

binder_status_t AParcel_readStatusHeader(const AParcel* parcel, AStatus** status) {
    AStatus header;
    binder_status_t result = parcel->readValue(&header.exception);
    if (result == STATUS_OK && header.exception == EX_NONE) {
        *status = AStatus_newOk();
        return STATUS_OK;
    }
    if (result == STATUS_OK) result = ndk::AParcel_readString(parcel, &header.message);
    int32_t stackTraceSize = 0;
    if (result == STATUS_OK) result = parcel->readValue(&stackTraceSize);
    if (result != STATUS_OK) return result;
    if (stackTraceSize < 0) return STATUS_BAD_VALUE;
    const uint8_t* stackTrace = nullptr;
    result = parcel->readInPlace(static_cast<size_t>(stackTraceSize), &stackTrace);
    if (result == STATUS_OK && header.exception == EX_SERVICE_SPECIFIC) {
        result = parcel->readValue(&header.error);
    }
    if (result != STATUS_OK) return result;
    header.exception = binder::knownException(header.exception);
    if (header.exception == EX_TRANSACTION_FAILED) header.error = STATUS_FAILED_TRANSACTION;
    *status = new AStatus(std::move(header));
    return STATUS_OK;
}
