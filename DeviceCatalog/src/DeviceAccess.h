// Private access to a Device's representation for the module's own sources: the chain of
// simulator levels around an innermost model case or unknown identifier.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

#include "DeviceCatalog/Device.h"
#include "ModelTable.h"

namespace DeviceCatalog::detail {

// What a value's description reduces to: `simulatorDepth` times "Simulator (" … ")" around either
// a model's description (`model` set) or a text that is no model's description and has no further
// "Simulator (" … ")" layer (`innermostText`). Two values have equal descriptions exactly when
// their forms are equal, which lets equality and group membership skip building any text.
struct EquivalentForm {
  std::size_t simulatorDepth = 0;
  std::optional<Device::Model> model;
  std::string_view innermostText;  // meaningful only without `model`

  friend bool operator==(const EquivalentForm& lhs, const EquivalentForm& rhs) {
    if (lhs.simulatorDepth != rhs.simulatorDepth || lhs.model != rhs.model) return false;
    return lhs.model.has_value() || lhs.innermostText == rhs.innermostText;
  }
};

struct DeviceAccess {
  static std::size_t simulatorDepth(const Device& device) { return device.simulatorDepth_; }
  // The row of the innermost model; null when the innermost value is `unknown`.
  static const ModelRow* innermostRow(const Device& device) {
    return device.isUnknown_ ? nullptr : &row(device.model_);
  }
  static std::string_view innermostUnknownText(const Device& device) {
    if (!device.unknownLong_.empty())
      return {device.unknownLong_.data(), device.unknownLong_.size()};
    return {device.unknownInline_.data(), device.unknownInlineSize_};
  }
  static EquivalentForm equivalentForm(const Device& device);
  // The row of the model whose description this value's description equals, plain or wrapped
  // once as a simulator (`wrapped`); null when there is none.
  static const ModelRow* listedRow(const Device& device, bool wrapped);
  // The row a value lists as, plain or wrapped once as a simulator (either); null when none.
  static const ModelRow* listedOrSimulatedRow(const Device& device);
};

// Whether `device` equals Device::current(), the current-device check of the status members.
bool isCurrentDevice(const Device& device);

}  // namespace DeviceCatalog::detail
