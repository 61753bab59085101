// A host app's surroundings for the kit's tests: a main bundle on disk, an in-memory suite, a
// recording console and simulated device settings, installed for the life of the fixture.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "KitTestSupport.h"
#include "platform/Services.h"
#include "platform/testing/FakeConsole.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"
#include "support/TempDirectory.h"
#include "zelnora_core/ZAPreferencesUtil.h"

namespace kit_test {

struct HostApp {
  explicit HostApp(std::string bundleIdentifier = "com.example.host") {
    bundle.info = platform::PropertyDictionary{{"CFBundleIdentifier", bundleIdentifier}};
    bundle.resources["ZelnoraAdsConfig.plist"] = dir.file("ZelnoraAdsConfig.plist");
  }

  // Installs the fakes; `realStore` keeps the Linux SQLite suite (for cross-process tests).
  std::unique_ptr<platform::testing::ScopedServices> install(bool realStore = false) {
    return std::make_unique<platform::testing::ScopedServices>([&](platform::Services& s) {
      s.console = &console;
      s.mainBundle = &bundle;
      if (!realStore) s.userDefaults = &store;
      s.location = &location;
      s.advertising = &advertising;
    });
  }

  void writeConfig(const std::string& initConfig, const std::string& api = "http://127.0.0.1:9",
                   const std::string& vqx = "http://127.0.0.1:9/vqx") {
    writeHostConfig(dir.path(), initConfig, api, vqx);
  }

  static bool waitForExchanges() {
    return platform::urlSession().waitUntilIdle(std::chrono::seconds(20));
  }

  test_support::TempDirectory dir;
  platform::testing::FakeConsole console;
  platform::testing::FakeMainBundle bundle;
  platform::testing::InMemoryUserDefaults store;
  platform::testing::FakeLocationServices location;
  platform::testing::FakeAdvertising advertising;
};

// A host app whose property list points at a live configuration server.
struct ConfiguredHost {
  explicit ConfiguredHost(bool realStore = false, std::string bundleIdentifier = "com.example.host")
      : app(std::move(bundleIdentifier)) {
    app.writeConfig(server.configTemplate());
    guard = app.install(realStore);
  }
  ConfigServer server;
  HostApp app;
  std::unique_ptr<platform::testing::ScopedServices> guard;
};

inline zelnora_core::ZAConfig storedConfig(std::string nt, std::string nai,
                                           std::optional<bool> kill = std::nullopt) {
  return zelnora_core::ZAConfig{std::move(nt), std::move(nai), kill, std::nullopt};
}

}  // namespace kit_test
