#include <algorithm>
#include <cstdint>
#include <functional>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include <cutils/native_handle.h>
#include <gtest/gtest.h>

#include "tests/translate/RecordFields.h"
#include "translate/AidlToHidl.h"
#include "translate/HidlToAidl.h"

namespace {

using namespace fields;
using lmfg::a2h::translate;
using lmfg::h2a::translate;

constexpr uint32_t kSeeds = 100;

// Where a field of the input arrives in the output; nothing if it is dropped on the way.
using Road = std::function<std::optional<std::string>(const std::string& path)>;

std::optional<std::string> straight(const std::string& path) {
    return path;
}

// A name with a dot is that field wherever the record that has it is found.
Road dropping(const std::vector<std::string>& names) {
    return [names](const std::string& path) {
        const bool isDropped = std::ranges::any_of(names, [&](const std::string& name) {
            return path == name || (name.find('.') != name.npos && path.ends_with("." + name));
        });
        return isDropped ? std::nullopt : std::optional(path);
    };
}

// An extension's base maps to the record itself, the extension's list to one that the base has.
Road merging(const std::string& list, const std::string& into) {
    return [list, into](const std::string& path) -> std::optional<std::string> {
        if (path.starts_with("base.")) return path.substr(5);
        return path == list ? into : path;
    };
}

// The output that translating `in` into `before` has to give, seen field by field: `shape` has the
// output's fields, its contents do not matter.
Flat expected(const Flat& in, const Flat& before, const Flat& shape, bool appends,
              const Road& road) {
    Flat result;
    for (const auto& [path, datum] : shape) {
        Datum initial{datum.isList ? std::vector<int64_t>() : std::vector<int64_t>{0}, datum.isList,
                      datum.bits};
        const auto held = before.find(path);
        result[path] = held == before.end() ? initial : held->second;
        if (datum.isList && !appends) result[path].elements.clear();
    }
    const auto arrive = [&](const Datum& datum, Datum* out) {
        if (!out->isList) out->elements.clear();
        for (int64_t element : datum.elements) {
            if (out->bits < datum.bits) element &= (int64_t{1} << out->bits) - 1;
            out->elements.push_back(element);
        }
    };
    // Extensions come after their base, whose paths start with "base.".
    for (const auto& [path, datum] : in) {
        if (const auto target = road(path)) arrive(datum, &result.at(*target));
    }
    return result;
}

// Both directions name the function alike; this picks the one that fits the records.
constexpr auto kTranslate = [](const auto& in, auto* out) { return translate(in, out); };

// How many fields are known of the record and of those within it.
template <typename R>
long known(const R& record) {
    long count = 0;
    visit(record, [&](const char*, const auto& field) {
        ++count;
        if constexpr (codec::Record<std::remove_cvref_t<decltype(field)>>) count += known(field);
    });
    return count;
}

template <typename R>
void checkComplete(const R& record) {
    if constexpr (requires { record.toString(); }) {
        const std::string text = record.toString();
        EXPECT_EQ(std::count(text.begin(), text.end(), ':'), known(record)) << text;
    }
}

template <typename In, typename Out>
void check(const Road& road = straight) {
    // Towards the interface lists are appended to what is there.
    constexpr bool kAppends = requires(const Out& out) {
        out.toString();
    };
    SCOPED_TRACE(std::string("to ") + testing::internal::GetTypeName<Out>());
    checkComplete(In());
    checkComplete(Out());
    for (uint32_t seed = 0; seed < kSeeds; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 generator(seed);
        const In in = randomRecord<In>(generator);
        const Flat flatIn = flatten(in);

        Out fresh;
        ASSERT_TRUE(kTranslate(in, &fresh));
        const Flat flatFresh = flatten(fresh);
        ASSERT_EQ(expected(flatIn, {}, flatFresh, kAppends, road), flatFresh);

        // An output that already holds something.
        Out held = randomRecord<Out>(generator);
        const Flat before = flatten(held);
        ASSERT_TRUE(kTranslate(in, &held));
        ASSERT_EQ(expected(flatIn, before, flatFresh, kAppends, road), flatten(held));
    }
}

TEST(HidlToAidlTest, EveryFieldArrives) {
    const auto value2Dropped = dropping({"value2"});
    const auto nestedValue2Dropped = dropping({"layerBuffer.value2"});
    check<V1_1::DisplayConfigVariableInfo, display::DisplayConfigVariableInfo>();
    check<V1_1::HwcRect, display::HwcRect>();
    check<V1_1::LayerRect, display::LayerRect>();
    check<V1_1::LayerTransform, display::LayerTransform>();
    check<V1_1::ColorMetaData, display::ColorMetaData>();
    check<V1_1::BufferInfo, display::BufferInfo>();
    check<V1_1::LayerBuffer, display::LayerBuffer>(value2Dropped);
    check<V1_1::Layer, display::Layer>(nestedValue2Dropped);
    check<V1_1::LayerStack, display::LayerStack>(nestedValue2Dropped);
    check<V1_1::LutData, display::LutData>();
    check<V1_1::VelaFixedConfig, display::VelaFixedConfig>();
    check<V1_2::DisplayConfigVariableInfo_1_2, display::DisplayConfigVariableInfo>(
            merging("list2", "list1"));
    check<V1_2::BufferInfo_1_2, display::BufferInfo>(merging("list2", "list1"));
    check<V1_2::VelaFixedConfig_1_2, display::VelaFixedConfig>(merging("list3", "list2"));
}

TEST(AidlToHidlTest, EveryFieldArrives) {
    const auto bufferExtension = dropping({"value7", "value8"});
    const auto nestedExtension = dropping({"bufferInfo.value7", "bufferInfo.value8"});
    check<display::DisplayConfigVariableInfo, V1_1::DisplayConfigVariableInfo>(
            dropping({"value5"}));
    check<display::LayerRect, V1_1::LayerRect>();
    check<display::LayerTransform, V1_1::LayerTransform>();
    check<display::ColorMetaData, V1_1::ColorMetaData>();
    check<display::BufferInfo, V1_1::BufferInfo>(bufferExtension);
    check<display::LayerBuffer, V1_1::LayerBuffer>(nestedExtension);
    check<display::Layer, V1_1::Layer>(nestedExtension);
    check<display::LayerStack, V1_1::LayerStack>(nestedExtension);
    check<display::VelaFixedConfig, V1_1::VelaFixedConfig>(
            dropping({"value16", "value17", "value18", "value19", "value20", "value21", "value22",
                      "value23", "value24"}));
}

// The interface's records carry no native handle. Layers that a shorter stack keeps are kept by
// move.
TEST(AidlToHidlTest, NativeHandlesStayWhereTheyAre) {
    native_handle_t* const handle = native_handle_create(0, 1);
    V1_1::LayerStack stack;
    stack.layers.resize(3);
    stack.layers[0].layerBuffer.handle.setTo(handle, true);
    display::LayerStack in;
    in.layers.resize(1);
    ASSERT_TRUE(translate(in, &stack));
    ASSERT_EQ(1u, stack.layers.size());
    EXPECT_EQ(handle, stack.layers[0].layerBuffer.handle.getNativeHandle());
}

}  // namespace
