// The frame walk of the simulated chip: a broadcast frame through ingress discard, tag recognition,
// ingress VLAN translation, VLAN assignment, ingress filtering, flooding and egress processing,
// each stage reading only the state that SDK calls set.
#include "sim/frame_walk.h"

#include <cstdio>
#include <optional>
#include <stdexcept>

#include "sim_internal.h"

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
  std::vector<FrameTag> payload;
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
  Walker(int ingressPort, const Frame& frame, const PortNamer& namer)
      : model_(Model()),
        port_(ingressPort),
        portState_(model_.ports.at(ingressPort)),
        frame_(frame),
        namer_(namer) {}

  FrameWalk Run() {
    if (RecognizeTags() && PassDiscard() && TranslateIngress() && AssignVlan() && FilterIngress()) {
      Flood();
    }
    return std::move(walk_);
  }

 private:
  std::string PortName(int port) const {
    return namer_ ? namer_(port) : "port " + std::to_string(port);
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
    packet_.payload.assign(tags.begin() + static_cast<long>(used), tags.end());
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
      packet_.payload.insert(packet_.payload.begin(), *pushedOut);
    std::optional<FrameTag> formerOuter;
    ApplyTagAction(outerTag, packet_.outer, formerOuter, a.new_outer_vlan, arrivedInner,
                   portState_.outerTpid);
    if (formerOuter) {
      if (packet_.inner)
        packet_.payload.insert(packet_.payload.begin(), *packet_.inner);
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
    return true;
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

  // Not back to the ingress port or its trunk; one copy per trunk, by its lowest member in the
  // set (the model's stand-in for the trunk hash); only to members of the VLAN.
  void Flood() {
    const VlanState& vlan = model_.vlans.at(packet_.outer->vlan);
    std::string note;
    const std::set<int> candidates = FloodSet(vlan, note);
    const std::optional<int> ingressTrunk = internal::TrunkOfPort(port_);
    std::set<int> trunksServed;
    if (ingressTrunk)
      trunksServed.insert(*ingressTrunk);
    std::vector<std::pair<int, bool>> targets;  // port, untagged member
    for (int port : candidates) {
      if (port == port_)
        continue;
      const std::optional<int> trunk = internal::TrunkOfPort(port);
      if (trunk && !trunksServed.insert(*trunk).second)
        continue;
      auto member = vlan.members.find(port);
      if (member == vlan.members.end()) {
        note += ", " + PortName(port) + " pruned (not a VLAN member)";
        continue;
      }
      targets.emplace_back(port, member->second);
    }
    if (targets.empty()) {
      Drop("flood", note + ": no egress port");
      walk_.dropReason = "no egress port";
      return;
    }
    Step("flood", note + ", " + std::to_string(targets.size()) +
                      (targets.size() == 1 ? " copy" : " copies"));
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
    tags.insert(tags.end(), packet_.payload.begin(), packet_.payload.end());
    Frame out{tags};
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
  Packet packet_;
  FrameWalk walk_;
};

}  // namespace

FrameWalk WalkFrame(int ingressPort, const Frame& frame, const PortNamer& namer) {
  if (ingressPort < 0 || ingressPort >= Chip::kNumPorts) {
    throw std::out_of_range("no such port: " + std::to_string(ingressPort));
  }
  return Walker(ingressPort, frame, namer).Run();
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
