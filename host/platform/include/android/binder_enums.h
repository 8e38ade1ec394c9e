#pragma once

#include <type_traits>

namespace ndk {

namespace internal {

/** Generated code specialises this for each enum with an array of its enumerators, in order. */
template <typename Enum>
requires std::is_enum_v<Enum>
constexpr inline void* enum_values = nullptr;

}  // namespace internal

/** The enumerators of a generated enum, for range-based for. */
template <typename Enum>
requires std::is_enum_v<Enum>
class enum_range {
  public:
    constexpr auto begin() const { return internal::enum_values<Enum>.begin(); }
    constexpr auto end() const { return internal::enum_values<Enum>.end(); }
};

}  // namespace ndk
