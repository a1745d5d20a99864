#include "completion.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "commands.h"
#include "line_reader.h"
#include "sim/sim_platform.h"

namespace halbdsim {

namespace {

const std::vector<std::string> kRuleWords = {
    "match",   "outer",       "inner",           "tpid",    "prio", "add",
    "replace", "add-replace", "replace-replace", "unknown", "op"};
const std::vector<std::string> kExpectWords = {"result",  "frame",  "dropped",     "member",
                                               "ports",   "vlans",  "lags",        "port-vlans",
                                               "ingress", "egress", "member-table"};

// Declared ports and LAGs (kinds), and the chip's VLANs as bridge domains.
std::vector<std::string> InterfaceNames(const Session& session, unsigned kinds) {
  std::vector<std::string> names;
  for (const auto& [id, declared] : session.Declared()) {
    const bool lag = static_cast<sim::IdKind>(id.bytes[0]) == sim::IdKind::Lag;
    if (kinds & (lag ? kLag : kPort))
      names.push_back(sim::NameOf(id));
  }
  if (kinds & kBridgeDomain) {
    for (bcm_vlan_t vlan : sim::chip().Vlans())
      names.push_back("vlan" + std::to_string(vlan));
  }
  return names;
}

// What an argument of a synopsis takes, by its name.
std::vector<std::string> ArgumentWords(const Session& session, const std::string& argument) {
  static const std::map<std::string, std::vector<std::string>> kWords = {
      {"stage", {"ingress", "egress"}},
      {"type", {"all", "tagged-only", "untagged-only"}},
      {"mode", {"disable", "enable"}},
      {"tagged", {"tagged", "untagged"}},
      {"block", {"true", "false"}},
      {"client", {"hal-stlp"}},
      {"property", {"dhcp", "igmp-snooping"}},
      {"value", {"to-cpu", "drop"}},
      {"on|off", {"on", "off"}},
      {"gport", {"local", "module", "none"}},
      {"events", {"none", "vlan_add", "vlan_remove", "both"}},
      {"what", kExpectWords},
  };
  if (argument == "id" || argument == "intf" || argument == "filter")
    return InterfaceNames(session, kPort | kLag);
  if (argument == "port" || argument == "member")
    return InterfaceNames(session, kPort);
  if (argument == "lag")
    return InterfaceNames(session, kLag);
  if (argument == "bridgeDomain")
    return InterfaceNames(session, kBridgeDomain);
  if (argument == "function")
    return SdkFunctionNames();
  if (argument == "command")
    return CommandWords();
  const auto words = kWords.find(argument);
  return words == kWords.end() ? std::vector<std::string>{} : words->second;
}

// The chip's VLANs as numbers, as show vlans and show member-table take them.
std::vector<std::string> VlanNumbers() {
  std::vector<std::string> numbers;
  for (bcm_vlan_t vlan : sim::chip().Vlans())
    numbers.push_back(std::to_string(vlan));
  return numbers;
}

// What the filter of a show table takes, by the table's key, and --json.
std::vector<std::string> ShowFilterWords(const Session& session, const std::string& table,
                                         bool withJson) {
  std::vector<std::string> words;
  if (table == "vlans" || table == "member-table")
    words = VlanNumbers();
  else if (table == "trace")
    words = SdkFunctionNames();
  else if (table == "ports" || table == "port-vlans")
    words = InterfaceNames(session, kPort);
  else if (table == "lags")
    words = InterfaceNames(session, kLag);
  else
    words = InterfaceNames(session, kPort | kLag);
  if (withJson)
    words.emplace_back("--json");
  return words;
}

// The entries of the directory the partial word names, with the directory as typed; directories
// end with '/' so that Tab goes on into them. Dot files only when the word asks for them.
std::vector<std::string> FileNames(const std::string& partial, bool directoriesOnly) {
  const size_t slash = partial.rfind('/');
  const std::string directory = slash == std::string::npos ? "" : partial.substr(0, slash + 1);
  const bool dotFiles = partial.compare(directory.size(), 1, ".") == 0;
  std::vector<std::string> names;
  std::error_code error;
  for (const auto& entry :
       std::filesystem::directory_iterator(directory.empty() ? "." : directory, error)) {
    const std::string name = entry.path().filename().string();
    const bool isDirectory = entry.is_directory(error);
    if ((name[0] == '.' && !dotFiles) || (directoriesOnly && !isDirectory))
      continue;
    names.push_back(directory + name + (isDirectory ? "/" : ""));
  }
  return names;
}

// After "frame PORT": the frame's form, then what that form takes next.
std::vector<std::string> FrameWords(const std::vector<std::string>& after,
                                    const std::string& partial) {
  if (after.empty())
    return {"untagged", "tag", "hex", "--pcap", "--trace"};
  const std::string& first = after.front();
  const std::string& last = after.back();
  if (last == "--trace")
    return {};
  if (first == "--pcap") {
    if (last == "--pcap" || last == "--out")
      return FileNames(partial, last == "--out");
    return {"--out", "--trace"};
  }
  if (first == "tag") {
    // Each tag is "tag TPID VLAN PCP": its numbers are typed, not chosen.
    if ((after.size() - 1) % 4 != 3)
      return {};
    return after.size() < 8 ? std::vector<std::string>{"tag", "--trace"}
                            : std::vector<std::string>{"--trace"};
  }
  return {"--trace"};  // after untagged, or among the bytes of hex
}

std::string Unbracketed(std::string word) {
  word.erase(0, word.find_first_not_of("<["));
  word.erase(word.find_last_not_of(">]") + 1);
  return word;
}

// Candidates for the word after the given words, the partial word typed of it so far.
std::vector<std::string> Candidates(const Session& session, const std::vector<std::string>& words,
                                    const std::string& partial) {
  if (words.empty())
    return CommandWords();
  // save writes a file, source reads one.
  const std::string first = Lower(words[0]);
  if ((first == "source" || first == "save") && words.size() == 1)
    return FileNames(partial, false);
  // show TABLE [filter] [--json], the two in either order.
  if (first == "show" && (words.size() == 2 || (words.size() == 3 && words[2] == "--json")))
    return ShowFilterWords(session, Lower(words[1]), words.size() == 2);
  if (first == "show" && words.size() == 3)
    return {"--json"};
  if (first == "frame" && words.size() >= 2)
    return FrameWords(std::vector<std::string>(words.begin() + 2, words.end()), partial);
  std::vector<std::string> seconds;
  for (const Command& command : AllCommands()) {
    const std::vector<std::string> name = NameWords(command.name);
    if (name.size() == 2 && words.size() == 1 && Lower(name[0]) == Lower(words[0]))
      seconds.push_back(name[1]);
  }
  if (!seconds.empty())
    return seconds;
  const Command* command = nullptr;
  try {
    command = &FindCommand(words, false);
  } catch (const ScenarioError&) {
    return {};
  }
  const std::vector<std::string> synopsis = NameWords(command->synopsis);
  const size_t index = words.size() - NameWords(command->name).size();
  // A rule takes its keywords anywhere after its start.
  const size_t reached = std::min(synopsis.size(), index + 1);
  for (size_t i = 0; i < reached; ++i) {
    if (synopsis[i] == "RULE")
      return kRuleWords;
  }
  if (index >= synopsis.size())
    return {};
  return ArgumentWords(session, Unbracketed(synopsis[index]));
}

}  // namespace

std::vector<std::string> Completions(const Session& session, const std::string& beforeCursor) {
  std::vector<std::string> words = NameWords(beforeCursor);
  std::string partial;
  if (!beforeCursor.empty() && beforeCursor.back() != ' ' && beforeCursor.back() != '\t') {
    partial = words.back();
    words.pop_back();
  }
  std::vector<std::string> matches;
  for (const std::string& candidate : Candidates(session, words, partial)) {
    if (Lower(candidate).compare(0, partial.size(), Lower(partial)) == 0)
      matches.push_back(candidate);
  }
  std::sort(matches.begin(), matches.end());
  matches.erase(std::unique(matches.begin(), matches.end()), matches.end());
  return matches;
}

std::string CommonPrefix(const std::vector<std::string>& words) {
  if (words.empty())
    return "";
  std::string prefix = words.front();
  for (const std::string& word : words) {
    size_t same = 0;
    while (same < prefix.size() && same < word.size() && prefix[same] == word[same])
      ++same;
    prefix.resize(same);
  }
  return prefix;
}

}  // namespace halbdsim
