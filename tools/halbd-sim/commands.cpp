#include "commands.h"

#include <algorithm>
#include <cstdio>
#include <iomanip>
#include <sstream>

#include "line_reader.h"
#include "rule_syntax.h"

namespace halbdsim {

namespace {

std::vector<Command> ShellCommands() {
  return {
      {"help", "", "list the commands",
       [](const Session&, Arguments& args) -> Action {
         args.ExpectEnd();
         return [](Session& session) { PrintHelp(session.Out()); };
       }},
      {"quit", "", "stop reading the scenario",
       [](const Session&, Arguments& args) -> Action {
         args.ExpectEnd();
         return [](Session& session) { session.RequestQuit(); };
       }},
  };
}

std::vector<std::string> NameWords(const std::string& name) {
  std::istringstream stream(name);
  std::vector<std::string> words;
  for (std::string word; stream >> word;)
    words.push_back(word);
  return words;
}

bool StartsWith(const std::vector<std::string>& words, const std::vector<std::string>& prefix) {
  return words.size() >= prefix.size() && std::equal(prefix.begin(), prefix.end(), words.begin());
}

// For "show" without a known table: the tables it takes.
std::vector<std::string> SecondWordsOf(const std::string& first) {
  std::vector<std::string> seconds;
  for (const Command& command : AllCommands()) {
    const std::vector<std::string> words = NameWords(command.name);
    if (words.size() == 2 && words[0] == first)
      seconds.push_back(words[1]);
  }
  return seconds;
}

}  // namespace

const std::vector<Command>& AllCommands() {
  static const std::vector<Command> commands = [] {
    std::vector<Command> all;
    for (auto area : {SetupCommands, PortCommands, DomainCommands, EventCommands, ShowCommands,
                      FrameCommands, ShellCommands}) {
      for (Command& command : area())
        all.push_back(std::move(command));
    }
    return all;
  }();
  return commands;
}

Action PrepareLine(const Session& session, const std::vector<std::string>& words) {
  for (const Command& command : AllCommands()) {
    const std::vector<std::string> name = NameWords(command.name);
    if (!StartsWith(words, name))
      continue;
    Arguments args(std::vector<std::string>(words.begin() + name.size(), words.end()));
    return command.prepare(session, args);
  }
  const std::vector<std::string> seconds = SecondWordsOf(words[0]);
  if (!seconds.empty()) {
    std::string list;
    for (const std::string& second : seconds)
      list += (list.empty() ? "" : ", ") + second;
    throw ScenarioError(words[0] + " needs one of: " + list);
  }
  throw ScenarioError("unknown command '" + words[0] + "' (help lists the commands)");
}

void PrintHelp(std::ostream& out) {
  std::vector<std::pair<std::string, std::string>> lines;
  size_t width = 0;
  for (const Command& command : AllCommands()) {
    std::string usage = command.name;
    if (!command.synopsis.empty())
      usage += " " + command.synopsis;
    width = std::max(width, usage.size());
    lines.emplace_back(usage, command.summary);
  }
  for (const auto& [usage, summary] : lines) {
    out << std::left << std::setw(static_cast<int>(width) + 2) << usage << summary << '\n';
  }
  out << "NAMES: eth<slot>/<port>, lag<n>, vlan<n>; numbers decimal or 0x hex; '#' starts a "
         "comment\n"
      << kRuleSyntaxHelp << '\n'
      << kFrameSyntaxHelp << '\n';
}

Action Operation(std::function<Session::Outcome(Session&)> operation) {
  return
      [operation](Session& session) { session.RunOperation([&] { return operation(session); }); };
}

Session::Outcome Result(int rc) {
  return {"result: " + std::to_string(rc)};
}

Session::Outcome AnswerLines(const std::vector<sim::LagOrchestratorSim::Answer>& answers) {
  Session::Outcome lines;
  for (const auto& answer : answers) {
    lines.push_back("answer " + std::to_string(answer.priority) + " " + answer.name + ": " +
                    (answer.handled ? "true" : "false"));
  }
  return lines;
}

std::string Hex(unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", value);
  return text;
}

}  // namespace halbdsim
