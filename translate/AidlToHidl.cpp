#include "translate/AidlToHidl.h"

#include <cstddef>
#include <cstdint>
#include <vector>

#include <hidl/HidlSupport.h>

namespace lmfg::a2h {

namespace {

using ::android::hardware::hidl_vec;

/** Whether there is nothing to do for a list: resize() would allocate even for no elements. */
template <typename In, typename Out>
bool areEmpty(const std::vector<In>& in, const hidl_vec<Out>& out) {
    return in.empty() && out.size() == 0;
}

/** Not by resize(), which would zero the elements first. A call: most lists do without it. */
template <typename T>
[[gnu::noinline]] void fill(const std::vector<T>& in, hidl_vec<T>* out) {
    *out = hidl_vec<T>(in.begin(), in.end());
}

template <typename T>
void replace(const std::vector<T>& in, hidl_vec<T>* out) {
    if (!areEmpty(in, *out)) fill(in, out);
}

}  // namespace

bool translate(const display::DisplayConfigVariableInfo& in, V1_1::DisplayConfigVariableInfo* out) {
    out->flag1 = static_cast<uint8_t>(in.flag1);
    out->value1 = in.value1;
    out->value2 = in.value2;
    out->real1 = in.real1;
    out->real2 = in.real2;
    out->value3 = in.value3;
    out->value4 = static_cast<uint32_t>(in.value4);
    out->flag2 = static_cast<uint8_t>(in.flag2);
    out->flag3 = static_cast<uint8_t>(in.flag3);
    replace(in.list1, &out->list1);
    return true;
}

bool translate(const display::LayerRect& in, V1_1::LayerRect* out) {
    out->left = in.left;
    out->top = in.top;
    out->right = in.right;
    out->bottom = in.bottom;
    return true;
}

bool translate(const display::LayerTransform& in, V1_1::LayerTransform* out) {
    out->real1 = in.real1;
    out->flag1 = static_cast<uint8_t>(in.flag1);
    out->flag2 = static_cast<uint8_t>(in.flag2);
    return true;
}

bool translate(const display::ColorMetaData& in, V1_1::ColorMetaData* out) {
    out->value1 = in.value1;
    out->value2 = in.value2;
    out->value3 = in.value3;
    out->flag1 = static_cast<uint8_t>(in.flag1);
    out->value4 = in.value4;
    out->value5 = in.value5;
    out->flag2 = static_cast<uint8_t>(in.flag2);
    out->value6 = in.value6;
    replace(in.list1, &out->list1);
    return true;
}

bool translate(const display::BufferInfo& in, V1_1::BufferInfo* out) {
    out->value1 = in.value1;
    out->value2 = in.value2;
    out->value3 = in.value3;
    out->value4 = in.value4;
    out->value5 = in.value5;
    out->value6 = in.value6;
    out->real1 = in.real1;
    out->value9 = in.value9;
    out->value10 = in.value10;
    out->value11 = in.value11;
    replace(in.list1, &out->list1);
    return true;
}

bool translate(const display::LayerBuffer& in, V1_1::LayerBuffer* out) {
    out->value1 = in.value1;
    out->value2 = in.value2;
    out->value3 = in.value3;
    out->value4 = in.value4;
    (void)translate(in.colorMetaData, &out->colorMetaData);
    out->value5 = in.value5;
    out->value6 = in.value6;
    out->value7 = in.value7;
    (void)translate(in.bufferInfo, &out->bufferInfo);
    return true;
}

bool translate(const display::Layer& in, V1_1::Layer* out) {
    (void)translate(in.layerBuffer, &out->layerBuffer);
    out->value1 = in.value1;
    (void)translate(in.layerRect, &out->layerRect);
    (void)translate(in.layerTransform, &out->layerTransform);
    out->value2 = static_cast<uint8_t>(in.value2);
    out->value3 = in.value3;
    replace(in.list1, &out->list1);
    return true;
}

bool translate(const display::LayerStack& in, V1_1::LayerStack* out) {
    if (!areEmpty(in.layers, out->layers)) out->layers.resize(in.layers.size());
    for (size_t i = 0; i < in.layers.size(); ++i) {
        (void)translate(in.layers[i], &out->layers[i]);
    }
    out->value1 = in.value1;
    replace(in.list1, &out->list1);
    return true;
}

bool translate(const display::VelaFixedConfig& in, V1_1::VelaFixedConfig* out) {
    out->value1 = in.value1;
    replace(in.list1, &out->list1);
    out->value2 = in.value2;
    out->value3 = in.value3;
    out->value4 = in.value4;
    out->value5 = in.value5;
    out->value6 = in.value6;
    out->value7 = in.value7;
    out->value8 = in.value8;
    out->value9 = in.value9;
    out->value10 = in.value10;
    out->value11 = in.value11;
    out->value12 = in.value12;
    out->value13 = in.value13;
    out->value14 = in.value14;
    out->value15 = in.value15;
    replace(in.list2, &out->list2);
    return true;
}

}  // namespace lmfg::a2h
