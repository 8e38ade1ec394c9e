#include "host/chip/ChipState.h"

#include <array>
#include <cerrno>

#include <nlohmann/json.hpp>

#include "host/codec/Names.h"

namespace lmfg {

namespace {

nlohmann::json rectJson(const hwc_rect& rect) {
    return {rect.left, rect.top, rect.right, rect.bottom};
}

template <size_t N>
std::string nameOf(const std::array<const char*, N>& names, int value) {
    const auto index = static_cast<size_t>(value);
    return value >= 0 && index < N ? names[index] : std::to_string(value);
}

}  // namespace

std::string cutText(const std::string& text, size_t limit) {
    if (text.size() <= limit) return text;
    const auto continues = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) == 0x80; };
    while (limit > 0 && continues(text[limit]))
        --limit;
    return text.substr(0, limit);
}

std::string ChipRefusal::text() const {
    return codec::errorName(error) + (reason.empty() ? "" : ": " + reason);
}

std::string compositionName(int composition) {
    return nameOf(codec::kCompositionNames, composition);
}

std::string transformName(int transform) {
    return nameOf(codec::kTransformNames, transform);
}

const char* displayName(size_t display) {
    static_assert(codec::kDisplayNames.size() == kDisplayCount);
    return codec::kDisplayNames[display];
}

std::string noDisplay(int64_t display) {
    return "display " + std::to_string(display) + " is not there";
}

std::string noLayer(uint64_t layer) {
    return "layer " + std::to_string(layer) + " is not there";
}

std::string edgesText(int64_t width, int64_t height) {
    return "edges are 1 to " + std::to_string(kMaxEdge) + ", not " + std::to_string(width) +
           " by " + std::to_string(height);
}

std::string raiseReason(int status) {
    switch (status) {
        case -EAGAIN:
            return "1024 events are queued";
        case -ESHUTDOWN:
            return "the chip is stopped";
        case -EDEADLK:
            return "an event cannot wait for itself";
        case -ETIMEDOUT:
            return "a client does not answer its event";
        default:
            return {};
    }
}

nlohmann::json frameJson(const ChipFrame& frame) {
    nlohmann::json stack = nlohmann::json::array();
    for (const auto& layer : frame.stack.layers) {
        const auto& rect = layer.layerRect;
        stack.push_back({{"rect", {rect.left, rect.top, rect.right, rect.bottom}},
                         {"buffer", layer.layerBuffer.bufferInfo.value1},
                         {"value1", layer.value1},
                         {"value2", layer.value2},
                         {"value3", layer.value3}});
    }
    nlohmann::json layers = nlohmann::json::array();
    for (const auto& [id, layer] : frame.layers) {
        layers.push_back({{"layer", id},
                          {"z", layer.z},
                          {"type", layer.type},
                          {"composition", layer.composition},
                          {"transform", layer.transform},
                          {"displayFrame", rectJson(layer.frame)},
                          {"sourceCrop", rectJson(layer.crop)},
                          {"buffer", layer.buffer ? nlohmann::json(*layer.buffer)
                                                  : nlohmann::json(nullptr)}});
    }
    return {{"frame", frame.number},
            {"display", frame.display},
            {"width", frame.width},
            {"height", frame.height},
            {"stack", {{"value1", frame.stack.value1}, {"layers", std::move(stack)}}},
            {"layers", std::move(layers)}};
}

}  // namespace lmfg
