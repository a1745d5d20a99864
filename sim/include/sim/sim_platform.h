// The simulated platform: a behavioural model of the switch chip behind the SDK calls, and
// substitutes of the companion libraries (identifiers, common chip library, HAL callbacks, LAG
// orchestrator). The bridge library links against it exactly as it would against the real ones.
//
// One call, sim::Reset(), returns everything to a clean state for the next test.
#ifndef HALBD_SIM_SIM_PLATFORM_H
#define HALBD_SIM_SIM_PLATFORM_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "chip_sdk.h"
#include "hal_bcm_common.h"
#include "limid.h"

namespace sim {

// Resets the chip, the common tables, the log, the assertion record and the fault plan.
void Reset();

// ---- Identifiers
// --------------------------------------------------------------------------------- Layout of the
// simulated identifier library: byte 0 is the kind, bytes 1-3 its coordinates.
//   ethernet port: kind 1, byte 1 slot, bytes 2-3 port (big-endian)   "eth<slot>/<port>"
//   LAG:           kind 2, bytes 2-3 LAG number                       "lag<n>"
//   bridge domain: kind 3, bytes 2-3 VLAN number                      "vlan<n>"
enum class IdKind : uint8_t { Ethernet = 1, Lag = 2, BridgeDomain = 3 };

limid_t EthernetPort(unsigned slot, unsigned port);
limid_t Lag(unsigned number);
limid_t BridgeDomain(unsigned vlan);
// The name of an identifier as the identifier library prints it.
std::string NameOf(limid_t id);
// Parses "eth1/3", "lag5" or "vlan10"; throws std::invalid_argument on anything else.
limid_t ParseId(const std::string& name);

// ---- Gports in the SDK's encoding -------------------------------------------------------------
int LocalGport(int port);
int ModuleGport(int module, int port);
int TrunkGport(int trunkId);
// The chip port that a gport names, as the chip resolves it: a local-port gport, or a module gport
// of this chip's module (0); nothing for another module's port, a trunk or a port beyond the chip.
std::optional<int> ChipPortOfGport(int gport);
// The chip's trunk table holds 128 trunks, as many as the egress classes a LAG's class counts
// down through from the top of the class range.
constexpr int kMaxTrunkId = 127;

// ---- Common chip library tables
// -------------------------------------------------------------------
class Common {
 public:
  // The unit the chip answers to and HalBcmCommon reports (default 0).
  void SetUnit(int unit);
  // An interface with its gport in the port table, the gport table and the reverse table.
  void AddPort(limid_t id, int gport);
  // An entry in the gport table only (and the reverse table).
  void AddGportOnly(limid_t id, int gport);
  // A LAG: its trunk gport in the gport table and the reverse table, and an empty member list.
  void AddLag(limid_t lag, int trunkId);
  // Lists or unlists a member port of a known LAG (the LAG orchestrator does this on its events).
  void ListLagMember(limid_t lag, limid_t member);
  void UnlistLagMember(limid_t lag, limid_t member);
  // Forgets a LAG's member list; GetLagMembers then throws for it.
  void ForgetLag(limid_t lag);
  bool HasLag(limid_t lag) const;
  // The known LAG whose member list holds the port, if any.
  std::optional<limid_t> LagOf(limid_t member) const;
  VlanMemberTable& VlanMembers();
};
Common& common();

// ---- HAL callbacks: the in-memory log
// ---------------------------------------------------------------
struct LogRecord {
  bool isError;     // error(rc, ...) rather than log(level, ...)
  int levelOrCode;  // the level of log(), the code of error()
  std::string text;
};

class HalLog {
 public:
  const std::vector<LogRecord>& Records() const;
  // The texts alone, in order.
  std::vector<std::string> Texts() const;
  // "log(3): text" or "error(-7): text", in order: the form for exact assertions.
  std::vector<std::string> Lines() const;
  void Clear();
  // Also writes every message to stderr.
  void SetEcho(bool echo);
  // The next message is recorded, then std::runtime_error is thrown from the logging call.
  void ThrowOnNextMessage();
};
HalLog& halLog();

// ---- SDK assertion
// ------------------------------------------------------------------------------------
struct AssertRecord {
  std::string expression;
  std::string file;
  int line;
};
const std::vector<AssertRecord>& Assertions();
// When set, _sal_assert aborts the process after recording; by default it returns.
void SetAbortOnAssert(bool abort);

// ---- The chip
// ------------------------------------------------------------------------------------------
struct PortState {
  uint16_t outerTpid = 0x8100;
  uint16_t innerTpid = 0x9100;
  uint16_t untaggedVlan = 1;
  int untaggedPriority = 0;
  int dtagMode = BCM_PORT_DTAG_MODE_NONE;
  int discardMode = BCM_PORT_DISCARD_NONE;
  uint32_t egressClass = 0;  // reset to the port's own number
  // A port boots with the single-tag lookup keys: port+double first, port+outer second.
  int keyFirst = bcmVlanTranslateKeyPortDouble;
  int keySecond = bcmVlanTranslateKeyPortOuter;
};

struct VlanState {
  std::map<int, bool> members;  // local port number -> untagged
  bcm_vlan_control_vlan_t control{};
};

// Ingress translation entries are keyed by (port or trunk, key type, outer VLAN, inner VLAN).
// Local and module gports of one port, and its plain number, name the same entry.
struct IngressKey {
  bool trunk;
  int portOrTrunk;
  int keyType;
  uint16_t outerVlan;
  uint16_t innerVlan;
  bool operator<(const IngressKey& o) const {
    return std::tie(trunk, portOrTrunk, keyType, outerVlan, innerVlan) <
           std::tie(o.trunk, o.portOrTrunk, o.keyType, o.outerVlan, o.innerVlan);
  }
};

// Egress translation entries are keyed by port class, so one entry serves every member of a LAG.
struct EgressKey {
  int portClass;
  uint16_t outerVlan;
  uint16_t innerVlan;
  bool operator<(const EgressKey& o) const {
    return std::tie(portClass, outerVlan, innerVlan) <
           std::tie(o.portClass, o.outerVlan, o.innerVlan);
  }
};

// One SDK call as the chip saw it.
struct SdkCall {
  std::string function;
  std::string arguments;  // rendered, e.g. "0, 10, 0x4000003, 0x1"
  int rc;
  // "function(arguments) = rc"
  std::string Text() const;
};

class Chip {
 public:
  static constexpr int kNumPorts = 64;  // local ports 0..63

