// Tab completion of the shell: what may follow the words already typed.
#ifndef HALBD_SIM_COMPLETION_H
#define HALBD_SIM_COMPLETION_H

#include <string>
#include <vector>

#include "session.h"

namespace halbdsim {

// The words that complete the last, partial word of the text before the cursor (all of them
// for a text that ends with a blank), matched without regard to case, sorted: only what the
// position takes: commands, show tables and their filters (VLAN numbers after show vlans),
// declared interface names and chip VLANs, stages, properties, rule keywords, the forms of a
// frame, SDK function names for fail, file names after source, save and --pcap.
std::vector<std::string> Completions(const Session& session, const std::string& beforeCursor);

// The longest start that all the words share.
std::string CommonPrefix(const std::vector<std::string>& words);

}  // namespace halbdsim

#endif  // HALBD_SIM_COMPLETION_H
