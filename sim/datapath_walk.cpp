// The frame walk of the simulated chip: a frame through tag recognition, ingress discard, ingress
// VLAN translation, VLAN assignment, ingress filtering, learning, the CPU port's protocol actions,
// forwarding or flooding (through one member of a trunk) and egress processing. The stages read
// the state that SDK calls set; learning and counting are the walk's only writes.
#include "sim/frame_walk.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>
#include <optional>
#include <stdexcept>

#include "datapath_internal.h"

namespace sim {
namespace {

using internal::ChipModel;
using internal::Model;

// The frame inside the pipeline: the tags the port recognised, and the rest carried as data.
struct Packet {
  std::optional<FrameTag> outer;
  std::optional<FrameTag> inner;
  bool outerTpidFixed = false;  // set by a translation action; not re-stamped on egress
  bool innerTpidFixed = false;
  std::vector<FrameTag> dataTags;  // tags the port did not recognise, in front of the payload
};

std::string TagText(const FrameTag& tag) {
  char text[40];
  std::snprintf(text, sizeof text, "[0x%04x %u p%u%s]", tag.tpid, tag.vlan, tag.priority,
                tag.dei ? " dei" : "");
  return text;
}

std::string PacketText(const Packet& packet) {
  std::string text;
  if (packet.outer)
    text += "outer " + TagText(*packet.outer);
  if (packet.inner)
    text += std::string(text.empty() ? "" : " ") + "inner " + TagText(*packet.inner);
  return text.empty() ? "no VLAN tag" : text;
}

class Walker {
 public:
  Walker(int ingressPort, const Frame& frame, const PortNamer& namer, const PortNamer& trunkNamer)
      : model_(Model()),
        port_(ingressPort),
        portState_(model_.ports.at(ingressPort)),
        frame_(frame),
        namer_(namer),
        trunkNamer_(trunkNamer),
        ingressTrunk_(internal::TrunkOfPort(ingressPort)) {}

  FrameWalk Run() {
    if (RecognizeTags() && PassDiscard() && TranslateIngress() && AssignVlan() && FilterIngress()) {
      LearnSource();
      if (HandToCpu())
        Forward();
    }
    internal::CountWalk(model_, port_, frame_, walk_);
    return std::move(walk_);
  }

 private:
  std::string PortName(int port) const {
    return namer_ ? namer_(port) : "port " + std::to_string(port);
  }

  std::string TrunkName(int trunk) const {
    return trunkNamer_ ? trunkNamer_(trunk) : "trunk " + std::to_string(trunk);
  }

  std::string EntryPlace(const FdbEntry& entry) const {
    return entry.trunk ? TrunkName(entry.portOrTrunk) : PortName(entry.portOrTrunk);
  }

  std::string EgressStage(int port) const {
    return "egress " + (namer_ ? namer_(port) : std::to_string(port));
  }

  void Step(const std::string& stage, const std::string& note) {
    walk_.steps.push_back(WalkStep{stage, note});
  }

  bool Drop(const std::string& stage, const std::string& reason) {
    Step(stage, "drop: " + reason);
    walk_.dropped = true;
    walk_.dropStage = stage;
    walk_.dropReason = reason;
    return false;
  }

  // A customer-facing port (external double-tag mode) takes the frame's first tag as the
  // customer (inner) tag, whichever of its two TPIDs it carries; other ports recognise an outer
  // tag by the outer TPID and, behind it, an inner tag by the inner TPID.
  bool RecognizeTags() {
    const std::vector<FrameTag>& tags = frame_.tags;
    size_t used = 0;
    if (portState_.dtagMode == BCM_PORT_DTAG_MODE_EXTERNAL) {
      if (!tags.empty() &&
          (tags[0].tpid == portState_.innerTpid || tags[0].tpid == portState_.outerTpid)) {
        packet_.inner = tags[0];
        used = 1;
      }
    } else if (!tags.empty() && tags[0].tpid == portState_.outerTpid) {
      packet_.outer = tags[0];
      used = 1;
      if (tags.size() > 1 && tags[1].tpid == portState_.innerTpid) {
        packet_.inner = tags[1];
        used = 2;
      }
    }
    packet_.dataTags.assign(tags.begin() + static_cast<long>(used), tags.end());
    Step("tags", PacketText(packet_));
    return true;
  }

