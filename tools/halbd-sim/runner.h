// Running a scenario line by line.
#ifndef HALBD_SIM_RUNNER_H
#define HALBD_SIM_RUNNER_H

#include <ostream>
#include <stdexcept>

#include "line_reader.h"
#include "session.h"

namespace halbdsim {

// An expect line that did not hold; its message says what was expected and what is.
class ExpectationFailed : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Runs the lines of a scenario in order. A line is checked whole before any of it runs; what
// only running it can find wrong (a capture not written) is reported after its output.
// A batch run reports a mistake as "FILE:LINE: message" and stops; an interactive one reports
// it as the plain message and goes on. A failed expect is reported the same way, and the run
// goes on. Batch runs echo each command as "> command", and each comment and blank line as it
// is, so that the output reads on its own (not when quiet). "source FILE" runs a file as a batch
// run within the run. Returns 0 when no line was refused, else 1.
int RunScenario(Session& session, LineSource& reader, bool interactive, std::ostream& err);

// The exit status of a whole run: that of RunScenario (0 for an interactive one, whose mistakes
// were told as they came, unless strict), or, under strict, 1 when an operation failed
// unexpectedly or an expect did not hold; a summary on err then counts them and names each such
// line as FILE:LINE: command (with --json also as an object on the output).
int FinishRun(Session& session, int status, bool strict, std::ostream& err,
              bool interactive = false);

}  // namespace halbdsim

#endif  // HALBD_SIM_RUNNER_H
