#include "hal_bcm_bridge_port.h"

#include <algorithm>
#include <iterator>
#include <stdexcept>
#include <string>
#include <utility>

#include "hal_platform.h"

using halbd::DecodedName;
using halbd::Hal;

namespace {

constexpr unsigned int kLagClientPriority = 1001;  // after the bridge domain (1000)
constexpr const char* kLagClientName = "hal-switch-bd-ll-bcm-bridgeport";
constexpr unsigned short kDefaultTpid = 0x8100;
constexpr unsigned short kMaxVlan = 4095;
// Written to a port as its untagged VLAN when it has no native VLAN; never remembered for a LAG.
constexpr unsigned short kNoNativeVlan = 4095;
constexpr unsigned char kMaxPcp = 7;
constexpr unsigned char kDefaultPcp = 0;
// The only module that may block ports.
constexpr const char* kBlockingClient = "hal-stlp";

}  // namespace

HalBcmBridgePort* _halbp_global = nullptr;

namespace {

// Modules on several threads may call the factory at once, and every call publishes the address
// again: the exported pointer keeps its plain type but is written and read atomically.
void PublishInstance(HalBcmBridgePort* instance) {
  __atomic_store_n(&_halbp_global, instance, __ATOMIC_RELEASE);
}

HalBcmBridgePort* PublishedInstance() {
  return __atomic_load_n(&_halbp_global, __ATOMIC_ACQUIRE);
}

}  // namespace

HalBridgePortItf::~HalBridgePortItf() = default;

HalBridgePortItf* HalBridgePortItf::getInstance(
    std::shared_ptr<halswitchl2if::LagOrchestrator> lagOrchestrator) {
  return HalBcmBridgePort::GetInstance(std::move(lagOrchestrator));
}

HalBcmBridgePort* HalBcmBridgePort::GetInstance(
    std::shared_ptr<halswitchl2if::LagOrchestrator> lagOrchestrator) {
  // Construction is serialised by the guard of the function-local static; a constructor that
  // throws leaves the guard open, so the next call tries again.
  static HalBcmBridgePort instance(std::move(lagOrchestrator));
  PublishInstance(&instance);
  return &instance;
}

HalBcmBridgePort::HalBcmBridgePort(std::shared_ptr<halswitchl2if::LagOrchestrator> orchestrator)
    : bcmCommon(HalBcmCommon::GetInstance()),
      unit(bcmCommon->unit),
      lagOrchestrator(std::move(orchestrator)) {
  // One bucket to start with (the default; a rehash would round it up to two), grown only when
  // there are more TPIDs than buckets.
  tpids.max_load_factor(1.0f);

  if (!lagOrchestrator)
    return;  // a service without LAG events
  halswitchl2if::LagOrchestrator::Callback callback;
  // A new LAG has no members, so there is nothing to apply to bridge ports yet.
  callback.lagCreated = [](const limid_t&) { return true; };
  callback.lagDeleted = [this](const limid_t& lag) { return DelLagEvent(lag); };
  callback.memberAdded = [this](const limid_t& lag, const limid_t& member) {
    return AddMemberLagEvent(lag, member);
  };
  callback.memberDeleted = [this](const limid_t& lag, const limid_t& member) {
    return DelMemberLagEvent(lag, member);
  };
  lagOrchestrator->RegisterClient(kLagClientPriority, kLagClientName, std::move(callback));
}

// The singleton dies only when the library is unloaded: it neither deregisters from the LAG
// orchestrator nor undoes anything on the chip, and _halbp_global keeps its address.
HalBcmBridgePort::~HalBcmBridgePort() {
  lagOrchestrator.reset();
}

unsigned short HalBcmBridgePort::GetTpid(const limid_t& id) const {
  auto it = tpids.find(id);
  return it == tpids.end() ? kDefaultTpid : it->second;
}

unsigned short GetTpid(const limid_t& id) {
  const HalBcmBridgePort* service = PublishedInstance();
  if (service == nullptr)
    return kDefaultTpid;
  return service->GetTpid(id);
}