  // Priority-tagged frames (VLAN 0) count as untagged.
  bool ArrivedTagged() const {
    const std::optional<FrameTag>& first = packet_.outer ? packet_.outer : packet_.inner;
    return first && first->vlan != 0;
  }

  bool PassDiscard() {
    const bool tagged = ArrivedTagged();
    switch (portState_.discardMode) {
      case BCM_PORT_DISCARD_ALL:
        return Drop("discard", "port discards all frames");
      case BCM_PORT_DISCARD_UNTAG:
        if (!tagged)
          return Drop("discard", "port discards untagged frames");
        break;
      case BCM_PORT_DISCARD_TAG:
        if (tagged)
          return Drop("discard", "port discards tagged frames");
        break;
      default:
        break;
    }
    Step("discard", "admitted");
    return true;
  }

  // The lookup key values a key type takes from the frame, if the frame has the tags it needs.
  std::optional<std::pair<uint16_t, uint16_t>> KeyVlans(int keyType) const {
    switch (keyType) {
      case bcmVlanTranslateKeyPortDouble:
        if (packet_.outer && packet_.inner) {
          return std::make_pair(packet_.outer->vlan, packet_.inner->vlan);
        }
        break;
      case bcmVlanTranslateKeyPortOuter:
        if (packet_.outer)
          return std::make_pair(packet_.outer->vlan, uint16_t{0});
        break;
      case bcmVlanTranslateKeyPortInner:
        if (packet_.inner)
          return std::make_pair(uint16_t{0}, packet_.inner->vlan);
        break;
      default:
        break;
    }
    return std::nullopt;
  }

  // A member port of a trunk looks up the trunk's entries; any other port its own.
  const bcm_vlan_action_set_t* LookupIngress(std::string& note) const {
    const std::optional<int> trunk = internal::TrunkOfPort(port_);
    for (int keyType : {portState_.keyFirst, portState_.keySecond}) {
      const auto vlans = KeyVlans(keyType);
      if (!vlans)
        continue;
      const IngressKey key{trunk.has_value(), trunk ? *trunk : port_, keyType, vlans->first,
                           vlans->second};
      auto hit = model_.ingress.find(key);
      note += (note.empty() ? "" : ", ") + std::string("key ") + std::to_string(keyType) + " (" +
              std::to_string(vlans->first) + ", " + std::to_string(vlans->second) + ")";
      if (hit != model_.ingress.end()) {
        note += " hit";
        return &hit->second;
      }
      note += " miss";
    }
    return nullptr;
  }

  bool TranslateIngress() {
    std::string note;
    const bcm_vlan_action_set_t* action = LookupIngress(note);
    if (action != nullptr)
      ApplyIngressAction(*action);
    Step("ingress-xlate", (note.empty() ? "no lookup" : note) +
                              (action != nullptr ? " -> " + PacketText(packet_) : ""));
    return true;
  }

  // Add pushes a tag in front of the one in the slot; Copy takes the VLAN of the other tag.
  static void ApplyTagAction(bcm_vlan_action_t action, std::optional<FrameTag>& slot,
                             std::optional<FrameTag>& displaced, uint16_t newVlan,
                             const std::optional<FrameTag>& other, uint16_t tpid) {
    switch (action) {
      case bcmVlanActionAdd:
        displaced = slot;
        slot = FrameTag{tpid, newVlan, 0};
        break;
      case bcmVlanActionReplace:
        if (slot)
          slot->vlan = newVlan;
        break;
      case bcmVlanActionDelete:
        slot.reset();
        break;
      case bcmVlanActionCopy:
        if (slot && other)
          slot->vlan = other->vlan;
        break;
      default:
        break;
    }
  }

