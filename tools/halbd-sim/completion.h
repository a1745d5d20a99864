// Tab completion of the shell: what may follow the words already typed.
#ifndef HALBD_SIM_COMPLETION_H
#define HALBD_SIM_COMPLETION_H

#include <string>
#include <vector>

#include "session.h"

namespace halbdsim {

// The words that complete the last, partial word of the text before the cursor (all of them
// for a text that ends with a blank), matched without regard to case, sorted: commands, show
// tables, declared interface names and chip VLANs, stages, properties, rule keywords, SDK
// function names for fail.
std::vector<std::string> Completions(const Session& session, const std::string& beforeCursor);

// The longest start that all the words share.
std::string CommonPrefix(const std::vector<std::string>& words);

}  // namespace halbdsim

#endif  // HALBD_SIM_COMPLETION_H
