#include "polling_line_reader.h"

#include <unistd.h>

#include <cerrno>
#include <iostream>

namespace halbdsim {

namespace {

constexpr const char* kPrompt = "halbd-sim> ";
constexpr size_t kChunk = 4096;

}  // namespace

PollingLineReader::PollingLineReader(int fd, std::string sourceName, std::ostream* prompt,
                                     LivePorts& live)
    : fd_(fd), sourceName_(std::move(sourceName)), prompt_(prompt), live_(live) {}

bool PollingLineReader::Fill() {
  // Whoever feeds the commands may wait for what the last ones printed before sending more.
  std::cout.flush();
  while (!ended_) {
    if (live_.ForwardUntilInput(fd_, -1) == LivePorts::Wake::Stopped) {
      ended_ = true;
      buffer_.clear();  // a line cut short by the stop is not run
      break;
    }
    char chunk[kChunk];
    const ssize_t length = read(fd_, chunk, sizeof chunk);
    if (length > 0) {
      buffer_.append(chunk, static_cast<size_t>(length));
      return true;
    }
    if (length == 0 || (errno != EINTR && errno != EAGAIN))
      ended_ = true;
  }
  return false;
}

bool PollingLineReader::Next(std::string& line) {
  if (prompt_ != nullptr)
    *prompt_ << kPrompt << std::flush;
  size_t end = buffer_.find('\n');
  while (end == std::string::npos && Fill())
    end = buffer_.find('\n');
  if (end == std::string::npos && buffer_.empty()) {
    if (prompt_ != nullptr)
      *prompt_ << '\n';
    return false;
  }
  // The last line may lack its newline.
  line = buffer_.substr(0, end);
  buffer_.erase(0, end == std::string::npos ? std::string::npos : end + 1);
  ++lineNumber_;
  return true;
}

int ReadKey(LivePorts& live, int fd, wchar_t* key) {
  std::mbstate_t state{};
  for (;;) {
    if (live.ForwardUntilInput(fd, -1) == LivePorts::Wake::Stopped)
      return 0;
    char byte = 0;
    const ssize_t length = read(fd, &byte, 1);
    if (length == 0)
      return 0;
    if (length < 0) {
      if (errno == EINTR || errno == EAGAIN)
        continue;
      return -1;
    }
    // With a state of its own mbrtowc shares nothing with other threads.
    const size_t used = std::mbrtowc(key, &byte, 1, &state);  // NOLINT(concurrency-mt-unsafe)
    if (used == static_cast<size_t>(-2))
      continue;  // the rest of a multibyte character follows
    if (used == static_cast<size_t>(-1)) {
      state = std::mbstate_t{};  // not a character of the locale: skipped, as the editor would
      continue;
    }
    return 1;
  }
}

}  // namespace halbdsim
