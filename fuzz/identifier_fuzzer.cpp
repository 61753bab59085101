// Fuzz target: machine identifiers and SIMULATOR_MODEL_IDENTIFIER values through
// Device::mapToDevice, with the value laws the catalog promises (descriptions, equality, the
// one-level simulator rule, group membership) checked on whatever comes out.
#include <cstddef>
#include <cstdint>
#include <memory>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <fuzzer/FuzzedDataProvider.h>

#include "DeviceCatalog/Device.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"

namespace {

using DeviceCatalog::Device;

constexpr const char* kSimulatorVariable = "SIMULATOR_MODEL_IDENTIFIER";
// Identifiers worth reaching often: the simulator trio, a few table entries and names.
constexpr const char* kInterestingIdentifiers[] = {"x86_64",     "arm64",
                                                   "i386",       "iPhone10,3",
                                                   "iPhone15,3", "iPad13,8",
                                                   "iPod9,1",    "AudioAccessory1,1",
                                                   "iPhone X",   "Simulator (iPhone 8)",
                                                   "iOS",        ""};

struct FakeMachine {
  platform::testing::FakeProcessInfo process;
  platform::testing::FakeSystemInfo system;
  platform::testing::FakeCurrentDevice device;
  platform::testing::FakeMainScreen screen;
  std::unique_ptr<platform::testing::ScopedServices> guard;
};

FakeMachine& machine() {
  static FakeMachine fakes;
  return fakes;
}

bool isSimulatorIdentifier(std::string_view identifier) {
  return identifier == "i386" || identifier == "x86_64" || identifier == "arm64";
}

std::string consumeIdentifier(FuzzedDataProvider& input) {
  if (input.ConsumeBool()) return input.PickValueInArray(kInterestingIdentifiers);
  return input.ConsumeRandomLengthString(48);
}

Device wrap(Device device, std::size_t levels) {
  for (std::size_t i = 0; i < levels; ++i) device = Device::simulator(device);
  return device;
}

std::string wrappedDescription(const std::string& inner, std::size_t levels) {
  std::string text;
  for (std::size_t i = 0; i < levels; ++i) text += "Simulator (";
  text += inner;
  text.append(levels, ')');
  return text;
}

// Feature predicates: a member of the group, or of the group with each member wrapped once.
bool inGroupOrWrapped(const Device& device, const std::vector<Device>& group) {
  if (device.isOneOf(group)) return true;
  for (const Device& member : group) {
    if (device == Device::simulator(member)) return true;
  }
  return false;
}

void checkEquality(const Device& lhs, const Device& rhs) {
  const bool equal = lhs == rhs;
  if (equal != (rhs == lhs)) __builtin_trap();
  if (equal != (lhs.description() == rhs.description())) __builtin_trap();
}

void checkPredicates(const Device& device) {
  if (device.isSimulator() != device.isOneOf(Device::allSimulators())) __builtin_trap();
  if (device.isPod() != inGroupOrWrapped(device, Device::allPods())) __builtin_trap();
  if (device.isTouchIDCapable() != inGroupOrWrapped(device, Device::allTouchIDCapableDevices())) {
    __builtin_trap();
  }
  if (device.isFaceIDCapable() != inGroupOrWrapped(device, Device::allFaceIDCapableDevices())) {
    __builtin_trap();
  }
  if (device.hasLidarSensor() != inGroupOrWrapped(device, Device::allDevicesWithALidarSensor())) {
    __builtin_trap();
  }
  // The rest only has to answer.
  (void)device.isPhone();
  (void)device.isPad();
  (void)device.hasCamera();
  (void)device.cpu();
  (void)device.diagonal();
  (void)device.screenRatio();
  (void)device.ppi();
  (void)device.applePencilSupport();
  (void)device.safeDescription();
}

void checkMapped(const std::string& identifier, const std::optional<std::string>& variable,
                 const Device& device) {
  if (!identifier.empty() && device.description().empty()) __builtin_trap();
  if (!(device == device) || !(device == Device::mapToDevice(identifier))) __builtin_trap();
  std::ostringstream printed;
  printed << device;
  if (printed.str() != device.description()) __builtin_trap();

  if (!isSimulatorIdentifier(identifier)) {
    if (device.kind() == Device::Kind::simulator) __builtin_trap();
    if (device.kind() == Device::Kind::unknown &&
        (device.unknownIdentifier() != std::optional<std::string_view>(identifier) ||
         device.description() != identifier)) {
      __builtin_trap();
    }
    return;
  }
  // The simulator rule looks one level deep: the simulated device is never a simulator again.
  if (device.kind() != Device::Kind::simulator) __builtin_trap();
  const Device real = Device::realDevice(device);
  if (real.kind() == Device::Kind::simulator) __builtin_trap();
  const std::string simulated = variable.value_or("iOS");
  const Device expected = isSimulatorIdentifier(simulated) ? Device::unknown(simulated)
                                                           : Device::mapToDevice(simulated);
  if (!(real == expected)) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  FakeMachine& fakes = machine();
  fakes.system.setMachine("x86_64");
  fakes.guard = std::make_unique<platform::testing::ScopedServices>([&](platform::Services& s) {
    s.processInfo = &fakes.process;
    s.system = &fakes.system;
    s.device = &fakes.device;
    s.screen = &fakes.screen;
  });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  FuzzedDataProvider input(data, size);
  const std::string identifier = consumeIdentifier(input);
  std::optional<std::string> variable;
  if (input.ConsumeBool()) variable = consumeIdentifier(input);
  auto& env = machine().process.env;
  env.clear();
  if (variable) env[kSimulatorVariable] = *variable;

  const Device device = Device::mapToDevice(identifier);
  checkMapped(identifier, variable, device);
  checkPredicates(device);

  const std::string otherIdentifier = consumeIdentifier(input);
  const Device other =
      input.ConsumeBool() ? Device::unknown(otherIdentifier) : Device::mapToDevice(otherIdentifier);
  checkEquality(device, other);
  checkPredicates(other);

  // Any number of simulator levels: descriptions nest, realDevice peels exactly one.
  const std::size_t levels = input.ConsumeIntegralInRange<std::size_t>(0, 200);
  const Device wrapped = wrap(device, levels);
  if (wrapped.description() != wrappedDescription(device.description(), levels)) __builtin_trap();
  if (levels > 0 && !(Device::realDevice(wrapped) == wrap(device, levels - 1))) __builtin_trap();
  checkEquality(wrapped, other);
  checkEquality(wrapped, wrap(other, levels));
  checkPredicates(wrapped);
  return 0;
}
