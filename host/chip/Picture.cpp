#include "host/chip/Picture.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <sstream>
#include <utility>
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

struct Palette {
    const char* paper;
    const char* panel;
    const char* ink;
    const char* soft;
    const char* mark;
    std::array<const char*, kColors> layers;
};

constexpr Palette kLight{
        "#ffffff", "#f1f3f6", "#1b1f24",
        "#5b6470", "#c2410c", {"#2563eb", "#15803d", "#9333ea", "#b45309", "#0e7490", "#be185d"}};
constexpr Palette kDark{
        "#14171b", "#1f242b", "#e8ebef",
        "#a3adb8", "#fb923c", {"#60a5fa", "#4ade80", "#c084fc", "#fbbf24", "#22d3ee", "#f472b6"}};

constexpr const char* kShapes = R"(text { font-family: "DejaVu Sans", "Noto Sans", sans-serif; }
text { font-size: 13px; } .title { font-size: 18px; font-weight: bold; }
.soft, .mark { font-size: 12px; } .id { font-size: 14px; } .id, .mark { font-weight: bold; }
.changed { fill: none; stroke-width: 3; stroke-dasharray: 7 4; }
.stack { fill: none; stroke-dasharray: 2 3; }
.layer { fill-opacity: 0.22; stroke-width: 1.5; }
)";

/// The rules that differ between light and dark; plain ones, since few programs know variables.
std::string colorRules(const Palette& palette) {
    const auto rule = [](const std::string& name, const char* property, const char* color) {
        return name + " { " + property + ": " + color + "; } ";
    };
    std::string rules =
            rule("text", "fill", palette.ink) + rule(".soft", "fill", palette.soft) +
            rule(".mark", "fill", palette.mark) + rule(".paper", "fill", palette.paper) +
            rule(".panel", "fill", palette.panel) + rule(".panel, .stack", "stroke", palette.soft) +
            rule(".changed", "stroke", palette.mark) + "\n";
    for (size_t i = 0; i < kColors; ++i) {
        const std::string name = ".c" + std::to_string(i);
        rules += rule(name, "fill", palette.layers[i]) + rule(name, "stroke", palette.layers[i]);
    }
    return rules + "\n";
}

std::string styleSheet() {
    return std::string("<style>\n") + kShapes + colorRules(kLight) +
           "@media (prefers-color-scheme: dark) {\n" + colorRules(kDark) + "}\n</style>\n";
}

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

std::string placeText(const hwc_rect& rect) {
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

/// Where a layer's label stands on the panel: in the first of its corners that no layer above it
/// covers.
std::pair<double, double> labelPlace(const ChipLayer& layer, const std::vector<Shown>& above,
                                     const ChipFrame& frame, double scale) {
    const double left = std::max(layer.frame.left, 0) * scale + 7;
    const double top = std::max(layer.frame.top, 0) * scale + 19;
    const double right = std::min<double>(layer.frame.right, frame.width) * scale - 30;
    const double bottom = std::min<double>(layer.frame.bottom, frame.height) * scale - 8;
    const std::pair<double, double> corners[] = {
            {left, top}, {left, bottom}, {right, top}, {right, bottom}};
    for (const auto& corner : corners) {
        const bool covered = std::any_of(above.begin(), above.end(), [&](const Shown& it) {
            const hwc_rect& rect = it.layer->frame;
            return corner.first >= rect.left * scale && corner.first <= rect.right * scale &&
                   corner.second >= rect.top * scale && corner.second - 12 <= rect.bottom * scale;
        });
        if (!covered) return corner;
    }
    return corners[0];
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
    }
    for (auto it = layers.begin(); it != layers.end(); ++it) {
        const auto [x, y] = labelPlace(*it->layer, {it + 1, layers.end()}, frame, scale);
        out << label(kMargin + x, kTop + y, "id", std::to_string(it->id));
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
                     "frame " + placeText(layer.frame) + "  ·  crop " + placeText(layer.crop) +
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
    const double content = std::max(
            height * scale, kRowHeight * static_cast<double>(std::max<size_t>(layers.size(), 1)));
    const std::string removed = removedText(frame, before);
    const double end = kTop + content + (removed.empty() ? 0 : kMargin) + kMargin;

    std::ostringstream out;
    out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << decimal(total) << "\" height=\""
        << decimal(end) << "\" viewBox=\"0 0 " << decimal(total) << " " << decimal(end) << "\">\n"
        << styleSheet() << box(0, 0, total, end, "paper")
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
