#include "arguments.h"

#include <cerrno>
#include <climits>
#include <cstdlib>

#include "line_reader.h"

namespace halbdsim {

namespace {

std::string ChoiceList(const Choices& choices) {
  std::string list;
  for (size_t i = 0; i < choices.size(); ++i) {
    if (i > 0)
      list += i + 1 == choices.size() ? " or " : ", ";
    list += choices[i].first;
  }
  return list;
}

const long long* FindChoice(const std::string& text, const Choices& choices) {
  for (const auto& choice : choices) {
    if (choice.first == text)
      return &choice.second;
  }
  return nullptr;
}

bool LooksNumeric(const std::string& text) {
  const size_t digit = (!text.empty() && text[0] == '-') ? 1 : 0;
  return digit < text.size() && text[digit] >= '0' && text[digit] <= '9';
}

}  // namespace

Arguments::Arguments(std::vector<std::string> words) : words_(std::move(words)) {}

std::string Arguments::Peek() const {
  return Empty() ? std::string() : words_[next_];
}

std::string Arguments::Take(const std::string& name) {
  if (Empty())
    throw ScenarioError("missing " + name);
  return words_[next_++];
}

std::optional<std::string> Arguments::TakeKeyword(const std::vector<std::string>& keywords) {
  if (Empty())
    return std::nullopt;
  for (const std::string& keyword : keywords) {
    if (words_[next_] == keyword) {
      ++next_;
      return keyword;
    }
  }
  return std::nullopt;
}

std::string Arguments::Rest() const {
  std::string rest;
  for (size_t word = next_; word < words_.size(); ++word)
    rest += (rest.empty() ? "" : " ") + words_[word];
  return rest;
}

void Arguments::ExpectEnd() const {
  if (!Empty())
    throw ScenarioError("unexpected argument '" + words_[next_] + "'");
}

long long ParseInteger(const std::string& text, long long min, long long max,
                       const std::string& name) {
  const bool negative = !text.empty() && text[0] == '-';
  const std::string magnitude = negative ? text.substr(1) : text;
  const bool hex =
      magnitude.size() > 2 && magnitude[0] == '0' && (magnitude[1] == 'x' || magnitude[1] == 'X');
  const std::string digits = hex ? magnitude.substr(2) : magnitude;
  const bool plain = !digits.empty() && digits[0] != '+' && digits[0] != '-' && digits[0] != ' ';
  char* end = nullptr;
  errno = 0;
  const unsigned long long value = plain ? std::strtoull(digits.c_str(), &end, hex ? 16 : 10) : 0;
  if (!plain || *end != '\0')
    throw ScenarioError("bad number for " + name + ": '" + text + "'");
  const bool fits = errno == 0 && value <= (negative ? 1ULL << 63 : ~0ULL >> 1);
  const long long number = !fits      ? 0
                           : negative ? static_cast<long long>(0 - value)
                                      : static_cast<long long>(value);
  if (!fits || number < min || number > max) {
    throw ScenarioError(name + " out of range (" + std::to_string(min) + " to " +
                        std::to_string(max) + "): " + text);
  }
  return number;
}

uint8_t ParsePriority(const std::string& text, const std::string& name) {
  constexpr long long kMaxPriority = 7;
  try {
    return ParseNumber<uint8_t>(text, name);
  } catch (const ScenarioError&) {
    ParseInteger(text, LLONG_MIN, LLONG_MAX, name);  // a malformed number says so first
    throw ScenarioError(name + " out of range (0 to " + std::to_string(kMaxPriority) +
                        "): " + text);
  }
}

std::pair<long long, long long> ParseRange(const std::string& text, long long min, long long max,
                                           const std::string& name) {
  const size_t dash = text.find('-', 1);
  if (dash == std::string::npos) {
    const long long only = ParseInteger(text, min, max, name);
    return {only, only};
  }
  const long long first = ParseInteger(text.substr(0, dash), min, max, name);
  const long long last = ParseInteger(text.substr(dash + 1), min, max, name);
  if (first > last)
    throw ScenarioError(name + " range runs backwards: " + text);
  return {first, last};
}

long long ParseChoice(const std::string& text, const Choices& choices, const std::string& name) {
  if (const long long* value = FindChoice(text, choices))
    return *value;
  throw ScenarioError(name + " must be " + ChoiceList(choices) + ": '" + text + "'");
}

long long ParseChoiceOrNumber(const std::string& text, const Choices& choices, long long min,
                              long long max, const std::string& name) {
  if (const long long* value = FindChoice(text, choices))
    return *value;
  if (LooksNumeric(text))
    return ParseInteger(text, min, max, name);
  throw ScenarioError(name + " must be " + ChoiceList(choices) + " or a number: '" + text + "'");
}

bool ParseOnOff(const std::string& text, const std::string& name) {
  return ParseChoice(text, {{"on", 1}, {"off", 0}}, name) != 0;
}

}  // namespace halbdsim
