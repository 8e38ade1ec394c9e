#include "host/chip/SimulatedChip.h"

#include <unistd.h>

#include <cerrno>

namespace lmfg {

namespace {

constexpr size_t kMaxValues = 64;

constexpr int kRegisterCount = 1024;
constexpr int kFirstFeatureRegister = 256;
constexpr int kFirstFixedRegister = 512;
constexpr int kFirstFreeRegister = 768;

constexpr int kToneMappingBuffer = 1;
constexpr uint32_t kMaxToneMappingSize = 8192;
constexpr uint32_t kMaxBufferSize = 1 << 20;

/** The FNV-1a hash of 32 bits. */
uint32_t checksum(const std::vector<uint8_t>& bytes) {
    uint32_t hash = 2166136261u;
    for (const uint8_t byte : bytes)
        hash = (hash ^ byte) * 16777619u;
    return hash;
}

/** The first `size` bytes of the one file that `buffer` holds; 0 or a negative status. */
int readBuffer(const native_handle_t* buffer, uint32_t size, std::vector<uint8_t>& bytes) {
    if (size == 0) return -EINVAL;
    if (size > kMaxBufferSize) return -E2BIG;
    if (buffer == nullptr || buffer->numFds != 1) return -EBADF;
    bytes.resize(size);
    size_t done = 0;
    while (done < size) {
        const ssize_t count = TEMP_FAILURE_RETRY(
                pread(buffer->data[0], bytes.data() + done, size - done, static_cast<off_t>(done)));
        if (count < 0) return -errno;
        if (count == 0) return -EIO;
        done += static_cast<size_t>(count);
    }
    return 0;
}

std::vector<uint16_t> tableFrom(const std::vector<uint8_t>& bytes) {
    std::vector<uint16_t> table(bytes.size() / 2);
    for (size_t i = 0; i < table.size(); ++i) {
        table[i] = static_cast<uint16_t>(bytes[2 * i] | bytes[2 * i + 1] << 8);
    }
    return table;
}

std::string bufferReason(int type, uint32_t size, int status) {
    switch (status) {
        case -EINVAL:
            return size == 0                    ? "its size is 0"
                   : type == kToneMappingBuffer ? "a table has entries of two bytes"
                                                : "buffers are of types 0 to 1023";
        case -E2BIG:
            return type == kToneMappingBuffer ? "a table has at most 8192 bytes"
                                              : "a buffer has at most 1 MiB";
        case -EBADF:
            return "it takes one descriptor of a file";
        default:
            return status == -EIO ? "the file is shorter than the size" : "the file cannot be read";
    }
}

}  // namespace

int SimulatedChip::setRegister(int type, const std::vector<int>& values) {
    if (type < 0 || type >= kRegisterCount) return -EINVAL;
    if (type >= kFirstFixedRegister && type < kFirstFreeRegister) return -EPERM;
    if (values.size() > kMaxValues) return -E2BIG;
    if (type >= kFirstFeatureRegister && type < kFirstFixedRegister) {
        const int64_t number = raiseFeature(type, values);
        if (number < 0) return static_cast<int>(number);
    }
    if (values.empty()) {
        mState.registers.erase(type);
    } else {
        mState.registers[type] = values;
    }
    return 0;
}

int SimulatedChip::getRegister(int type, const std::vector<int>& params,
                               std::vector<int>& values) const {
    if (type < 0 || type >= kRegisterCount || params.size() > 2) return -EINVAL;
    if (type == kFirstFixedRegister) {
        values = {static_cast<int>(kDisplayCount), kRegisterCount, static_cast<int>(kMaxValues)};
    } else if (const auto it = mState.registers.find(type); it != mState.registers.end()) {
        values = it->second;
    } else {
        return -ENOENT;
    }
    const int size = static_cast<int>(values.size());
    const int first = params.empty() ? 0 : params[0];
    if (first < 0 || first > size) return -ERANGE;
    const int count = params.size() < 2 ? size - first : params[1];
    if (count < 0 || count > size - first) return -ERANGE;
    values = std::vector<int>(values.begin() + first, values.begin() + first + count);
    return 0;
}

std::string SimulatedChip::registerReason(int type, int status) {
    const std::string name = "register " + std::to_string(type);
    switch (status) {
        case -EINVAL:
            return type < 0 || type >= kRegisterCount ? "there is no " + name
                                                      : "a read takes a first index and a count";
        case -EPERM:
            return name + " is fixed";
        case -E2BIG:
            return "a register holds at most 64 values";
        case -ENOENT:
            return name + " holds nothing";
        case -ERANGE:
            return name + " does not hold so many";
        default:
            return raiseReason(status);
    }
}

Chip::Return<void> SimulatedChip::velaConfigureGet(int type, const hidl_vec<int>& params,
                                                   ValuesResult result) {
    std::vector<int> values;
    int status;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        status = getRegister(type, params, values);
        if (status < 0) {
            refuse("velaConfigureGet " + std::to_string(type), status,
                   registerReason(type, status));
        }
    }
    result(status, status < 0 ? hidl_vec<int>() : hidl_vec<int>(values));
    return {};
}

Chip::Return<int32_t> SimulatedChip::velaConfigureSet(int type, const hidl_vec<int>& values) {
    const std::lock_guard<std::mutex> guard(mLock);
    const int status = setRegister(type, values);
    return status < 0 ? refuse("velaConfigureSet " + std::to_string(type), status,
                               registerReason(type, status))
                      : status;
}

int SimulatedChip::velaConfigureBuffer(int type, uint64_t param, const hidl_handle& buffer,
                                       uint32_t size) {
    const std::string operation = "velaConfigureBuffer " + std::to_string(type);
    const bool toneMapping = type == kToneMappingBuffer;
    std::vector<uint8_t> bytes;
    int status = type < 0 || type >= kRegisterCount || (toneMapping && size % 2 != 0) ? -EINVAL
                 : toneMapping && size > kMaxToneMappingSize                          ? -E2BIG
                                                             : readBuffer(buffer, size, bytes);

    const std::lock_guard<std::mutex> guard(mLock);
    if (status < 0) return refuse(operation, status, bufferReason(type, size, status));
    if (toneMapping) {
        ChipLayer* layer = findLayer(param);
        if (layer == nullptr) return refuse(operation, -EINVAL, noLayer(param));
        layer->toneMapping = tableFrom(bytes);
    } else {
        mState.blobs[type] = {.param = param, .size = size, .checksum = checksum(bytes)};
    }
    return 0;
}

}  // namespace lmfg
