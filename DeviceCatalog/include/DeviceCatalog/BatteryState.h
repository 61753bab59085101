/// \file
/// The battery reading of the device the program runs on: charging or unplugged at a level in
/// percent, or full. Values are partially ordered by level, with `full` above every other value.
#pragma once

#include <optional>
#include <string>

#include "DeviceCatalog/export.h"

namespace DeviceCatalog {

class ZELNORA_DEVICECATALOG_EXPORT BatteryState {
 public:
  enum class Kind { charging, unplugged, full };

  /// Connected to power and charging, at `level` percent.
  static constexpr BatteryState charging(int level) { return {Kind::charging, level}; }
  /// Running on battery, at `level` percent.
  static constexpr BatteryState unplugged(int level) { return {Kind::unplugged, level}; }
  /// Full; its level counts as 100.
  static constexpr BatteryState full() { return {Kind::full, 100}; }

  constexpr Kind kind() const { return kind_; }
  /// The level in percent carried by `charging` and `unplugged`; 100 for `full`.
  constexpr int level() const { return level_; }

  /// "Battery level: 50%, device is plugged in." and the like.
  std::string description() const;

  /// Whether the system's low-power mode is on; the same for every value (read from the platform).
  bool lowPowerMode() const;

  /// Same case and same level (which is what equal descriptions amount to).
  friend constexpr bool operator==(const BatteryState& lhs, const BatteryState& rhs) {
    return lhs.kind_ == rhs.kind_ && (lhs.kind_ == Kind::full || lhs.level_ == rhs.level_);
  }
  /// `full` is less than nothing and greater than every level-carrying value; between two
  /// level-carrying values only the levels count, so charging(40) and unplugged(40) are unordered.
  friend constexpr bool operator<(const BatteryState& lhs, const BatteryState& rhs) {
    if (lhs.kind_ == Kind::full) return false;
    if (rhs.kind_ == Kind::full) return true;
    return lhs.level_ < rhs.level_;
  }
  friend constexpr bool operator>(const BatteryState& lhs, const BatteryState& rhs) {
    return rhs < lhs;
  }
  friend constexpr bool operator<=(const BatteryState& lhs, const BatteryState& rhs) {
    return !(rhs < lhs);
  }
  friend constexpr bool operator>=(const BatteryState& lhs, const BatteryState& rhs) {
    return !(lhs < rhs);
  }

 private:
  constexpr BatteryState(Kind kind, int level) : kind_(kind), level_(level) {}

  Kind kind_;
  int level_;
};

}  // namespace DeviceCatalog
