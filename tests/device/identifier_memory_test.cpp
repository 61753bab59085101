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
  const std::size_t after = mallinfo2().uordblks;
  Device::setIdentifier(saved);
  // Kept texts would take over 2 MB here; one text and allocator noise stay far below 64 KiB.
  EXPECT_LT(after, before + 64 * 1024) << "grew by " << after - before << " bytes";
}

}  // namespace
}  // namespace DeviceCatalog
