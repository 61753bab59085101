#include "DeviceCatalog/Device.h"

#include <algorithm>
#include <ostream>

#include "DeviceAccess.h"
#include "ModelLookup.h"

namespace DeviceCatalog {
namespace {

constexpr std::string_view kSimulatorPrefix = "Simulator (";
constexpr std::string_view kSimulatorSuffix = ")";

bool hasSimulatorLayer(std::string_view text) {
  return text.size() >= kSimulatorPrefix.size() + kSimulatorSuffix.size() &&
         text.starts_with(kSimulatorPrefix) && text.ends_with(kSimulatorSuffix);
}

std::string wrapInSimulatorLayers(std::string_view innermost, std::size_t depth) {
  std::string text;
  text.reserve(innermost.size() + depth * (kSimulatorPrefix.size() + kSimulatorSuffix.size()));
  for (std::size_t level = 0; level < depth; ++level) text += kSimulatorPrefix;
  text += innermost;
  for (std::size_t level = 0; level < depth; ++level) text += kSimulatorSuffix;
  return text;
}

}  // namespace

namespace detail {

EquivalentForm DeviceAccess::equivalentForm(const Device& device) {
  EquivalentForm form{device.simulatorDepth_, std::nullopt, {}};
  if (!device.isUnknown_) {
    form.model = device.model_;
    return form;
  }
  // An unknown identifier may itself spell "Simulator (…)" layers or a model's name; peel the
  // layers so that the text compares like the value it reads as.
  std::string_view text = innermostUnknownText(device);
  while (hasSimulatorLayer(text)) {
    text = text.substr(kSimulatorPrefix.size(),
                       text.size() - kSimulatorPrefix.size() - kSimulatorSuffix.size());
    ++form.simulatorDepth;
  }
  form.model = modelForDescription(text);
  form.innermostText = text;
  return form;
}

const ModelRow* DeviceAccess::listedRow(const Device& device, bool wrapped) {
  const std::size_t wantedDepth = wrapped ? 1 : 0;
  if (!device.isUnknown_) {
    return device.simulatorDepth_ == wantedDepth ? &row(device.model_) : nullptr;
  }
  const EquivalentForm form = equivalentForm(device);
  if (!form.model || form.simulatorDepth != wantedDepth) return nullptr;
  return &row(*form.model);
}

const ModelRow* DeviceAccess::listedOrSimulatedRow(const Device& device) {
  // One look at the description serves both depths: an unknown value's costs a table lookup.
  const EquivalentForm form = equivalentForm(device);
  if (!form.model || form.simulatorDepth > 1) return nullptr;
  return &row(*form.model);
}

}  // namespace detail

Device Device::simulator(Device simulated) {
  ++simulated.simulatorDepth_;
  return simulated;
}

Device Device::unknown(std::string_view identifier) {
  Device device(Model{});
  device.isUnknown_ = true;
  if (identifier.size() <= kInlineIdentifierBytes) {
    std::copy(identifier.begin(), identifier.end(), device.unknownInline_.begin());
    device.unknownInlineSize_ = static_cast<std::uint8_t>(identifier.size());
  } else {
    device.unknownLong_.assign(identifier.begin(), identifier.end());
  }
  return device;
}

Device::Kind Device::kind() const {
  if (simulatorDepth_ > 0) return Kind::simulator;
  return isUnknown_ ? Kind::unknown : Kind::model;
}

std::optional<Device::Model> Device::modelCase() const {
  if (kind() != Kind::model) return std::nullopt;
  return model_;
}

std::optional<std::string_view> Device::unknownIdentifier() const {
  if (kind() != Kind::unknown) return std::nullopt;
  return detail::DeviceAccess::innermostUnknownText(*this);
}

Device Device::realDevice(const Device& from) {
  Device device = from;
  if (device.simulatorDepth_ > 0) --device.simulatorDepth_;
  return device;
}

bool operator==(const Device& lhs, const Device& rhs) {
  if (!lhs.isUnknown_ && !rhs.isUnknown_) {
    return lhs.simulatorDepth_ == rhs.simulatorDepth_ && lhs.model_ == rhs.model_;
  }
  // The same unknown text at the same depth reads the same, whatever it spells.
  if (lhs.isUnknown_ && rhs.isUnknown_ && lhs.simulatorDepth_ == rhs.simulatorDepth_ &&
      detail::DeviceAccess::innermostUnknownText(lhs) ==
          detail::DeviceAccess::innermostUnknownText(rhs)) {
    return true;
  }
  return detail::DeviceAccess::equivalentForm(lhs) == detail::DeviceAccess::equivalentForm(rhs);
}

bool Device::isOneOf(std::initializer_list<Device> devices) const {
  for (const Device& device : devices) {
    if (*this == device) return true;
  }
  return false;
}

bool Device::isOneOf(const std::vector<Device>& devices) const {
  for (const Device& device : devices) {
    if (*this == device) return true;
  }
  return false;
}

std::string Device::description() const {
  const auto* innermost = detail::DeviceAccess::innermostRow(*this);
  return wrapInSimulatorLayers(
      innermost ? innermost->description : detail::DeviceAccess::innermostUnknownText(*this),
      simulatorDepth_);
}

std::string Device::safeDescription() const {
  const auto* innermost = detail::DeviceAccess::innermostRow(*this);
  return wrapInSimulatorLayers(
      innermost ? innermost->safeDescription : detail::DeviceAccess::innermostUnknownText(*this),
      simulatorDepth_);
}

std::ostream& operator<<(std::ostream& out, const Device& device) {
  return out << device.description();
}

}  // namespace DeviceCatalog
