// send-report, device-info, device: reporting and the device facts it carries.
#include "DeviceCatalog/Device.h"
#include "DeviceJson.h"
#include "HostFormat.h"
#include "HostSession.h"
#include "platform/Console.h"
#include "zelnora_core/ZAReportHelper.h"

namespace zelnora_host {
namespace {

using zelnora_core::ZAReportHelper;

std::optional<std::string> sendReport(HostSession&, const Words& words) {
  return runParsed(parseSendReport(words), [](const SendReportArguments& arguments) {
    ZAReportHelper::sendReport(arguments.event, arguments.campaignUuid, arguments.userKeyType);
  });
}

std::optional<std::string> deviceInfo(HostSession&, const Words& words) {
  return runParsed(parseNoArguments(words), [](bool) {
    platform::printLine("host: device-info " + stringMapJson(ZAReportHelper::getDeviceInfoMap()));
  });
}

std::optional<std::string> device(HostSession&, const Words& words) {
  return runParsed(parseDevice(words), [](const std::optional<std::string>& identifier) {
    using DeviceCatalog::Device;
    Device chosen = identifier ? Device::mapToDevice(*identifier) : Device::current();
    platform::printLine("host: device " + deviceJson(chosen));
  });
}

}  // namespace

void addReportCommands(CommandTable& table) {
  table["send-report"] = {sendReport, "[event=E] [campaign=C] [type=T]",
                          "sends one report (\"event=\" sends an empty event)"};
  table["device-info"] = {deviceInfo, "",
                          "prints \"host: device-info {...}\": the report's device map"};
  table["device"] = {device, "[IDENTIFIER]",
                     "prints \"host: device {...}\": the model facts of an identifier or of this "
                     "machine"};
}

}  // namespace zelnora_host
