// Input the phone's readers take that libplist and nlohmann would refuse or choke on.
#include <pthread.h>

#include <cstddef>
#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "../../platform/src/PlistCodec.h"
#include "platform/Json.h"
#include "platform/PropertyListReader.h"

namespace platform {
namespace {

// Sanitizer instrumentation makes every frame several times larger; the 256 KiB claim is the
// uninstrumented build's.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kStackScale = 8;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
constexpr std::size_t kStackScale = 8;
#else
constexpr std::size_t kStackScale = 1;
#endif
#else
constexpr std::size_t kStackScale = 1;
#endif

std::string xmlList(const std::string& body) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + body + "</plist>";
}

// An XML list after a byte-order mark, and 512 levels of nesting read on a thread with a 256 KiB
// stack (smaller than the threads a host hands the kit): a reader, copy or writer recursing too
// deep for it ends the test binary.
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
  };
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kStackScale * 256 * 1024);
  pthread_t thread;
  auto run = [](void* w) -> void* { return (*static_cast<std::function<void()>*>(w))(), nullptr; };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
  pthread_join(thread, nullptr);
}

}  // namespace
}  // namespace platform