// ---- Shared shapes of the attribute setters --------------------------------------------------

namespace {

using RuleStore = std::map<limid_t, std::set<vlanxlate::VlanMapping>>;

// The per-port worker shape: resolve the identifier's chip port, program one value, report.
// prepare runs in the same guarded section as the lookup, so an argument it refuses with
// std::out_of_range is reported like an unknown port and nothing reaches the chip. The reporters
// receive what they print; each one formats its own literal message.
template <typename Prepare, typename ChipCall, typename ChipFailed, typename LookupFailed>
int ProgramPort(const HalBcmCommon& common, const limid_t& id, Prepare prepare, ChipCall chipCall,
                ChipFailed chipFailed, LookupFailed lookupFailed) {
  int port = 0;
  try {
    prepare();
    port = common.LookupPort(id).port;
  } catch (const std::out_of_range& e) {
    lookupFailed(e.what());
    return -1;
  }
  // The unit is read at each call, not taken from the service's copy.
  const int rc = chipCall(common.unit, port);
  if (rc < 0) {
    chipFailed(port, rc);
    return -1;
  }
  return 0;
}

template <typename ChipCall, typename ChipFailed, typename LookupFailed>
int ProgramPort(const HalBcmCommon& common, const limid_t& id, ChipCall chipCall,
                ChipFailed chipFailed, LookupFailed lookupFailed) {
  return ProgramPort(
      common, id, [] {}, chipCall, chipFailed, lookupFailed);
}

// Runs worker on each member of lag in order and stops at the first member that fails; members
// already changed keep the new value. An unknown LAG goes to lagUnknown. 0 or -1.
template <typename Worker, typename LagUnknown>
int ProgramMembersUntilFailure(const HalBcmCommon& common, limid_t lag, Worker worker,
                               LagUnknown lagUnknown) {
  try {
    for (const limid_t& member : common.GetLagMembers(lag)) {
      if (worker(member) != 0)
        return -1;
    }
  } catch (const std::out_of_range& e) {
    lagUnknown(e.what());
    return -1;
  }
  return 0;
}

// Keeps value for a LAG, or forgets the LAG's entry when value means "nothing configured".
template <typename Value>
void RememberForLag(std::map<limid_t, Value>& shadow, const limid_t& lag, Value value,
                    Value unconfigured) {
  if (value == unconfigured) {
    shadow.erase(lag);
  } else {
    shadow[lag] = value;
  }
}

template <typename Map>
typename Map::mapped_type ValueOr(const Map& map, const limid_t& id,
                                  typename Map::mapped_type fallback) {
  const auto it = map.find(id);
  return it == map.end() ? fallback : it->second;
}

// What a port takes on when it joins a LAG, or gets back when it leaves one.
struct PortAttributes {
  unsigned short nativeVlan;
  unsigned char pcp;
  en_HalBridgePortQinQ qinq;
  unsigned short tpid;
};

constexpr PortAttributes kStandalonePortAttributes{kNoNativeVlan, kDefaultPcp, HAL_BP_QINQ_DISABLE,
                                                   kDefaultTpid};

// Writes the discard mode and every attribute to one port; each step runs whatever the earlier
// ones returned. True when all of them succeeded.
bool ProgramPortAttributes(HalBcmBridgePort& service, const limid_t& port,
                           const PortAttributes& attributes) {
  // A braced list evaluates its elements in order.
  const int results[] = {
      service.UpdateDiscardPort(port),
      service.SetNativeVlanByPort(port, attributes.nativeVlan),
      service.SetDefaultPrioByPort(port, attributes.pcp),
      service.SetVlanQinQByPort(port, attributes.qinq),
      service.SetTpidByPort(port, attributes.tpid),
  };
  return std::all_of(std::begin(results), std::end(results), [](int rc) { return rc == 0; });
}

template <typename Fn>
void ForEachStoredRule(const RuleStore& store, const limid_t& id, Fn fn) {
  const auto it = store.find(id);
  if (it == store.end())
    return;
  for (const vlanxlate::VlanMapping& rule : it->second)
    fn(rule);
}

// Calls deleteRule for each rule stored for id; deleteRule erases the rule from the very set being
// walked, so the walk moves on before each call and hands over a copy.
template <typename Fn>
void DeleteStoredRules(RuleStore& store, const limid_t& id, Fn deleteRule) {
  const auto it = store.find(id);
  if (it == store.end())
    return;
  const std::set<vlanxlate::VlanMapping>& rules = it->second;
  for (auto next = rules.begin(); next != rules.end();) {
    const vlanxlate::VlanMapping rule = *next++;
    deleteRule(rule);
  }
}

}  // namespace

