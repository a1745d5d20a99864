#include "sim/sim_lag_orchestrator.h"

#include <stdexcept>

#include "sim/sim_platform.h"

namespace sim {

bool LagOrchestratorSim::RegisterClient(unsigned int priority, const std::string& name,
                                        Callback&& callback) {
  return clients_.emplace(std::make_pair(priority, name), std::move(callback)).second;
}

std::vector<std::pair<unsigned int, std::string>> LagOrchestratorSim::Clients() const {
  std::vector<std::pair<unsigned int, std::string>> keys;
  for (const auto& entry : clients_)
    keys.push_back(entry.first);
  return keys;
}

template <typename Invoke>
std::vector<LagOrchestratorSim::Answer> LagOrchestratorSim::Raise(Invoke invoke) {
  std::vector<Answer> answers;
  for (auto& [key, callback] : clients_) {
    std::optional<bool> handled = invoke(callback);
    if (handled)
      answers.push_back(Answer{key.first, key.second, *handled});
  }
  return answers;
}

std::vector<LagOrchestratorSim::Answer> LagOrchestratorSim::CreateLag(const limid_t& lag) {
  return Raise([&](Callback& c) -> std::optional<bool> {
    if (!c.lagCreated)
      return std::nullopt;
    return c.lagCreated(lag);
  });
}

std::optional<std::string> LagOrchestratorSim::AddMemberRefusal(const limid_t& lag,
                                                                const limid_t& member) {
  const std::optional<limid_t> current = common().LagOf(member);
  if (!current)
    return std::nullopt;
  const std::string port = NameOf(member);
  if (*current == lag)
    return port + " is already a member of " + NameOf(lag);
  // A port is in one LAG at a time: the LAG manager takes it out of its LAG first.
  return port + " is a member of " + NameOf(*current) + ": it leaves " + NameOf(*current) +
         " (member deleted) before it joins " + NameOf(lag) + " (member added)";
}

std::optional<std::string> LagOrchestratorSim::DeleteMemberRefusal(const limid_t& lag,
                                                                   const limid_t& member) {
  if (!common().HasLag(lag) || common().LagOf(member) == lag)
    return std::nullopt;
  return NameOf(member) + " is not a member of " + NameOf(lag);
}

std::vector<LagOrchestratorSim::Answer> LagOrchestratorSim::AddMember(const limid_t& lag,
                                                                      const limid_t& member) {
  if (auto refusal = AddMemberRefusal(lag, member))
    throw std::invalid_argument(*refusal);
  common().ListLagMember(lag, member);
  return Raise([&](Callback& c) -> std::optional<bool> {
    if (!c.memberAdded)
      return std::nullopt;
    return c.memberAdded(lag, member);
  });
}

std::vector<LagOrchestratorSim::Answer> LagOrchestratorSim::DeleteMember(const limid_t& lag,
                                                                         const limid_t& member) {
  if (!common().HasLag(lag))
    throw std::out_of_range("LAG not found");
  if (auto refusal = DeleteMemberRefusal(lag, member))
    throw std::invalid_argument(*refusal);
  auto answers = Raise([&](Callback& c) -> std::optional<bool> {
    if (!c.memberDeleted)
      return std::nullopt;
    return c.memberDeleted(lag, member);
  });
  common().UnlistLagMember(lag, member);
  return answers;
}

std::vector<LagOrchestratorSim::Answer> LagOrchestratorSim::RaiseLagDeleted(const limid_t& lag) {
  return Raise([&](Callback& c) -> std::optional<bool> {
    if (!c.lagDeleted)
      return std::nullopt;
    return c.lagDeleted(lag);
  });
}

std::vector<LagOrchestratorSim::Answer> LagOrchestratorSim::DeleteLag(const limid_t& lag) {
  auto answers = RaiseLagDeleted(lag);
  common().ForgetLag(lag);
  return answers;
}

std::vector<LagOrchestratorSim::Answer> LagOrchestratorSim::DeleteLagUnlisted(const limid_t& lag) {
  common().ForgetLag(lag);
  return RaiseLagDeleted(lag);
}

}  // namespace sim
