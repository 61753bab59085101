/// \file
/// Which Apple Pencil generations a model works with: a set of options over an unsigned raw value
/// (first generation 1, second generation 2) with the usual set operations.
#pragma once

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <utility>

#include "DeviceCatalog/export.h"

namespace DeviceCatalog {

class ZELNORA_DEVICECATALOG_EXPORT ApplePencilSupport {
 public:
  using RawValue = std::size_t;

  static const ApplePencilSupport firstGeneration;
  static const ApplePencilSupport secondGeneration;

  constexpr ApplePencilSupport() = default;
  constexpr explicit ApplePencilSupport(RawValue rawValue) : rawValue_(rawValue) {}
  constexpr ApplePencilSupport(std::initializer_list<ApplePencilSupport> options) {
    for (auto option : options) rawValue_ |= option.rawValue_;
  }

  constexpr RawValue rawValue() const { return rawValue_; }
  constexpr bool isEmpty() const { return rawValue_ == 0; }
  constexpr bool contains(ApplePencilSupport member) const {
    return (rawValue_ & member.rawValue_) == member.rawValue_;
  }

  constexpr ApplePencilSupport unionWith(ApplePencilSupport other) const {
    return ApplePencilSupport(rawValue_ | other.rawValue_);
  }
  constexpr ApplePencilSupport intersection(ApplePencilSupport other) const {
    return ApplePencilSupport(rawValue_ & other.rawValue_);
  }
  constexpr ApplePencilSupport symmetricDifference(ApplePencilSupport other) const {
    return ApplePencilSupport(rawValue_ ^ other.rawValue_);
  }
  constexpr ApplePencilSupport subtracting(ApplePencilSupport other) const {
    return ApplePencilSupport(rawValue_ & ~other.rawValue_);
  }

  constexpr bool isSubset(ApplePencilSupport of) const { return (rawValue_ & ~of.rawValue_) == 0; }
  constexpr bool isSuperset(ApplePencilSupport of) const { return of.isSubset(*this); }
  constexpr bool isDisjoint(ApplePencilSupport with) const {
    return (rawValue_ & with.rawValue_) == 0;
  }

  constexpr void formUnion(ApplePencilSupport other) { rawValue_ |= other.rawValue_; }
  constexpr void formIntersection(ApplePencilSupport other) { rawValue_ &= other.rawValue_; }
  constexpr void formSymmetricDifference(ApplePencilSupport other) { rawValue_ ^= other.rawValue_; }
  constexpr void subtract(ApplePencilSupport other) { rawValue_ &= ~other.rawValue_; }

  /// Adds `member`; answers whether it was absent before, and the member now in the set.
  constexpr std::pair<bool, ApplePencilSupport> insert(ApplePencilSupport member) {
    const bool wasAbsent = !contains(member);
    formUnion(member);
    return {wasAbsent, member};
  }
  /// Removes `member`; answers the part of it that was in the set, absent when none was.
  constexpr std::optional<ApplePencilSupport> remove(ApplePencilSupport member) {
    const ApplePencilSupport removed = intersection(member);
    subtract(member);
    if (removed.isEmpty()) return std::nullopt;
    return removed;
  }
  /// Adds `member`; answers the part of it that was already in the set, absent when none was.
  constexpr std::optional<ApplePencilSupport> update(ApplePencilSupport member) {
    const ApplePencilSupport present = intersection(member);
    formUnion(member);
    if (present.isEmpty()) return std::nullopt;
    return present;
  }

  friend constexpr bool operator==(ApplePencilSupport, ApplePencilSupport) = default;
  friend constexpr ApplePencilSupport operator|(ApplePencilSupport lhs, ApplePencilSupport rhs) {
    return lhs.unionWith(rhs);
  }
  friend constexpr ApplePencilSupport operator&(ApplePencilSupport lhs, ApplePencilSupport rhs) {
    return lhs.intersection(rhs);
  }
  friend constexpr ApplePencilSupport operator^(ApplePencilSupport lhs, ApplePencilSupport rhs) {
    return lhs.symmetricDifference(rhs);
  }

 private:
  RawValue rawValue_ = 0;
};

inline constexpr ApplePencilSupport ApplePencilSupport::firstGeneration{1};
inline constexpr ApplePencilSupport ApplePencilSupport::secondGeneration{2};

}  // namespace DeviceCatalog
