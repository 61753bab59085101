// The catalog's model table: one row per model case, in model-case order, with the machine
// identifiers, both names and the fixed facts and group memberships of the model.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>

#include "DeviceCatalog/Device.h"

namespace DeviceCatalog::detail {

enum class Family : std::uint8_t { pod, phone, pad, accessory };
inline constexpr Family kPod = Family::pod;
inline constexpr Family kPhone = Family::phone;
inline constexpr Family kPad = Family::pad;
inline constexpr Family kAccessory = Family::accessory;

// Camera bits.
using Cameras = std::uint8_t;
inline constexpr Cameras kNoCamera = 0;
inline constexpr Cameras kWide = 1 << 0;
inline constexpr Cameras kTelephoto = 1 << 1;
inline constexpr Cameras kUltraWide = 1 << 2;

inline constexpr ApplePencilSupport::RawValue kNoPencil = 0;
inline constexpr ApplePencilSupport::RawValue kFirstGeneration =
    ApplePencilSupport::firstGeneration.rawValue();
inline constexpr ApplePencilSupport::RawValue kSecondGeneration =
    ApplePencilSupport::secondGeneration.rawValue();

// Membership bits of the feature groups that are not derived from another column.
using Features = std::uint16_t;
inline constexpr Features kNoFeatures = 0;
inline constexpr Features kXSeries = 1 << 0;
inline constexpr Features kPlusSized = 1 << 1;
inline constexpr Features kPro = 1 << 2;
inline constexpr Features kMini = 1 << 3;
inline constexpr Features kSensorHousing = 1 << 4;
inline constexpr Features kTouchID = 1 << 5;
inline constexpr Features kFaceID = 1 << 6;
inline constexpr Features kRoundedCorners = 1 << 7;
inline constexpr Features k3dTouch = 1 << 8;
inline constexpr Features kWirelessCharging = 1 << 9;
inline constexpr Features kLidar = 1 << 10;

inline constexpr std::size_t kMaxIdentifiersPerModel = 4;

// A model's machine identifiers, unused places empty. The constructor sets every place itself
// (an aggregate would leave the unused ones implicit, which g++ 12 mishandles in constant data).
struct IdentifierList {
  constexpr IdentifierList(std::string_view first, std::string_view second = {},
                           std::string_view third = {}, std::string_view fourth = {})
      : places{first, second, third, fourth} {}
  std::array<std::string_view, kMaxIdentifiersPerModel> places;
};

struct ModelRow {
  Device::Model model;
  IdentifierList identifiers;
  std::string_view description;
  std::string_view safeDescription;
  Family family;
  CPU::Value cpu;
  double diagonal;  // inches; -1 without a screen
  Device::ScreenRatio screenRatio;
  int ppi;  // -1 without a screen
  Cameras cameras;
  ApplePencilSupport::RawValue applePencilSupport;
  Features features;
};

using Model = Device::Model;

// clang-format off
inline constexpr std::array<ModelRow, Device::kModelCount> kModelTable = {{
    {Model::iPodTouch5, {"iPod5,1"},
     "iPod touch (5th generation)", "iPod touch (5th generation)",
     kPod, CPU::a5, 4, {9, 16}, 326, kWide, kNoPencil,
     kNoFeatures},
    {Model::iPodTouch6, {"iPod7,1"},
     "iPod touch (6th generation)", "iPod touch (6th generation)",
     kPod, CPU::a8, 4, {9, 16}, 326, kWide, kNoPencil,
     kNoFeatures},
    {Model::iPodTouch7, {"iPod9,1"},
     "iPod touch (7th generation)", "iPod touch (7th generation)",
     kPod, CPU::a10Fusion, 4, {9, 16}, 326, kWide, kNoPencil,
     kNoFeatures},
    {Model::iPhone4, {"iPhone3,1", "iPhone3,2", "iPhone3,3"},
     "iPhone 4", "iPhone 4",
     kPhone, CPU::a4, 3.5, {2, 3}, 326, kWide, kNoPencil,
     kNoFeatures},
    {Model::iPhone4s, {"iPhone4,1"},
     "iPhone 4s", "iPhone 4s",
     kPhone, CPU::a5, 3.5, {2, 3}, 326, kWide, kNoPencil,
     kNoFeatures},
    {Model::iPhone5, {"iPhone5,1", "iPhone5,2"},
     "iPhone 5", "iPhone 5",
     kPhone, CPU::a6, 4, {9, 16}, 326, kWide, kNoPencil,
     kNoFeatures},
    {Model::iPhone5c, {"iPhone5,3", "iPhone5,4"},
     "iPhone 5c", "iPhone 5c",
     kPhone, CPU::a6, 4, {9, 16}, 326, kWide, kNoPencil,
     kNoFeatures},
    {Model::iPhone5s, {"iPhone6,1", "iPhone6,2"},
     "iPhone 5s", "iPhone 5s",
     kPhone, CPU::a7, 4, {9, 16}, 326, kWide, kNoPencil,
     kTouchID},
    {Model::iPhone6, {"iPhone7,2"},
     "iPhone 6", "iPhone 6",
     kPhone, CPU::a8, 4.7, {9, 16}, 326, kWide, kNoPencil,
     kTouchID},
    {Model::iPhone6Plus, {"iPhone7,1"},
     "iPhone 6 Plus", "iPhone 6 Plus",
     kPhone, CPU::a8, 5.5, {9, 16}, 401, kWide, kNoPencil,
     kPlusSized | kTouchID},
    {Model::iPhone6s, {"iPhone8,1"},
     "iPhone 6s", "iPhone 6s",
     kPhone, CPU::a9, 4.7, {9, 16}, 326, kWide, kNoPencil,
     kTouchID | k3dTouch},
    {Model::iPhone6sPlus, {"iPhone8,2"},
     "iPhone 6s Plus", "iPhone 6s Plus",
     kPhone, CPU::a9, 5.5, {9, 16}, 401, kWide, kNoPencil,
     kPlusSized | kTouchID | k3dTouch},
    {Model::iPhone7, {"iPhone9,1", "iPhone9,3"},
     "iPhone 7", "iPhone 7",
     kPhone, CPU::a10Fusion, 4.7, {9, 16}, 326, kWide, kNoPencil,
     kTouchID | k3dTouch},
    {Model::iPhone7Plus, {"iPhone9,2", "iPhone9,4"},
     "iPhone 7 Plus", "iPhone 7 Plus",
     kPhone, CPU::a10Fusion, 5.5, {9, 16}, 401, kWide | kTelephoto, kNoPencil,
     kPlusSized | kTouchID | k3dTouch},
    {Model::iPhoneSE, {"iPhone8,4"},
     "iPhone SE", "iPhone SE",
     kPhone, CPU::a9, 4, {9, 16}, 326, kWide, kNoPencil,
     kTouchID},
    {Model::iPhone8, {"iPhone10,1", "iPhone10,4"},
     "iPhone 8", "iPhone 8",
     kPhone, CPU::a11Bionic, 4.7, {9, 16}, 326, kWide, kNoPencil,
     kTouchID | k3dTouch | kWirelessCharging},
    {Model::iPhone8Plus, {"iPhone10,2", "iPhone10,5"},
     "iPhone 8 Plus", "iPhone 8 Plus",
     kPhone, CPU::a11Bionic, 5.5, {9, 16}, 401, kWide | kTelephoto, kNoPencil,
     kPlusSized | kTouchID | k3dTouch | kWirelessCharging},
    {Model::iPhoneX, {"iPhone10,3", "iPhone10,6"},
     "iPhone X", "iPhone X",
     kPhone, CPU::a11Bionic, 5.8, {9, 19.5}, 458, kWide | kTelephoto, kNoPencil,
     kXSeries | kSensorHousing | kFaceID | kRoundedCorners | k3dTouch | kWirelessCharging},
    {Model::iPhoneXS, {"iPhone11,2"},
     "iPhone Xs", "iPhone XS",
     kPhone, CPU::a12Bionic, 5.8, {9, 19.5}, 458, kWide | kTelephoto, kNoPencil,
     kXSeries | kSensorHousing | kFaceID | kRoundedCorners | k3dTouch | kWirelessCharging},
    {Model::iPhoneXSMax, {"iPhone11,4", "iPhone11,6"},
     "iPhone Xs Max", "iPhone XS Max",
     kPhone, CPU::a12Bionic, 6.5, {9, 19.5}, 458, kWide | kTelephoto, kNoPencil,
     kXSeries | kPlusSized | kSensorHousing | kFaceID | kRoundedCorners | k3dTouch |
     kWirelessCharging},
    {Model::iPhoneXR, {"iPhone11,8"},
     "iPhone Xʀ", "iPhone XR",
     kPhone, CPU::a12Bionic, 6.1, {9, 19.5}, 326, kWide, kNoPencil,
     kXSeries | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging},
    {Model::iPhone11, {"iPhone12,1"},
     "iPhone 11", "iPhone 11",
     kPhone, CPU::a13Bionic, 6.1, {9, 19.5}, 326, kWide | kUltraWide, kNoPencil,
     kXSeries | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging},
    {Model::iPhone11Pro, {"iPhone12,3"},
     "iPhone 11 Pro", "iPhone 11 Pro",
     kPhone, CPU::a13Bionic, 5.8, {9, 19.5}, 458, kWide | kTelephoto | kUltraWide, kNoPencil,
     kXSeries | kPro | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging},
    {Model::iPhone11ProMax, {"iPhone12,5"},
     "iPhone 11 Pro Max", "iPhone 11 Pro Max",
     kPhone, CPU::a13Bionic, 6.5, {9, 19.5}, 458, kWide | kTelephoto | kUltraWide, kNoPencil,
     kXSeries | kPlusSized | kPro | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging},
    {Model::iPhoneSE2, {"iPhone12,8"},
     "iPhone SE (2nd generation)", "iPhone SE (2nd generation)",
     kPhone, CPU::a13Bionic, 4.7, {9, 16}, 326, kWide, kNoPencil,
     kTouchID | kWirelessCharging},
    {Model::iPhone12, {"iPhone13,2"},
     "iPhone 12", "iPhone 12",
     kPhone, CPU::a14Bionic, 6.1, {9, 19.5}, 460, kWide | kUltraWide, kNoPencil,
     kXSeries | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging},
    {Model::iPhone12Mini, {"iPhone13,1"},
     "iPhone 12 mini", "iPhone 12 mini",
     kPhone, CPU::a14Bionic, 5.4, {9, 19.5}, 476, kWide | kUltraWide, kNoPencil,
     kXSeries | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging},
    {Model::iPhone12Pro, {"iPhone13,3"},
     "iPhone 12 Pro", "iPhone 12 Pro",
     kPhone, CPU::a14Bionic, 6.1, {9, 19.5}, 460, kWide | kTelephoto | kUltraWide, kNoPencil,
     kXSeries | kPro | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging | kLidar},
    {Model::iPhone12ProMax, {"iPhone13,4"},
     "iPhone 12 Pro Max", "iPhone 12 Pro Max",
     kPhone, CPU::a14Bionic, 6.7, {9, 19.5}, 458, kWide | kTelephoto | kUltraWide, kNoPencil,
     kXSeries | kPlusSized | kPro | kSensorHousing | kFaceID | kRoundedCorners |
     kWirelessCharging | kLidar},
    {Model::iPhone13, {"iPhone14,5"},
     "iPhone 13", "iPhone 13",
     kPhone, CPU::a15Bionic, 6.1, {9, 19.5}, 460, kWide | kUltraWide, kNoPencil,
     kXSeries | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging},
    {Model::iPhone13Mini, {"iPhone14,4"},
     "iPhone 13 mini", "iPhone 13 mini",
     kPhone, CPU::a15Bionic, 5.4, {9, 19.5}, 476, kWide | kUltraWide, kNoPencil,
     kXSeries | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging},
    {Model::iPhone13Pro, {"iPhone14,2"},
     "iPhone 13 Pro", "iPhone 13 Pro",
     kPhone, CPU::a15Bionic, 6.1, {9, 19.5}, 460, kWide | kTelephoto | kUltraWide, kNoPencil,
     kXSeries | kPro | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging | kLidar},
    {Model::iPhone13ProMax, {"iPhone14,3"},
     "iPhone 13 Pro Max", "iPhone 13 Pro Max",
     kPhone, CPU::a15Bionic, 6.7, {9, 19.5}, 458, kWide | kTelephoto | kUltraWide, kNoPencil,
     kXSeries | kPlusSized | kPro | kSensorHousing | kFaceID | kRoundedCorners |
     kWirelessCharging | kLidar},
    {Model::iPhoneSE3, {"iPhone14,6"},
     "iPhone SE (3rd generation)", "iPhone SE (3rd generation)",
     kPhone, CPU::a15Bionic, 4.7, {9, 16}, 326, kWide, kNoPencil,
     kTouchID | kWirelessCharging},
    {Model::iPhone14, {"iPhone14,7"},
     "iPhone 14", "iPhone 14",
     kPhone, CPU::a15Bionic, 6.1, {9, 19.5}, 460, kWide | kUltraWide, kNoPencil,
     kXSeries | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging},
    {Model::iPhone14Plus, {"iPhone14,8"},
     "iPhone 14 Plus", "iPhone 14 Plus",
     kPhone, CPU::a15Bionic, 6.7, {9, 19.5}, 476, kWide | kUltraWide, kNoPencil,
     kXSeries | kPlusSized | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging},
    {Model::iPhone14Pro, {"iPhone15,2"},
     "iPhone 14 Pro", "iPhone 14 Pro",
     kPhone, CPU::a16Bionic, 6.1, {9, 19.5}, 460, kWide | kTelephoto | kUltraWide, kNoPencil,
     kXSeries | kPro | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging | kLidar},
    {Model::iPhone14ProMax, {"iPhone15,3"},
     "iPhone 14 Pro Max", "iPhone 14 Pro Max",
     kPhone, CPU::a16Bionic, 6.7, {9, 19.5}, 458, kWide | kTelephoto | kUltraWide, kNoPencil,
     kXSeries | kPlusSized | kPro | kSensorHousing | kFaceID | kRoundedCorners |
     kWirelessCharging | kLidar},
    {Model::iPhone15, {"iPhone15,4"},
     "iPhone 15", "iPhone 15",
     kPhone, CPU::a16Bionic, 6.1, {9, 19.5}, 460, kWide | kUltraWide, kNoPencil,
     kXSeries | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging},
    {Model::iPhone15Plus, {"iPhone15,5"},
     "iPhone 15 Plus", "iPhone 15 Plus",
     kPhone, CPU::a16Bionic, 6.7, {9, 19.5}, 476, kWide | kUltraWide, kNoPencil,
     kXSeries | kPlusSized | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging},
    {Model::iPhone15Pro, {"iPhone16,1"},
     "iPhone 15 Pro", "iPhone 15 Pro",
     kPhone, CPU::a17Pro, 6.1, {9, 19.5}, 460, kWide | kTelephoto | kUltraWide, kNoPencil,
     kXSeries | kPro | kSensorHousing | kFaceID | kRoundedCorners | kWirelessCharging | kLidar},
    {Model::iPhone15ProMax, {"iPhone16,2"},
     "iPhone 15 Pro Max", "iPhone 15 Pro Max",
     kPhone, CPU::a17Pro, 6.7, {9, 19.5}, 460, kWide | kTelephoto | kUltraWide, kNoPencil,
     kXSeries | kPlusSized | kPro | kSensorHousing | kFaceID | kRoundedCorners |
     kWirelessCharging | kLidar},
    {Model::iPad2, {"iPad2,1", "iPad2,2", "iPad2,3", "iPad2,4"},
     "iPad 2", "iPad 2",
     kPad, CPU::a5, 9.7, {3, 4}, 132, kWide, kNoPencil,
     kNoFeatures},
    {Model::iPad3, {"iPad3,1", "iPad3,2", "iPad3,3"},
     "iPad (3rd generation)", "iPad (3rd generation)",
     kPad, CPU::a5X, 9.7, {3, 4}, 264, kWide, kNoPencil,
     kNoFeatures},
    {Model::iPad4, {"iPad3,4", "iPad3,5", "iPad3,6"},
     "iPad (4th generation)", "iPad (4th generation)",
     kPad, CPU::a6X, 9.7, {3, 4}, 264, kWide, kNoPencil,
     kNoFeatures},
    {Model::iPadAir, {"iPad4,1", "iPad4,2", "iPad4,3"},
     "iPad Air", "iPad Air",
     kPad, CPU::a7, 9.7, {3, 4}, 264, kWide, kNoPencil,
     kNoFeatures},
    {Model::iPadAir2, {"iPad5,3", "iPad5,4"},
     "iPad Air 2", "iPad Air 2",
     kPad, CPU::a8X, 9.7, {3, 4}, 264, kWide, kNoPencil,
     kTouchID},
    {Model::iPad5, {"iPad6,11", "iPad6,12"},
     "iPad (5th generation)", "iPad (5th generation)",
     kPad, CPU::a9, 9.7, {3, 4}, 264, kWide, kNoPencil,
     kTouchID},
    {Model::iPad6, {"iPad7,5", "iPad7,6"},
     "iPad (6th generation)", "iPad (6th generation)",
     kPad, CPU::a10Fusion, 9.7, {3, 4}, 264, kWide, kFirstGeneration,
     kTouchID},
    {Model::iPadAir3, {"iPad11,3", "iPad11,4"},
     "iPad Air (3rd generation)", "iPad Air (3rd generation)",
     kPad, CPU::a12Bionic, 10.5, {3, 4}, 264, kWide, kFirstGeneration,
     kTouchID},
    {Model::iPad7, {"iPad7,11", "iPad7,12"},
     "iPad (7th generation)", "iPad (7th generation)",
     kPad, CPU::a10Fusion, 10.2, {3, 4}, 264, kWide, kFirstGeneration,
     kTouchID},
    {Model::iPad8, {"iPad11,6", "iPad11,7"},
     "iPad (8th generation)", "iPad (8th generation)",
     kPad, CPU::a12Bionic, 10.2, {3, 4}, 264, kWide, kFirstGeneration,
     kTouchID},
    {Model::iPad9, {"iPad12,1", "iPad12,2"},
     "iPad (9th generation)", "iPad (9th generation)",
     kPad, CPU::a13Bionic, 10.2, {3, 4}, 264, kWide, kFirstGeneration,
     kTouchID},
    {Model::iPad10, {"iPad13,18", "iPad13,19"},
     "iPad (10th generation)", "iPad (10th generation)",
     kPad, CPU::a14Bionic, 10.9, {41, 59}, 264, kWide, kFirstGeneration,
     kTouchID | kRoundedCorners},
    {Model::iPadAir4, {"iPad13,1", "iPad13,2"},
     "iPad Air (4th generation)", "iPad Air (4th generation)",
     kPad, CPU::a14Bionic, 10.9, {41, 59}, 264, kWide, kSecondGeneration,
     kTouchID | kRoundedCorners},
    {Model::iPadAir5, {"iPad13,16", "iPad13,17"},
     "iPad Air (5th generation)", "iPad Air (5th generation)",
     kPad, CPU::m1, 10.9, {41, 59}, 264, kWide, kSecondGeneration,
     kTouchID | kRoundedCorners},
    {Model::iPadMini, {"iPad2,5", "iPad2,6", "iPad2,7"},
     "iPad Mini", "iPad Mini",
     kPad, CPU::a5, 7.9, {3, 4}, 163, kWide, kNoPencil,
     kMini},
    {Model::iPadMini2, {"iPad4,4", "iPad4,5", "iPad4,6"},
     "iPad Mini 2", "iPad Mini 2",
     kPad, CPU::a7, 7.9, {3, 4}, 326, kWide, kNoPencil,
     kMini},
    {Model::iPadMini3, {"iPad4,7", "iPad4,8", "iPad4,9"},
     "iPad Mini 3", "iPad Mini 3",
     kPad, CPU::a7, 7.9, {3, 4}, 326, kWide, kNoPencil,
     kMini | kTouchID},
    {Model::iPadMini4, {"iPad5,1", "iPad5,2"},
     "iPad Mini 4", "iPad Mini 4",
     kPad, CPU::a8, 7.9, {3, 4}, 326, kWide, kNoPencil,
     kMini | kTouchID},
    {Model::iPadMini5, {"iPad11,1", "iPad11,2"},
     "iPad Mini (5th generation)", "iPad Mini (5th generation)",
     kPad, CPU::a12Bionic, 7.9, {3, 4}, 326, kWide, kFirstGeneration,
     kMini | kTouchID},
    {Model::iPadMini6, {"iPad14,1", "iPad14,2"},
     "iPad Mini (6th generation)", "iPad Mini (6th generation)",
     kPad, CPU::a15Bionic, 8.3, {744, 1133}, 326, kWide, kSecondGeneration,
     kMini | kTouchID | kRoundedCorners},
    {Model::iPadPro9Inch, {"iPad6,3", "iPad6,4"},
     "iPad Pro (9.7-inch)", "iPad Pro (9.7-inch)",
     kPad, CPU::a9X, 9.7, {3, 4}, 264, kWide, kFirstGeneration,
     kPro | kTouchID},
    {Model::iPadPro12Inch, {"iPad6,7", "iPad6,8"},
     "iPad Pro (12.9-inch)", "iPad Pro (12.9-inch)",
     kPad, CPU::a9X, 12.9, {3, 4}, 264, kWide, kFirstGeneration,
     kPro | kTouchID},
    {Model::iPadPro12Inch2, {"iPad7,1", "iPad7,2"},
     "iPad Pro (12.9-inch) (2nd generation)", "iPad Pro (12.9-inch) (2nd generation)",
     kPad, CPU::a10XFusion, 12.9, {3, 4}, 264, kWide, kFirstGeneration,
     kPro | kTouchID},
    {Model::iPadPro10Inch, {"iPad7,3", "iPad7,4"},
     "iPad Pro (10.5-inch)", "iPad Pro (10.5-inch)",
     kPad, CPU::a10XFusion, 10.5, {3, 4}, 264, kWide, kFirstGeneration,
     kPro | kTouchID},
    {Model::iPadPro11Inch, {"iPad8,1", "iPad8,2", "iPad8,3", "iPad8,4"},
     "iPad Pro (11-inch)", "iPad Pro (11-inch)",
     kPad, CPU::a12XBionic, 11, {139, 199}, 264, kWide, kSecondGeneration,
     kPro | kFaceID | kRoundedCorners},
    {Model::iPadPro12Inch3, {"iPad8,5", "iPad8,6", "iPad8,7", "iPad8,8"},
     "iPad Pro (12.9-inch) (3rd generation)", "iPad Pro (12.9-inch) (3rd generation)",
     kPad, CPU::a12XBionic, 12.9, {512, 683}, 264, kWide, kSecondGeneration,
     kPro | kFaceID | kRoundedCorners},
    {Model::iPadPro11Inch2, {"iPad8,9", "iPad8,10"},
     "iPad Pro (11-inch) (2nd generation)", "iPad Pro (11-inch) (2nd generation)",
     kPad, CPU::a12ZBionic, 11, {139, 199}, 264, kWide | kUltraWide, kSecondGeneration,
     kPro | kFaceID | kRoundedCorners | kLidar},
    {Model::iPadPro12Inch4, {"iPad8,11", "iPad8,12"},
     "iPad Pro (12.9-inch) (4th generation)", "iPad Pro (12.9-inch) (4th generation)",
     kPad, CPU::a12ZBionic, 12.9, {512, 683}, 264, kWide | kUltraWide, kSecondGeneration,
     kPro | kFaceID | kRoundedCorners | kLidar},
    {Model::iPadPro11Inch3, {"iPad13,4", "iPad13,5", "iPad13,6", "iPad13,7"},
     "iPad Pro (11-inch) (3rd generation)", "iPad Pro (11-inch) (3rd generation)",
     kPad, CPU::m1, 11, {139, 199}, 264, kWide | kUltraWide, kSecondGeneration,
     kPro | kFaceID | kRoundedCorners | kLidar},
    {Model::iPadPro12Inch5, {"iPad13,8", "iPad13,9", "iPad13,10", "iPad13,11"},
     "iPad Pro (12.9-inch) (5th generation)", "iPad Pro (12.9-inch) (5th generation)",
     kPad, CPU::m1, 12.9, {512, 683}, 264, kWide | kUltraWide, kSecondGeneration,
     kPro | kFaceID | kRoundedCorners | kLidar},
    {Model::iPadPro11Inch4, {"iPad14,3", "iPad14,4"},
     "iPad Pro (11-inch) (4th generation)", "iPad Pro (11-inch) (4th generation)",
     kPad, CPU::m2, 11, {139, 199}, 264, kWide | kUltraWide, kSecondGeneration,
     kPro | kFaceID | kRoundedCorners | kLidar},
    {Model::iPadPro12Inch6, {"iPad14,5", "iPad14,6"},
     "iPad Pro (12.9-inch) (6th generation)", "iPad Pro (12.9-inch) (6th generation)",
     kPad, CPU::m2, 12.9, {512, 683}, 264, kWide | kUltraWide, kSecondGeneration,
     kPro | kFaceID | kRoundedCorners | kLidar},
    {Model::homePod, {"AudioAccessory1,1"},
     "HomePod", "HomePod",
     kAccessory, CPU::a8, -1, {4, 5}, -1, kNoCamera, kNoPencil,
     kNoFeatures},
}};
// clang-format on

constexpr const ModelRow& row(Device::Model model) {
  return kModelTable[static_cast<std::size_t>(model)];
}

}  // namespace DeviceCatalog::detail
