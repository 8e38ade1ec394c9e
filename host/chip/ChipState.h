#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "servicelib/VelaService.h"

namespace lmfg {

constexpr int kPrimaryDisplay = 0;
constexpr int kPluggableDisplay = 1;
constexpr int kVirtualDisplay = 2;
constexpr int kSecondaryDisplay = 3;
constexpr size_t kDisplayCount = 4;

/** The longest edge of a display, in pixels. */
constexpr uint32_t kMaxEdge = 16384;

/** A layer as the per-layer operations describe it; zero until told otherwise. */
struct ChipLayer {
    int display = 0;
    int type = 0;
    int composition = 0;
    int transform = 0;
    uint32_t z = 0;
    hwc_rect frame{};
    hwc_rect crop{};
    std::optional<int64_t> buffer;
    uint32_t bufferUpdates = 0;
    std::vector<uint16_t> toneMapping;
};

/** What one presentation put on a display. */
struct ChipFrame {
    uint64_t number = 0;
    int display = 0;
    uint32_t width = 0;
    uint32_t height = 0;
    VelaService::LayerStack stack;
    std::map<uint64_t, ChipLayer> layers;  // those of this display
};

struct ChipDisplay {
    bool connected = false;
    bool empty = false;
    std::string panelName;
    uint32_t width = 0;
    uint32_t height = 0;
    int brightness = 0;
    VelaService::LayerStack stack;
    uint32_t builds = 0;
    uint32_t commits = 0;
    uint32_t presents = 0;
    std::array<uint8_t, 256> panel{};
    std::optional<ChipFrame> frame;   // the present one
    std::optional<ChipFrame> before;  // the one that it replaced
};

struct ChipBlob {
    uint64_t param = 0;
    uint32_t size = 0;
    uint32_t checksum = 0;
};

struct ChipEvent {
    uint64_t number = 0;
    std::string what;
    std::string answer;  // empty where the event takes none

    [[nodiscard]] std::string text() const {
        return answer.empty() ? what : what + " -> " + answer;
    }
};

struct ChipBatch {
    uint64_t number = 0;
    size_t commands = 0;
    std::string text;
};

struct ChipRefusal {
    std::string operation;
    int error = 0;       // positive
    std::string reason;  // may be empty

    /** "EINVAL: display 9 is not there". */
    [[nodiscard]] std::string text() const;
};

/** Everything the simulated chip knows. */
struct ChipState {
    uint32_t initializations = 0;
    bool softStarted = false;
    uint32_t activeConfig = 0;
    float refreshRate = 60;
    int powerMode = 0;
    int colorMode = 0;
    int renderIntent = 0;
    std::vector<float> colorTransform;
    int maxContentLight = 0;
    int osdState = 0;
    int osdOverflow = 0;
    int osdAutoRefresh = 0;
    int clientTarget = 0;
    int dualChannel = 0;
    std::array<ChipDisplay, kDisplayCount> displays;
    std::map<uint64_t, ChipLayer> layers;
    std::map<uint32_t, uint64_t> properties;
    std::map<int, std::vector<int>> registers;
    std::map<int, ChipBlob> blobs;

    uint64_t batchCount = 0;
    std::deque<ChipBatch> batches;
    uint64_t eventsRaised = 0;
    uint64_t frames = 0;
    std::deque<ChipEvent> events;
    uint64_t refusalCount = 0;
    std::deque<ChipRefusal> refusals;
};

/** "[1,2,3]". */
template <typename T>
std::string listText(const std::vector<T>& values) {
    std::string text = "[";
    for (const T value : values) {
        if (text.size() > 1) text += ',';
        text += std::to_string(value);
    }
    return text + "]";
}

/** At most `limit` bytes of the text; no character of it is cut in two. */
std::string cutText(const std::string& text, size_t limit);

/** The platform's names of a layer's composition and transform; the number for what has none. */
std::string compositionName(int composition);
std::string transformName(int transform);
/** "primary" for 0. */
const char* displayName(size_t display);

// Why requests are refused.
std::string noDisplay(int64_t display);
std::string noLayer(uint64_t layer);
std::string edgesText(int64_t width, int64_t height);
/** Why no event could be raised, or waited for. */
std::string raiseReason(int status);

/**
 * The state for people to read; display 0 gives all of it, another display only that display and
 * its layers.
 */
std::string dumpText(const ChipState& state, uint64_t display);

nlohmann::json frameJson(const ChipFrame& frame);

}  // namespace lmfg
