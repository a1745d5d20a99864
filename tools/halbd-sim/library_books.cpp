#include "library_books.h"

#include <memory>

#include "hal_bridge_port_itf.h"

namespace halbdsim {

namespace {

// What a LAG without an entry gives its members.
constexpr unsigned kNoNativeVlan = 4095;
constexpr unsigned kDefaultTpid = 0x8100;

template <typename Map>
auto Entry(const Map& map, limid_t id) -> std::optional<typename Map::mapped_type> {
  const auto entry = map.find(id);
  if (entry == map.end())
    return std::nullopt;
  return entry->second;
}

template <typename Map>
std::vector<vlanxlate::VlanMapping> RulesOf(const Map& stores, limid_t id) {
  const auto store = stores.find(id);
  if (store == stores.end())
    return {};
  return {store->second.begin(), store->second.end()};
}

}  // namespace

HalBcmBridgePortInspector PortBooks() {
  // The singleton exists: the session obtained it first, and a later argument is ignored.
  return HalBcmBridgePortInspector(*HalBcmBridgePort::GetInstance(nullptr));
}

HalBcmBridgeDomainInspector DomainBooks() {
  return HalBcmBridgeDomainInspector(*HalBcmBridgeDomain::getInstance());
}

KeptAttributes KeptFor(limid_t id) {
  HalBcmBridgePortInspector books = PortBooks();
  KeptAttributes kept;
  kept.nativeVlan = Entry(books.nativeVlans(), id);
  kept.priority = Entry(books.untaggedPrios(), id);
  kept.tpid = Entry(books.tpids(), id);
  kept.qinq = books.qinqPorts().count(id) != 0;
  kept.frameType = Entry(books.acceptableFrameTypes(), id);
  kept.blocked = Entry(books.blockedPorts(), id);
  kept.ingressRules = RulesOf(books.ingressVlanMappings(), id);
  kept.egressRules = RulesOf(books.egressVlanMappings(), id);
  return kept;
}

LagGives GivenBy(limid_t lag) {
  const KeptAttributes kept = KeptFor(lag);
  return {kept.nativeVlan.value_or(kNoNativeVlan), kept.priority.value_or(0),
          kept.tpid.value_or(kDefaultTpid), kept.qinq,
          kept.frameType.value_or(HAL_BP_ADMIT_ALL_FRAMES)};
}

std::string FrameTypeName(long long type) {
  switch (type) {
    case HAL_BP_ADMIT_ALL_FRAMES:
      return "all";
    case HAL_BP_ADMIT_ONLY_TAGGED:
      return "tagged-only";
    case HAL_BP_ADMIT_ONLY_UNTAGGED:
      return "untagged-only";
    default:
      return std::to_string(type);
  }
}

}  // namespace halbdsim
