// What the Linux platform leaves on and reads from the machine: the preferences store ends
// private whatever was there before, and the battery reads as the phone reports it.
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "platform/UserDefaults.h"
#include "platform/src/LinuxDevice.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

unsigned modeOf(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

TEST(StorePermissions, OpenContainerAndPlantedLinkEndPrivate) {
  test_support::TempDirectory scratch;
  const std::string container = scratch.subdirectory("app-groups");
  const std::string outside = scratch.write("outside", "not the store's");
  ::chmod(container.c_str(), 0777);
  ::chmod(outside.c_str(), 0644);
  ASSERT_EQ(::symlink(outside.c_str(), (container + "/group.p.za.sqlite-shm").c_str()), 0);
  const auto suite = makeSqliteUserDefaultsStore(container)->suite("group.p.za");
  ASSERT_NE(suite, nullptr);
  suite->set("zelnora_ads_ad_id", PropertyValue(std::string("id")));
  EXPECT_EQ(modeOf(container), 0700u);
  for (const char* suffix : {"", "-wal", "-shm"}) {
    EXPECT_EQ(modeOf(container + "/group.p.za.sqlite" + suffix), 0600u) << suffix;
  }
  EXPECT_EQ(modeOf(outside), 0644u);
}

TEST(BatteryState, NotChargingOnMainsReadsAsCharging) {
  test_support::TempDirectory sys;
  sys.subdirectory("class/power_supply/BAT0");
  sys.write("class/power_supply/BAT0/type", "Battery\n");
  sys.write("class/power_supply/BAT0/status", "Not charging\n");
  const auto device = detail::makeLinuxCurrentDevice(
      {.sysDirectory = sys.path(), .osReleaseFile = "", .containerDirectory = ""});
  device->setBatteryMonitoringEnabled(true);
  EXPECT_EQ(device->batteryState(), DeviceBatteryState::charging);
}

}  // namespace
}  // namespace platform
