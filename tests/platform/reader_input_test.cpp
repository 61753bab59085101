// Input the phone's readers take that libplist and nlohmann would refuse or choke on.
#include <locale.h>
#include <pthread.h>
#include <stdlib.h>

#include <array>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "platform/PropertyListReader.h"
#include "platform/internal/Json.h"
#include "platform/src/LinuxProviders.h"
#include "platform/src/PlistCodec.h"
#include "support/ChildProcess.h"
#include "support/TempDirectory.h"

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define ZELNORA_TEST_SANITIZED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define ZELNORA_TEST_SANITIZED 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__)
#define ZELNORA_TEST_LEAK_CHECKED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define ZELNORA_TEST_LEAK_CHECKED 1
#endif
#endif
#ifdef ZELNORA_TEST_LEAK_CHECKED
#include <sanitizer/lsan_interface.h>
#endif

namespace platform {
namespace {

// Sanitizer instrumentation makes every frame several times larger (clang's ASan at -O0 with
// coverage most of all); the 256 KiB claim is the uninstrumented build's.
#ifdef ZELNORA_TEST_SANITIZED
constexpr std::size_t kStackScale = 32;
#else
constexpr std::size_t kStackScale = 1;
#endif

std::string xmlList(const std::string& body) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + body + "</plist>";
}

// An XML list after a byte-order mark, and 512 levels of nesting (513 refused) read on a thread
// with a 256 KiB stack (smaller than the threads a host hands the kit): a reader, copy or writer
// recursing too deep for it ends the test binary.
TEST(ReaderInput, ByteOrderMarkAndDeepNestingReadOnASmallStack) {
  std::string xml, json = R"({"deep":)";
  for (int i = 0; i < 512; ++i) {
    xml = "<dict><key>k</key>" + xml + (i == 0 ? "<true/>" : "") + "</dict>";
    if (i > 0) json += "[";
  }
  json += std::string(511, ']') + R"(,"nt":"apns"})";
  const std::string lists[] = {xmlList(xml),
                               "\xEF\xBB\xBF" + xmlList("<dict><key>A</key><true/></dict>")};
  std::function<void()> work = [&] {
    for (const std::string& list : lists) {
      const std::optional<PropertyValue> read = parsePropertyList(list);
      ASSERT_TRUE(read.has_value()) << list.substr(0, 8);
      const auto binary = detail::encodeBinaryPropertyList(*read);
      ASSERT_TRUE(binary.has_value());
      EXPECT_EQ(parsePropertyList(std::string(binary->begin(), binary->end())), read);
    }
    EXPECT_EQ(parseJson(json).value_or(nullptr).dump(), json);  // copied, then written
    EXPECT_FALSE(parsePropertyList(xmlList("<array>" + xml + "</array>"))) << "513 levels";
    EXPECT_FALSE(parseJson("[" + json + "]")) << "513 levels";
  };
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kStackScale * 256 * 1024);
  pthread_t thread;
  auto run = [](void* w) -> void* { return (*static_cast<std::function<void()>*>(w))(), nullptr; };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
  pthread_join(thread, nullptr);
}

// A host running with a comma-decimal locale (LANG=de_DE.UTF-8 adopted by its toolkit) still
// reads "2.5" as two and a half: in an XML property list (libplist uses strtod) and in the
// simulated location.
TEST(ReaderInput, NumbersReadTheSameUnderACommaDecimalLocale) {
  test_support::TempDirectory locales;
  const test_support::ChildResult made = test_support::runChild(
      "localedef", {"-i", "de_DE", "-f", "UTF-8", locales.file("de_DE.UTF-8")}, {});
  ASSERT_EQ(made.exitStatus, 0) << "localedef and the locales package are needed: "
                                << made.standardError;
  ::setenv("LOCPATH", locales.path().c_str(), 1);
#ifdef ZELNORA_TEST_LEAK_CHECKED
  __lsan_disable();  // glibc's newlocale keeps the LOCPATH list it splits, once per process
#endif
  const locale_t german = ::newlocale(LC_ALL_MASK, "de_DE.UTF-8", static_cast<locale_t>(nullptr));
#ifdef ZELNORA_TEST_LEAK_CHECKED
  __lsan_enable();
#endif
  ::unsetenv("LOCPATH");
  ASSERT_NE(german, static_cast<locale_t>(nullptr));
  const locale_t previous = ::uselocale(german);
  std::array<char, 8> printed{};
  std::snprintf(printed.data(), printed.size(), "%.1f", 2.5);

  const auto list = parsePropertyList(xmlList("<dict><key>r</key><real>2.5</real></dict>"));
  ::setenv("ZELNORA_SIM_LOCATION", "52.520008,+13.404954", 1);
  const auto location = linux_provider::locationServices().makeLocationManager()->location();
  ::unsetenv("ZELNORA_SIM_LOCATION");
  ::uselocale(previous);
  ::freelocale(german);

  EXPECT_STREQ(printed.data(), "2,5") << "the locale was not in effect";
  ASSERT_TRUE(list && list->dictionary());
  EXPECT_EQ(list->dictionary()->at("r"), PropertyValue(2.5));
  ASSERT_TRUE(location.has_value());
  EXPECT_EQ(location->latitude, 52.520008);
  EXPECT_EQ(location->longitude, 13.404954);
}

}  // namespace
}  // namespace platform
