// What a report costs the calling thread: ZAReportHelper::sendReport up to the hand-over to the
// URL session (map, store reads, JSON, URL, headers, OUTGOING dump), and getDeviceInfoMap alone.
// The console discards its pieces; requests go to a loopback port where nothing listens, so the
// session's worker finishes each one quickly on its own thread.
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <memory>
#include <string>

#include <benchmark/benchmark.h>

#include "platform/ReportOutbox.h"
#include "platform/Services.h"
#include "platform/UserDefaults.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"
#include "zelnora_core/ZAManager.h"
#include "zelnora_core/ZAPreferencesUtil.h"
#include "zelnora_core/ZAReportHelper.h"
#include "zelnora_core/ZAReportOutbox.h"

namespace {

class DiscardingConsole final : public platform::Console {
 public:
  void write(std::string_view text) override { benchmark::DoNotOptimize(text.data()); }
};

int unusedLoopbackPort() {
  const int probe = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(probe, reinterpret_cast<sockaddr*>(&address), sizeof address);
  socklen_t length = sizeof address;
  ::getsockname(probe, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(probe);
  return ntohs(address.sin_port);
}

// The store a report reads: in memory, or the SQLite suite the Linux platform uses.
std::unique_ptr<platform::UserDefaultsStore> makeStore(bool sqlite) {
  if (!sqlite) return std::make_unique<platform::testing::InMemoryUserDefaults>();
  char pattern[] = "/tmp/zelnora-bench-XXXXXX";
  const char* directory = ::mkdtemp(pattern);
  return platform::makeSqliteUserDefaultsStore(std::string(directory ? directory : "/tmp"));
}

// Device readings from fakes, to see the kit's own share apart from the Linux providers' file
// reads.
struct FakeReadings {
  platform::testing::FakeMainBundle mainBundle;
  platform::testing::FakeKitBundle kitBundle;
  platform::testing::FakeCurrentDevice device;
  platform::testing::FakeTelephony telephony;
  platform::testing::FakeLocationServices location;
  platform::testing::FakeClock clock;

  FakeReadings() {
    mainBundle.info = platform::PropertyDictionary{{"CFBundleIdentifier", "com.bench.app"},
                                                   {"CFBundleShortVersionString", "1.0"}};
    kitBundle.entries = {{"CFBundleShortVersionString", "1.0.0"}, {"CFBundleVersion", "1"}};
    device.vendorId = "0F8FAD5B-D9CB-469F-A165-70867728950E";
    telephony.providers = {{{"1", {"Carrier"}}}};
    location.fix = platform::Coordinate{48.8583701, 2.2944813};
  }
  void install(platform::Services& s) {
    s.mainBundle = &mainBundle;
    s.kitBundle = &kitBundle;
    s.device = &device;
    s.telephony = &telephony;
    s.location = &location;
    s.clock = &clock;
  }
};

std::string scratchDirectory() {
  char pattern[] = "/tmp/zelnora-bench-XXXXXX";
  const char* directory = ::mkdtemp(pattern);
  return directory ? directory : "/tmp";
}

struct ReportSetting {
  DiscardingConsole console;
  std::unique_ptr<platform::UserDefaultsStore> store;
  // Durable reports keep every failed report here, on the network thread.
  std::unique_ptr<platform::ReportOutboxStore> outboxes =
      platform::makeSqliteReportOutboxStore(scratchDirectory());
  FakeReadings readings;
  std::unique_ptr<platform::testing::ScopedServices> guard;

  ReportSetting(bool sqlite, bool fakeReadings, bool durable = false) : store(makeStore(sqlite)) {
    guard = std::make_unique<platform::testing::ScopedServices>([&](platform::Services& s) {
      s.console = &console;
      s.userDefaults = store.get();
      s.reportOutboxes = outboxes.get();
      if (fakeReadings) readings.install(s);
    });
    zelnora_core::ZAManager::sharedInstance().setDurableReports(durable);
    // The base URL is read once per process: every benchmark of this run uses the same one.
    static const std::string base = "http://127.0.0.1:" + std::to_string(unusedLoopbackPort());
    zelnora_core::ZAPreferencesUtil::saveApiConfig({"", base, base});
    zelnora_core::ZAPreferencesUtil::saveConfig({"nt", "nai", std::nullopt, "channel-1"});
    zelnora_core::ZAPreferencesUtil::saveCustomHeaders({{"X-Tenant", "bench"}});
    zelnora_core::ZAPreferencesUtil::saveUserData("bench-user");
  }
  ~ReportSetting() {
    platform::urlSession().waitUntilIdle(std::chrono::seconds(30));
    zelnora_core::ZAReportOutbox::waitUntilSettled(std::chrono::seconds(30));
    zelnora_core::ZAManager::sharedInstance().setDurableReports(false);
  }
};

void sendReports(benchmark::State& state, bool sqlite, bool fakeReadings, bool durable) {
  ReportSetting setting(sqlite, fakeReadings, durable);
  std::int64_t sent = 0;
  for (auto _ : state) {
    zelnora_core::ZAReportHelper::sendReport("bench-event", "campaign-1", "type-a");
    if (++sent % 256 == 0) {  // keep the session's queue short, outside the measurement
      state.PauseTiming();
      platform::urlSession().waitUntilIdle(std::chrono::seconds(30));
      state.ResumeTiming();
    }
  }
}

void deviceInfoMaps(benchmark::State& state, bool sqlite, bool fakeReadings) {
  ReportSetting setting(sqlite, fakeReadings);
  for (auto _ : state) {
    benchmark::DoNotOptimize(zelnora_core::ZAReportHelper::getDeviceInfoMap());
  }
}

// Arguments: store (0 in memory, 1 SQLite), readings (0 Linux providers, 1 fakes), durable
// reports (0 off, the default; 1 on: every report fails and is kept, off the caller's thread).
void BM_SendReport(benchmark::State& state) {
  sendReports(state, state.range(0) != 0, state.range(1) != 0, state.range(2) != 0);
}
void BM_GetDeviceInfoMap(benchmark::State& state) {
  deviceInfoMaps(state, state.range(0) != 0, state.range(1) != 0);
}

BENCHMARK(BM_SendReport)
    ->ArgNames({"sqlite", "fakeReadings", "durable"})
    ->ArgsProduct({{0, 1}, {0, 1}, {0, 1}})
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);
BENCHMARK(BM_GetDeviceInfoMap)
    ->ArgNames({"sqlite", "fakeReadings"})
    ->ArgsProduct({{0, 1}, {0, 1}})
    ->Repetitions(5)
    ->ReportAggregatesOnly(true);

}  // namespace
