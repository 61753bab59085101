// One run of the host stand-in: the command table and the dispatch of command lines to it.
#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "CommandLine.h"

namespace zelnora_host {

class HostSession;

// Runs one command with its words (the command name removed). Returns the usage error when the
// words do not parse; the command then did nothing.
using CommandHandler = std::function<std::optional<std::string>(HostSession&, const Words&)>;
// A command as the table holds it: what runs, and the words and sentence its help shows.
struct Command {
  CommandHandler run;
  std::string_view arguments;  // after the name, e.g. "KEY [debug=true|false]"
  std::string summary;
};
using CommandTable = std::map<std::string, Command, std::less<>>;

// The program's usage, its options and the command table, as `--help` prints them; one entry of
// the table ("  NAME ARGUMENTS" and an indented summary line).
std::string hostUsage(const CommandTable& table);
std::string commandHelp(const CommandTable::value_type& entry);

// The command groups, one file each.
void addLifecycleCommands(CommandTable& table);   // initialize, wait, state, set-user-id, ...
void addPreferenceCommands(CommandTable& table);  // set-pref, remove-pref, prefs
void addReportCommands(CommandTable& table);      // send-report, device-info, device
void addRequestCommand(CommandTable& table);      // request
void addDemoCommand(CommandTable& table);         // demo
void addOutboxCommands(CommandTable& table);      // durable-reports, outbox, flush-outbox

// Runs a handler's action on successfully parsed arguments, or hands back the parse error.
template <typename T, typename Action>
std::optional<std::string> runParsed(const Parsed<T>& parsed, Action&& action) {
  if (!parsed) return parsed.error;
  action(*parsed);
  return std::nullopt;
}

class HostSession {
 public:
  HostSession();

  // Runs one command line. Blank lines and lines starting with "#" do nothing. False (after a
  // "host: error ..." line) when the line is not a known command with well-formed arguments.
  bool run(std::string_view line);

  const CommandTable& commands() const { return table_; }

  // True once any command line failed to parse.
  bool anyFailed() const { return anyFailed_; }
  // How many command lines ran successfully so far (the demo must come first).
  int commandsRun() const { return commandsRun_; }

 private:
  CommandTable table_;
  bool anyFailed_ = false;
  int commandsRun_ = 0;
};

}  // namespace zelnora_host
