/// \file
/// The processor families of the known device models, ordered from the oldest to the newest, with
/// `unknown` (a model the catalog does not know) after all of them.
#pragma once

#include <compare>
#include <cstddef>
#include <functional>
#include <string_view>

#include "DeviceCatalog/export.h"

namespace DeviceCatalog {

class ZELNORA_DEVICECATALOG_EXPORT CPU {
 public:
  /// The cases in their order; `<` compares positions in this list.
  enum Value : unsigned char {
    a4,
    a5,
    a5X,
    a6,
    a6X,
    a7,
    a8,
    a8X,
    a9,
    a9X,
    a10Fusion,
    a10XFusion,
    a11Bionic,
    a12Bionic,
    a12XBionic,
    a12ZBionic,
    a13Bionic,
    a14Bionic,
    a15Bionic,
    a16Bionic,
    a17Pro,
    m1,
    m2,
    unknown,
  };

  /// Implicit, so that `cpu == CPU::a17Pro` and `CPU cpu = CPU::m1;` read naturally.
  constexpr CPU(Value value) : value_(value) {}  // NOLINT(google-explicit-constructor)

  constexpr Value value() const { return value_; }

  /// The marketing name, e.g. "A10X Fusion"; "unknown" for `unknown`.
  std::string_view description() const;

  friend constexpr bool operator==(CPU, CPU) = default;
  friend constexpr std::strong_ordering operator<=>(CPU lhs, CPU rhs) {
    return static_cast<int>(lhs.value_) <=> static_cast<int>(rhs.value_);
  }

 private:
  Value value_;
};

}  // namespace DeviceCatalog

template <>
struct std::hash<DeviceCatalog::CPU> {
  std::size_t operator()(DeviceCatalog::CPU cpu) const noexcept {
    return std::hash<int>{}(static_cast<int>(cpu.value()));
  }
};
