#include "bench_platform.h"

#include <malloc.h>

#ifdef HALBD_HAVE_CALLGRIND
#include <valgrind/callgrind.h>
#else
// Without valgrind's headers the counting mode counts allocations only.
#define CALLGRIND_TOGGLE_COLLECT
#define CALLGRIND_DUMP_STATS_AT(name) static_cast<void>(name)
#endif

#include <algorithm>
#include <map>
#include <string>
#include <utility>

#include "bridge_domain_inspector.h"
#include "bridge_port_inspector.h"

namespace bench {

namespace {

constexpr unsigned kSlot = 1;
constexpr uint16_t kCustomerTpid = 0x8100;
constexpr uint8_t kNoPriority = 15;

std::map<std::string, Family>& Families() {
  static std::map<std::string, Family> families;
  return families;
}

// Every registered benchmark with the operations it runs in counting mode.
std::vector<std::pair<benchmark::internal::Benchmark*, int64_t>>& Registered() {
  static std::vector<std::pair<benchmark::internal::Benchmark*, int64_t>> registered;
  return registered;
}

// The run in progress, as its dump is named.
std::string currentRun;
int64_t allocationsBefore = 0;
int64_t allocations = 0;

// What the books may still hold after a scenario: records that no operation erases (a port's
// IntfInfo, its acceptable frame type back at the default, a rule set left empty), but no
// membership, rule, LAG or attribute of a LAG.
std::string LeftoverInDomainBooks(HalBcmBridgeDomainInspector books) {
  for (const auto& [intf, info] : books.intfInfo()) {
    if (info.inLAG || !info.bridgeDomains.empty())
      return "a port record still holds VLANs or its LAG";
  }
  if (!books.lagMembership().empty())
    return "a LAG is still in the bridge-domain books";
  return "";
}

std::string LeftoverInPortBooks(HalBcmBridgePortInspector books) {
  const auto holdsRules = [](const auto& store) {
    return std::any_of(store.begin(), store.end(),
                       [](const auto& entry) { return !entry.second.empty(); });
  };
  if (holdsRules(books.ingressVlanMappings()) || holdsRules(books.egressVlanMappings()))
    return "translation rules are still stored";
  if (!books.nativeVlans().empty() || !books.untaggedPrios().empty() ||
      !books.qinqPorts().empty() || !books.tpids().empty() || !books.blockedPorts().empty())
    return "attributes are still stored";
  const auto& types = books.acceptableFrameTypes();
  if (std::any_of(types.begin(), types.end(),
                  [](const auto& entry) { return entry.second != HAL_BP_ADMIT_ALL_FRAMES; }))
    return "an acceptable frame type is still set";
  return "";
}

}  // namespace

const char* ChipName(Chip chip) {
  return chip == Chip::Model ? "model" : "null";
}

limid_t Eth(unsigned port) {
  return sim::EthernetPort(kSlot, port);
}

std::vector<limid_t> Ports(unsigned first, unsigned last) {
  std::vector<limid_t> ports;
  for (unsigned port = first; port <= last; ++port)
    ports.push_back(Eth(port));
  return ports;
}

limid_t Domain(unsigned vlan) {
  return sim::BridgeDomain(vlan);
}

Services& TheServices() {
  static Services services = [] {
    auto lags = std::make_shared<sim::LagOrchestratorSim>();
    HalBcmBridgeDomain* domain = HalBcmBridgeDomain::getInstance(lags);
    HalBcmBridgePort* port = HalBcmBridgePort::GetInstance(lags);
    return Services{lags, domain, port};
  }();
  return services;
}

void ResetPlatform(Chip chip, unsigned vlans) {
  TheServices();
  sim::Reset();
  sim::chip().SetTracing(false);
  for (unsigned port = 0; port < sim::Chip::kNumPorts; ++port)
    sim::common().AddPort(Eth(port), sim::LocalGport(static_cast<int>(port)));
  if (chip == Chip::Model) {
    for (unsigned vlan = 1; vlan <= vlans; ++vlan)
      sim::chip().CreateVlan(static_cast<bcm_vlan_t>(vlan));
  }
  sim::chip().SetNullChip(chip == Chip::Null);
}

bool AddToVlans(const std::vector<limid_t>& intfs, unsigned first, unsigned last, bool tagged) {
  HalBcmBridgeDomain* domain = TheServices().domain;
  bool ok = true;
  for (unsigned vlan = first; vlan <= last; ++vlan) {
    for (const limid_t& intf : intfs)
      ok = domain->addMember(Domain(vlan), intf, tagged, 0) == 0 && ok;
  }
  return ok;
}

bool DelFromVlans(const std::vector<limid_t>& intfs, unsigned first, unsigned last) {
  HalBcmBridgeDomain* domain = TheServices().domain;
  bool ok = true;
  for (unsigned vlan = first; vlan <= last; ++vlan) {
    for (const limid_t& intf : intfs)
      ok = domain->delMember(Domain(vlan), intf) == 0 && ok;
  }
  return ok;
}

limid_t CreateLag(unsigned number, const std::vector<limid_t>& members) {
  const limid_t lag = sim::Lag(number);
  sim::common().AddLag(lag, static_cast<int>(number));
  sim::LagOrchestratorSim& lags = *TheServices().lags;
  lags.CreateLag(lag);
  for (const limid_t& member : members)
    lags.AddMember(lag, member);
  return lag;
}

bool DeleteLag(limid_t lag) {
  return AllHandled(TheServices().lags->DeleteLag(lag));
}

bool AllHandled(const std::vector<sim::LagOrchestratorSim::Answer>& answers) {
  return !answers.empty() && std::all_of(answers.begin(), answers.end(),
                                         [](const auto& answer) { return answer.handled; });
}

vlanxlate::VlanMapping ReplaceRule(uint16_t match, uint16_t inner, uint16_t to) {
  vlanxlate::VlanMapping rule;
  rule.match.hasOuterVlan = true;
  rule.match.outerVlanTag = {match, kCustomerTpid, kNoPriority};
  if (inner != 0) {
    rule.match.hasInnerVlan = true;
    rule.match.innerVlanTag = {inner, kCustomerTpid, kNoPriority};
  }
  rule.operation = vlanxlate::Operation::Replace;
  rule.action.outerVlanTag = {to, 0, kNoPriority};
  return rule;
}

void CheckClean(benchmark::State& state) {
  const std::vector<std::string> lines = sim::halLog().Lines();
  if (!lines.empty()) {
    state.SkipWithError(("the library logged: " + lines.front()).c_str());
    return;
  }
  std::string leftover = LeftoverInDomainBooks(HalBcmBridgeDomainInspector(*TheServices().domain));
  if (leftover.empty())
    leftover = LeftoverInPortBooks(HalBcmBridgePortInspector(*TheServices().port));
  if (!leftover.empty())
    state.SkipWithError(("the scenario left state behind: " + leftover).c_str());
}

void ReportCalls(benchmark::State& state, int64_t ops, uint64_t calls, double seconds) {
  if (ops == 0)
    return;
  state.counters["calls/op"] = static_cast<double>(calls) / static_cast<double>(ops);
  if (calls > 0)
    state.counters["ns/call"] = seconds * 1e9 / static_cast<double>(calls);
}

bool countingMode = false;

void EnterCountingMode() {
  countingMode = true;
  for (const auto& [b, ops] : Registered())
    b->Iterations(ops);
}

void RunBegins() {
  // What the set-up and earlier runs freed would otherwise be consolidated by the first large
  // request of an operation, and the figures would depend on which runs came before.
  malloc_trim(0);
  allocations = 0;
}

void OpBegins() {
  allocationsBefore = AllocationsSoFar();
  CALLGRIND_TOGGLE_COLLECT;
}

void OpEnds() {
  CALLGRIND_TOGGLE_COLLECT;
  allocations += AllocationsSoFar() - allocationsBefore;
}

void RunEnds(benchmark::State& state, int64_t ops) {
  CALLGRIND_DUMP_STATS_AT(currentRun.c_str());
  if (AllocationsSoFar() >= 0 && ops > 0)
    state.counters["allocs/op"] = static_cast<double>(allocations) / static_cast<double>(ops);
}

void Register(const Family& family, const Scenario& scenario) {
  Families()[family.name] = family;
  for (const Chip chip : family.chips) {
    const std::string name = family.name + "/" + ChipName(chip);
    const std::string runPrefix = name + "/" + family.sizeName + ":";
    benchmark::internal::Benchmark* b = benchmark::RegisterBenchmark(
        name.c_str(), [scenario, chip, runPrefix](benchmark::State& state) {
          currentRun = runPrefix;
          currentRun += std::to_string(state.range(0));
          scenario(state, chip);
        });
    b->ArgName(family.sizeName)->UseManualTime()->Unit(family.unit);
    for (const int64_t size : family.sizes)
      b->Arg(size);
    if (family.iterations > 0)
      b->Iterations(family.iterations);
    Registered().emplace_back(b, family.countedOps);
  }
}

const Family* FindFamily(const std::string& name) {
  const auto it = Families().find(name);
  return it == Families().end() ? nullptr : &it->second;
}

}  // namespace bench
