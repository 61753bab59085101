// The machine identifier: read once from the uname machine field, even with concurrent first
// readers, and replaceable by assignment. Its first access can happen only once per process, so
// the first-access tests run their body in a fresh child process (threadsafe death-test style
// re-executes the test binary).
#include <atomic>
#include <cstdlib>
#include <iostream>
#include <latch>
#include <thread>

#include <gtest/gtest.h>

#include "DeviceCatalog/Device.h"
#include "device/FakeDevicePlatform.h"
#include "platform/testing/FakePlatform.h"
#include "platform/testing/ScopedServices.h"

namespace device_test {
namespace {

// A system service that counts how often the machine field is read.
class CountingSystemInfo final : public platform::SystemInfo {
 public:
  explicit CountingSystemInfo(std::array<char, 256> field) : field_(field) {}
  std::array<char, 256> unameMachine() override {
    ++reads;
    return field_;
  }
  std::optional<std::map<platform::VolumeCapacityKey, platform::VolumeValue>> volumeCapacities(
      const std::string&, const std::vector<platform::VolumeCapacityKey>&) override {
    return std::nullopt;
  }
  std::atomic<int> reads{0};

 private:
  std::array<char, 256> field_;
};

std::array<char, 256> machineField(std::string_view bytes) {
  std::array<char, 256> field{};
  std::copy_n(bytes.begin(), std::min(bytes.size(), field.size()), field.begin());
  return field;
}

// Runs `check` with the machine field installed and exits the (child) process with 0 when it
// holds, 1 otherwise, so the parent's EXPECT_EXIT sees the verdict.
template <typename Check>
[[noreturn]] void exitWithVerdict(std::string_view bytes, Check check) {
  CountingSystemInfo system(machineField(bytes));
  platform::testing::FakeProcessInfo process;
  process.env["SIMULATOR_MODEL_IDENTIFIER"] = "iPhone16,1";
  platform::testing::ScopedServices guard([&](platform::Services& services) {
    services.system = &system;
    services.processInfo = &process;
  });
  const bool held = check(system);
  std::exit(held ? 0 : 1);
}

bool reportMismatch(const std::string& actual, const std::string& expected) {
  if (actual == expected) return true;
  std::cerr << "identifier \"" << actual << "\", expected \"" << expected << "\"\n";
  return false;
}

class DeviceIdentifierDeathTest : public ::testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }
};

TEST_F(DeviceIdentifierDeathTest, FirstReadJoinsTheNonZeroBytesOfTheMachineField) {
  struct Case {
    std::string field;
    std::string expected;
  };
  for (const Case& c : std::vector<Case>{
           {"iPhone15,2", "iPhone15,2"},
           {std::string("iPh\0one15,2", 11), "iPhone15,2"},
           {std::string("\0\0iPad14,5\0\0x", 13), "iPad14,5x"},
           {"", ""},
           {std::string(256, 'a'), std::string(256, 'a')},
           // Bytes above 0x7F are taken as Latin-1 characters.
           {"iPhone\xff\x80", "iPhone\xc3\xbf\xc2\x80"},
       }) {
    SCOPED_TRACE(c.expected);
    EXPECT_EXIT(exitWithVerdict(c.field,
                                [&](CountingSystemInfo&) {
                                  return reportMismatch(Device::identifier(), c.expected) &&
                                         reportMismatch(Device::identifier(), c.expected);
                                }),
                ::testing::ExitedWithCode(0), "");
  }
}

TEST_F(DeviceIdentifierDeathTest, FieldIsReadOnceAndCurrentMapsTheStoredText) {
  EXPECT_EXIT(exitWithVerdict("iPhone15,2",
                              [](CountingSystemInfo& system) {
                                for (int i = 0; i < 3; ++i) {
                                  if (!(Device::current() == Device::iPhone14Pro)) return false;
                                }
                                return Device::identifier() == "iPhone15,2" && system.reads == 1;
                              }),
              ::testing::ExitedWithCode(0), "");
}