  static void ApplyPriorityAction(bcm_vlan_action_t action, std::optional<FrameTag>& slot,
                                  int value, const std::optional<FrameTag>& other) {
    if (!slot)
      return;
    if ((action == bcmVlanActionAdd || action == bcmVlanActionReplace) && value >= 0) {
      slot->priority = static_cast<uint8_t>(value);
    } else if (action == bcmVlanActionCopy && other) {
      slot->priority = other->priority;
    }
  }

  // The actions that apply depend on the tags the frame arrived with: double (dt_), outer only
  // (ot_), inner only (it_); an untagged frame is not translated.
  void ApplyIngressAction(const bcm_vlan_action_set_t& a) {
    const bool outer = packet_.outer.has_value();
    const bool inner = packet_.inner.has_value();
    // Copy actions read the tags as the frame arrived, whatever the other actions do to them.
    const std::optional<FrameTag> arrivedOuter = packet_.outer;
    const std::optional<FrameTag> arrivedInner = packet_.inner;
    bcm_vlan_action_t outerTag = bcmVlanActionNone, innerTag = bcmVlanActionNone;
    bcm_vlan_action_t outerPrio = bcmVlanActionNone, innerPrio = bcmVlanActionNone;
    if (outer && inner) {
      outerTag = a.dt_outer, innerTag = a.dt_inner;
      outerPrio = a.dt_outer_pkt_prio, innerPrio = a.dt_inner_pkt_prio;
    } else if (outer) {
      outerTag = a.ot_outer, outerPrio = a.ot_outer_pkt_prio;
    } else if (inner) {
      outerTag = a.it_outer, innerTag = a.it_inner;
      outerPrio = a.it_outer_pkt_prio, innerPrio = a.it_inner_pkt_prio;
    }
    std::optional<FrameTag> pushedOut;
    ApplyTagAction(innerTag, packet_.inner, pushedOut, a.new_inner_vlan, arrivedOuter,
                   portState_.innerTpid);
    if (pushedOut)
      packet_.dataTags.insert(packet_.dataTags.begin(), *pushedOut);
    std::optional<FrameTag> formerOuter;
    ApplyTagAction(outerTag, packet_.outer, formerOuter, a.new_outer_vlan, arrivedInner,
                   portState_.outerTpid);
    if (formerOuter) {
      if (packet_.inner)
        packet_.dataTags.insert(packet_.dataTags.begin(), *packet_.inner);
      packet_.inner = formerOuter;
    }
    ApplyPriorityAction(outerPrio, packet_.outer, a.priority, arrivedInner);
    ApplyPriorityAction(innerPrio, packet_.inner, a.new_inner_pkt_prio, arrivedOuter);
    if (a.outer_tpid_action == bcmVlanTpidActionModify && packet_.outer) {
      packet_.outer->tpid = a.outer_tpid;
      packet_.outerTpidFixed = true;
    }
    if (a.inner_tpid_action == bcmVlanTpidActionModify && packet_.inner) {
      packet_.inner->tpid = a.inner_tpid;
      packet_.innerTpidFixed = true;
    }
  }

  // Without an outer VLAN tag the frame takes the port's native VLAN and untagged priority; on a
  // customer-facing port that tag is the service tag pushed in front of the customer's.
  bool AssignVlan() {
    if (packet_.outer && packet_.outer->vlan != 0) {
      Step("vlan", "VLAN " + std::to_string(packet_.outer->vlan) + " from the outer tag");
    } else if (packet_.outer) {
      packet_.outer->vlan = portState_.untaggedVlan;
      Step("vlan", "priority tag: native VLAN " + std::to_string(portState_.untaggedVlan));
    } else {
      packet_.outer = FrameTag{portState_.outerTpid, portState_.untaggedVlan,
                               static_cast<uint8_t>(portState_.untaggedPriority)};
      Step("vlan", "native VLAN " + std::to_string(portState_.untaggedVlan) + " priority " +
                       std::to_string(portState_.untaggedPriority) +
                       (packet_.inner ? ", service tag pushed" : ""));
    }
    return true;
  }

