#include <algorithm>
#include <cerrno>
#include <cmath>

#include "host/chip/SimulatedChip.h"

namespace lmfg {

namespace {

constexpr int kMaxBrightness = 4095;
constexpr size_t kMaxBrightnessValues = 64;
constexpr int kMaxColorMode = 255;
constexpr int kMaxNits = 10000;
constexpr int kMaxPowerMode = 5;
constexpr int kPowerFlag = 0x100;
constexpr size_t kMaxPanelName = 255;

constexpr int kEventConnection = 0;
constexpr int kEventRefresh = 1;
constexpr int kEventPower = 2;

}  // namespace

void SimulatedChip::setActiveConfig(const DisplayConfigVariableInfo& info) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (info.value1 <= 0 || info.value2 <= 0 || static_cast<uint32_t>(info.value1) > kMaxEdge ||
        static_cast<uint32_t>(info.value2) > kMaxEdge) {
        refuse("setActiveConfig", -EINVAL, edgesText(info.value1, info.value2));
        return;
    }
    mState.activeConfig = info.value4;
    if (info.real1 > 0) mState.refreshRate = info.real1;
    mState.displays[kPrimaryDisplay].width = static_cast<uint32_t>(info.value1);
    mState.displays[kPrimaryDisplay].height = static_cast<uint32_t>(info.value2);
}

void SimulatedChip::updateDisplayBrightness(uint64_t display, int level,
                                            const hidl_vec<int>& values, ValuesResult result) {
    hidl_vec<int> answer;
    int status = 0;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        ChipDisplay* it = find(display);
        status = it == nullptr                          ? -EINVAL
                 : level < 0 || level > kMaxBrightness  ? -ERANGE
                 : values.size() > kMaxBrightnessValues ? -E2BIG
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

void SimulatedChip::SetPowerMode(int mode) {
    const std::lock_guard<std::mutex> guard(mLock);
    const int plain = mode & ~kPowerFlag;
    if (plain < 0 || plain > kMaxPowerMode) {
        refuse("SetPowerMode " + std::to_string(mode), -EINVAL, "power modes are 0 to 5");
        return;
    }
    mState.powerMode = mode;
}

int SimulatedChip::SetColorModeWithRenderIntent(int mode, int intent) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (mode < 0 || mode > kMaxColorMode || intent < 0 || intent > kMaxColorMode) {
        return refuse("SetColorModeWithRenderIntent", -EINVAL, "modes and intents are 0 to 255");
    }
    mState.colorMode = mode;
    mState.renderIntent = intent;
    return 0;
}

int SimulatedChip::SetColorTransform(const std::vector<float>& matrix) {
    const std::lock_guard<std::mutex> guard(mLock);
    const bool finite = std::all_of(matrix.begin(), matrix.end(),
                                    [](float value) { return std::isfinite(value); });
    if (matrix.size() != 16 || !finite) {
        return refuse("SetColorTransform", -EINVAL, "a matrix has 16 finite numbers");
    }
    mState.colorTransform = matrix;
    return 0;
}

int SimulatedChip::configureVelaMaxcll(int nits) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (nits < 0 || nits > kMaxNits) {
        return refuse("configureVelaMaxcll " + std::to_string(nits), -ERANGE,
                      "levels are 0 to 10000");
    }
    mState.maxContentLight = nits;
    return 0;
}

int SimulatedChip::handleDisplayEvent(uint64_t display, int event, int value) {
    const std::lock_guard<std::mutex> guard(mLock);
    const std::string operation = "handleDisplayEvent " + std::to_string(event);
    ChipDisplay* it = find(display);
    if (it == nullptr) {
        return refuse(operation, -EINVAL, noDisplay(static_cast<int64_t>(display)));
    }
    int64_t number = 0;
    switch (event) {
        case kEventConnection:
            it->connected = value != 0;
            break;
        case kEventRefresh:
            number = raiseRefresh(static_cast<int64_t>(display));
            break;
        case kEventPower:
            number = raisePower(static_cast<int64_t>(display), value);
            break;
        default:
            number = -EOPNOTSUPP;
    }
    if (number >= 0) return 0;
    const int status = static_cast<int>(number);
    return refuse(operation, status,
                  status == -EOPNOTSUPP ? "events are 0 (connection), 1 (refresh), 2 (power)"
                                        : raiseReason(status));
}

int SimulatedChip::setOsdAutoRefresh(int enabled) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (enabled != 0 && enabled != 1) {
        return refuse("setOsdAutoRefresh " + std::to_string(enabled), -EINVAL, "it takes 0 or 1");
    }
    mState.osdAutoRefresh = enabled;
    return 0;
}

void SimulatedChip::SetClientTarget(int target) {
    const std::lock_guard<std::mutex> guard(mLock);
    mState.clientTarget = target;
}

void SimulatedChip::reportDualChannelStatus(int status) {
    const std::lock_guard<std::mutex> guard(mLock);
    mState.dualChannel = status;
}

void SimulatedChip::connect(int display, bool connected) {
    const std::lock_guard<std::mutex> guard(mLock);
    mState.displays[static_cast<size_t>(display)].connected = connected;
}

void SimulatedChip::enableSecondaryDisplay(bool enabled) {
    connect(kSecondaryDisplay, enabled);
}

void SimulatedChip::SetPluggableDisplayConnected(bool connected) {
    connect(kPluggableDisplay, connected);
}

void SimulatedChip::SetVirtualDisplayConnected(bool connected) {
    connect(kVirtualDisplay, connected);
}

void SimulatedChip::setFrameBufferResolution(int display, uint32_t width, uint32_t height) {
    const std::lock_guard<std::mutex> guard(mLock);
    ChipDisplay* it = find(static_cast<uint64_t>(display));
    if (it == nullptr || width == 0 || width > kMaxEdge || height == 0 || height > kMaxEdge) {
        refuse("setFrameBufferResolution " + std::to_string(display), -EINVAL,
               it == nullptr ? noDisplay(display) : edgesText(width, height));
        return;
    }
    it->width = width;
    it->height = height;
}

void SimulatedChip::setPanelName(int display, const std::string& name) {
    const std::lock_guard<std::mutex> guard(mLock);
    ChipDisplay* it = find(static_cast<uint64_t>(display));
    if (it == nullptr || name.size() > kMaxPanelName) {
        refuse("setPanelName " + std::to_string(display), it == nullptr ? -EINVAL : -E2BIG,
               it == nullptr ? noDisplay(display) : "a name has at most 255 bytes");
        return;
    }
    it->panelName = name;
}

}  // namespace lmfg