// ---- Per-port workers --------------------------------------------------------------------------

int HalBcmBridgePort::SetTpidByPort(const limid_t& port, unsigned short tpid) const {
  return ProgramPort(
      *bcmCommon, port,
      [&](int unit, int chipPort) { return bcm_port_tpid_set(unit, chipPort, tpid); },
      [&](int chipPort, int rc) {
        Hal()->error(rc, "[HAL-BP] Error setting %s (%#x) outer TPID: %s.",
                     DecodedName(port).c_str(), chipPort, bcm_errmsg(rc));
      },
      [&](const char* what) {
        Hal()->log(3, "[HAL-BP] Error setting %s outer TPID: %s.", DecodedName(port).c_str(), what);
      });
}

int HalBcmBridgePort::SetVlanQinQByPort(const limid_t& port, en_HalBridgePortQinQ mode) const {
  int bcmMode = BCM_PORT_DTAG_MODE_NONE;
  const int result = ProgramPort(
      *bcmCommon, port, [&] { Translate2Bcm(mode, bcmMode); },
      [&](int unit, int chipPort) { return bcm_port_dtag_mode_set(unit, chipPort, bcmMode); },
      [&](int chipPort, int rc) {
        Hal()->log(3, "%s: Error setting %s (%#x) dtag: %s.", "SetVlanQinQByPort",
                   DecodedName(port).c_str(), chipPort, bcm_errmsg(rc));
      },
      [&](const char* what) {
        Hal()->log(3, "%s: Error setting %s VLAN QinQ mode: %s.", "SetVlanQinQByPort",
                   DecodedName(port).c_str(), what);
      });
  if (result != 0)
    return result;
  // The ingress lookup keys depend on the tag layout; their failures are logged where they occur.
  UpdateVlanXlateLookupKeys(port, mode == HAL_BP_QINQ_ENABLE);
  return 0;
}

int HalBcmBridgePort::SetNativeVlanByPort(const limid_t& port, unsigned short vlan) const {
  return ProgramPort(
      *bcmCommon, port,
      [&](int unit, int chipPort) { return bcm_port_untagged_vlan_set(unit, chipPort, vlan); },
      [&](int chipPort, int rc) {
        Hal()->log(3, "Error setting %s (%#x) native VLAN: %s.", DecodedName(port).c_str(),
                   chipPort, bcm_errmsg(rc));
      },
      [&](const char* what) {
        Hal()->log(3, "Error setting %s native VLAN id(%d): %s.", DecodedName(port).c_str(), vlan,
                   what);
      });
}

int HalBcmBridgePort::SetDefaultPrioByPort(const limid_t& port, unsigned char pcp) const {
  return ProgramPort(
      *bcmCommon, port,
      [&](int unit, int chipPort) { return bcm_port_untagged_priority_set(unit, chipPort, pcp); },
      [&](int chipPort, int rc) {
        Hal()->log(3, "Error setting %s (%#x) default priority: %s.", DecodedName(port).c_str(),
                   chipPort, bcm_errmsg(rc));
      },
      [&](const char* what) {
        Hal()->log(3, "Error setting %s default priority: %s.", DecodedName(port).c_str(), what);
      });
}

// ---- Attribute setters -------------------------------------------------------------------------

