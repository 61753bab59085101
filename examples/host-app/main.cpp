// A minimal host application: starts the kit with an application key, records who the user is and
// which headers to send, posts one engagement report and waits for it to go out.
//
//   zelnora-host-app BUNDLE_DIR APP_KEY
//
// BUNDLE_DIR plays the application's main bundle: it holds ZelnoraAdsConfig.plist and Info.plist.
// Exits 0 once the kit reports a successful start-up, 1 when it does not within the time limit.
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "platform/Bundle.h"
#include "platform/Services.h"
#include "zelnora_core/Version.h"
#include "zelnora_core/ZAManager.h"
#include "zelnora_core/ZAReportHelper.h"

namespace {

constexpr auto kStartUpLimit = std::chrono::seconds(20);
constexpr auto kDeliveryLimit = std::chrono::milliseconds(10'000);

// Signalled by the kit's start-up callback, which runs on the kit's network thread.
class StartUpSignal {
 public:
  void notify() {
    {
      std::lock_guard<std::mutex> lock(mutex_);
      done_ = true;
    }
    condition_.notify_all();
  }

  bool waitFor(std::chrono::seconds limit) {
    std::unique_lock<std::mutex> lock(mutex_);
    return condition_.wait_for(lock, limit, [this] { return done_; });
  }

 private:
  std::mutex mutex_;
  std::condition_variable condition_;
  bool done_ = false;  // guarded by mutex_
};

}  // namespace

int main(int argc, char** argv) {
  // The kit writes whole lines straight to the standard output file; keep ours in order with them.
  std::setvbuf(stdout, nullptr, _IONBF, 0);
  if (argc != 3) {
    std::fprintf(stderr, "usage: %s BUNDLE_DIR APP_KEY\n", argv[0]);
    return 2;
  }
  std::printf("host-app: kit version %.1f\n", zelnora_coreVersionNumber);

  // Before the kit's first use: the directory standing in for the application's main bundle.
  platform::setMainBundleDirectory(argv[1]);

  StartUpSignal started;
  auto& manager = zelnora_core::ZAManager::sharedInstance();
  manager.initialize(argv[2], false, [&started] { started.notify(); });
  if (!started.waitFor(kStartUpLimit) || !manager.isInitialized()) {
    std::printf("host-app: the kit did not start (disabled=%s)\n",
                manager.isDisabled() ? "true" : "false");
    platform::urlSession().waitUntilIdle(kDeliveryLimit);
    return 1;
  }

  manager.setUserId("host-app-user");
  manager.setCustomHeaders({{"X-Host-App", "example"}});
  zelnora_core::ZAReportHelper::sendReport("app_open", std::nullopt, "custom");

  // The report goes out in the background; wait for it so its exchange completes before exit.
  bool idle = platform::urlSession().waitUntilIdle(kDeliveryLimit);
  std::printf("host-app: done (report %s)\n", idle ? "delivered" : "still in flight");
  return 0;
}
