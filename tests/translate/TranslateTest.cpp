#include <algorithm>
#include <concepts>
#include <cstdint>
#include <random>
#include <string>
#include <type_traits>

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

// The field of the output at which a field of the input arrives, if the output has it.
template <typename In>
std::string targetOf(const std::string& name) {
    constexpr bool kExtends = requires(const In& in) {
        in.base;
    };
    if (std::same_as<In, V1_1::LayerBuffer> && name == "value2") return "dropped";
    // An extension's list is one that its base has, too.
    if (std::same_as<In, V1_2::VelaFixedConfig_1_2>) return name == "list3" ? "list2" : name;
    return kExtends && name == "list2" ? "list1" : name;
}

// What translating is to do. Towards the interface lists of numbers are appended to what is there.
template <typename In, typename Out>
void copyByName(const In& in, bool appends, Out* out) {
    if constexpr (codec::Record<In> && codec::Record<Out>) {
        if constexpr (requires { in.base; }) copyByName(in.base, appends, out);
        visit(in, [&](const char* source, const auto& from) {
            visit(*out, [&](const char* target, auto& to) {
                if (targetOf<In>(source) == target) copyByName(from, appends, &to);
            });
        });
    } else if constexpr (requires { in.size() + out->size(); }) {
        const bool isOfRecords = codec::Record<std::remove_cvref_t<decltype(in[0])>>;
        const size_t first = appends && !isOfRecords ? out->size() : 0;
        out->resize(first + in.size());
        for (size_t i = 0; i < in.size(); ++i)
            copyByName(in[i], appends, &(*out)[first + i]);
    } else if constexpr (std::is_arithmetic_v<In> && std::is_arithmetic_v<Out>) {
        *out = static_cast<Out>(in);
    } else {
        ADD_FAILURE() << "fields of one name and different kinds";
    }
}

// Both directions name the function alike; this picks the one that fits the records.
constexpr auto kTranslate = [](const auto& in, auto* out) { return translate(in, out); };

// Whether all fields of the record and of those within it are known.
template <typename R>
void checkComplete(const R& record) {
    if constexpr (requires { record.toString(); }) {
        const std::string text = record.toString();
        const std::string known = toJson(record).dump();
        EXPECT_EQ(std::ranges::count(text, ':'), std::ranges::count(known, ':')) << text;
    }
}

template <typename In, typename Out>
void check() {
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
        // An output that holds nothing yet, and one that does.
        for (Out out : {Out(), randomRecord<Out>(generator)}) {
            Out expected = out;
            copyByName(in, kAppends, &expected);
            ASSERT_TRUE(kTranslate(in, &out));
            ASSERT_EQ(toJson(expected), toJson(out));
        }
    }
}

TEST(HidlToAidlTest, EveryFieldArrives) {
    check<V1_1::DisplayConfigVariableInfo, display::DisplayConfigVariableInfo>();
    check<V1_1::HwcRect, display::HwcRect>();
    check<V1_1::LayerRect, display::LayerRect>();
    check<V1_1::LayerTransform, display::LayerTransform>();
    check<V1_1::ColorMetaData, display::ColorMetaData>();
    check<V1_1::BufferInfo, display::BufferInfo>();
    check<V1_1::LayerBuffer, display::LayerBuffer>();
    check<V1_1::Layer, display::Layer>();
    check<V1_1::LayerStack, display::LayerStack>();
    check<V1_1::LutData, display::LutData>();
    check<V1_1::VelaFixedConfig, display::VelaFixedConfig>();
    check<V1_2::DisplayConfigVariableInfo_1_2, display::DisplayConfigVariableInfo>();
    check<V1_2::BufferInfo_1_2, display::BufferInfo>();
    check<V1_2::VelaFixedConfig_1_2, display::VelaFixedConfig>();
}

TEST(AidlToHidlTest, EveryFieldArrives) {
    check<display::DisplayConfigVariableInfo, V1_1::DisplayConfigVariableInfo>();
    check<display::LayerRect, V1_1::LayerRect>();
    check<display::LayerTransform, V1_1::LayerTransform>();
    check<display::ColorMetaData, V1_1::ColorMetaData>();
    check<display::BufferInfo, V1_1::BufferInfo>();
    check<display::LayerBuffer, V1_1::LayerBuffer>();
    check<display::Layer, V1_1::Layer>();
    check<display::LayerStack, V1_1::LayerStack>();
    check<display::VelaFixedConfig, V1_1::VelaFixedConfig>();
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
