// Running a scenario line by line.
#ifndef HALBD_SIM_RUNNER_H
#define HALBD_SIM_RUNNER_H

#include <ostream>

#include "line_reader.h"
#include "session.h"

namespace halbdsim {

// Runs the lines of a scenario in order. A line is checked whole before any of it runs; a mistake
// is reported on err as "FILE:LINE: message". A batch run stops at its first mistake, an
// interactive one reports it and goes on. Batch runs echo each command as "> command", and each
// comment and blank line as it is, so that the output reads on its own. Returns 0 when no line
// was refused, else 1.
int RunScenario(Session& session, LineReader& reader, bool interactive, std::ostream& err);

}  // namespace halbdsim

#endif  // HALBD_SIM_RUNNER_H
