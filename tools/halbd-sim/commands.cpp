#include "commands.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <sstream>

#include "line_reader.h"
#include "rule_syntax.h"
#include "running_config.h"

namespace halbdsim {

namespace {

Action PrepareHelp(const Session&, Arguments& args) {
  std::vector<std::string> words;
  while (!args.Empty())
    words.push_back(args.Take("command"));
  HelpText(words, 80);  // an unknown command is a mistake of the line
  return [words](Session& session) {
    Record help("help", Role::Document);
    help.Unindented().Set("topic", words.empty() ? Json() : Json(JoinWords(words)));
    session.Emit(help.Add("text", HelpText(words, session.TerminalWidth())));
  };
}

Action PrepareQuit(const Session&, Arguments& args) {
  args.ExpectEnd();
  return [](Session& session) { session.RequestQuit(); };
}

std::vector<Command> ShellCommands() {
  return {
      {"help", "[command]", "list the commands, or explain one", PrepareHelp},
      {"exit", "", "end the session (also Ctrl-D)", PrepareQuit},
      {"quit", "", "stop reading the scenario", PrepareQuit},
      // The runner reads the file; the entry is here for help and completion.
      {"source", "<file>", "run a scenario file; its mistakes name FILE:LINE",
       [](const Session&, Arguments&) -> Action {
         throw ScenarioError("source runs only from a scenario or the shell");
       }},
  };
}

bool SameWord(const std::string& a, const std::string& b) {
  return Lower(a) == Lower(b);
}

bool StartsWith(const std::vector<std::string>& words, const std::vector<std::string>& prefix) {
  return words.size() >= prefix.size() &&
         std::equal(prefix.begin(), prefix.end(), words.begin(), SameWord);
}

// For "show" without a known table: the tables it takes.
std::vector<std::string> SecondWordsOf(const std::string& first) {
  std::vector<std::string> seconds;
  for (const Command& command : AllCommands()) {
    const std::vector<std::string> words = NameWords(command.name);
    if (words.size() == 2 && SameWord(words[0], first))
      seconds.push_back(words[1]);
  }
  return seconds;
}

// Word-wraps text into lines of at most width columns, every line after the first indented.
std::vector<std::string> Wrap(const std::string& text, size_t width, size_t indent) {
  std::vector<std::string> lines(1);
  std::istringstream stream(text);
  for (std::string word; stream >> word;) {
    const size_t room = width - (lines.size() == 1 ? 0 : indent);
    if (!lines.back().empty() && lines.back().size() + 1 + word.size() > room)
      lines.emplace_back();
    lines.back() += (lines.back().empty() ? "" : " ") + word;
  }
  return lines;
}

}  // namespace

void PrintWrapped(std::ostream& out, const std::string& head, const std::string& text,
                  size_t column, size_t width) {
  std::string first = head;
  if (first.size() + 1 > column) {
    out << head << '\n';
    first.clear();
  }
  first.resize(column, ' ');
  const std::vector<std::string> lines = Wrap(text, width > column + 20 ? width - column : 20, 0);
  for (size_t i = 0; i < lines.size(); ++i)
    out << (i == 0 ? first : std::string(column, ' ')) << lines[i] << '\n';
}

std::string Lower(const std::string& word) {
  std::string lower = word;
  std::transform(lower.begin(), lower.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return lower;
}

std::vector<std::string> NameWords(const std::string& name) {
  std::istringstream stream(name);
  std::vector<std::string> words;
  for (std::string word; stream >> word;)
    words.push_back(word);
  return words;
}

size_t EditDistance(const std::string& a, const std::string& b) {
  std::vector<size_t> row(b.size() + 1);
  for (size_t j = 0; j <= b.size(); ++j)
    row[j] = j;
  for (size_t i = 1; i <= a.size(); ++i) {
    size_t diagonal = row[0];
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const size_t above = row[j];
      row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] == b[j - 1] ? 0 : 1)});
      diagonal = above;
    }
  }
  return row[b.size()];
}

std::vector<std::string> Nearest(const std::string& word, const std::vector<std::string>& choices) {
  const std::string lower = Lower(word);
  // A typing slip is a few letters; beyond a third of the word it is another word.
  const size_t limit = std::max<size_t>(1, lower.size() / 3);
  size_t best = limit + 1;
  std::vector<std::string> nearest;
  for (const std::string& choice : choices) {
    const std::string candidate = Lower(choice);
    size_t distance = EditDistance(lower, candidate);
    // "addM" means addMember as surely as a slip of one letter does.
    if (lower.size() >= 3 && candidate.compare(0, lower.size(), lower) == 0)
      distance = 1;
    if (distance < best)
      nearest.clear(), best = distance;
    if (distance == best && std::find(nearest.begin(), nearest.end(), choice) == nearest.end())
      nearest.push_back(choice);
  }
  if (nearest.size() > 3)
    nearest.resize(3);
  return nearest;
}

std::vector<std::string> CommandWords() {
  std::vector<std::string> firsts;
  for (const Command& command : AllCommands()) {
    const std::string first = NameWords(command.name)[0];
    if (std::find(firsts.begin(), firsts.end(), first) == firsts.end())
      firsts.push_back(first);
  }
  return firsts;
}