  bool FilterIngress() {
    const uint16_t vlan = packet_.outer->vlan;
    auto it = model_.vlans.find(vlan);
    if (it == model_.vlans.end()) {
      return Drop("ingress-filter", "VLAN " + std::to_string(vlan) + " does not exist");
    }
    if (it->second.members.count(port_) == 0) {
      return Drop("ingress-filter",
                  PortName(port_) + " is not a member of VLAN " + std::to_string(vlan));
    }
    Step("ingress-filter", "member of VLAN " + std::to_string(vlan));
    walk_.vlan = vlan;
    return true;
  }

  // Independent learning: the source address is learned in the frame's VLAN, against the trunk
  // of a member port so that a reply may leave by any member.
  void LearnSource() {
    const std::string mac = FormatMac(frame_.src);
    const internal::Learned learned =
        internal::Learn(model_, Vlan(), frame_.src, port_, ingressTrunk_);
    const FdbEntry here{Vlan(), frame_.src, ingressTrunk_.has_value(),
                        ingressTrunk_ ? *ingressTrunk_ : port_, 0};
    switch (learned.kind) {
      case internal::Learned::New:
        Step("learn", mac + " learned on " + EntryPlace(here));
        break;
      case internal::Learned::Refreshed:
        Step("learn", mac + " refreshed on " + EntryPlace(here));
        break;
      case internal::Learned::Moved:
        Step("learn",
             mac + " moved from " + EntryPlace(learned.previous) + " to " + EntryPlace(here));
        break;
      default:
        Step("learn", mac + " not learned (a group or all-zero address)");
        break;
    }
  }

  // DHCP and IGMP as the VLAN's control record says. False when the frame goes no further.
  bool HandToCpu() {
    const std::optional<internal::CpuAction> action = internal::CpuActionFor(
        model_.vlans.at(Vlan()), Vlan(), packet_.dataTags.empty() ? frame_.payload : kNoPayload);
    if (!action)
      return true;
    if (action->toCpu)
      walk_.cpuReason = action->reason;
    if (!action->forward && !action->toCpu)
      return Drop("protocol", action->note);
    Step("protocol", action->note);
    return action->forward;
  }

  uint16_t Vlan() const { return packet_.outer->vlan; }

  // A known unicast destination goes to its one port; anything else floods.
  void Forward() {
    const FdbEntry* entry = internal::FindDestination(model_, Vlan(), frame_.dst);
    if (entry != nullptr)
      ForwardKnown(*entry);
    else
      Flood();
  }

  // The member a trunk's copy leaves by, with the choice traced.
  std::optional<int> HashMember(int trunk, const std::set<int>& members) {
    const uint16_t flowHash = TrunkHash(frame_.dst, frame_.src, Vlan());
    const std::optional<int> member = TrunkMemberOf(flowHash, members);
    if (member) {
      const auto index = std::distance(members.begin(), members.find(*member));
      char hashText[8];
      std::snprintf(hashText, sizeof hashText, "0x%04x", static_cast<unsigned>(flowHash));
      hashSteps_.push_back(WalkStep{"trunk-hash", TrunkName(trunk) + ": hash " + hashText +
                                                      ", member " + std::to_string(index + 1) +
                                                      " of " + std::to_string(members.size()) +
                                                      " -> " + PortName(*member)});
    }
    return member;
  }

  void FlushHashSteps() {
    for (WalkStep& step : hashSteps_)
      walk_.steps.push_back(std::move(step));
    hashSteps_.clear();
  }

  // Never back where the frame came from: a destination on the ingress port or its trunk is
  // filtered, as a bridge does.
  void ForwardKnown(const FdbEntry& entry) {
    const std::string where = FormatMac(frame_.dst) + " on " + EntryPlace(entry);
    const bool cameFromThere =
        entry.trunk ? ingressTrunk_ == entry.portOrTrunk : entry.portOrTrunk == port_;
    if (cameFromThere) {
      Drop("forward", "destination " + where + ", where the frame came from");
      return;
    }
    const std::optional<int> port =
        entry.trunk ? HashMember(entry.portOrTrunk, internal::TrunkPorts(entry.portOrTrunk))
                    : std::optional<int>(entry.portOrTrunk);
    if (!port) {
      Drop("forward", "destination " + where + ", which has no member");
      return;
    }
    const VlanState& vlan = model_.vlans.at(Vlan());
    auto member = vlan.members.find(*port);
    if (member == vlan.members.end()) {
      FlushHashSteps();
      Drop("forward", PortName(*port) + " is not a member of VLAN " + std::to_string(Vlan()));
      return;
    }
    Step("forward", where + ", 1 copy");
    FlushHashSteps();
    walk_.knownUnicast = true;
    walk_.copies.push_back(FrameCopy{*port, Egress(*port, member->second)});
  }

