// What the Linux platform reads from and leaves on the machine: the preferences store stays private
// whatever was there before, and the battery reads as the phone reports it.
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include <gtest/gtest.h>

#include "../../platform/src/LinuxDevice.h"
#include "platform/UserDefaults.h"
#include "support/TempDirectory.h"

namespace platform {
namespace {

using test_support::TempDirectory;

unsigned modeOf(const std::string& path) {
  struct stat info {};
  return ::lstat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

TEST(StorePermissions, OpenContainerAndPlantedLinkEndPrivate) {
  TempDirectory scratch;
  const std::string container = scratch.subdirectory("app-groups");
  ::chmod(container.c_str(), 0777);
  const std::string outside = scratch.write("outside", "not the store's");
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
  TempDirectory sys;
  sys.subdirectory("class/power_supply/BAT0");
  sys.write("class/power_supply/BAT0/type", "Battery\n");
  sys.write("class/power_supply/BAT0/status", "Not charging\n");
  const auto device = detail::makeLinuxCurrentDevice({.sysDirectory = sys.path(),
                                                      .osReleaseFile = sys.file("os-release"),
                                                      .containerDirectory = sys.file("c")});
  device->setBatteryMonitoringEnabled(true);
  EXPECT_EQ(device->batteryState(), 2);
}

}  // namespace
}  // namespace platform
