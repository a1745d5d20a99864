// The simulated layer-2 library's LAG orchestrator: it keeps clients in ascending priority order,
// keeps the common chip library's LAG member lists and raises the LAG events.
#ifndef HALBD_SIM_SIM_LAG_ORCHESTRATOR_H
#define HALBD_SIM_SIM_LAG_ORCHESTRATOR_H

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "lag_orchestrator.h"

namespace sim {

class LagOrchestratorSim : public halswitchl2if::LagOrchestrator {
 public:
  // What one client answered to an event.
  struct Answer {
    unsigned int priority;
    std::string name;
    bool handled;
  };

  // Refuses (returns false, keeps the first) a second client under the same priority and name.
  bool RegisterClient(unsigned int priority, const std::string& name, Callback&& callback) override;

  // Registered clients in the order events reach them.
  std::vector<std::pair<unsigned int, std::string>> Clients() const;

  // The LAG must be known to the common tables (sim::common().AddLag). Events reach clients in
  // ascending (priority, name) order; clients without a handler for an event are skipped.
  std::vector<Answer> CreateLag(const limid_t& lag);
  // The member is listed before memberAdded is raised. A LAG manager never adds a port that is
  // already in a LAG, this one or another: std::invalid_argument (AddMemberRefusal), nothing
  // raised. std::out_of_range for a LAG the common tables do not know.
  std::vector<Answer> AddMember(const limid_t& lag, const limid_t& member);
  // memberDeleted is raised while the member is still listed; it is unlisted afterwards. A port
  // that is not a member is refused: std::invalid_argument (DeleteMemberRefusal), nothing raised.
  std::vector<Answer> DeleteMember(const limid_t& lag, const limid_t& member);
  // Why the event cannot be raised, or nothing when it can (also for an unknown LAG, which the
  // event itself reports).
  static std::optional<std::string> AddMemberRefusal(const limid_t& lag, const limid_t& member);
  static std::optional<std::string> DeleteMemberRefusal(const limid_t& lag, const limid_t& member);
  // lagDeleted is raised while the members are still listed; the LAG is forgotten afterwards.
  std::vector<Answer> DeleteLag(const limid_t& lag);
  // A LAG manager that takes the LAG out of the common tables first and raises lagDeleted after:
  // the clients can no longer read the member list. A client's exception reaches the caller,
  // and the clients after it are not told; the LAG is forgotten all the same.
  std::vector<Answer> DeleteLagUnlisted(const limid_t& lag);

 private:
  template <typename Invoke>
  std::vector<Answer> Raise(Invoke invoke);
  std::vector<Answer> RaiseLagDeleted(const limid_t& lag);

  std::map<std::pair<unsigned int, std::string>, Callback> clients_;
};

}  // namespace sim

#endif  // HALBD_SIM_SIM_LAG_ORCHESTRATOR_H