int HalBcmBridgePort::SetInnerTpid(limid_t id, unsigned short tpid) {
  // The inner TPID is programmed on the identifier's own port only: a LAG is not expanded.
  return ProgramPort(
      *bcmCommon, id,
      [&](int unit, int chipPort) { return bcm_port_inner_tpid_set(unit, chipPort, tpid); },
      [&](int chipPort, int rc) {
        Hal()->log(3, "Error setting %s (%#x) inner TPID: %s.", DecodedName(id).c_str(), chipPort,
                   bcm_errmsg(rc));
      },
      [&](const char* what) {
        Hal()->log(3, "Error setting %s inner TPID: %s.", DecodedName(id).c_str(), what);
      });
}

int HalBcmBridgePort::SetTpid(limid_t id, unsigned short tpid) {
  int result = 0;
  if (halbd::IsLag(id)) {
    // Every member is tried, so that one bad port does not leave the rest on the old TPID.
    bool anyFailed = false;
    for (const limid_t& member : bcmCommon->GetLagMembers(id)) {
      anyFailed = SetTpidByPort(member, tpid) != 0 || anyFailed;
    }
    if (anyFailed) {
      Hal()->log(3, "[HAL-BP] Error setting %s outer TPID 0x%04x.", DecodedName(id).c_str(), tpid);
      result = -1;
    }
  } else {
    result = SetTpidByPort(id, tpid);
  }
  // Stored also after a refusal: GetTpid answers what was asked for.
  tpids[id] = tpid;
  return result;
}

int HalBcmBridgePort::SetVlanQinQ(limid_t id, en_HalBridgePortQinQ mode) {
  const auto program = [&](const limid_t& port) { return SetVlanQinQByPort(port, mode); };
  const auto lagUnknown = [&](const char* what) {
    Hal()->log(3, "Error setting %s VLAN Q-in-Q mode: %s.", DecodedName(id).c_str(), what);
  };
  const int result = halbd::IsLag(id)
                         ? ProgramMembersUntilFailure(*bcmCommon, id, program, lagUnknown)
                         : program(id);
  if (result != 0)
    return -1;
  if (mode != HAL_BP_QINQ_DISABLE) {
    qinqPorts.insert(id);
  } else {
    qinqPorts.erase(id);
  }
  // The stored ingress rules were programmed for the previous tag layout.
  UpdateVlanMappingRules(id);
  return 0;
}

int HalBcmBridgePort::SetNativeVlan(limid_t id, unsigned short vlan) {
  if (vlan > kMaxVlan) {
    Hal()->log(3, "Error setting %s native VLAN id(%d): Invalid VLAN range.",
               DecodedName(id).c_str(), vlan);
    return -1;
  }
  if (!halbd::IsLagByTypeCompare(id))
    return SetNativeVlanByPort(id, vlan);

  const int result = ProgramMembersUntilFailure(
      *bcmCommon, id, [&](const limid_t& member) { return SetNativeVlanByPort(member, vlan); },
      [&](const char* what) {
        Hal()->log(3, "Error setting %s native VLAN id(%d): %s.", DecodedName(id).c_str(), vlan,
                   what);
      });
  if (result != 0)
    return -1;
  RememberForLag(nativeVlans, id, vlan, kNoNativeVlan);
  return 0;
}

int HalBcmBridgePort::SetPrio4Untagged(limid_t id, unsigned char pcp) {
  if (pcp > kMaxPcp) {
    Hal()->log(3, "Error setting %s default priority(%d): Invalid PCP range.",
               DecodedName(id).c_str(), pcp);
    return -1;
  }
  if (!halbd::IsLagByTypeCompare(id))
    return SetDefaultPrioByPort(id, pcp);

  const int result = ProgramMembersUntilFailure(
      *bcmCommon, id, [&](const limid_t& member) { return SetDefaultPrioByPort(member, pcp); },
      [&](const char* what) {
        Hal()->log(3, "Error setting %s default priority(%d): %s.", DecodedName(id).c_str(), pcp,
                   what);
      });
  if (result != 0)
    return -1;
  RememberForLag(untaggedPrios, id, pcp, kDefaultPcp);
  return 0;
}

