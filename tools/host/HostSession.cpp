#include "HostSession.h"

#include "platform/Console.h"

namespace zelnora_host {
namespace {

std::string commandList(const CommandTable& table) {
  std::string names;
  for (const auto& [name, handler] : table) names += (names.empty() ? "" : ", ") + name;
  return names;
}

}  // namespace

HostSession::HostSession() {
  addLifecycleCommands(table_);
  addPreferenceCommands(table_);
  addReportCommands(table_);
  addRequestCommand(table_);
  addDemoCommand(table_);
  addOutboxCommands(table_);
}

bool HostSession::run(std::string_view line) {
  auto words = splitCommandLine(line);
  if (words && (words->empty() || words->front().starts_with("#"))) return true;
  std::optional<std::string> error;
  if (!words) {
    error = words.error;
  } else if (auto command = table_.find(words->front()); command == table_.end()) {
    error = "unknown command \"" + words->front() + "\"; commands: " + commandList(table_);
  } else {
    Words arguments(words->begin() + 1, words->end());
    error = command->second(*this, arguments);
  }
  if (error) {
    platform::printLine("host: error " + *error);
    anyFailed_ = true;
    return false;
  }
  ++commandsRun_;
  return true;
}

}  // namespace zelnora_host
