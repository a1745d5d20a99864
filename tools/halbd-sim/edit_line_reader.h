// The shell's reader on a terminal: line editing, history and Tab completion with libedit.
#ifndef HALBD_SIM_EDIT_LINE_READER_H
#define HALBD_SIM_EDIT_LINE_READER_H

#include <memory>
#include <string>

#include "line_reader.h"
#include "session.h"

namespace halbdsim {

// The history file: $HALBD_HISTORY, else ~/.halbd_history; empty when neither can be named.
std::string HistoryFile();

// The reader for a shell on a terminal. Built without libedit it is the plain reader with a
// prompt, and it says once, on standard error, that editing is not available. Either way, live
// ports forward their frames while it waits for the user.
std::unique_ptr<LineSource> TerminalReader(Session& session);

}  // namespace halbdsim

#endif  // HALBD_SIM_EDIT_LINE_READER_H
