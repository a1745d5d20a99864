// Reading commands from a descriptor while live ports forward frames: the wait for the next
// line (or key) is the wait for frames too, so commands and frames take turns on one thread.
#ifndef HALBD_SIM_POLLING_LINE_READER_H
#define HALBD_SIM_POLLING_LINE_READER_H

#include <cwchar>
#include <ostream>
#include <string>

#include "line_reader.h"
#include "live_ports.h"

namespace halbdsim {

// The lines of a descriptor (standard input), read as they come. With a prompt stream it asks
// for every line there. A stop signal ends the input, as its end would.
class PollingLineReader : public LineSource {
 public:
  PollingLineReader(int fd, std::string sourceName, std::ostream* prompt, LivePorts& live);

  bool Next(std::string& line) override;
  int LineNumber() const override { return lineNumber_; }
  const std::string& SourceName() const override { return sourceName_; }

 private:
  // Reads what the descriptor holds now into the buffer, forwarding frames until it holds
  // something; false at its end.
  bool Fill();

  int fd_;
  std::string sourceName_;
  std::ostream* prompt_;
  LivePorts& live_;
  std::string buffer_;  // read but not yet handed out
  bool ended_ = false;
  int lineNumber_ = 0;
};

// One character typed on the terminal at fd, for the line editor: forwards frames until a key
// comes. 1 with the character, 0 at the end of the input or on a stop signal, -1 on an error.
int ReadKey(LivePorts& live, int fd, wchar_t* key);

}  // namespace halbdsim

#endif  // HALBD_SIM_POLLING_LINE_READER_H
