// A host's providers: accepted only before the first use, partial sets keep the Linux providers
// for the rest, and the host's console receives every line, also the fatal one. Each case runs in
// a fresh process (a re-executed death test), since the first use fixes the providers for good.
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "platform/Providers.h"
#include "platform/testing/FakeConsole.h"
#include "platform/testing/FakePlatform.h"

namespace platform {
namespace {

class ProviderInstallation : public ::testing::Test {
 protected:
  void SetUp() override { GTEST_FLAG_SET(death_test_style, "threadsafe"); }

  // Ends the child: status 0 when nothing was noted, else 1 with the notes on standard error.
  [[noreturn]] void finish() {
    std::fputs(failures_.c_str(), stderr);
    std::_Exit(failures_.empty() ? 0 : 1);
  }
  void expect(bool holds, const char* what) {
    if (!holds) failures_ += std::string(what) + "\n";
  }

 private:
  std::string failures_;
};

TEST_F(ProviderInstallation, PartialSetKeepsDefaultsAndIsFixedByFirstUse) {
  EXPECT_EXIT(
      {
        auto console = std::make_shared<testing::FakeConsole>();
        auto location = std::make_shared<testing::FakeLocationServices>();
        Providers first;
        first.clock = std::make_shared<testing::FakeClock>();
        expect(installProviders(std::move(first)), "refused before the first use");
        Providers second;  // replaces the first set whole: the clock falls back again
        second.console = console;
        second.location = location;
        expect(installProviders(std::move(second)), "second set refused before the first use");

        const Services& in = services();
        const Services& linux = defaultServices();
        expect(in.console == console.get() && in.location == location.get(), "host ignored");
        expect(in.clock == linux.clock && in.urlSession == linux.urlSession &&
                   in.userDefaults == linux.userDefaults && in.mainBundle == linux.mainBundle,
               "a service left out does not fall back to its Linux provider");
        printLine("kit line");
        expect(console->pieces() == std::vector<std::string>{"kit line\n"}, "line not routed");

        Providers late;
        late.console = std::make_shared<testing::FakeConsole>();
        expect(!installProviders(std::move(late)), "accepted after the first use");
        expect(services().console == console.get(), "a refused set changed the console");
        finish();
      },
      ::testing::ExitedWithCode(0), "");
}

TEST_F(ProviderInstallation, FatalErrorReachesTheHostConsole) {
  class TaggingConsole final : public Console {
    void write(std::string_view) override {}
    void writeFatal(std::string_view text) override {
      std::string tagged = "host log: " + std::string(text);
      (void)::write(STDERR_FILENO, tagged.data(), tagged.size());
    }
  };
  EXPECT_DEATH(
      {
        Providers providers;
        providers.console = std::make_shared<TaggingConsole>();
        if (installProviders(std::move(providers))) fatalError("no bundle");
      },
      "host log: Fatal error: no bundle\n");
}

// Racing the first use: the install either lands before it (and is in force) or is refused.
TEST_F(ProviderInstallation, InstallRaceWithFirstUseIsAllOrNothing) {
  EXPECT_EXIT(
      {
        auto console = std::make_shared<testing::FakeConsole>();
        bool accepted = false;
        std::thread host([&] {
          Providers providers;
          providers.console = console;
          accepted = installProviders(std::move(providers));
        });
        const Console* seen = services().console;
        host.join();
        expect(services().console == seen, "the console changed after the first use");
        expect(accepted == (seen == console.get()), "install result disagrees with what is used");
        finish();
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace platform
