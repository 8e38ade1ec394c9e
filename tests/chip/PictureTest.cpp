#include <cstdint>
#include <regex>
#include <set>
#include <string>

#include <gmock/gmock.h>

#include "host/chip/SimulatedChip.h"

namespace lmfg {
namespace {

using testing::ContainsRegex;
using testing::HasSubstr;

/** Presents layers of those identifiers, all of the same place. */
std::string picture(uint32_t width, uint32_t height, const std::set<uint64_t>& layers) {
    SimulatedChip chip;
    chip.setFrameBufferResolution(0, width, height);
    for (const uint64_t layer : layers) {
        chip.CreateLayer(layer, 0);
        chip.SetLayerDisplayFrame(layer, {.left = 0, .top = 0, .right = 1080, .bottom = 2400});
    }
    chip.buildLayerStack(0, {});
    EXPECT_EQ(chip.CommitLayerStack(0, false), 0);
    EXPECT_TRUE(chip.Present());
    return chip.picture(0);
}

/** The places of what matches; equal ones count once. */
size_t placesOf(const std::string& picture, const std::string& text) {
    const std::regex label(R"rx(x="([^"]*" y="[^"]*)" class="id">)rx" + text + "<");
    std::set<std::string> places;
    for (std::sregex_iterator it(picture.begin(), picture.end(), label), end; it != end; ++it)
        places.insert((*it)[1]);
    return places.size();
}

TEST(PictureTest, LabelsDoNotHideEachOther) {
    const std::string few = picture(1080, 2400, {1, 2, 3, 4, 5, 6, UINT64_MAX});
    EXPECT_EQ(placesOf(few, "[0-9]"), 6U);
    EXPECT_EQ(placesOf(few, "18446744…"), 1U);
    // In the corners first: the panel is 288 wide and begins at 24.
    for (const char* const x : {"30.0", "296.5"})
        EXPECT_THAT(few, ContainsRegex(std::string("x=\"") + x + "\" y=\"[^\"]*\" class=\"id\">"));
    EXPECT_THAT(few, HasSubstr(">layer 18446744073709551615<"));
}

TEST(PictureTest, TextIsCutByCharactersNotBytes) {
    SimulatedChip chip;
    chip.CreateLayer(1, 0);
    // 64 characters of 66 bytes, which is what a line of the list takes.
    chip.SetLayerDisplayFrame(1, {.left = 0, .top = 0, .right = 1000000000, .bottom = 100000000});
    chip.buildLayerStack(0, {});
    EXPECT_EQ(chip.CommitLayerStack(0, false), 0);
    EXPECT_TRUE(chip.Present());
    EXPECT_THAT(chip.picture(0), HasSubstr("buffer none<"));
}

TEST(PictureTest, ExtremesKeepAPageToLookAt) {
    std::set<uint64_t> many;
    while (many.size() < 1000)
        many.insert(many.size());
    const struct {
        uint32_t width;
        uint32_t height;
        const char* size;
    } cases[] = {
            {1, 16384, R"(width="558.0" height="2208.0")"},
            {16384, 1, R"(width="962.0" height="2208.0")"},
    };
    for (const auto& it : cases) {
        const std::string shown = picture(it.width, it.height, many);
        EXPECT_THAT(shown, HasSubstr(it.size));
        EXPECT_THAT(shown, HasSubstr("  ·  not to scale<"));
        EXPECT_THAT(shown, HasSubstr(">and 968 layers below them<"));
    }
}

}  // namespace
}  // namespace lmfg
