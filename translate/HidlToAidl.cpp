#include "translate/HidlToAidl.h"

#include <cstddef>
#include <cstdint>
#include <vector>

#include <hidl/HidlSupport.h>

namespace lmfg::h2a {

namespace {

/** What `out` holds deliberately stays in front. */
template <typename In, typename Out>
void append(const ::android::hardware::hidl_vec<In>& in, std::vector<Out>* out) {
    static_assert(sizeof(In) <= sizeof(Out), "elements are widened, never cut");
    if (in.size() == 0) return;
    if (out->empty()) {
        out->assign(in.data(), in.data() + in.size());
    } else {
        out->insert(out->end(), in.data(), in.data() + in.size());
    }
}

}  // namespace

bool translate(const V1_1::DisplayConfigVariableInfo& in, display::DisplayConfigVariableInfo* out) {
    out->flag1 = static_cast<int8_t>(in.flag1);
    out->value1 = in.value1;
    out->value2 = in.value2;
    out->real1 = in.real1;
    out->real2 = in.real2;
    out->value3 = in.value3;
    out->value4 = in.value4;
    out->flag2 = static_cast<int8_t>(in.flag2);
    out->flag3 = static_cast<int8_t>(in.flag3);
    append(in.list1, &out->list1);
    return true;
}

bool translate(const V1_1::HwcRect& in, display::HwcRect* out) {
    out->left = in.left;
    out->top = in.top;
    out->right = in.right;
    out->bottom = in.bottom;
    return true;
}

bool translate(const V1_1::LayerRect& in, display::LayerRect* out) {
    out->left = in.left;
    out->top = in.top;
    out->right = in.right;
    out->bottom = in.bottom;
    return true;
}

bool translate(const V1_1::LayerTransform& in, display::LayerTransform* out) {
    out->real1 = in.real1;
    out->flag1 = static_cast<int8_t>(in.flag1);
    out->flag2 = static_cast<int8_t>(in.flag2);
    return true;
}

bool translate(const V1_1::ColorMetaData& in, display::ColorMetaData* out) {
    out->value1 = in.value1;
    out->value2 = in.value2;
    out->value3 = in.value3;
    out->flag1 = static_cast<int8_t>(in.flag1);
    out->value4 = in.value4;
    out->value5 = in.value5;
    out->flag2 = static_cast<int8_t>(in.flag2);
    out->value6 = in.value6;
    append(in.list1, &out->list1);
    return true;
}

bool translate(const V1_1::BufferInfo& in, display::BufferInfo* out) {
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
    append(in.list1, &out->list1);
    return true;
}

bool translate(const V1_1::LayerBuffer& in, display::LayerBuffer* out) {
    out->value1 = in.value1;
    // value2 is deliberately not copied, although the opposite direction copies it.
    out->value3 = in.value3;
    out->value4 = in.value4;
    (void)translate(in.colorMetaData, &out->colorMetaData);
    out->value5 = in.value5;
    out->value6 = in.value6;
    out->value7 = in.value7;
    (void)translate(in.bufferInfo, &out->bufferInfo);
    return true;
}

bool translate(const V1_1::Layer& in, display::Layer* out) {
    (void)translate(in.layerBuffer, &out->layerBuffer);
    out->value1 = in.value1;
    (void)translate(in.layerRect, &out->layerRect);
    (void)translate(in.layerTransform, &out->layerTransform);
    out->value2 = in.value2;
    out->value3 = in.value3;
    append(in.list1, &out->list1);
    return true;
}

bool translate(const V1_1::LayerStack& in, display::LayerStack* out) {
    out->layers.resize(in.layers.size());
    for (size_t i = 0; i < out->layers.size(); ++i) {
        (void)translate(in.layers[i], &out->layers[i]);
    }
    out->value1 = in.value1;
    append(in.list1, &out->list1);
    return true;
}

bool translate(const V1_1::LutData& in, display::LutData* out) {
    out->value1 = in.value1;
    out->value2 = in.value2;
    append(in.list1, &out->list1);
    out->flag1 = static_cast<int8_t>(in.flag1);
    append(in.list2, &out->list2);
    out->flag2 = static_cast<int8_t>(in.flag2);
    return true;
}

bool translate(const V1_1::VelaFixedConfig& in, display::VelaFixedConfig* out) {
    out->value1 = in.value1;
    append(in.list1, &out->list1);
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
    append(in.list2, &out->list2);
    return true;
}

bool translate(const V1_2::DisplayConfigVariableInfo_1_2& in,
               display::DisplayConfigVariableInfo* out) {
    (void)translate(in.base, out);
    out->value5 = in.value5;
    append(in.list2, &out->list1);
    return true;
}

bool translate(const V1_2::BufferInfo_1_2& in, display::BufferInfo* out) {
    (void)translate(in.base, out);
    out->value7 = in.value7;
    out->value8 = in.value8;
    append(in.list2, &out->list1);
    return true;
}

bool translate(const V1_2::VelaFixedConfig_1_2& in, display::VelaFixedConfig* out) {
    (void)translate(in.base, out);
    out->value16 = in.value16;
    out->value17 = in.value17;
    out->value18 = in.value18;
    out->value19 = in.value19;
    out->value20 = in.value20;
    out->value21 = in.value21;
    out->value22 = in.value22;
    out->value23 = in.value23;
    out->value24 = in.value24;
    append(in.list3, &out->list2);
    return true;
}

}  // namespace lmfg::h2a
