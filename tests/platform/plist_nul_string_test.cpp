// A string holding a NUL byte used to abort the process inside libplist; it must read as "not a
// property list" instead (inputs found by fuzzing, kept in fuzz/corpus/plist/).
#include <fstream>
#include <iterator>
#include <string>

#include <gtest/gtest.h>

#include "platform/PropertyListReader.h"

namespace {

std::string corpusFile(const std::string& name) {
  std::ifstream in(std::string(ZELNORA_SOURCE_DIR) + "/fuzz/corpus/plist/" + name,
                   std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

TEST(PropertyListNulString, ReadsAsNoPropertyListWithoutStoppingTheProcess) {
  using namespace std::string_literals;
  EXPECT_FALSE(platform::parsePropertyList("<plist><string>a\0b</string></plist>"s));
  EXPECT_FALSE(platform::parsePropertyList("<plist><dict><key>a\0b</key><true/></dict></plist>"s));
  EXPECT_FALSE(platform::parsePropertyList("<plist><string>a&#x00;b</string></plist>"s));
  for (const char* name :
       {"crash_binary_string_with_nul.bplist", "crash_binary_key_with_nul.bplist"}) {
    const std::string binary = corpusFile(name);
    ASSERT_FALSE(binary.empty()) << name;
    EXPECT_FALSE(platform::parsePropertyList(binary)) << name;
  }
  // A NUL-free string beside it still reads.
  auto plain = platform::parsePropertyList("<plist><string>a b</string></plist>"s);
  ASSERT_TRUE(plain.has_value());
  ASSERT_NE(plain->string(), nullptr);
  EXPECT_EQ(*plain->string(), "a b");
}

}  // namespace