  // The flood set is the VLAN's broadcast group when it has one, else its member ports.
  std::set<int> FloodSet(const VlanState& vlan, std::string& note) const {
    std::set<int> ports;
    const bcm_multicast_t group = vlan.control.broadcast_group;
    auto groupIt = model_.groups.find(group);
    if (group != 0 && groupIt != model_.groups.end()) {
      note = "broadcast group " + internal::Hex(static_cast<uint32_t>(group));
      for (const auto& member : groupIt->second) {
        if (auto port = internal::ResolvePort(member.first))
          ports.insert(*port);
      }
    } else {
      note = "VLAN members";
      for (const auto& member : vlan.members)
        ports.insert(member.first);
    }
    return ports;
  }

  // Not back to the ingress port or its trunk; one copy per trunk, through the member the hash
  // chooses among its members in the set; only to members of the VLAN.
  void Flood() {
    const VlanState& vlan = model_.vlans.at(packet_.outer->vlan);
    std::string note;
    const std::set<int> candidates = FloodSet(vlan, note);
    std::map<int, std::set<int>> trunkMembers;
    std::set<int> ports;
    for (int port : candidates) {
      if (port == port_)
        continue;
      const std::optional<int> trunk = internal::TrunkOfPort(port);
      if (!trunk)
        ports.insert(port);
      else if (trunk != ingressTrunk_)
        trunkMembers[*trunk].insert(port);
    }
    for (const auto& [trunk, members] : trunkMembers)
      ports.insert(*HashMember(trunk, members));
    std::vector<std::pair<int, bool>> targets;  // port, untagged member
    for (int port : ports) {
      auto member = vlan.members.find(port);
      if (member == vlan.members.end()) {
        note += ", " + PortName(port) + " pruned (not a VLAN member)";
        continue;
      }
      targets.emplace_back(port, member->second);
    }
    if (targets.empty()) {
      FlushHashSteps();
      Drop("flood", note + ": no egress port");
      walk_.dropReason = "no egress port";
      return;
    }
    Step("flood", note + ", " + std::to_string(targets.size()) +
                      (targets.size() == 1 ? " copy" : " copies"));
    FlushHashSteps();
    for (const auto& [port, untagged] : targets) {
      walk_.copies.push_back(FrameCopy{port, Egress(port, untagged)});
    }
  }

  Frame Egress(int port, bool untagged) {
    const PortState& egressPort = model_.ports.at(port);
    std::vector<FrameTag> tags;
    bool outermostFixed = false;
    if (!untagged) {
      tags.push_back(*packet_.outer);
      outermostFixed = packet_.outerTpidFixed;
    } else if (packet_.inner) {
      outermostFixed = packet_.innerTpidFixed;
    }
    if (packet_.inner)
      tags.push_back(*packet_.inner);
    const size_t vlanTags = tags.size();
    std::string note = untagged ? "untagged member" : "tagged member";
    if (TranslateEgress(egressPort, tags, vlanTags, note))
      outermostFixed = true;
    if (!tags.empty() && !outermostFixed)
      tags.front().tpid = egressPort.outerTpid;
    tags.insert(tags.end(), packet_.dataTags.begin(), packet_.dataTags.end());
    Frame out = frame_;
    out.tags = tags;
    Step(EgressStage(port), note + " -> " + FormatFrame(out));
    return out;
  }