const Command& FindCommand(const std::vector<std::string>& words, bool wholeName) {
  for (const Command& command : AllCommands()) {
    const std::vector<std::string> name = NameWords(command.name);
    if (StartsWith(words, name) && (!wholeName || words.size() == name.size()))
      return command;
  }
  const std::vector<std::string> seconds = SecondWordsOf(words[0]);
  if (!seconds.empty()) {
    std::string list;
    for (const std::string& second : seconds)
      list += (list.empty() ? "" : ", ") + second;
    const std::vector<std::string> near =
        words.size() > 1 ? Nearest(words[1], seconds) : std::vector<std::string>{};
    throw ScenarioError(Lower(words[0]) + " needs one of: " + list +
                        (near.empty() ? "" : " (did you mean " + OrList(near) + "?)"));
  }
  const std::vector<std::string> near = Nearest(words[0], CommandWords());
  if (!near.empty()) {
    throw ScenarioError("unknown command '" + words[0] + "': did you mean " + OrList(near) + "?");
  }
  throw ScenarioError("unknown command '" + words[0] + "' (help lists the commands)");
}

const std::vector<Command>& AllCommands() {
  static const std::vector<Command> commands = [] {
    std::vector<Command> all;
    for (auto area : {SetupCommands, PortCommands, DomainCommands, EventCommands, ShowCommands,
                      ConfigCommands, FrameCommands, FdbCommands, CounterCommands, LiveCommands,
                      ExpectCommands, ShellCommands}) {
      for (Command& command : area())
        all.push_back(std::move(command));
    }
    return all;
  }();
  return commands;
}

namespace {

// The VLAN of one line of an expanded range: "vlan 11" or "addMember vlan11 ...".
unsigned RangeVlanOf(const std::vector<std::string>& line) {
  const std::string& word = line[1];
  return static_cast<unsigned>(
      std::stoul(Lower(word).rfind("vlan", 0) == 0 ? word.substr(4) : word));
}

}  // namespace

std::vector<std::vector<std::string>> ExpandRanges(const std::vector<std::string>& words) {
  const std::string command = Lower(words[0]);
  size_t at = 0;
  std::string prefix;
  if (command == "vlan" && words.size() > 1) {
    at = 1;
  } else if ((command == "addmember" || command == "delmember") && words.size() > 1 &&
             Lower(words[1]).rfind("vlan", 0) == 0) {
    at = 1;
    prefix = words[1].substr(0, 4);
  }
  if (at == 0 || words[at].find('-', prefix.size() + 1) == std::string::npos)
    return {words};
  const auto [first, last] = ParseRange(words[at].substr(prefix.size()), 0, 4095, "vlan");
  std::vector<std::vector<std::string>> lines;
  for (long long vlan = first; vlan <= last; ++vlan) {
    lines.push_back(words);
    lines.back()[at] = prefix + std::to_string(vlan);
  }
  return lines;
}

Action PrepareLine(const Session& session, const std::vector<std::string>& words) {
  const std::vector<std::vector<std::string>> lines = ExpandRanges(words);
  const bool range = lines.size() != 1 || lines.front() != words;
  std::vector<std::pair<unsigned, Action>> actions;
  // Every line of a range is checked before any of them runs.
  for (const std::vector<std::string>& line : lines) {
    const Command& command = FindCommand(line, false);
    const size_t nameSize = NameWords(command.name).size();
    Arguments args(std::vector<std::string>(line.begin() + nameSize, line.end()));
    actions.emplace_back(range ? RangeVlanOf(line) : 0, command.prepare(session, args));
  }
  if (!range)
    return actions.front().second;
  // Each VLAN's records say which VLAN they are for.
  return [actions](Session& s) {
    for (const auto& [vlan, action] : actions) {
      s.SetRangeVlan(vlan);
      action(s);
    }
    s.SetRangeVlan(std::nullopt);
  };
}

std::string Usage(const Command& command) {
  return command.synopsis.empty() ? command.name : command.name + " " + command.synopsis;
}

void PrintHelp(std::ostream& out, size_t width) {
  // Commands whose usage is longer than the column put their summary on the next line.
  const size_t column = std::min<size_t>(34, width / 2);
  for (const Command& command : AllCommands())
    PrintWrapped(out, Usage(command), command.summary, column, width);
  out << '\n';
  for (const char* text : {kNamesHelp, kRuleSyntaxHelp, kFrameSyntaxHelp}) {
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
      const size_t colon = line.find(": ");
      PrintWrapped(out, line.substr(0, colon + 1), line.substr(colon + 2), 11, width);
    }
  }
  out << "help COMMAND explains a command and gives an example.\n";
}

Action Operation(std::function<Session::Outcome(Session&)> operation) {
  return
      [operation](Session& session) { session.RunOperation([&] { return operation(session); }); };
}

Record ResultRecord(int rc) {
  return std::move(Record("result", Role::Result).Text("result: ").Add("rc", rc));
}

Record ValueResult(const std::string& key, unsigned value, const std::string& text) {
  return std::move(Record("result", Role::Result).Text("result: ").Add(key, value, text));
}

Session::Outcome Result(int rc) {
  return {{ResultRecord(rc)}, rc};
}

Session::Outcome AnswerLines(const std::vector<sim::LagOrchestratorSim::Answer>& answers) {
  Session::Outcome outcome;
  for (const auto& answer : answers) {
    outcome.records.push_back(std::move(Record("answer", Role::Result)
                                            .Text("answer ")
                                            .Add("priority", answer.priority)
                                            .Text(" ")
                                            .Add("client", answer.name)
                                            .Text(": ")
                                            .Add("handled", answer.handled)));
    // Every handler must take the event: one that answered false fails it.
    outcome.code = (outcome.code.value_or(0) < 0 || !answer.handled) ? -1 : 0;
  }
  return outcome;
}

Record Warning(const std::string& text) {
  return std::move(Record("warning", Role::Effect).Text("warning: ").Add("text", text));
}

std::string JoinWords(const std::vector<std::string>& words) {
  std::string text;
  for (const std::string& word : words)
    text += (text.empty() ? "" : " ") + word;
  return text;
}

std::string Hex(unsigned value) {
  char text[16];
  std::snprintf(text, sizeof text, "0x%x", value);
  return text;
}

}  // namespace halbdsim
