// What start-up costs the host's thread: ZAManager::initialize with a stored configuration, up to
// its return (property list read and parsed, host-bundle record saved, configuration URL formed,
// stored configuration read).
//
// The manager is a process singleton that never becomes uninitialised again, so a stored
// configuration that lets the kit start would make every later call stop at "Sdk already
// initialized". The stored configuration here carries the kill switch instead: every call then
// walks the whole path and stops at "Zelnora Ads sdk disabled", just before the one step it skips,
// handing the configuration GET to the URL session (BM_ConfigurationRequestHandOver measures that
// step alone). Real main bundle on disk, real SQLite suite, console discarded.
#include <stdlib.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>

#include <benchmark/benchmark.h>

#include "platform/Bundle.h"
#include "platform/Services.h"
#include "platform/testing/ScopedServices.h"
#include "zelnora_core/ZAManager.h"
#include "zelnora_core/ZAPreferencesUtil.h"

namespace {

class DiscardingConsole final : public platform::Console {
 public:
  void write(std::string_view text) override { benchmark::DoNotOptimize(text.data()); }
};

std::string plistOfStrings(const std::vector<std::pair<std::string, std::string>>& entries) {
  std::string xml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>\n";
  for (const auto& [key, value] : entries) {
    xml += "\t<key>" + key + "</key>\n\t<string>" + value + "</string>\n";
  }
  return xml + "</dict>\n</plist>\n";
}

// A main bundle and a data directory in a fresh temporary directory, kept for the process.
void prepareHostOnDisk() {
  static bool prepared = false;
  if (prepared) return;
  prepared = true;
  char pattern[] = "/tmp/zelnora-init-bench-XXXXXX";
  const std::filesystem::path root = ::mkdtemp(pattern) ? pattern : "/tmp";
  std::filesystem::create_directories(root / "bundle");
  std::filesystem::create_directories(root / "data");
  const std::string base = "http://127.0.0.1:9";
  std::ofstream(root / "bundle" / "ZelnoraAdsConfig.plist") << plistOfStrings(
      {{"INIT_CONFIG", base + "/config/{key}"}, {"API_BASE_URL", base}, {"VQX_BASE_URL", base}});
  std::ofstream(root / "bundle" / "Info.plist") << plistOfStrings(
      {{"CFBundleIdentifier", "com.bench.app"}, {"CFBundleShortVersionString", "1.0"}});
  ::setenv("XDG_DATA_HOME", (root / "data").c_str(), 1);
  platform::setMainBundleDirectory((root / "bundle").string());
}

void BM_InitializeWithStoredConfiguration(benchmark::State& state) {
  prepareHostOnDisk();
  DiscardingConsole console;
  platform::testing::ScopedServices guard([&](platform::Services& s) { s.console = &console; });
  zelnora_core::ZAPreferencesUtil::saveConfig({"apns", "bench-app", true, "bench-key"});
  for (auto _ : state) {
    zelnora_core::ZAManager::sharedInstance().initialize("bench-key", false);
  }
  if (zelnora_core::ZAManager::sharedInstance().isInitialized()) {
    state.SkipWithError("the kit started: the measured path was not the start-up path");
  }
}
BENCHMARK(BM_InitializeWithStoredConfiguration)->Repetitions(5)->ReportAggregatesOnly(true);

// The step the measured path leaves out: handing a configuration GET to the shared session (to a
// port where nothing listens; the worker finishes it on its own thread).
void BM_ConfigurationRequestHandOver(benchmark::State& state) {
  const platform::Url url = *platform::Url::parse("http://127.0.0.1:9/config/bench-key");
  std::int64_t handed = 0;
  for (auto _ : state) {
    platform::URLRequest request(url, platform::CachePolicy::useProtocolCachePolicy,
                                 std::chrono::seconds(60));
    request.httpMethod = "GET";
    request.addValue("application/json", "Accept");
    platform::urlSession().dataTask(std::move(request), [](auto&&...) {});
    if (++handed % 256 == 0) {
      state.PauseTiming();
      platform::urlSession().waitUntilIdle(std::chrono::seconds(30));
      state.ResumeTiming();
    }
  }
  platform::urlSession().waitUntilIdle(std::chrono::seconds(30));
}
BENCHMARK(BM_ConfigurationRequestHandOver)->Repetitions(5)->ReportAggregatesOnly(true);

}  // namespace
