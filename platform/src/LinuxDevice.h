// The Linux device, screen and process-information providers, built on a file-system root so
// that tests can point them at a fake /sys and os-release. Internal.
#pragma once

#include <memory>
#include <string>

#include "platform/Device.h"

namespace platform::detail {

struct LinuxDeviceFiles {
  std::string sysDirectory = "/sys";
  std::string osReleaseFile = "/etc/os-release";
  // Where the vendor identifier is kept; empty means the app-group container directory.
  std::string containerDirectory;
};

std::unique_ptr<CurrentDevice> makeLinuxCurrentDevice(LinuxDeviceFiles files);
std::unique_ptr<MainScreen> makeLinuxMainScreen(LinuxDeviceFiles files);
std::unique_ptr<ProcessInfo> makeLinuxProcessInfo(LinuxDeviceFiles files);

}  // namespace platform::detail
