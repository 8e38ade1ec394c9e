#include <bit>
#include <concepts>
#include <random>

#include <cutils/native_handle.h>

#include "host/chip/LibraryCodec.h"
#include "host/codec/InterfaceCodec.h"
#include "translate/AidlToHidl.h"
#include "translate/HidlToAidl.h"
#include "vts/Ask.h"

namespace codec {

namespace V1_2 = ::vendor::lumenforge::hardware::display::V1_2;
using VariableInfo = V1_2::DisplayConfigVariableInfo_1_2;
using Buffer = V1_2::BufferInfo_1_2;
using Fixed = V1_2::VelaFixedConfig_1_2;

template <>
inline constexpr auto kFields<V1_1::HwcRect> = rectFields<V1_1::HwcRect>();
template <>
inline constexpr std::tuple kFields<VariableInfo>{Field{"base", &VariableInfo::base},
                                                  Field{"value5", &VariableInfo::value5},
                                                  Field{"list2", &VariableInfo::list2}};
template <>
inline constexpr std::tuple kFields<Buffer>{
        Field{"base", &Buffer::base}, Field{"value7", &Buffer::value7},
        Field{"value8", &Buffer::value8}, Field{"list2", &Buffer::list2}};
template <>
inline constexpr std::tuple kFields<Fixed>{
        Field{"base", &Fixed::base},       Field{"value16", &Fixed::value16},
        Field{"value17", &Fixed::value17}, Field{"value18", &Fixed::value18},
        Field{"value19", &Fixed::value19}, Field{"value20", &Fixed::value20},
        Field{"value21", &Fixed::value21}, Field{"value22", &Fixed::value22},
        Field{"value23", &Fixed::value23}, Field{"value24", &Fixed::value24},
        Field{"list3", &Fixed::list3}};

}  // namespace codec

namespace {

using namespace codec;
using lmfg::a2h::translate;
using lmfg::h2a::translate;

/** Becomes an arbitrary value of the type that it initialises; lists get up to three elements. */
struct Arbitrary {
    template <typename T>
    operator T() const {  // NOLINT(google-explicit-constructor)
        if constexpr (requires { T().resize(1); }) {
            T list;
            list.resize((*generator)() % 4);
            for (auto& element : list)
                element = *this;
            return list;
        } else if constexpr (std::same_as<T, float>) {
            return std::bit_cast<float>(static_cast<uint32_t>((*generator)()));
        } else if constexpr (std::is_arithmetic_v<T>) {
            return static_cast<T>((*generator)());
        } else if constexpr (Record<T>) {
            return vela::test::recordOf<T>(*this);
        } else {
            return T();  // a native handle
        }
    }

    std::mt19937_64* generator;
};

/** Calls `use` with the name and value of each field. */
template <typename R>
void visit(R& record, auto use) {
    std::apply([&](const auto&... field) { (use(field.name, record.*field.member), ...); },
               kFields<std::remove_const_t<R>>);
}

/** The field of the output at which a field of the input arrives, if the output has it. */
template <typename In>
std::string targetOf(const std::string& name) {
    constexpr bool kExtends = requires(const In& in) {
        in.base;
    };
    if (std::same_as<In, V1_1::LayerBuffer> && name == "value2") return "dropped";
    // An extension's list is one that its base has, too.
    if (std::same_as<In, Fixed>) return name == "list3" ? "list2" : name;
    return kExtends && name == "list2" ? "list1" : name;
}

/** What translating is to do. Towards the interface lists of numbers are appended to. */
template <typename In, typename Out>
void copyByName(const In& in, bool appends, Out* out) {
    if constexpr (Record<In> && Record<Out>) {
        if constexpr (requires { in.base; }) copyByName(in.base, appends, out);
        visit(in, [&](const char* source, const auto& from) {
            visit(*out, [&](const char* target, auto& to) {
                if (targetOf<In>(source) == target) copyByName(from, appends, &to);
            });
        });
    } else if constexpr (requires { in.size() + out->size(); }) {
        const bool isOfRecords = Record<std::remove_cvref_t<decltype(in[0])>>;
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

/** Whether all fields of the record and of those within it are known. */
template <typename R>
void checkComplete(const R& record) {
    if constexpr (requires { record.toString(); }) {
        const std::string text = record.toString();
        const std::string known = Codec<R>::write(record).dump();
        EXPECT_EQ(std::ranges::count(text, ':'), std::ranges::count(known, ':')) << text;
    }
}

/** Whether a record clears the memory in which it is made. */
template <typename R>
void checkCleared() {
    std::vector<unsigned char> memory(sizeof(R), 0x55);
    auto* const record = new (memory.data()) R;
    const Json fields = Codec<R>::write(*record).flatten();
    for (const auto& [field, value] : fields.items())
        EXPECT_TRUE(value.is_null() || value == 0) << field << ' ' << value;
    record->~R();
}

template <typename In, typename Out>
void check() {
    constexpr bool kAppends = requires(const Out& out) {
        out.toString();
    };
    SCOPED_TRACE(std::string("to ") + testing::internal::GetTypeName<Out>());
    checkComplete(In());
    checkComplete(Out());
    checkCleared<In>();
    checkCleared<Out>();
    std::mt19937_64 generator(1);
    for (int round = 0; round < 100; ++round) {
        const In in = Arbitrary{&generator};
        // An output that holds nothing yet, and one that does.
        const Out held = Arbitrary{&generator};
        for (const Out& before : {Out(), held}) {
            Out expected = before;
            Out out = before;
            copyByName(in, kAppends, &expected);
            ASSERT_TRUE(translate(in, &out));
            ASSERT_EQ(Codec<Out>::write(expected), Codec<Out>::write(out));
        }
    }
}

template <typename Theirs, typename Ours>
void checkBoth() {
    check<Theirs, Ours>();
    check<Ours, Theirs>();
}

TEST(TranslateTest, EveryFieldArrives) {
    checkBoth<V1_1::DisplayConfigVariableInfo, display::DisplayConfigVariableInfo>();
    checkBoth<V1_1::LayerRect, display::LayerRect>();
    checkBoth<V1_1::LayerTransform, display::LayerTransform>();
    checkBoth<V1_1::ColorMetaData, display::ColorMetaData>();
    checkBoth<V1_1::BufferInfo, display::BufferInfo>();
    checkBoth<V1_1::LayerBuffer, display::LayerBuffer>();
    checkBoth<V1_1::Layer, display::Layer>();
    checkBoth<V1_1::LayerStack, display::LayerStack>();
    checkBoth<V1_1::VelaFixedConfig, display::VelaFixedConfig>();
    check<V1_1::HwcRect, display::HwcRect>();
    check<V1_1::LutData, display::LutData>();
    check<VariableInfo, display::DisplayConfigVariableInfo>();
    check<Buffer, display::BufferInfo>();
    check<Fixed, display::VelaFixedConfig>();
}

// The interface's records carry no native handle. Layers that a shorter stack keeps are kept by
// move.
TEST(TranslateTest, NativeHandlesStayWhereTheyAre) {
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