  // -- set-up (no trace) --
  // Creates a VLAN, with a broadcast replication group of its own unless told otherwise.
  // Returns the group (0 without one).
  // Throws std::invalid_argument for a VLAN the chip refuses to create (VlanCreationCode).
  bcm_multicast_t CreateVlan(bcm_vlan_t vlan, bool withBroadcastGroup = true);
  // The chip's answer to creating a VLAN: BCM_E_PARAM for VLAN 0, which marks priority-tagged
  // frames, and for numbers above 4095; else BCM_E_NONE. VLAN 4095, reserved by 802.1Q, is
  // created: the library writes it as the untagged VLAN of a port without a native VLAN.
  static int VlanCreationCode(bcm_vlan_t vlan);
  void DestroyVlan(bcm_vlan_t vlan);
  // Chooses the identification words of soc_control for the unit.
  void SetControlWords(uint32_t chipType, uint32_t xlatePktPrio, uint32_t familyFlags);
  // A chip that passes the packet-priority capability test, or one that fails it.
  void SetPacketPriorityCapable(bool capable);
  // Whether bcm_vlan_gport_get_all reports members as module gports (as some chips do) rather
  // than local-port gports. Default: local-port gports.
  void SetReportModuleGports(bool module);
  // The two switches above as they stand.
  bool PacketPriorityCapable() const;
  bool ReportsModuleGports() const;

  // -- state --
  const PortState& Port(int port) const;
  bool HasVlan(bcm_vlan_t vlan) const;
  const VlanState& Vlan(bcm_vlan_t vlan) const;  // throws std::out_of_range when absent
  std::vector<bcm_vlan_t> Vlans() const;
  // (gport, encap) members of a replication group; throws std::out_of_range when absent.
  const std::set<std::pair<bcm_gport_t, bcm_if_t>>& GroupMembers(bcm_multicast_t group) const;
  // The encapsulation id the chip assigns to a port in a group.
  static bcm_if_t EncapOf(int port);
  const std::map<IngressKey, bcm_vlan_action_set_t>& IngressTable() const;
  const std::map<EgressKey, bcm_vlan_action_set_t>& EgressTable() const;

  // -- fault injection: a failing call returns rc and changes nothing --
  // The next count calls of function fail with rc.
  void FailNext(const std::string& function, int count, int rc);
  // Only the nth call of function from now on (1 = the next one) fails with rc.
  void FailNth(const std::string& function, int nth, int rc);
  void ClearFaults();

  // -- trace of every chip call (the void record initialisers are not chip calls) --
  const std::vector<SdkCall>& Trace() const;
  std::vector<std::string> TraceTexts() const;
  // The calls of one function only.
  std::vector<std::string> TraceTexts(const std::string& function) const;
  void ClearTrace();
  // Whether calls are recorded in the trace (on by default; large benchmarks turn it off).
  void SetTracing(bool tracing);

  // -- cost measurement --
  // Every SDK call made since the last reset, traced or not, null chip or not.
  uint64_t CallCount() const;
  // The null chip answers every call with success at once, modelling nothing and tracing
  // nothing, so that a benchmark measures the library alone.
  void SetNullChip(bool null);
};
Chip& chip();

}  // namespace sim

#endif  // HALBD_SIM_SIM_PLATFORM_H
