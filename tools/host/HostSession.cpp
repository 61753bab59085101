#include "HostSession.h"

#include <string>

#include "platform/Console.h"

namespace zelnora_host {
namespace {

std::string commandList(const CommandTable& table) {
  std::string names;
  for (const auto& [name, handler] : table) names += (names.empty() ? "" : ", ") + name;
  return names;
}

// `help` prints the whole usage; `help COMMAND` that command's entry.
std::optional<std::string> help(HostSession& session, const Words& words) {
  const auto named =
      words.size() == 1 ? session.commands().find(words[0]) : session.commands().end();
  if (!words.empty() && named == session.commands().end()) return "usage: help [COMMAND]";
  std::string text = words.empty() ? hostUsage(session.commands()) : commandHelp(*named);
  for (std::size_t start = 0, end = 0; start < text.size(); start = end + 1) {
    end = text.find('\n', start);
    platform::printLine("host: " + text.substr(start, end - start));
  }
  return std::nullopt;
}

}  // namespace

std::string commandHelp(const CommandTable::value_type& entry) {
  const auto& [name, command] = entry;
  return "  " + name + (command.arguments.empty() ? "" : " ") + std::string(command.arguments) +
         "\n      " + command.summary + "\n";
}

std::string hostUsage(const CommandTable& table) {
  std::string text =
      "usage: zelnora-host [--bundle DIR] [COMMAND ...]\n"
      "Plays the host application of the kit. Each argument is one whole command line (quote it);\n"
      "without commands it reads them from standard input, one per line. Lines it prints itself\n"
      "start with \"host: \"; everything else is the kit's own output.\n"
      "options:\n"
      "  --bundle DIR\n      the main bundle's directory (ZelnoraAdsConfig.plist, Info.plist)\n"
      "  -h, --help\n      this help\n"
      "commands:\n";
  for (const auto& entry : table) text += commandHelp(entry);
  return text;
}

HostSession::HostSession() {
  addLifecycleCommands(table_);
  addPreferenceCommands(table_);
  addReportCommands(table_);
  addRequestCommand(table_);
  addDemoCommand(table_);
  addOutboxCommands(table_);
  table_["help"] = {help, "[COMMAND]",
                    "lists the commands, or tells one (also zelnora-host --help)"};
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
    error = command->second.run(*this, arguments);
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
