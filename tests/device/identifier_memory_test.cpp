// Assigning the device identifier again and again keeps the memory of one identifier, not of
// every identifier ever assigned.
#include <malloc.h>

#include <string>

#include <gtest/gtest.h>

#include "DeviceCatalog/Device.h"

namespace DeviceCatalog {
namespace {

TEST(DeviceIdentifierMemory, RepeatedAssignmentsDoNotAccumulate) {
  const std::string saved = Device::identifier();
  const std::string longIdentifier(200, 'x');  // beyond any in-place small-string buffer
  Device::setIdentifier(longIdentifier);
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 10000; ++i) Device::setIdentifier(longIdentifier);
  // Every text kept would take over 2 MB; one text and allocator noise stay far below 64 KiB.
  EXPECT_LT(mallinfo2().uordblks, before + 64 * 1024);
  Device::setIdentifier(saved);
}

}  // namespace
}  // namespace DeviceCatalog
