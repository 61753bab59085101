// Cost of identifying the device: the table lookup, Device::current() and predicates read on it.
#include "DeviceCatalog/Device.h"

#include <benchmark/benchmark.h>

#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"

namespace {

using DeviceCatalog::Device;

// Fake device services, so predicates that may read the interface idiom stay off the real system,
// and a fixed current identifier.
struct BenchPlatform {
  explicit BenchPlatform(const char* identifier) { Device::setIdentifier(identifier); }
  platform::testing::FakeCurrentDevice device;
  platform::testing::FakeProcessInfo process;
  platform::testing::ScopedServices guard{[this](platform::Services& services) {
    services.device = &device;
    services.processInfo = &process;
  }};
};

void BM_MapToDevice_Model(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(Device::mapToDevice("iPhone16,2"));
}
BENCHMARK(BM_MapToDevice_Model);

void BM_MapToDevice_Unknown(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(Device::mapToDevice("iPhone99,1"));
}
BENCHMARK(BM_MapToDevice_Unknown);

void BM_MapToDevice_Simulator(benchmark::State& state) {
  BenchPlatform fakes("iPhone16,2");
  fakes.process.env["SIMULATOR_MODEL_IDENTIFIER"] = "iPhone16,1";
  for (auto _ : state) benchmark::DoNotOptimize(Device::mapToDevice("x86_64"));
}
BENCHMARK(BM_MapToDevice_Simulator);

void BM_Current(benchmark::State& state) {
  BenchPlatform fakes("iPhone16,2");
  for (auto _ : state) benchmark::DoNotOptimize(Device::current());
}
BENCHMARK(BM_Current);

void BM_CurrentIsPhone(benchmark::State& state) {
  BenchPlatform fakes("iPhone16,2");
  for (auto _ : state) benchmark::DoNotOptimize(Device::current().isPhone());
}
BENCHMARK(BM_CurrentIsPhone);

void BM_CurrentIsPad(benchmark::State& state) {
  BenchPlatform fakes("iPhone16,2");  // not listed as a pad: the idiom and current check run too
  for (auto _ : state) benchmark::DoNotOptimize(Device::current().isPad());
}
BENCHMARK(BM_CurrentIsPad);

void BM_CurrentHasSensorHousing(benchmark::State& state) {
  BenchPlatform fakes("iPhone16,2");
  for (auto _ : state) benchmark::DoNotOptimize(Device::current().hasSensorHousing());
}
BENCHMARK(BM_CurrentHasSensorHousing);

void BM_CurrentIsSimulator(benchmark::State& state) {
  BenchPlatform fakes("iPhone16,2");
  for (auto _ : state) benchmark::DoNotOptimize(Device::current().isSimulator());
}
BENCHMARK(BM_CurrentIsSimulator);

void BM_CurrentIsOneOfProDevices(benchmark::State& state) {
  BenchPlatform fakes("iPhone16,2");
  for (auto _ : state) {
    benchmark::DoNotOptimize(Device::current().isOneOf(Device::allProDevices()));
  }
}
BENCHMARK(BM_CurrentIsOneOfProDevices);

void BM_CurrentCpuDescription(benchmark::State& state) {
  BenchPlatform fakes("iPhone16,2");
  for (auto _ : state) benchmark::DoNotOptimize(Device::current().cpu().description());
}
BENCHMARK(BM_CurrentCpuDescription);

void BM_SimulatedUnknownCurrentIsPhone(benchmark::State& state) {
  BenchPlatform fakes("x86_64");  // what a Linux x86_64 machine reports
  for (auto _ : state) benchmark::DoNotOptimize(Device::current().isPhone());
}
BENCHMARK(BM_SimulatedUnknownCurrentIsPhone);

}  // namespace
