// Input the phone's readers take that libplist and nlohmann would refuse or choke on: a UTF-8
// byte-order mark before an XML list, and deep nesting read on a thread with a small stack.
#include <pthread.h>

#include <functional>
#include <string>

#include <gtest/gtest.h>

#include "../../platform/src/PlistCodec.h"
#include "BinaryPlistBuilder.h"
#include "platform/Json.h"
#include "platform/PropertyListReader.h"

namespace platform {
namespace {

constexpr const char* kByteOrderMark = "\xEF\xBB\xBF";
constexpr int kDeepNesting = 512;

std::string xmlList(const std::string& body) {
  return R"(<?xml version="1.0" encoding="UTF-8"?><plist version="1.0">)" + body + "</plist>";
}

std::string repeated(const std::string& part, int times) {
  std::string out;
  for (int i = 0; i < times; ++i) out += part;
  return out;
}

// Runs `work` on a thread with a 256 KiB stack (smaller than any thread a host hands the kit):
// a reader that recursed without bound would overflow it and end the test binary.
void onSmallStack(const std::function<void()>& work) {
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, 256 * 1024);
  pthread_t thread;
  auto run = [](void* argument) -> void* {
    (*static_cast<const std::function<void()>*>(argument))();
    return nullptr;
  };
  ASSERT_EQ(pthread_create(&thread, &attributes, run, const_cast<std::function<void()>*>(&work)),
            0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

TEST(ReaderInput, XmlListAfterByteOrderMarkReads) {
  const std::string xml = xmlList("<dict><key>API_BASE_URL</key><string>http://a</string></dict>");
  const auto read = parsePropertyList(kByteOrderMark + xml);
  ASSERT_TRUE(read.has_value());
  ASSERT_NE(read->dictionary(), nullptr);
  EXPECT_EQ(*read->dictionary()->at("API_BASE_URL").string(), "http://a");
  testing::BinaryPlistBuilder builder;
  const std::string binary = builder.finish(builder.string("core"));
  EXPECT_FALSE(parsePropertyList(kByteOrderMark + binary).has_value());
}

TEST(ReaderInput, DeepNestingReadsOnASmallStack) {
  testing::BinaryPlistBuilder builder;
  testing::BinaryPlistBuilder::Ref inner = builder.string("core");
  for (int i = 0; i < kDeepNesting; ++i) inner = builder.dictionary({{builder.string("k"), inner}});
  const std::string binary = builder.finish(inner);
  const std::string xml = xmlList(repeated("<dict><key>k</key>", kDeepNesting) + "<true/>" +
                                  repeated("</dict>", kDeepNesting));
  const std::string json = R"({"deep":)" + repeated("[", kDeepNesting - 1) +
                           repeated("]", kDeepNesting - 1) + R"(,"nt":"apns"})";
  onSmallStack([&] {
    for (const std::string* list : {&binary, &xml}) {
      const std::optional<PropertyValue> read = parsePropertyList(*list);
      ASSERT_TRUE(read.has_value()) << list->substr(0, 8);
      const PropertyValue copy = *read;
      EXPECT_TRUE(copy == *read);
      EXPECT_TRUE(detail::encodeBinaryPropertyList(copy).has_value());
    }
    const std::optional<nlohmann::json> parsed = parseJson(json);
    ASSERT_TRUE(parsed.has_value());
    const nlohmann::json copy = *parsed;
    EXPECT_EQ(copy.dump(), json);
    EXPECT_TRUE(copy == *parsed);
  });
  EXPECT_FALSE(parseJson(repeated("[", 100000) + repeated("]", 100000)).has_value());
}

}  // namespace
}  // namespace platform