int HalBcmBridgePort::SetAcceptableFrameType(limid_t id,
                                             en_HalBridgePortAcceptableFrameTypes type) {
  // Stored before any chip call, so that a later discard update (unblocking, for one) applies it.
  acceptableFrameTypes[id] = type;
  if (!halbd::IsLag(id)) {
    const int rc = UpdateDiscardPort(id);
    if (rc != 0) {
      Hal()->log(3, "Error setting %s acceptable frame type %d.", DecodedName(id).c_str(),
                 static_cast<int>(type));
    }
    return rc;
  }
  for (const limid_t& member : bcmCommon->GetLagMembers(id)) {
    acceptableFrameTypes[member] = type;
    const int rc = UpdateDiscardPort(member);
    if (rc != 0) {
      Hal()->log(3, "Error setting LAG member %s acceptable frame type %d.",
                 DecodedName(member).c_str(), static_cast<int>(type));
      return rc;
    }
  }
  return 0;
}

void HalBcmBridgePort::Translate2Bcm(en_HalBridgePortQinQ mode, int& bcmMode) {
  switch (mode) {
    case HAL_BP_QINQ_DISABLE:
      bcmMode = BCM_PORT_DTAG_MODE_NONE;
      return;
    case HAL_BP_QINQ_ENABLE:
      // Q-in-Q ports face the customer: the chip adds the service tag on ingress.
      bcmMode = BCM_PORT_DTAG_MODE_EXTERNAL;
      return;
  }
  throw std::out_of_range("bad argument");
}

bcm_port_discard_e HalBcmBridgePort::TranslateHwValue(en_HalBridgePortAcceptableFrameTypes type,
                                                      bool blocked) const {
  if (blocked)
    return BCM_PORT_DISCARD_ALL;
  switch (type) {
    case HAL_BP_ADMIT_ALL_FRAMES:
      return BCM_PORT_DISCARD_NONE;
    case HAL_BP_ADMIT_ONLY_TAGGED:
      return BCM_PORT_DISCARD_UNTAG;
    case HAL_BP_ADMIT_ONLY_UNTAGGED:
      return BCM_PORT_DISCARD_TAG;
  }
  // An unknown setting fails safe.
  return BCM_PORT_DISCARD_ALL;
}

// ---- Blocking and discard
// ------------------------------------------------------------------------

int BlockPort(limid_t port, bool block, const std::string& client) {
  HalBcmBridgePort* service = PublishedInstance();
  if (service == nullptr) {
    Hal()->log(3, "[HAL-BP] Error accessing internal unique instance of HAL BP");
    return -1;
  }
  return service->SetBlockPort(port, block, client);
}

int HalBcmBridgePort::SetBlockPort(limid_t port, bool block, const std::string& client) {
  const std::string portName = DecodedName(port).c_str();
  // The client is checked first: a foreign client is refused whatever it asks for.
  if (client != kBlockingClient) {
    Hal()->log(3, "[HAL-BP] Discard port of interface (%s) not allowed for low-level client (%s)",
               portName.c_str(), client.c_str());
    return -1;
  }
  // A LAG is blocked member by member, so that the state belongs to the physical port and
  // survives its joining and leaving the LAG.
  if (limid_is_from_type_ethernet(port) == 0) {
    Hal()->log(3, "[HAL-BP] Only ethernet type port block is allowed.");
    return -1;
  }
  // Kept also when the chip refuses: the next successful discard update applies it.
  blockedPorts[port] = block;
  const int rc = UpdateDiscardPort(port);
  if (rc == 0)
    return 0;
  Hal()->log(3, "Error %s interface %s.", block ? "blocking" : "unblocking",
             DecodedName(port).c_str());
  return rc;
}

int HalBcmBridgePort::UpdateDiscardPort(const limid_t& port) {
  const auto type = ValueOr(acceptableFrameTypes, port, HAL_BP_ADMIT_ALL_FRAMES);
  const bool blocked = ValueOr(blockedPorts, port, false);
  return ApplyOnHardware(port, TranslateHwValue(type, blocked));
}

