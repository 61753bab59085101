// A host with a platform of its own: its logger receives the kit's lines and traffic dumps, and
// its positioning source answers the kit's location questions. Every other service stays the
// Linux provider.
//
//   zelnora-custom-platform BUNDLE_DIR APP_KEY
//
// BUNDLE_DIR plays the application's main bundle (ZelnoraAdsConfig.plist and Info.plist). Every
// line the kit writes comes out prefixed with "[kit] ". Exits 0 once the kit has started and the
// report carrying the fixed position has gone out, 1 otherwise.
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <mutex>
#include <string>

#include "platform/Bundle.h"
#include "platform/Providers.h"
#include "zelnora_core/ZAManager.h"
#include "zelnora_core/ZAReportHelper.h"

namespace {

// Stands in for the host's logger. The kit calls it from its own threads too, concurrently.
class PrefixingConsole final : public platform::Console {
 public:
  void write(std::string_view piece) override {
    std::string out;
    for (size_t start = 0; start < piece.size();) {
      size_t end = piece.find('\n', start);
      end = end == std::string_view::npos ? piece.size() : end + 1;
      out.append("[kit] ").append(piece.substr(start, end - start));
      start = end;
    }
    std::lock_guard lock(mutex_);
    std::fwrite(out.data(), 1, out.size(), stdout);
    std::fflush(stdout);
  }

 private:
  std::mutex mutex_;
};

// Stands in for the host's positioning source: a fixed position, authorisation always granted.
class FixedLocation final : public platform::LocationServices {
  class Manager final : public platform::LocationManager {
    void requestAlwaysAuthorization() override {}
    std::optional<platform::Coordinate> location() override {
      return platform::Coordinate{52.520008, 13.404954};
    }
  };

 public:
  std::unique_ptr<platform::LocationManager> makeLocationManager() override {
    return std::make_unique<Manager>();
  }
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s BUNDLE_DIR APP_KEY\n", argv[0]);
    return 2;
  }
  platform::Providers providers;
  providers.console = std::make_shared<PrefixingConsole>();
  providers.location = std::make_shared<FixedLocation>();
  if (!platform::installProviders(std::move(providers))) {
    std::fprintf(stderr, "custom-platform: the kit was already in use\n");
    return 1;
  }
  platform::setMainBundleDirectory(argv[1]);

  // Shared with the callback, which runs on the kit's network thread and may outlive the wait.
  auto started = std::make_shared<std::promise<void>>();
  auto& manager = zelnora_core::ZAManager::sharedInstance();
  manager.initialize(argv[2], false, [started] { started->set_value(); });
  const bool ok =
      started->get_future().wait_for(std::chrono::seconds(20)) == std::future_status::ready;
  if (ok) {
    manager.setUserId("custom-platform-user");
    zelnora_core::ZAReportHelper::sendReport("app_open", std::nullopt, "custom");
  }
  const bool idle = platform::urlSession().waitUntilIdle(std::chrono::seconds(10));
  std::printf("custom-platform: %s\n", ok && idle ? "done" : "the kit did not start");
  return ok && idle ? 0 : 1;
}
