#include "host/chip/Picture.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <optional>
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
constexpr size_t kMostRows = 32;
constexpr double kThinnest = 16;  // edge of a panel
constexpr double kLabelInset = 6;
constexpr double kLabelHeight = 16;
constexpr double kLabelWidth = 90;
// Widths of the widest fonts' usual characters, by style.
constexpr double kTextWidth = 7.4;
constexpr double kSoftWidth = 6.9;
constexpr double kMarkWidth = 7.7;
constexpr double kBoldWidth = 9.5;
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

/** The rules that differ between light and dark; plain ones, since few programs know variables. */
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

/** `content` has to be free of what XML reserves. */
std::string label(double x, double y, const std::string& styles, const std::string& content) {
    return "<text x=\"" + decimal(x) + "\" y=\"" + decimal(y) + "\" class=\"" + styles + "\">" +
           content + "</text>\n";
}

/** The text, cut with an ellipsis where it takes more than `width`. */
std::string fitted(const std::string& text, double width, double characterWidth) {
    const auto most = static_cast<size_t>(std::max(width / characterWidth, 1.0));
    const auto begins = [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; };
    if (static_cast<size_t>(std::count_if(text.begin(), text.end(), begins)) <= most) return text;
    return cutText(text, most - 1) + "…";
}

std::string placeText(const hwc_rect& rect) {
    return std::to_string(rect.left) + "," + std::to_string(rect.top) + " " +
           std::to_string(int64_t{rect.right} - rect.left) + "x" +
           std::to_string(int64_t{rect.bottom} - rect.top);
}

bool isSame(const hwc_rect& a, const hwc_rect& b) {
    return a.left == b.left && a.top == b.top && a.right == b.right && a.bottom == b.bottom;
}

/** The names of what differs, with commas; empty when nothing does. */
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

/** The layers, lowest first. */
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

/** How much a pixel of the display is on the page; the same both ways but for extreme shapes. */
struct Scale {
    double x;
    double y;
};

Scale scaleOf(double width, double height) {
    const double scale = std::min(kPanelWidth / width, kPanelHeight / height);
    return {std::max(scale, kThinnest / width), std::max(scale, kThinnest / height)};
}

/** A place on the panel, in pixels of the page. */
struct Place {
    double left;
    double top;
    double right;
    double bottom;

    [[nodiscard]] bool meets(const Place& other) const {
        return left < other.right && other.left < right && top < other.bottom && other.top < bottom;
    }
};

Place onPanel(const hwc_rect& rect, const ChipFrame& frame, Scale scale) {
    return {std::max(rect.left, 0) * scale.x, std::max(rect.top, 0) * scale.y,
            std::min<double>(rect.right, frame.width) * scale.x,
            std::min<double>(rect.bottom, frame.height) * scale.y};
}

bool meetsAny(const Place& place, const std::vector<Place>& others) {
    return std::any_of(others.begin(), others.end(),
                       [&](const Place& it) { return place.meets(it); });
}

/**
 * Where a layer's label of that width stands on the panel: where no layer above it is, else where
 * no other label is; in corners first. Nowhere when all is taken, or the layer is not to be seen.
 */
std::optional<Place> labelPlace(const Place& layer, double width, const Place& panel,
                                const std::vector<Place>& above, const std::vector<Place>& labels) {
    if (!layer.meets(panel)) return std::nullopt;
    const double left = std::min(layer.left + kLabelInset, panel.right - width);
    const double top = std::min(layer.top + kLabelInset, panel.bottom - kLabelHeight);
    const double right = std::max(layer.right - kLabelInset - width, left);
    const double bottom = std::max(layer.bottom - kLabelInset - kLabelHeight, top);
    std::vector<std::pair<double, double>> places{
            {left, top}, {left, bottom}, {right, top}, {right, bottom}};
    const int columns = static_cast<int>((right - left) / (width + kLabelInset)) + 1;
    const int rows = static_cast<int>((bottom - top) / kLabelHeight) + 1;
    for (int column = 0; column < columns; ++column) {
        for (int row = 0; row < rows; ++row) {
            places.emplace_back(left + column * (width + kLabelInset), top + row * kLabelHeight);
        }
    }
    std::optional<Place> free;
    for (const auto& [x, y] : places) {
        const Place place{x, y, x + width, y + kLabelHeight};
        if (x < 0 || y < 0 || meetsAny(place, labels)) continue;
        if (!meetsAny(place, above)) return place;
        if (!free) free = place;
    }
    return free;
}