int HalBcmBridgePort::ApplyOnHardware(const limid_t& port, bcm_port_discard_e mode) {
  int chipPort = 0;
  try {
    chipPort = bcmCommon->LookupPort(port).port;
  } catch (const std::out_of_range& e) {
    Hal()->log(3, "[HAL-BP] Error getting device id port for: %s -  %s.", DecodedName(port).c_str(),
               e.what());
    return -1;
  }
  // Always written: the chip's value is not cached.
  const int rc = bcm_port_discard_set(unit, chipPort, mode);
  if (rc >= 0)
    return 0;
  Hal()->log(3, "[HAL-BP] Error setting %s port value: %d - %s.", DecodedName(port).c_str(),
             static_cast<int>(mode), bcm_errmsg(rc));
  return -1;
}

// ---- LAG events
// ------------------------------------------------------------------------------------

bool HalBcmBridgePort::AddMemberLagEvent(const limid_t& lag, const limid_t& member) {
  // The port's own rules leave the chip, removed with the tag layout they were installed under;
  // they stay in the store.
  const bool memberQinq = qinqPorts.count(member) != 0;
  ForEachStoredRule(ingressVlanMappings, member, [&](const vlanxlate::VlanMapping& rule) {
    RemoveIngressVlanMappingRule(member, rule, memberQinq, true);
  });
  ForEachStoredRule(egressVlanMappings, member, [&](const vlanxlate::VlanMapping& rule) {
    RemoveEgressVlanMappingRule(member, rule, true);
  });

  // Only membership is kept for a LAG's Q-in-Q, so a member always gets mode 1 when it is on.
  qinqPorts.erase(member);
  const PortAttributes lagAttributes{
      ValueOr(nativeVlans, lag, kNoNativeVlan), ValueOr(untaggedPrios, lag, kDefaultPcp),
      qinqPorts.count(lag) != 0 ? HAL_BP_QINQ_ENABLE : HAL_BP_QINQ_DISABLE, GetTpid(lag)};
  // The block state is not copied: it stays with the physical port.
  acceptableFrameTypes[member] = ValueOr(acceptableFrameTypes, lag, HAL_BP_ADMIT_ALL_FRAMES);

  const bool attributesApplied = ProgramPortAttributes(*this, member, lagAttributes);
  const bool classApplied = SetEgressVlanXlateClassIdForLag(lag, member);
  return attributesApplied && classApplied;
}

bool HalBcmBridgePort::DelMemberLagEvent(const limid_t& /*lag*/, const limid_t& member) {
  // The port comes back with fixed defaults, not with what it held before it joined; only its
  // block state, read by the discard update, survives.
  acceptableFrameTypes[member] = HAL_BP_ADMIT_ALL_FRAMES;
  const bool attributesApplied = ProgramPortAttributes(*this, member, kStandalonePortAttributes);
  const bool classApplied = ResetEgressVlanXlateClassId(member);
  return attributesApplied && classApplied;
}

bool HalBcmBridgePort::DelLagEvent(const limid_t& lag) {
  // An unknown LAG throws here, before anything is touched.
  bool membersReset = true;
  for (const limid_t& member : bcmCommon->GetLagMembers(lag)) {
    membersReset = DelMemberLagEvent(lag, member) && membersReset;
  }

  // Rule deletions report their own failures and do not change the answer.
  DeleteStoredRules(ingressVlanMappings, lag, [&](const vlanxlate::VlanMapping& rule) {
    DeleteVlanMappingRule(lag, vlanxlate::Stage::Ingress, rule);
  });
  DeleteStoredRules(egressVlanMappings, lag, [&](const vlanxlate::VlanMapping& rule) {
    DeleteVlanMappingRule(lag, vlanxlate::Stage::Egress, rule);
  });

  acceptableFrameTypes.erase(lag);
  blockedPorts.erase(lag);
  qinqPorts.erase(lag);
  nativeVlans.erase(lag);
  untaggedPrios.erase(lag);
  tpids.erase(lag);
  return membersReset;
}
