#include "completion.h"

#include <algorithm>
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
      {"FRAME", {"untagged", "tag", "--trace"}},
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

std::string Unbracketed(std::string word) {
  word.erase(0, word.find_first_not_of("<["));
  word.erase(word.find_last_not_of(">]") + 1);
  return word;
}

// Candidates for the word at index position of a line that starts with the given words.
std::vector<std::string> Candidates(const Session& session, const std::vector<std::string>& words) {
  if (words.empty())
    return CommandWords();
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
  // A rule, a frame and an expect's check take their keywords anywhere after their start.
  const size_t reached = std::min(synopsis.size(), index + 1);
  for (size_t i = 0; i < reached; ++i) {
    if (synopsis[i] == "RULE")
      return kRuleWords;
    if (i < index && synopsis[i] == "[FRAME]")
      return ArgumentWords(session, "FRAME");
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
  for (const std::string& candidate : Candidates(session, words)) {
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
