// initialize, wait, pause, state, set-user-id, set-custom-headers, request-permission,
// delete-config, remove-custom-headers: the manager's operations and the store's static ones.
#include <thread>

#include "HostFormat.h"
#include "HostSession.h"
#include "platform/Console.h"
#include "platform/Services.h"
#include "zelnora_core/ZAManager.h"
#include "zelnora_core/ZAPreferencesUtil.h"
#include "zelnora_core/ZAReportOutbox.h"

namespace zelnora_host {
namespace {

using zelnora_core::ZAManager;
using zelnora_core::ZAPreferencesUtil;

std::optional<std::string> initialize(HostSession&, const Words& words) {
  return runParsed(parseInitialize(words), [](const InitializeArguments& arguments) {
    ZAManager::sharedInstance().initialize(arguments.appKey, arguments.debugMode,
                                           [] { platform::printLine("host: callback"); });
  });
}

std::optional<std::string> wait(HostSession&, const Words& words) {
  return runParsed(parseWait(words), [](std::chrono::milliseconds limit) {
    platform::urlSession().waitUntilIdle(limit);
    // Durable reports kept by those exchanges are delivered by the kit's worker: wait for it too.
    zelnora_core::ZAReportOutbox::waitUntilSettled(limit);
  });
}

// A quiet spell on the network, such as a real app has between bursts (peers retire idle
// connections in the meantime).
std::optional<std::string> pause(HostSession&, const Words& words) {
  if (words.size() != 1) return "usage: pause SECONDS";
  return runParsed(parseWait(words),
                   [](std::chrono::milliseconds spell) { std::this_thread::sleep_for(spell); });
}

std::optional<std::string> state(HostSession&, const Words& words) {
  return runParsed(parseNoArguments(words), [](bool) {
    ZAManager& manager = ZAManager::sharedInstance();
    platform::printLine(
        stateLine(manager.isInitialized(), manager.isDebugMode(), manager.isDisabled()));
  });
}

std::optional<std::string> setUserId(HostSession&, const Words& words) {
  return runParsed(parseSetUserId(words), [](const std::string& userId) {
    ZAManager::sharedInstance().setUserId(userId);
  });
}

std::optional<std::string> setCustomHeaders(HostSession&, const Words& words) {
  return runParsed(parseCustomHeaders(words),
                   [](const std::map<std::string, std::string>& headers) {
                     ZAManager::sharedInstance().setCustomHeaders(headers);
                   });
}

// A command without arguments that runs `action`.
CommandHandler plainCommand(void (*action)()) {
  return [action](HostSession&, const Words& words) {
    return runParsed(parseNoArguments(words), [action](bool) { action(); });
  };
}

}  // namespace

void addLifecycleCommands(CommandTable& table) {
  table["initialize"] = {
      initialize, "KEY [debug=true|false]",
      "starts the kit; prints \"host: callback\" when its start-up callback runs"};
  table["wait"] = {wait, "[SECONDS]",
                   "waits for every exchange started so far and any delivery it set off "
                   "(default 10 s)"};
  table["pause"] = {pause, "SECONDS",
                    "does nothing for that long, as an app between bursts (peers may retire idle "
                    "connections meanwhile)"};
  table["state"] = {state, "", "prints \"host: state initialized=... debug=... disabled=...\""};
  table["set-user-id"] = {setUserId, "ID", "stores the user id (the manager's operation)"};
  table["set-custom-headers"] = {setCustomHeaders, "[NAME=VALUE ...]",
                                 "replaces the custom headers sent with every request"};
  table["request-permission"] = {
      plainCommand([] { ZAManager::sharedInstance().requestPermission(); }), "",
      "asks for location authorisation (the manager's requestPermission)"};
  table["delete-config"] = {plainCommand([] { ZAPreferencesUtil::deleteConfig(); }), "",
                            "removes the stored configuration"};
  table["remove-custom-headers"] = {plainCommand([] { ZAPreferencesUtil::removeCustomHeaders(); }),
                                    "", "removes the stored custom headers"};
}

}  // namespace zelnora_host
