// Installs fake device, screen, process and system services for the life of a test, and makes a
// chosen machine identifier the current one.
#pragma once

#include <string>

#include "DeviceCatalog/Device.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"

namespace device_test {

using DeviceCatalog::Device;

struct FakeDevicePlatform {
  explicit FakeDevicePlatform(std::string currentIdentifier = "iPhone15,2") {
    DeviceCatalog::Device::setIdentifier(std::move(currentIdentifier));
  }

  platform::testing::FakeCurrentDevice device;
  platform::testing::FakeMainScreen screen;
  platform::testing::FakeProcessInfo process;
  platform::testing::FakeSystemInfo system;
  platform::testing::ScopedServices guard{[this](platform::Services& services) {
    services.device = &device;
    services.screen = &screen;
    services.processInfo = &process;
    services.system = &system;
  }};
};

}  // namespace device_test
