#include "host/chip/SimulatedChip.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include <android/log.h>

namespace lmfg {

namespace {

constexpr size_t kMaxRemembered = 64;
constexpr size_t kMaxLine = 1024;

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

Chip::Return<void> SimulatedChip::velaConfigureBatch(int, const hidl_string& request,
                                                     StringResult result) {
    const Outcome outcome = runBatch(request);
    result(outcome.status, outcome.text);
    return {};
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
