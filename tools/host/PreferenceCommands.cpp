// set-pref, remove-pref, prefs: the application-group suite read and written directly, as another
// component or the notification service extension would.
#include <memory>

#include "HostFormat.h"
#include "HostSession.h"
#include "platform/Console.h"
#include "platform/Services.h"
#include "zelnora_core/ZAPreferencesUtil.h"

namespace zelnora_host {
namespace {

std::shared_ptr<platform::UserDefaultsSuite> openSuite() {
  auto suite = platform::userDefaults().suite(zelnora_core::ZAPreferencesUtil::appGroupSuiteName());
  if (!suite) platform::printLine("host: error the application-group suite cannot be opened");
  return suite;
}

platform::PropertyValue valueOf(const SetPrefArguments& arguments) {
  switch (arguments.type) {
    case PrefType::data: return platform::toBytes(arguments.text);
    case PrefType::dictionary: return platform::makeStringDictionary(arguments.dictionary);
    case PrefType::string: break;
  }
  return arguments.text;
}

std::optional<std::string> setPref(HostSession&, const Words& words) {
  return runParsed(parseSetPref(words), [](const SetPrefArguments& arguments) {
    if (auto suite = openSuite()) suite->set(arguments.key, valueOf(arguments));
  });
}

std::optional<std::string> removePref(HostSession&, const Words& words) {
  return runParsed(parseRemovePref(words), [](const std::string& key) {
    if (auto suite = openSuite()) suite->remove(key);
  });
}

std::optional<std::string> prefs(HostSession&, const Words& words) {
  return runParsed(parseNoArguments(words), [](bool) {
    auto suite = openSuite();
    if (!suite) return;
    for (const auto& [key, value] : suite->dictionaryRepresentation()) {
      platform::printLine(prefLine(key, value));
    }
  });
}

}  // namespace

void addPreferenceCommands(CommandTable& table) {
  table["set-pref"] = {setPref, "KEY data|string|dictionary VALUE",
                       "writes one suite entry as the extension would (dictionary: a JSON "
                       "object of strings)"};
  table["remove-pref"] = {removePref, "KEY", "removes one suite entry"};
  table["prefs"] = {prefs, "", "prints \"host: pref KEY TYPE VALUE\" per entry, sorted by key"};
}

}  // namespace zelnora_host