  // Egress entries are keyed by the egress port's class and the frame's VLANs as it leaves.
  // Returns true when an action fixed the outermost tag's TPID.
  bool TranslateEgress(const PortState& egressPort, std::vector<FrameTag>& tags, size_t vlanTags,
                       std::string& note) const {
    if (vlanTags == 0)
      return false;
    const uint16_t innerVlan = vlanTags > 1 ? tags[1].vlan : 0;
    const EgressKey key{static_cast<int>(egressPort.egressClass), tags[0].vlan, innerVlan};
    auto hit = model_.egress.find(key);
    note += ", egress class " + std::to_string(key.portClass) +
            (hit == model_.egress.end() ? " miss" : " hit");
    if (hit == model_.egress.end())
      return false;
    const bcm_vlan_action_set_t& a = hit->second;
    const bool dt = vlanTags > 1;
    const bcm_vlan_action_t outerTag = dt ? a.dt_outer : a.ot_outer;
    const bcm_vlan_action_t outerPrio = dt ? a.dt_outer_pkt_prio : a.ot_outer_pkt_prio;
    if (outerTag == bcmVlanActionReplace)
      tags[0].vlan = a.new_outer_vlan;
    if (outerTag == bcmVlanActionDelete) {
      tags.erase(tags.begin());
      return false;
    }
    if (dt && a.dt_inner == bcmVlanActionReplace)
      tags[1].vlan = a.new_inner_vlan;
    if ((outerPrio == bcmVlanActionReplace || outerPrio == bcmVlanActionAdd) && a.priority >= 0) {
      tags[0].priority = static_cast<uint8_t>(a.priority);
    }
    if (a.outer_tpid_action == bcmVlanTpidActionModify) {
      tags[0].tpid = a.outer_tpid;
      return true;
    }
    return false;
  }

  ChipModel& model_;
  const int port_;
  const PortState& portState_;
  const Frame& frame_;
  const PortNamer& namer_;
  const PortNamer& trunkNamer_;
  const std::optional<int> ingressTrunk_;
  Packet packet_;
  FrameWalk walk_;
  std::vector<WalkStep> hashSteps_;  // shown after the forwarding decision that needed them
  static const std::vector<uint8_t> kNoPayload;
};

// Behind a tag the port does not recognise the chip sees no EtherType it knows.
const std::vector<uint8_t> Walker::kNoPayload;

}  // namespace

FrameWalk WalkFrame(int ingressPort, const Frame& frame, const PortNamer& namer,
                    const PortNamer& trunkNamer) {
  if (ingressPort < 0 || ingressPort >= Chip::kNumPorts) {
    throw std::out_of_range("no such port: " + std::to_string(ingressPort));
  }
  return Walker(ingressPort, frame, namer, trunkNamer).Run();
}

size_t FrameBytes(const Frame& frame) {
  constexpr size_t kAddressBytes = 12;
  constexpr size_t kTagBytes = 4;
  return kAddressBytes + kTagBytes * frame.tags.size() + frame.payload.size();
}

std::string FormatMac(const MacAddress& mac) {
  char text[18];
  std::snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
                mac[4], mac[5]);
  return text;
}

std::optional<MacAddress> ParseMac(const std::string& text) {
  std::string digits;
  for (size_t i = 0; i < text.size(); ++i) {
    const bool separator = (text[i] == ':' || text[i] == '-') && i % 3 == 2;
    if (separator)
      continue;
    if (!std::isxdigit(static_cast<unsigned char>(text[i])))
      return std::nullopt;
    digits += text[i];
  }
  const bool separated = text.size() == 17;
  if (digits.size() != 12 || (!separated && text.size() != 12))
    return std::nullopt;
  MacAddress mac{};
  for (size_t i = 0; i < mac.size(); ++i)
    mac[i] = static_cast<uint8_t>(std::stoul(digits.substr(2 * i, 2), nullptr, 16));
  return mac;
}

std::string FormatFrame(const Frame& frame) {
  if (frame.tags.empty())
    return "untagged";
  std::string text;
  for (const FrameTag& tag : frame.tags)
    text += TagText(tag);
  return text;
}

}  // namespace sim
