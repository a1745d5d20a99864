// Layer-2 library contract: the LAG orchestrator, the source of LAG events.
#ifndef HALBD_PLATFORM_LAG_ORCHESTRATOR_H
#define HALBD_PLATFORM_LAG_ORCHESTRATOR_H

#include <functional>
#include <string>

#include "limid.h"

namespace halswitchl2if {

class LagOrchestrator {
 public:
  // The handlers a client hands over. Each returns true when it handled the event.
  struct Callback {
    std::function<bool(const limid_t& lag)> lagCreated;
    std::function<bool(const limid_t& lag)> lagDeleted;
    std::function<bool(const limid_t& lag, const limid_t& member)> memberAdded;
    std::function<bool(const limid_t& lag, const limid_t& member)> memberDeleted;
  };

  // Registers a client for LAG events under a priority and a name; the orchestrator keeps the
  // handlers and raises every later event through them. Returns false when refused.
  virtual bool RegisterClient(unsigned int priority, const std::string& name,
                              Callback&& callback) = 0;

  virtual ~LagOrchestrator() = default;
};

}  // namespace halswitchl2if

#endif  // HALBD_PLATFORM_LAG_ORCHESTRATOR_H
