#include <sstream>

#include "host/chip/ChipState.h"
#include "host/chip/Table.h"
#include "host/codec/Names.h"

namespace lmfg {

namespace {

std::string number(uint64_t value) {
    return std::to_string(value);
}

std::string rectText(const hwc_rect& rect) {
    return listText<int>({rect.left, rect.top, rect.right, rect.bottom});
}

std::string sizeText(const ChipDisplay& display) {
    return number(display.width) + "x" + number(display.height);
}

void dumpDisplays(std::ostream& out, const ChipState& state, size_t first, size_t last) {
    Table table("Displays", {"ID", "NAME", "STATE", "SIZE", "BRIGHTNESS", "LAYERS", "VALUE",
                             "FRAMES", "PANEL"});
    for (size_t index = first; index <= last; ++index) {
        const ChipDisplay& it = state.displays[index];
        table.add({number(index), displayName(index),
                   std::string(it.connected ? "connected" : "disconnected") +
                           (it.empty ? ", empty" : ""),
                   sizeText(it), std::to_string(it.brightness), number(it.stack.layers.size()),
                   std::to_string(it.stack.value1),
                   "built " + number(it.builds) + ", committed " + number(it.commits) +
                           ", presented " + number(it.presents),
                   '"' + it.panelName + '"'});
    }
    table.print(out);
}

void dumpLayers(std::ostream& out, const ChipState& state, size_t display) {
    Table table("Layers of display " + number(display) + " (" + displayName(display) + ")",
                {"LAYER", "Z", "TYPE", "COMPOSITION", "TRANSFORM", "FRAME", "CROP", "BUFFER",
                 "UPDATES", "TONE MAPPING"});
    for (const auto& [id, it] : state.layers) {
        if (static_cast<size_t>(it.display) != display) continue;
        table.add({number(id), number(it.z), std::to_string(it.type),
                   compositionName(it.composition), transformName(it.transform), rectText(it.frame),
                   rectText(it.crop), it.buffer ? std::to_string(*it.buffer) : "-",
                   number(it.bufferUpdates),
                   it.toneMapping.empty() ? "-" : number(it.toneMapping.size()) + " entries"});
    }
    table.print(out);
}

void dumpModes(std::ostream& out, const ChipState& state) {
    out << "Simulated chip: initialized " << state.initializations << " times, soft processing "
        << (state.softStarted ? "started" : "not started") << "\n"
        << "  mode     config " << state.activeConfig << " at " << state.refreshRate
        << " Hz, power " << (state.powerMode & 0xff)
        << ((state.powerMode & 0x100) != 0 ? " (flagged)" : "") << "\n"
        << "  color    mode " << state.colorMode << ", intent " << state.renderIntent
        << ", transform " << (state.colorTransform.empty() ? "none" : "set")
        << ", max content light " << state.maxContentLight << "\n"
        << "  osd      state " << state.osdState << ", overflow " << state.osdOverflow
        << ", auto refresh " << state.osdAutoRefresh << "\n"
        << "  output   client target " << state.clientTarget << ", dual channel "
        << state.dualChannel << "\n"
        << "  counted  frames " << state.frames << ", batches " << state.batchCount
        << ", events raised " << state.eventsRaised << ", refusals " << state.refusalCount << "\n";
}

void dumpConfiguration(std::ostream& out, const ChipState& state) {
    Table registers("Registers", {"REGISTER", "VALUES"});
    for (const auto& [type, values] : state.registers)
        registers.add({std::to_string(type), listText(values)});
    registers.print(out);

    Table buffers("Buffers", {"BUFFER", "PARAM", "BYTES", "CHECKSUM"});
    for (const auto& [type, blob] : state.blobs)
        buffers.add({std::to_string(type), number(blob.param), number(blob.size),
                     number(blob.checksum)});
    buffers.print(out);

    Table properties("Properties", {"PROPERTY", "VALUE"});
    for (const auto& [property, value] : state.properties)
        properties.add({number(property), number(value)});
    properties.print(out);
}

void dumpHistory(std::ostream& out, const ChipState& state) {
    Table batches("Recent batches", {"BATCH", "COMMANDS", "TEXT"});
    for (const ChipBatch& batch : state.batches)
        batches.add({number(batch.number), number(batch.commands), batch.text});
    batches.print(out);

    Table events("Recent events", {"EVENT", "WHAT", "ANSWER"});
    for (const ChipEvent& event : state.events)
        events.add({number(event.number), event.what, event.answer.empty() ? "-" : event.answer});
    events.print(out);

    Table refusals("Recent refusals", {"REFUSED", "ERROR", "WHY"});
    for (const ChipRefusal& refusal : state.refusals) {
        refusals.add({refusal.operation, codec::errorName(refusal.error),
                      refusal.reason.empty() ? "-" : refusal.reason});
    }
    refusals.print(out);
}

}  // namespace

std::string dumpText(const ChipState& state, uint64_t display) {
    std::ostringstream out;
    if (display >= kDisplayCount) {
        out << "unknown display " << display << "\n";
    } else if (display != kPrimaryDisplay) {
        dumpDisplays(out, state, display, display);
        dumpLayers(out, state, display);
    } else {
        dumpModes(out, state);
        dumpDisplays(out, state, 0, kDisplayCount - 1);
        for (size_t index = 0; index < kDisplayCount; ++index)
            dumpLayers(out, state, index);
        dumpConfiguration(out, state);
        dumpHistory(out, state);
    }
    const std::string text = out.str();
    return text.substr(text.find_first_not_of('\n'));
}

}  // namespace lmfg
