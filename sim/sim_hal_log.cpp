// The simulated HAL callbacks (an in-memory log) and the SDK's assertion.
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <stdexcept>

#include "hal_callbacks_itf.h"
#include "sim_internal.h"

namespace sim {
namespace {

struct LogState {
  std::vector<LogRecord> records;
  bool echo = false;
  bool throwOnNext = false;
  std::vector<AssertRecord> assertions;
  bool abortOnAssert = false;
};

LogState& State() {
  static LogState state;
  return state;
}

std::string Format(const char* fmt, va_list args) {
  va_list measure;
  va_copy(measure, args);
  const int length = std::vsnprintf(nullptr, 0, fmt, measure);
  va_end(measure);
  if (length < 0)
    return fmt;
  std::string text(static_cast<size_t>(length) + 1, '\0');
  std::vsnprintf(text.data(), text.size(), fmt, args);
  text.resize(static_cast<size_t>(length));
  return text;
}

void Record(bool isError, int levelOrCode, std::string text) {
  LogState& state = State();
  if (state.echo) {
    std::fprintf(stderr, "%s(%d): %s\n", isError ? "error" : "log", levelOrCode, text.c_str());
  }
  state.records.push_back(LogRecord{isError, levelOrCode, std::move(text)});
  if (state.throwOnNext) {
    state.throwOnNext = false;
    throw std::runtime_error("HAL log callback failed");
  }
}

// Final, and the interface's destructor is protected: nothing can delete it through a base pointer.
class SimHalCallbacks final  // NOLINT(cppcoreguidelines-virtual-class-destructor)
    : public HalCallbacksItf {
 public:
  void log(int level, const char* fmt, ...) override {
    va_list args;
    va_start(args, fmt);
    std::string text = Format(fmt, args);
    va_end(args);
    Record(false, level, std::move(text));
  }

  void error(int rc, const char* fmt, ...) override {
    va_list args;
    va_start(args, fmt);
    std::string text = Format(fmt, args);
    va_end(args);
    Record(true, rc, std::move(text));
  }
};

}  // namespace

const std::vector<LogRecord>& HalLog::Records() const {
  return State().records;
}

std::vector<std::string> HalLog::Texts() const {
  std::vector<std::string> texts;
  for (const LogRecord& record : State().records)
    texts.push_back(record.text);
  return texts;
}

std::vector<std::string> HalLog::Lines() const {
  std::vector<std::string> lines;
  for (const LogRecord& record : State().records) {
    lines.push_back(std::string(record.isError ? "error(" : "log(") +
                    std::to_string(record.levelOrCode) + "): " + record.text);
  }
  return lines;
}

void HalLog::Clear() {
  State().records.clear();
}
void HalLog::SetEcho(bool echo) {
  State().echo = echo;
}
void HalLog::ThrowOnNextMessage() {
  State().throwOnNext = true;
}

HalLog& halLog() {
  static HalLog instance;
  return instance;
}

const std::vector<AssertRecord>& Assertions() {
  return State().assertions;
}
void SetAbortOnAssert(bool abort) {
  State().abortOnAssert = abort;
}

namespace internal {

void ResetLog() {
  LogState& state = State();
  state.records.clear();
  state.throwOnNext = false;
  state.assertions.clear();
  state.abortOnAssert = false;
}

}  // namespace internal
}  // namespace sim

HalCallbacksItf* HalCallbacksItf::getInstance() {
  static sim::SimHalCallbacks instance;
  return &instance;
}

extern "C" void _sal_assert(const char* expr, const char* file, int line) {
  sim::State().assertions.push_back(sim::AssertRecord{expr, file, line});
  std::fprintf(stderr, "assertion failed: %s at %s:%d\n", expr, file, line);
  if (sim::State().abortOnAssert)
    std::abort();
}
