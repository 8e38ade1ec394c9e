#pragma once

#include <cstddef>
#include <tuple>
#include <type_traits>
#include <utility>

namespace codec {

/** A named member of a record. */
template <typename T, typename M>
struct Field {
    constexpr Field(const char* n, M T::*m) : name(n), member(m) {}

    const char* name;
    M T::*member;
};

/** The fields of the record T in declaration order; null for what is no record. */
template <typename T>
inline constexpr std::nullptr_t kFields = nullptr;

template <typename T>
concept Record = !std::is_same_v<decltype(kFields<T>), const std::nullptr_t>;

// The interface's records and the service library's have one naming of fields: each list serves
// both. What only the interface's has is asked for by name.

template <typename R>
constexpr auto rectFields() {
    return std::tuple{Field{"left", &R::left}, Field{"top", &R::top}, Field{"right", &R::right},
                      Field{"bottom", &R::bottom}};
}

template <typename R>
constexpr auto layerTransformFields() {
    return std::tuple{Field{"real1", &R::real1}, Field{"flag1", &R::flag1},
                      Field{"flag2", &R::flag2}};
}

template <typename R>
constexpr auto colorMetaDataFields() {
    return std::tuple{
            Field{"value1", &R::value1}, Field{"value2", &R::value2}, Field{"value3", &R::value3},
            Field{"flag1", &R::flag1},   Field{"value4", &R::value4}, Field{"value5", &R::value5},
            Field{"flag2", &R::flag2},   Field{"value6", &R::value6}, Field{"list1", &R::list1}};
}

template <typename R>
constexpr auto bufferInfoFields() {
    const std::tuple first{Field{"value1", &R::value1}, Field{"value2", &R::value2},
                           Field{"value3", &R::value3}, Field{"value4", &R::value4},
                           Field{"value5", &R::value5}, Field{"value6", &R::value6}};
    const std::tuple last{Field{"real1", &R::real1}, Field{"value9", &R::value9},
                          Field{"value10", &R::value10}, Field{"value11", &R::value11},
                          Field{"list1", &R::list1}};
    if constexpr (requires { &R::value7; }) {
        return std::tuple_cat(
                first, std::tuple{Field{"value7", &R::value7}, Field{"value8", &R::value8}}, last);
    } else {
        return std::tuple_cat(first, last);
    }
}

template <typename R>
constexpr auto layerBufferFields() {
    return std::tuple{Field{"value1", &R::value1},
                      Field{"value2", &R::value2},
                      Field{"value3", &R::value3},
                      Field{"value4", &R::value4},
                      Field{"colorMetaData", &R::colorMetaData},
                      Field{"value5", &R::value5},
                      Field{"value6", &R::value6},
                      Field{"value7", &R::value7},
                      Field{"bufferInfo", &R::bufferInfo}};
}

template <typename R>
constexpr auto layerFields() {
    return std::tuple{Field{"layerBuffer", &R::layerBuffer},
                      Field{"value1", &R::value1},
                      Field{"layerRect", &R::layerRect},
                      Field{"layerTransform", &R::layerTransform},
                      Field{"value2", &R::value2},
                      Field{"value3", &R::value3},
                      Field{"list1", &R::list1}};
}

template <typename R>
constexpr auto layerStackFields() {
    return std::tuple{Field{"layers", &R::layers}, Field{"value1", &R::value1},
                      Field{"list1", &R::list1}};
}

template <typename R>
constexpr auto variableInfoFields() {
    const std::tuple first{
            Field{"flag1", &R::flag1},   Field{"value1", &R::value1}, Field{"value2", &R::value2},
            Field{"real1", &R::real1},   Field{"real2", &R::real2},   Field{"value3", &R::value3},
            Field{"value4", &R::value4}, Field{"flag2", &R::flag2},   Field{"flag3", &R::flag3}};
    const std::tuple last{Field{"list1", &R::list1}};
    if constexpr (requires { &R::value5; }) {
        return std::tuple_cat(first, std::tuple{Field{"value5", &R::value5}}, last);
    } else {
        return std::tuple_cat(first, last);
    }
}

template <typename R>
constexpr auto fixedConfigFields() {
    const std::tuple first{Field{"value1", &R::value1},   Field{"list1", &R::list1},
                           Field{"value2", &R::value2},   Field{"value3", &R::value3},
                           Field{"value4", &R::value4},   Field{"value5", &R::value5},
                           Field{"value6", &R::value6},   Field{"value7", &R::value7},
                           Field{"value8", &R::value8},   Field{"value9", &R::value9},
                           Field{"value10", &R::value10}, Field{"value11", &R::value11},
                           Field{"value12", &R::value12}, Field{"value13", &R::value13},
                           Field{"value14", &R::value14}, Field{"value15", &R::value15}};
    const std::tuple last{Field{"list2", &R::list2}};
    if constexpr (requires { &R::value16; }) {
        return std::tuple_cat(
                first,
                std::tuple{Field{"value16", &R::value16}, Field{"value17", &R::value17},
                           Field{"value18", &R::value18}, Field{"value19", &R::value19},
                           Field{"value20", &R::value20}, Field{"value21", &R::value21},
                           Field{"value22", &R::value22}, Field{"value23", &R::value23},
                           Field{"value24", &R::value24}},
                last);
    } else {
        return std::tuple_cat(first, last);
    }
}

template <typename R>
constexpr auto lutFields() {
    return std::tuple{Field{"value1", &R::value1}, Field{"value2", &R::value2},
                      Field{"list1", &R::list1},   Field{"flag1", &R::flag1},
                      Field{"list2", &R::list2},   Field{"flag2", &R::flag2}};
}

template <typename R>
constexpr auto samplesFields() {
    return std::tuple{Field{"value1", &R::value1}, Field{"list1", &R::list1},
                      Field{"list2", &R::list2}, Field{"list3", &R::list3},
                      Field{"list4", &R::list4}};
}

}  // namespace codec