TEST_F(DeviceIdentifierDeathTest, SimulatorMachineTakesTheSimulatorRule) {
  EXPECT_EXIT(exitWithVerdict("x86_64",
                              [](CountingSystemInfo&) {
                                return Device::current() == Device::simulator(Device::iPhone15Pro);
                              }),
              ::testing::ExitedWithCode(0), "");
}

TEST_F(DeviceIdentifierDeathTest, EmptyMachineFieldMakesAnUnknownEmptyDevice) {
  EXPECT_EXIT(exitWithVerdict("",
                              [](CountingSystemInfo&) {
                                return Device::current() == Device::unknown("") &&
                                       Device::current().kind() == Device::Kind::unknown;
                              }),
              ::testing::ExitedWithCode(0), "");
}

TEST_F(DeviceIdentifierDeathTest, FirstAccessByAssignmentStillReadsTheFieldOnce) {
  EXPECT_EXIT(exitWithVerdict("iPhone15,2",
                              [](CountingSystemInfo& system) {
                                Device::setIdentifier("iPad14,5");
                                const bool readOnce = system.reads == 1;
                                return readOnce && Device::identifier() == "iPad14,5" &&
                                       Device::current() == Device::iPadPro12Inch6 &&
                                       system.reads == 1;
                              }),
              ::testing::ExitedWithCode(0), "");
}

TEST_F(DeviceIdentifierDeathTest, ConcurrentFirstReadersWaitForOneComputation) {
  EXPECT_EXIT(exitWithVerdict("iPhone16,2",
                              [](CountingSystemInfo& system) {
                                constexpr int kReaders = 8;
                                std::latch start(kReaders);
                                std::vector<std::string> seen(kReaders);
                                std::vector<std::thread> readers;
                                for (int i = 0; i < kReaders; ++i) {
                                  readers.emplace_back([&, i] {
                                    start.arrive_and_wait();
                                    seen[i] = Device::identifier();
                                  });
                                }
                                for (auto& reader : readers) reader.join();
                                bool agree = true;
                                for (const auto& text : seen) agree &= text == "iPhone16,2";
                                return agree && system.reads == 1;
                              }),
              ::testing::ExitedWithCode(0), "");
}

TEST(DeviceIdentifierConcurrency, ConcurrentReadersOfAnAssignedIdentifierAgree) {
  FakeDevicePlatform fakes("iPhone16,2");
  constexpr int kReaders = 6;
  std::latch start(kReaders);
  std::atomic<int> mismatches{0};
  std::vector<std::thread> readers;
  for (int i = 0; i < kReaders; ++i) {
    readers.emplace_back([&] {
      start.arrive_and_wait();
      for (int round = 0; round < 200; ++round) {
        if (Device::identifier() != "iPhone16,2") ++mismatches;
        if (!(Device::current() == Device::iPhone15ProMax)) ++mismatches;
        if (!Device::current().hasLidarSensor()) ++mismatches;
      }
    });
  }
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(mismatches, 0);
}

TEST(DeviceIdentifierConcurrency, ConcurrentAssignmentsNeverTearTheText) {
  FakeDevicePlatform fakes("iPhone16,2");
  const std::vector<std::string> texts = {"iPhone16,2", "iPad14,5", "AudioAccessory1,1"};
  std::latch start(3);
  std::atomic<bool> done{false};
  std::atomic<int> torn{0};
  std::thread writer([&] {
    start.arrive_and_wait();
    for (int round = 0; round < 300; ++round) Device::setIdentifier(texts[round % texts.size()]);
    done = true;
  });
  std::vector<std::thread> readers;
  for (int i = 0; i < 2; ++i) {
    readers.emplace_back([&] {
      start.arrive_and_wait();
      while (!done) {
        const std::string seen = Device::identifier();
        if (std::find(texts.begin(), texts.end(), seen) == texts.end()) ++torn;
        if (Device::current().kind() != Device::Kind::model) ++torn;
      }
    });
  }
  writer.join();
  for (auto& reader : readers) reader.join();
  EXPECT_EQ(torn, 0);
}

}  // namespace
}  // namespace device_test
