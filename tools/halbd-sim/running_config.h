// The running configuration: the scenario lines that rebuild, on a fresh simulated platform, what
// the library keeps in its books and what the chip holds, read from the books and the chip model.
#ifndef HALBD_SIM_RUNNING_CONFIG_H
#define HALBD_SIM_RUNNING_CONFIG_H

#include <string>
#include <vector>

#include "commands.h"
#include "session.h"

namespace halbdsim {

// The lines, in an order that replays: set-up declarations, VLANs and their properties, what
// each port holds of its own before it joins a LAG, the LAGs with their attributes, memberships
// and members, then what ports were given after joining. Where the books and the chip went apart
// in a way no sequence of requests rebuilds (a chip refusal part-way, a LAG deleted unlisted), a
// comment line "# apart: TABLE KEY: why" says which row of which show table will differ.
std::vector<std::string> RunningConfig(const Session& session);

// show running-config and save.
std::vector<Command> ConfigCommands();

// The prefix of those comment lines.
extern const char* const kApartPrefix;

}  // namespace halbdsim

#endif  // HALBD_SIM_RUNNING_CONFIG_H
