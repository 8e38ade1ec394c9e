#include "host/chip/ChipState.h"

#include <array>
#include <cstring>

#include <nlohmann/json.hpp>

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

std::string errnoName(int error) {
    const char* name = strerrorname_np(error);
    return name != nullptr ? name : std::to_string(error);
}

std::string compositionName(int composition) {
    static constexpr std::array<const char*, 6> kNames = {"none",        "client", "device",
                                                          "solid color", "cursor", "sideband"};
    return nameOf(kNames, composition);
}

std::string transformName(int transform) {
    static constexpr std::array<const char*, 8> kNames = {
            "none",      "flip h",          "flip v",          "rotate 180",
            "rotate 90", "flip h + rot 90", "flip v + rot 90", "rotate 270"};
    return nameOf(kNames, transform);
}

const char* displayName(size_t display) {
    static constexpr std::array<const char*, kDisplayCount> kNames = {"primary", "pluggable",
                                                                      "virtual", "secondary"};
    return kNames[display];
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
