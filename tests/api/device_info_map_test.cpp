// Formatting rules of the device information map's values (the map itself is checked end to end).
#include <string>

#include <gtest/gtest.h>

#include "../../zelnora_core/src/ReportDetail.h"

namespace zelnora_core {
namespace {

TEST(DeviceInfoFormatting, EventDateInMillisecondsAndCoordinatesWithSixDecimals) {
  EXPECT_EQ(detail::eventDateText(1700000000.1236), "1700000000124");
  EXPECT_EQ(detail::eventDateText(0.0025), "3");  // 2.5 ms: half away from zero, not to even
  EXPECT_EQ(detail::eventDateText(-0.0025), "-3");
  EXPECT_EQ(detail::eventDateText(9.3e15), std::nullopt);  // beyond 64 bits of milliseconds
  EXPECT_EQ(detail::fixedSixDecimals(-0.0), "-0.000000");
  EXPECT_EQ(detail::fixedSixDecimals(0.0000006), "0.000001");
  EXPECT_EQ(detail::fixedSixDecimals(12345678.9), "12345678.900000");
}

}  // namespace
}  // namespace zelnora_core
