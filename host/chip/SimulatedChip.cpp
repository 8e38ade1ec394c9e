#include "host/chip/SimulatedChip.h"

#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <numeric>
#include <utility>

#include <android/log.h>

namespace lmfg {

namespace {

constexpr int kMaxBrightness = 4095;
constexpr size_t kMaxValues = 64;
constexpr size_t kMaxRemembered = 64;
constexpr size_t kMaxLine = 1024;

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

std::string shortened(const std::string& text, size_t limit) {
    return text.size() > limit ? cutText(text, limit) + "..." : text;
}

std::vector<uint16_t> identityTable() {
    std::vector<uint16_t> table(16);
    for (size_t i = 0; i < table.size(); ++i)
        table[i] = static_cast<uint16_t>(i * 0x1111);
    return table;
}

}  // namespace

SimulatedChip::SimulatedChip(FrameSink frames) : mFrames(std::move(frames)) {
    ChipDisplay& primary = mState.displays[kPrimaryDisplay];
    primary.connected = true;
    primary.width = 1080;
    primary.height = 2400;
    primary.panelName = "simulated";
}

SimulatedChip::~SimulatedChip() {
    SimulatedChip::stop();
}

void SimulatedChip::start(VelaServiceCallbacks events) {
    const std::lock_guard<std::mutex> guard(mLock);
    mEvents = events;
    mQueue.start();
}

void SimulatedChip::stop() {
    {
        const std::lock_guard<std::mutex> guard(mLock);
        mEvents.reset();
    }
    mQueue.stop();
}

int SimulatedChip::refuse(const std::string& operation, int status, const std::string& reason) {
    ChipRefusal refusal{
            .operation = operation, .error = -status, .reason = cutText(reason, kMaxLine)};
    const std::string text = refusal.text();
    __android_log_print(ANDROID_LOG_INFO, "VelaChip", "refused %s: %s", operation.c_str(),
                        text.c_str());
    tellRefusal(text);
    ++mState.refusalCount;
    mState.refusals.push_back(std::move(refusal));
    if (mState.refusals.size() > kMaxRemembered) mState.refusals.pop_front();
    return status;
}

int64_t SimulatedChip::raise(std::string what, Delivery deliver) {
    if (!mEvents) return -ESHUTDOWN;
    const uint64_t number = mState.eventsRaised + 1;
    const int status = mQueue.post([this, number, what = std::move(what),
                                    deliver = std::move(deliver), events = *mEvents,
                                    cause = CausedBy::currentRequest()] {
        const CausedBy scope(cause);
        ChipEvent event{.number = number, .what = shortened(what, kMaxLine), .answer = {}};
        event.answer = shortened(deliver(events), kMaxLine - std::min(what.size(), kMaxLine));
        const std::lock_guard<std::mutex> guard(mLock);
        mState.events.push_back(std::move(event));
        if (mState.events.size() > kMaxRemembered) mState.events.pop_front();
    });
    if (status < 0) return status;
    mState.eventsRaised = number;
    return static_cast<int64_t>(number);
}

int64_t SimulatedChip::raiseFeature(int feature, std::vector<int> values) {
    std::string what = "feature " + std::to_string(feature) + " " + listText(values);
    return raise(std::move(what), [feature, values = std::move(values)](const auto& events) {
        events.featureChanged(feature, values);
        return std::string();
    });
}

int64_t SimulatedChip::raiseRefresh(int64_t display) {
    return raise("refresh " + std::to_string(display), [display](const auto& events) {
        events.refreshRequested(display);
        return std::string();
    });
}

int64_t SimulatedChip::raisePower(int64_t display, int mode) {
    std::string what = "power " + std::to_string(display) + " " + std::to_string(mode);
    return raise(std::move(what), [display, mode](const auto& events) {
        events.powerChanged(display, mode);
        return std::string();
    });
}

void SimulatedChip::initialize(uint32_t config, uint32_t width, uint32_t height) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (width == 0 || width > kMaxEdge || height == 0 || height > kMaxEdge) {
        refuse("initialize", -EINVAL, edgesText(width, height));
        return;
    }
    ++mState.initializations;
    mState.activeConfig = config;
    mState.displays[kPrimaryDisplay].width = width;
    mState.displays[kPrimaryDisplay].height = height;
}

void SimulatedChip::initSoftVela() {
    const std::lock_guard<std::mutex> guard(mLock);
    mState.softStarted = true;
}

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

