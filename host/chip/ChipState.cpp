#include "host/chip/ChipState.h"

#include <cstring>
#include <ostream>
#include <sstream>

#include <nlohmann/json.hpp>

namespace lmfg {

namespace {

std::string rectText(const hwc_rect& rect) {
    return listText<int>({rect.left, rect.top, rect.right, rect.bottom});
}

nlohmann::json rectJson(const hwc_rect& rect) {
    return {rect.left, rect.top, rect.right, rect.bottom};
}

void dumpDisplay(std::ostream& out, const ChipState& state, size_t index) {
    static constexpr std::array<const char*, kDisplayCount> kNames = {"primary", "pluggable",
                                                                      "virtual", "secondary"};
    const ChipDisplay& display = state.displays[index];
    out << "display " << index << " (" << kNames[index]
        << "): " << (display.connected ? "connected" : "disconnected")
        << (display.empty ? ", empty" : "") << ", " << display.width << "x" << display.height
        << ", brightness " << display.brightness << ", panel \"" << display.panelName << "\"\n"
        << "  stack: " << display.stack.layers.size() << " layers, value " << display.stack.value1
        << "; built " << display.builds << ", committed " << display.commits << ", presented "
        << display.presents << "\n";
    for (const auto& [id, layer] : state.layers) {
        if (static_cast<size_t>(layer.display) != index) continue;
        out << "  layer " << id << ": z " << layer.z << ", type " << layer.type << ", composition "
            << layer.composition << ", transform " << layer.transform << ", frame "
            << rectText(layer.frame) << ", crop " << rectText(layer.crop);
        if (layer.buffer) {
            out << ", buffer " << *layer.buffer << " (update " << layer.bufferUpdates << ")";
        }
        if (!layer.toneMapping.empty()) {
            out << ", tone mapping of " << layer.toneMapping.size() << " entries";
        }
        out << "\n";
    }
}

void dumpGlobals(std::ostream& out, const ChipState& state) {
    out << "initialized " << state.initializations << " times, soft processing "
        << (state.softStarted ? "started" : "not started") << "\n"
        << "config " << state.activeConfig << " at " << state.refreshRate << " Hz, power "
        << (state.powerMode & 0xff) << ((state.powerMode & 0x100) != 0 ? " (flagged)" : "") << "\n"
        << "color mode " << state.colorMode << ", intent " << state.renderIntent << ", transform "
        << (state.colorTransform.empty() ? "none" : "set") << ", max content light "
        << state.maxContentLight << "\n"
        << "osd state " << state.osdState << ", overflow " << state.osdOverflow << ", auto refresh "
        << state.osdAutoRefresh << "\n"
        << "client target " << state.clientTarget << ", dual channel " << state.dualChannel << "\n";
}

void dumpRecords(std::ostream& out, const ChipState& state) {
    for (const auto& [property, value] : state.properties) {
        out << "property " << property << ": " << value << "\n";
    }
    for (const auto& [type, values] : state.registers) {
        out << "register " << type << ": " << listText(values) << "\n";
    }
    for (const auto& [type, blob] : state.blobs) {
        out << "buffer " << type << ": param " << blob.param << ", " << blob.size
            << " bytes, checksum " << blob.checksum << "\n";
    }
    out << "batches " << state.batches << ", events raised " << state.eventsRaised << "\n";
    for (const ChipEvent& event : state.events) {
        out << "event " << event.number << ": " << event.text << "\n";
    }
    out << "refusals " << state.refusalCount << "\n";
    for (const std::string& refusal : state.refusals)
        out << "refused " << refusal << "\n";
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

std::string dumpText(const ChipState& state, uint64_t display) {
    std::ostringstream out;
    if (display >= kDisplayCount) {
        out << "unknown display " << display << "\n";
    } else if (display != kPrimaryDisplay) {
        dumpDisplay(out, state, display);
    } else {
        out << "simulated chip\n";
        dumpGlobals(out, state);
        for (size_t index = 0; index < kDisplayCount; ++index)
            dumpDisplay(out, state, index);
        dumpRecords(out, state);
    }
    return out.str();
}

nlohmann::json frameJson(const ChipState& state, int display, uint64_t number) {
    const ChipDisplay& shown = state.displays[static_cast<size_t>(display)];
    nlohmann::json stack = nlohmann::json::array();
    for (const auto& layer : shown.stack.layers) {
        const auto& rect = layer.layerRect;
        stack.push_back({{"rect", {rect.left, rect.top, rect.right, rect.bottom}},
                         {"buffer", layer.layerBuffer.bufferInfo.value1},
                         {"value1", layer.value1},
                         {"value2", layer.value2},
                         {"value3", layer.value3}});
    }
    nlohmann::json layers = nlohmann::json::array();
    for (const auto& [id, layer] : state.layers) {
        if (layer.display != display) continue;
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
    return {{"frame", number},
            {"display", display},
            {"width", shown.width},
            {"height", shown.height},
            {"stack", {{"value1", shown.stack.value1}, {"layers", std::move(stack)}}},
            {"layers", std::move(layers)}};
}

}  // namespace lmfg