/** The display with its layers; the part that lies outside is cut off. */
void drawPanel(std::ostream& out, const ChipFrame& frame, const std::vector<Shown>& layers,
               Scale scale) {
    const auto area = [scale](double left, double top, double right, double bottom,
                              const std::string& styles, double inset = 0) {
        return box(kMargin + left * scale.x + inset, kTop + top * scale.y + inset,
                   std::max((right - left) * scale.x - 2 * inset, 0.0),
                   std::max((bottom - top) * scale.y - 2 * inset, 0.0), styles);
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
    const Place panel{0, 0, right * scale.x, bottom * scale.y};
    std::vector<Place> above;
    std::vector<Place> labels;
    for (auto it = layers.rbegin(); it != layers.rend(); ++it) {
        const std::string text = fitted(std::to_string(it->id), kLabelWidth, kBoldWidth);
        const double width = static_cast<double>(text.size()) * kBoldWidth;
        const Place layer = onPanel(it->layer->frame, frame, scale);
        if (const auto place = labelPlace(layer, width, panel, above, labels)) {
            out << label(kMargin + place->left, kTop + place->bottom - 2, "id", text);
            labels.push_back(*place);
        }
        above.push_back(layer);
    }
    out << "</g>\n";
}

/** Names the layers, topmost first, as many as the page has room for. */
void drawList(std::ostream& out, const std::vector<Shown>& layers, double x) {
    const double left = x + 24;
    const double width = kListWidth - 24;
    double y = kTop;
    const auto last = layers.rbegin() + static_cast<ptrdiff_t>(std::min(layers.size(), kMostRows));
    for (auto it = layers.rbegin(); it != last; ++it, y += kRowHeight) {
        const ChipLayer& layer = *it->layer;
        const std::string name = "layer " + std::to_string(it->id);
        const double mark = std::max(146.0, static_cast<double>(name.size() + 1) * kBoldWidth);
        out << box(x, y + 2, 14, 14, it->color) << label(left, y + 14, "id", name)
            << label(left, y + 32, "",
                     fitted("z " + std::to_string(layer.z) + "  ·  composition " +
                                    compositionName(layer.composition) + "  ·  transform " +
                                    transformName(layer.transform),
                            width, kTextWidth))
            << label(left, y + 48, "soft",
                     fitted("frame " + placeText(layer.frame) + "  ·  crop " +
                                    placeText(layer.crop) + "  ·  buffer " +
                                    (layer.buffer ? std::to_string(*layer.buffer) : "none"),
                            width, kSoftWidth));
        if (!it->change.empty()) {
            out << label(left + mark, y + 14, "mark", fitted(it->change, width - mark, kMarkWidth));
        }
    }
    if (last != layers.rend()) {
        out << label(left, y + 14, "soft",
                     "and " + std::to_string(layers.size() - kMostRows) + " layers below them");
    }
}

}  // namespace

std::string pictureOf(const ChipFrame& frame, const ChipFrame* before) {
    const double width = std::max(frame.width, 1u);
    const double height = std::max(frame.height, 1u);
    const Scale scale = scaleOf(width, height);
    const std::vector<Shown> layers = shownLayers(frame, before);
    const double listX = kMargin + width * scale.x + kMargin;
    const double total = listX + kListWidth + kMargin;
    const size_t rows = std::clamp<size_t>(layers.size(), 1, kMostRows + 1);
    const double content = std::max(height * scale.y, kRowHeight * static_cast<double>(rows));
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
                                  : "  ·  before it: frame " + std::to_string(before->number)) +
                         (scale.x == scale.y ? "" : "  ·  not to scale"));
    drawPanel(out, frame, layers, scale);
    if (layers.empty()) out << label(listX, kTop + 14, "soft", "no layers");
    drawList(out, layers, listX);
    if (!removed.empty())
        out << label(kMargin, end - kMargin + 4, "mark",
                     fitted(removed, total - 2 * kMargin, kMarkWidth));
    out << "</svg>\n";
    return out.str();
}

}  // namespace lmfg
