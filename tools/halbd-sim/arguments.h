// The arguments of one command line and the checks that turn words into values.
#ifndef HALBD_SIM_ARGUMENTS_H
#define HALBD_SIM_ARGUMENTS_H

#include <cstdint>
#include <limits>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace halbdsim {

// The words after the command name, taken from the left. Every failing check throws
// ScenarioError with a message that names the argument.
class Arguments {
 public:
  explicit Arguments(std::vector<std::string> words);

  bool Empty() const { return next_ == words_.size(); }
  // The next word without taking it; empty at the end.
  std::string Peek() const;
  // The next word; "missing <name>" when there is none.
  std::string Take(const std::string& name);
  // The next word when it is one of the given keywords.
  std::optional<std::string> TakeKeyword(const std::vector<std::string>& keywords);
  // The words not yet taken, blank-separated, without taking them.
  std::string Rest() const;
  // "unexpected argument '<word>'" when words are left.
  void ExpectEnd() const;

 private:
  std::vector<std::string> words_;
  size_t next_ = 0;
};

// A decimal or 0x-prefixed hexadecimal integer, optionally negative, within [min, max].
long long ParseInteger(const std::string& text, long long min, long long max,
                       const std::string& name);

// The same within the range of the integer type T.
template <typename T>
T ParseNumber(const std::string& text, const std::string& name) {
  return static_cast<T>(
      ParseInteger(text, std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), name));
}

// A priority, described as the 0 to 7 a tag carries; 8 to 255 still reach the library, whose
// refusal of them is worth seeing.
uint8_t ParsePriority(const std::string& text, const std::string& name);

// "N" or "N-M" with min <= N <= M <= max, as the pair (N, M).
std::pair<long long, long long> ParseRange(const std::string& text, long long min, long long max,
                                           const std::string& name);

// Words that stand for values, e.g. {"tagged", 1}.
using Choices = std::vector<std::pair<std::string, long long>>;

// One of the words; "<name> must be one of ...: <text>" otherwise.
long long ParseChoice(const std::string& text, const Choices& choices, const std::string& name);

// One of the words, or a number within [min, max]: the tool may hand the library any value that
// the interface's type can carry, including the ones it must refuse.
long long ParseChoiceOrNumber(const std::string& text, const Choices& choices, long long min,
                              long long max, const std::string& name);

// "on" or "off".
bool ParseOnOff(const std::string& text, const std::string& name);

}  // namespace halbdsim

#endif  // HALBD_SIM_ARGUMENTS_H