Chip::Return<void> SimulatedChip::velaConfigureBatch(int, const hidl_string& request,
                                                     StringResult result) {
    const Outcome outcome = runBatch(request);
    result(outcome.status, outcome.text);
    return {};
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

Chip::Return<void> SimulatedChip::panelReadWrite(bool write, uint8_t display, uint8_t address, bool,
                                                 const hidl_vec<uint8_t>& data, uint8_t readCount,
                                                 BytesResult result) {
    hidl_vec<uint8_t> reply;
    int status = 0;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        ChipDisplay* it = find(display);
        const size_t count = write ? data.size() : readCount;
        std::string reason;
        if (it == nullptr || count == 0) {
            status = -EINVAL;
            reason = it == nullptr ? noDisplay(display) : "there is nothing to transfer";
        } else if (address + count > it->panel.size()) {
            status = -ERANGE;
            reason = "the panel's registers end at 255";
        } else if (write) {
            std::copy(data.begin(), data.end(), it->panel.begin() + address);
        } else {
            const auto* first = it->panel.data() + address;
            reply = hidl_vec<uint8_t>(first, first + count);
        }
        if (status < 0) refuse("panelReadWrite", status, reason);
    }
    result(status, reply);
    return {};
}

void SimulatedChip::getDumpString(uint64_t display, DumpResult result) {
    std::string text;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        text = dumpText(mState, display);
    }
    result(text);
}

void SimulatedChip::getCurrentConfig(FixedConfigResult result) {
    VelaFixedConfig config;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        const ChipDisplay& primary = mState.displays[kPrimaryDisplay];
        config.value1 = static_cast<int32_t>(mState.activeConfig);
        config.value2 = static_cast<int32_t>(primary.width);
        config.value3 = static_cast<int32_t>(primary.height);
        config.value4 = static_cast<int32_t>(mState.refreshRate);
        config.value5 = mState.powerMode;
        config.value6 = mState.colorMode;
        config.value7 = mState.renderIntent;
        config.value8 = mState.maxContentLight;
        config.value9 = primary.brightness;
        config.value10 = static_cast<int32_t>(mState.layers.size());
        std::vector<int32_t> connected;
        for (size_t i = 0; i < kDisplayCount; ++i) {
            if (mState.displays[i].connected) connected.push_back(static_cast<int32_t>(i));
        }
        config.list1 = connected;
        std::vector<int32_t> registers;
        for (const auto& [type, values] : mState.registers)
            registers.push_back(type);
        config.list2 = registers;
    }
    result(0, config);
}

void SimulatedChip::getLayerToneMappingLut(uint64_t layer, uint32_t variant, LutResult result) {
    LutData lut;
    int status = 0;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        if (const ChipLayer* it = findLayer(layer); it != nullptr) {
            lut.flag1 = it->toneMapping.empty() ? 0 : 1;
            lut.list1 = {it->display};
            lut.list2 = it->toneMapping.empty() ? identityTable() : it->toneMapping;
            lut.value1 = static_cast<uint16_t>(lut.list2.size());
            lut.value2 = static_cast<uint16_t>(variant);
        } else {
            status = refuse("getLayerToneMappingLut " + std::to_string(layer), -EINVAL,
                            noLayer(layer));
        }
    }
    result(status, lut);
}

void SimulatedChip::updateDisplayBrightness(uint64_t display, int level,
                                            const hidl_vec<int>& values, ValuesResult result) {
    hidl_vec<int> answer;
    int status = 0;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        ChipDisplay* it = find(display);
        status = it == nullptr                         ? -EINVAL
                 : level < 0 || level > kMaxBrightness ? -ERANGE
                 : values.size() > kMaxValues          ? -E2BIG
                                                       : 0;
        if (it != nullptr) answer = {it->brightness};
        if (status < 0) {
            refuse("updateDisplayBrightness " + std::to_string(level), status,
                   it == nullptr       ? noDisplay(static_cast<int64_t>(display))
                   : status == -ERANGE ? "levels are 0 to " + std::to_string(kMaxBrightness)
                                       : "at most 64 values");
        } else {
            it->brightness = level;
        }
    }
    result(status, answer);
}

int SimulatedChip::GetOsdState() {
    const std::lock_guard<std::mutex> guard(mLock);
    return mState.osdState;
}

int SimulatedChip::GetOsdOverFlow() {
    const std::lock_guard<std::mutex> guard(mLock);
    return mState.osdOverflow;
}

ChipDisplay* SimulatedChip::find(uint64_t display) {
    return display < kDisplayCount ? &mState.displays[display] : nullptr;
}

ChipLayer* SimulatedChip::findLayer(uint64_t layer) {
    const auto it = mState.layers.find(layer);
    return it == mState.layers.end() ? nullptr : &it->second;
}

}  // namespace lmfg
