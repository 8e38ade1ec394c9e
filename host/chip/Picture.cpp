#include "host/chip/Picture.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>
#include <vector>

namespace lmfg {

namespace {

constexpr double kPanelWidth = 420;
constexpr double kPanelHeight = 640;
constexpr double kMargin = 24;
constexpr double kTop = 72;
constexpr double kListWidth = 470;
constexpr double kRowHeight = 64;
constexpr size_t kColors = 6;

constexpr const char* kStyle = R"(<style>
svg { --paper: #ffffff; --panel: #f1f3f6; --ink: #1b1f24; --soft: #5b6470; --mark: #c2410c;
      --c0: #2563eb; --c1: #15803d; --c2: #9333ea; --c3: #b45309; --c4: #0e7490; --c5: #be185d; }
@media (prefers-color-scheme: dark) {
  svg { --paper: #14171b; --panel: #1f242b; --ink: #e8ebef; --soft: #a3adb8; --mark: #fb923c;
        --c0: #60a5fa; --c1: #4ade80; --c2: #c084fc; --c3: #fbbf24; --c4: #22d3ee; --c5: #f472b6; }
}
text { font-family: "DejaVu Sans", "Noto Sans", sans-serif; font-size: 13px; fill: var(--ink); }
.title { font-size: 18px; font-weight: bold; }
.soft { fill: var(--soft); font-size: 12px; }
.mark { fill: var(--mark); font-size: 12px; font-weight: bold; }
.id { font-size: 14px; font-weight: bold; }
.paper { fill: var(--paper); }
.panel { fill: var(--panel); stroke: var(--soft); }
.changed { fill: none; stroke: var(--mark); stroke-width: 3; stroke-dasharray: 7 4; }
.stack { fill: none; stroke: var(--soft); stroke-dasharray: 2 3; }
.c0 { fill: var(--c0); stroke: var(--c0); } .c1 { fill: var(--c1); stroke: var(--c1); }
.c2 { fill: var(--c2); stroke: var(--c2); } .c3 { fill: var(--c3); stroke: var(--c3); }
.c4 { fill: var(--c4); stroke: var(--c4); } .c5 { fill: var(--c5); stroke: var(--c5); }
.layer { fill-opacity: 0.22; stroke-width: 1.5; }
</style>
)";

std::string decimal(double value) {
    char text[32];
    std::snprintf(text, sizeof(text), "%.1f", value);
    return text;
}

std::string box(double x, double y, double width, double height, const std::string& styles) {
    return "<rect x=\"" + decimal(x) + "\" y=\"" + decimal(y) + "\" width=\"" + decimal(width) +
           "\" height=\"" + decimal(height) + "\" class=\"" + styles + "\"/>\n";
}

/// `content` has to be free of what XML reserves.
std::string label(double x, double y, const std::string& styles, const std::string& content) {
    return "<text x=\"" + decimal(x) + "\" y=\"" + decimal(y) + "\" class=\"" + styles + "\">" +
           content + "</text>\n";
}

std::string rectText(const hwc_rect& rect) {
    return std::to_string(rect.left) + "," + std::to_string(rect.top) + " " +
           std::to_string(int64_t{rect.right} - rect.left) + "x" +
           std::to_string(int64_t{rect.bottom} - rect.top);
}

bool isSame(const hwc_rect& a, const hwc_rect& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

/// The names of what differs, with commas; empty when nothing does.
std::string changesOf(const ChipLayer& now, const ChipLayer& was) {
    const std::pair<const char*, bool> facts[] = {
            {"frame", !isSame(now.frame, was.frame)},
            {"crop", !isSame(now.crop, was.crop)},
            {"z", now.z != was.z},
            {"type", now.type != was.type},
            {"composition", now.composition != was.composition},
            {"transform", now.transform != was.transform},
            {"buffer", now.bufferUpdates != was.bufferUpdates},
            {"tone mapping", now.toneMapping != was.toneMapping},
    };
    std::string text;
    for (const auto& [name, differs] : facts) {
        if (differs) text += (text.empty() ? "" : ", ") + std::string(name);
    }
    return text;
}

struct Shown {
    uint64_t id;
    const ChipLayer* layer;
    std::string change;  // empty when nothing changed
    std::string color;
};

/// The layers, lowest first.
std::vector<Shown> shownLayers(const ChipFrame& frame, const ChipFrame* before) {
    std::vector<Shown> shown;
    for (const auto& [id, layer] : frame.layers) {
        std::string change;
        if (before != nullptr) {
            const auto was = before->layers.find(id);
            if (was == before->layers.end()) {
                change = "new";
            } else if (const std::string what = changesOf(layer, was->second); !what.empty()) {
                change = "changed: " + what;
            }
        }
        shown.push_back({id, &layer, std::move(change), "c" + std::to_string(id % kColors)});
    }
    std::stable_sort(shown.begin(), shown.end(),
                     [](const Shown& a, const Shown& b) { return a.layer->z < b.layer->z; });
    return shown;
}

std::string removedText(const ChipFrame& frame, const ChipFrame* before) {
    std::string text;
    if (before == nullptr) return text;
    for (const auto& [id, layer] : before->layers) {
        if (!frame.layers.contains(id)) text += " " + std::to_string(id);
    }
    return text.empty() ? text : "gone since the frame before: layer" + text;
}

/// The display with its layers; the part that lies outside is cut off.
void drawPanel(std::ostream& out, const ChipFrame& frame, const std::vector<Shown>& layers,
               double scale) {
    const auto area = [scale](double left, double top, double right, double bottom,
                              const std::string& styles, double inset = 0) {
        return box(kMargin + left * scale + inset, kTop + top * scale + inset,
                   std::max((right - left) * scale - 2 * inset, 0.0),
                   std::max((bottom - top) * scale - 2 * inset, 0.0), styles);
    };
    const double right = frame.width;
    const double bottom = frame.height;
    out << "<clipPath id=\"display\">" << area(0, 0, right, bottom, "panel") << "</clipPath>\n"
        << area(0, 0, right, bottom, "panel") << "<g clip-path=\"url(#display)\">\n";
    for (const auto& layer : frame.stack.layers) {
        const auto& rect = layer.layerRect;
        out << area(rect.left, rect.top, rect.right, rect.bottom, "stack");
    }
    for (const Shown& it : layers) {
        const hwc_rect& rect = it.layer->frame;
        out << area(rect.left, rect.top, rect.right, rect.bottom, "layer " + it.color);
        if (!it.change.empty()) {
            out << area(rect.left, rect.top, rect.right, rect.bottom, "changed", 2);
        }
        out << label(kMargin + std::max(rect.left, 0) * scale + 7,
                     kTop + std::max(rect.top, 0) * scale + 19, "id", std::to_string(it.id));
    }
    out << "</g>\n";
}

void drawList(std::ostream& out, const std::vector<Shown>& layers, double x) {
    double y = kTop;
    for (auto it = layers.rbegin(); it != layers.rend(); ++it, y += kRowHeight) {
        const ChipLayer& layer = *it->layer;
        out << box(x, y + 2, 14, 14, it->color)
            << label(x + 24, y + 14, "id", "layer " + std::to_string(it->id))
            << label(x + 24, y + 32, "",
                     "z " + std::to_string(layer.z) + "  ·  composition " +
                             compositionName(layer.composition) + "  ·  transform " +
                             transformName(layer.transform))
            << label(x + 24, y + 48, "soft",
                     "frame " + rectText(layer.frame) + "  ·  crop " + rectText(layer.crop) +
                             "  ·  buffer " +
                             (layer.buffer ? std::to_string(*layer.buffer) : "none"));
        if (!it->change.empty()) out << label(x + 170, y + 14, "mark", it->change);
    }
}

}  // namespace

std::string pictureOf(const ChipFrame& frame, const ChipFrame* before) {
    const double width = std::max(frame.width, 1u);
    const double height = std::max(frame.height, 1u);
    const double scale = std::min(kPanelWidth / width, kPanelHeight / height);
    const std::vector<Shown> layers = shownLayers(frame, before);
    const double listX = kMargin + width * scale + kMargin;
    const double total = listX + kListWidth + kMargin;
    const double content = std::max(height * scale,
                                    kRowHeight * static_cast<double>(std::max<size_t>(
                                                         layers.size(), 1)));
    const std::string removed = removedText(frame, before);
    const double end = kTop + content + (removed.empty() ? 0 : kMargin) + kMargin;

    std::ostringstream out;
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << decimal(total) << "\" height=\""
        << decimal(end) << "\" viewBox=\"0 0 " << decimal(total) << " " << decimal(end) << "\">\n"
        << kStyle << box(0, 0, total, end, "paper")
        << label(kMargin, 34, "title",
                 "Frame " + std::to_string(frame.number) + " on display " +
                         std::to_string(frame.display) + " (" +
                         displayName(static_cast<size_t>(frame.display)) + ")")
        << label(kMargin, 56, "soft",
                 std::to_string(frame.width) + "x" + std::to_string(frame.height) + "  ·  " +
                         std::to_string(layers.size()) + " layers, stack of " +
                         std::to_string(frame.stack.layers.size()) +
                         (before == nullptr
                                  ? std::string("  ·  the first frame")
                                  : "  ·  before it: frame " + std::to_string(before->number)));
    drawPanel(out, frame, layers, scale);
    if (layers.empty()) out << label(listX, kTop + 14, "soft", "no layers");
    drawList(out, layers, listX);
    if (!removed.empty()) out << label(kMargin, end - kMargin + 4, "mark", removed);
    out << "</svg>\n";
    return out.str();
}

}  // namespace lmfg
