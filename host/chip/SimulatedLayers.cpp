#include <cerrno>
#include <utility>

#include <nlohmann/json.hpp>

#include "host/chip/Picture.h"
#include "host/chip/SimulatedChip.h"

namespace lmfg {

namespace {

constexpr size_t kMaxLayers = 1024;
constexpr int kMaxTransform = 7;
constexpr const char* kNoRect = "an edge lies before its opposite";

bool isRect(hwc_rect rect) {
    return rect.left <= rect.right && rect.top <= rect.bottom;
}

}  // namespace

template <typename Change>
void SimulatedChip::changeLayer(const char* operation, uint64_t layer, Change change) {
    const std::lock_guard<std::mutex> guard(mLock);
    ChipLayer* it = findLayer(layer);
    const std::string reason = it == nullptr ? noLayer(layer) : change(*it);
    if (!reason.empty()) refuse(operation + (" " + std::to_string(layer)), -EINVAL, reason);
}

void SimulatedChip::CreateLayer(uint64_t layer, int display) {
    const std::lock_guard<std::mutex> guard(mLock);
    const int status = find(static_cast<uint64_t>(display)) == nullptr ? -EINVAL
                       : mState.layers.contains(layer)                 ? -EEXIST
                       : mState.layers.size() >= kMaxLayers            ? -ENOSPC
                                                                       : 0;
    if (status < 0) {
        refuse("CreateLayer " + std::to_string(layer), status,
               status == -EINVAL   ? noDisplay(display)
               : status == -EEXIST ? "layer " + std::to_string(layer) + " is there already"
                                   : "there are 1024 layers");
        return;
    }
    mState.layers[layer].display = display;
}

void SimulatedChip::DestroyLayer(uint64_t layer) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (mState.layers.erase(layer) != 0) return;
    refuse("DestroyLayer " + std::to_string(layer), -EINVAL, noLayer(layer));
}

void SimulatedChip::ChangeLayerType(uint64_t layer, int type) {
    changeLayer("ChangeLayerType", layer, [type](ChipLayer& it) {
        it.type = type;
        return "";
    });
}

void SimulatedChip::SetLayerCompositionType(uint64_t layer, int type) {
    changeLayer("SetLayerCompositionType", layer, [type](ChipLayer& it) {
        it.composition = type;
        return "";
    });
}

void SimulatedChip::SetLayerTransform(uint64_t layer, int transform) {
    changeLayer("SetLayerTransform", layer, [transform](ChipLayer& it) {
        if (transform < 0 || transform > kMaxTransform) return "transforms are 0 to 7";
        it.transform = transform;
        return "";
    });
}

void SimulatedChip::SetLayerZOrder(uint64_t layer, uint32_t z) {
    changeLayer("SetLayerZOrder", layer, [z](ChipLayer& it) {
        it.z = z;
        return "";
    });
}

void SimulatedChip::SetLayerDisplayFrame(uint64_t layer, hwc_rect frame) {
    changeLayer("SetLayerDisplayFrame", layer, [frame](ChipLayer& it) {
        if (!isRect(frame)) return kNoRect;
        it.frame = frame;
        return "";
    });
}

void SimulatedChip::SetLayerSourceCrop(uint64_t layer, hwc_rect crop) {
    changeLayer("SetLayerSourceCrop", layer, [crop](ChipLayer& it) {
        if (!isRect(crop)) return kNoRect;
        it.crop = crop;
        return "";
    });
}

void SimulatedChip::setLayerBuffer(uint64_t display, uint64_t layer, const BufferInfo& info) {
    changeLayer("setLayerBuffer", layer, [display, &info](ChipLayer& it) {
        if (static_cast<uint64_t>(it.display) != display) return "it is on another display";
        it.buffer = info.value1;
        ++it.bufferUpdates;
        return "";
    });
}

void SimulatedChip::setLayerProperty(uint32_t property, uint64_t value) {
    const std::lock_guard<std::mutex> guard(mLock);
    if (mState.properties.size() >= kMaxLayers && !mState.properties.contains(property)) {
        refuse("setLayerProperty " + std::to_string(property), -ENOSPC,
               "there are 1024 properties");
        return;
    }
    mState.properties[property] = value;
}

void SimulatedChip::SetLayerSetEmpty(int display, bool empty) {
    const std::lock_guard<std::mutex> guard(mLock);
    ChipDisplay* it = find(static_cast<uint64_t>(display));
    if (it == nullptr) {
        refuse("SetLayerSetEmpty " + std::to_string(display), -EINVAL, noDisplay(display));
        return;
    }
    it->empty = empty;
}

void SimulatedChip::buildLayerStack(int display, const LayerStack& stack) {
    const std::lock_guard<std::mutex> guard(mLock);
    ChipDisplay* it = find(static_cast<uint64_t>(display));
    const int status = it == nullptr ? -EINVAL : stack.layers.size() > kMaxLayers ? -E2BIG : 0;
    if (status < 0) {
        refuse("buildLayerStack " + std::to_string(display), status,
               it == nullptr ? noDisplay(display) : "a stack has at most 1024 layers");
        return;
    }
    it->stack = stack;
    ++it->builds;
}

int SimulatedChip::CommitLayerStack(int display, bool) {
    const std::lock_guard<std::mutex> guard(mLock);
    ChipDisplay* it = find(static_cast<uint64_t>(display));
    const int status = it == nullptr ? -EINVAL : it->builds == 0 ? -ENODATA : 0;
    if (status < 0) {
        return refuse("CommitLayerStack " + std::to_string(display), status,
                      it == nullptr ? noDisplay(display) : "no stack was built");
    }
    ++it->commits;
    return 0;
}

int SimulatedChip::present(const char* operation, int display) {
    std::string json;
    std::string picture;
    uint64_t number = 0;
    {
        const std::lock_guard<std::mutex> guard(mLock);
        ChipDisplay& it = mState.displays[static_cast<size_t>(display)];
        if (!it.connected) return refuse(operation, -ENODEV, "the display is disconnected");
        if (it.commits == 0) return refuse(operation, -ENODATA, "no stack was committed");
        ++it.presents;
        number = ++mState.frames;
        it.before = std::exchange(it.frame, ChipFrame{.number = number,
                                                      .display = display,
                                                      .width = it.width,
                                                      .height = it.height,
                                                      .stack = it.stack,
                                                      .layers = {}});
        for (const auto& [id, layer] : mState.layers) {
            if (layer.display == display) it.frame->layers.emplace(id, layer);
        }
        if (!mFrames) return 0;
        json = frameJson(*it.frame).dump(2) + "\n";
        picture = pictureOf(*it.frame, it.before ? &*it.before : nullptr);
    }
    mFrames(number, json, picture);
    return 0;
}

std::string SimulatedChip::picture(int display) {
    const std::lock_guard<std::mutex> guard(mLock);
    const ChipDisplay* const it = find(static_cast<uint64_t>(display));
    if (it == nullptr || !it->frame) return {};
    return pictureOf(*it->frame, it->before ? &*it->before : nullptr);
}

bool SimulatedChip::Present() {
    return present("Present", kPrimaryDisplay) == 0;
}

bool SimulatedChip::Present2nd() {
    return present("Present2nd", kSecondaryDisplay) == 0;
}

int SimulatedChip::PresentDisplay() {
    return present("PresentDisplay", kPrimaryDisplay);
}

}  // namespace lmfg
