// The host tool's `device` JSON: exact bytes for one model, and every member for the kinds of
// value (model, simulator, unknown, no screen).
#include <gtest/gtest.h>

#include "DeviceCatalog/Device.h"
#include "device/FakeDevicePlatform.h"
#include "platform/Json.h"

// The helper belongs to the host tool's library; compiled into this test so it can be checked
// without the tool.
#include "../../tools/host/DeviceJson.cpp"

namespace device_test {
namespace {

using zelnora_host::deviceJson;

class DeviceJsonTest : public ::testing::Test {
 protected:
  FakeDevicePlatform fakes{"iPhone16,2"};
};

TEST_F(DeviceJsonTest, ExactBytesForAModel) {
  EXPECT_EQ(deviceJson(Device::iPhone15Pro),
            R"({"description":"iPhone 15 Pro","safeDescription":"iPhone 15 Pro","cpu":"A17 Pro",)"
            R"("diagonal":6.1,"ppi":460,"screenRatio":[9,19.5],)"
            R"("cameras":["wide","telephoto","ultraWide"],"applePencilSupport":0,)"
            R"("isPod":false,"isPhone":true,"isPad":false,"isSimulator":false,)"
            R"("isTouchIDCapable":false,"isFaceIDCapable":true,"hasBiometricSensor":true,)"
            R"("hasSensorHousing":true,"hasRoundedDisplayCorners":true,"has3dTouchSupport":false,)"
            R"("supportsWirelessCharging":true,"hasLidarSensor":true,"hasCamera":true,)"
            R"("hasNormalCamera":true,"hasWideCamera":true,"hasTelephotoCamera":true,)"
            R"("hasUltraWideCamera":true})");
}

nlohmann::json parsed(const Device& device) {
  auto json = platform::parseJson(deviceJson(device));
  EXPECT_TRUE(json.has_value()) << deviceJson(device);
  return json.value_or(nlohmann::json::object());
}

TEST_F(DeviceJsonTest, HasExactlyTheContractMembersInOrder) {
  const std::vector<std::string> expected = {"description",
                                             "safeDescription",
                                             "cpu",
                                             "diagonal",
                                             "ppi",
                                             "screenRatio",
                                             "cameras",
                                             "applePencilSupport",
                                             "isPod",
                                             "isPhone",
                                             "isPad",
                                             "isSimulator",
                                             "isTouchIDCapable",
                                             "isFaceIDCapable",
                                             "hasBiometricSensor",
                                             "hasSensorHousing",
                                             "hasRoundedDisplayCorners",
                                             "has3dTouchSupport",
                                             "supportsWirelessCharging",
                                             "hasLidarSensor",
                                             "hasCamera",
                                             "hasNormalCamera",
                                             "hasWideCamera",
                                             "hasTelephotoCamera",
                                             "hasUltraWideCamera"};
  // nlohmann sorts members, so read the order from the text itself.
  const std::string text = deviceJson(Device::iPadPro12Inch6);
  std::size_t position = 0;
  for (const std::string& member : expected) {
    const std::size_t found = text.find("\"" + member + "\":", position);
    ASSERT_NE(found, std::string::npos) << member;
    position = found;
  }
  EXPECT_EQ(parsed(Device::iPadPro12Inch6).size(), expected.size());
}

TEST_F(DeviceJsonTest, PadWithPencilAndOddRatio) {
  const auto json = parsed(Device::iPadMini6);
  EXPECT_EQ(json["description"], "iPad Mini (6th generation)");
  EXPECT_EQ(json["cpu"], "A15 Bionic");
  EXPECT_EQ(json["diagonal"], 8.3);
  EXPECT_EQ(json["screenRatio"], nlohmann::json::array({744, 1133}));
  EXPECT_EQ(json["applePencilSupport"], 2);
  EXPECT_EQ(json["cameras"], nlohmann::json::array({"wide"}));
  EXPECT_EQ(json["isPad"], true);
  EXPECT_EQ(json["isTouchIDCapable"], true);
}

TEST_F(DeviceJsonTest, XrKeepsItsSmallCapitalInTheDescription) {
  const std::string text = deviceJson(Device::iPhoneXR);
  EXPECT_NE(text.find("\"description\":\"iPhone X\xCA\x80\""), std::string::npos) << text;
  EXPECT_NE(text.find("\"safeDescription\":\"iPhone XR\""), std::string::npos) << text;
}

TEST_F(DeviceJsonTest, HomePodHasAPpiOfMinusOneAndNoCamera) {
  EXPECT_NE(deviceJson(Device::homePod)
                .find(R"("diagonal":-1,"ppi":-1,"screenRatio":[4,5],)"
                      R"("cameras":[],"applePencilSupport":0,)"),
            std::string::npos);
}

TEST_F(DeviceJsonTest, SimulatorKeepsFactsButNoCameras) {
  const auto json = parsed(Device::simulator(Device::iPhone15Pro));
  EXPECT_EQ(json["description"], "Simulator (iPhone 15 Pro)");
  EXPECT_EQ(json["cpu"], "A17 Pro");
  EXPECT_EQ(json["ppi"], 460);
  EXPECT_EQ(json["cameras"], nlohmann::json::array());
  EXPECT_EQ(json["isSimulator"], true);
  EXPECT_EQ(json["hasTelephotoCamera"], false);
  EXPECT_EQ(json["hasLidarSensor"], true);
}

TEST_F(DeviceJsonTest, UnknownHasNullPpiAndNegativeRatio) {
  const std::string text = deviceJson(Device::unknown("iPhone99,1"));
  EXPECT_NE(text.find(R"("cpu":"unknown","diagonal":-1,"ppi":null,"screenRatio":[-1,-1],)"
                      R"("cameras":[],"applePencilSupport":0,)"),
            std::string::npos)
      << text;
}

TEST_F(DeviceJsonTest, UnknownCurrentDeviceIsAPhoneWhenThePlatformSaysSo) {
  Device::setIdentifier("iPhone99,1");
  fakes.device.idiom = platform::InterfaceIdiom::phone;
  EXPECT_EQ(parsed(Device::current())["isPhone"], true);
  EXPECT_EQ(parsed(Device::unknown("iPhone98,1"))["isPhone"], false);
}

TEST_F(DeviceJsonTest, IdentifierTextIsEscaped) {
  const auto json = parsed(Device::unknown("a\"b/c\\d\n"));
  EXPECT_EQ(json["description"], "a\"b/c\\d\n");
  EXPECT_NE(deviceJson(Device::unknown("a/b")).find(R"("description":"a\/b")"), std::string::npos);
}

}  // namespace
}  // namespace device_test
