// A host's own static initialiser may use the kit's globals before the kit's initialisers ran:
// this file's initialisers run first in the test binary (its object comes before the libraries).
#include <gtest/gtest.h>

#include "zelnora_core/Version.h"
#include "zelnora_core/ZAManager.h"

namespace zelnora_core {
namespace {

ZAManager* const managerSeenEarly = &data;
const bool initializedSeenEarly = false;
const double versionSeenEarly = zelnora_coreVersionNumber;

TEST(StaticInitialisation, HostInitialiserReachesTheManagerAndVersion) {
  EXPECT_EQ(managerSeenEarly, &ZAManager::sharedInstance());
  EXPECT_FALSE(initializedSeenEarly);
  EXPECT_EQ(versionSeenEarly, 1.0);
}

}  // namespace
}  // namespace zelnora_core
