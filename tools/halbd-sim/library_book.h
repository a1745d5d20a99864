// What the bridge-port service keeps for each interface and gives a port that joins a LAG. The
// library does not show its books, so the shell keeps a copy, written by the service's rules from
// the requests it was given and their results.
#ifndef HALBD_SIM_LIBRARY_BOOK_H
#define HALBD_SIM_LIBRARY_BOOK_H

#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "limid.h"

namespace halbdsim {

struct KeptAttributes {
  std::optional<unsigned> nativeVlan;  // LAGs only; none stands for 4095
  std::optional<unsigned> priority;    // LAGs only; none stands for 0
  std::optional<unsigned> tpid;        // also when the chip refused it
  bool qinq = false;
  std::optional<long long> frameType;     // also when the chip refused it; none: all frames
  bool blocked = false;                   // ports only, as the blocking client last asked
  std::vector<std::string> ingressRules;  // as written in the scenario
  std::vector<std::string> egressRules;
};

class LibraryBook {
 public:
  // members: the LAG's members at the time, for requests that also write the members' entries.
  void FrameTypeSet(limid_t id, long long type, const std::set<limid_t>& members);
  void NativeVlanSet(limid_t id, unsigned vlan, int rc);
  void PrioritySet(limid_t id, unsigned priority, int rc);
  void QinQSet(limid_t id, bool on, int rc);
  void TpidSet(limid_t id, unsigned tpid);
  void BlockSet(limid_t port, bool block, const std::string& client);
  void RuleAdded(limid_t id, bool ingress, const std::string& rule, int rc);
  void RuleDeleted(limid_t id, bool ingress, const std::string& rule, int rc);
  // LAG events: a joining port takes the LAG's frame types and leaves Q-in-Q to the LAG; a port
  // that leaves gets all frames; a deleted LAG's attributes go, its rules with it.
  void MemberAdded(limid_t lag, limid_t member);
  void MemberDeleted(limid_t member);
  void LagDeleted(limid_t lag, const std::set<limid_t>& members);

  // The entry of an interface; defaults for one the library was never told of.
  KeptAttributes Of(limid_t id) const;

 private:
  std::map<limid_t, KeptAttributes> kept_;
};

// The frame-type names of the library's enumeration, a number for others.
std::string FrameTypeName(long long type);

}  // namespace halbdsim

#endif  // HALBD_SIM_LIBRARY_BOOK_H
