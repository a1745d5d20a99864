// The simulated identifier library.
#include <cstdio>
#include <regex>
#include <stdexcept>

#include "sim/sim_platform.h"

namespace sim {
namespace {

limid_t Make(IdKind kind, unsigned byte1, unsigned number) {
  limid_t id{};
  id.bytes[0] = static_cast<unsigned char>(kind);
  id.bytes[1] = static_cast<unsigned char>(byte1);
  id.bytes[2] = static_cast<unsigned char>(number >> 8);
  id.bytes[3] = static_cast<unsigned char>(number);
  return id;
}

unsigned Number(limid_t id) {
  return (static_cast<unsigned>(id.bytes[2]) << 8) | id.bytes[3];
}

unsigned ParseBounded(const std::string& text, unsigned max, const std::string& name) {
  const unsigned long value = std::stoul(text);
  if (value > max)
    throw std::invalid_argument("identifier out of range: " + name);
  return static_cast<unsigned>(value);
}

}  // namespace

limid_t EthernetPort(unsigned slot, unsigned port) {
  return Make(IdKind::Ethernet, slot, port);
}
limid_t Lag(unsigned number) {
  return Make(IdKind::Lag, 0, number);
}
limid_t BridgeDomain(unsigned vlan) {
  return Make(IdKind::BridgeDomain, 0, vlan);
}

std::string NameOf(limid_t id) {
  char name[64];
  limid_to_intfname(id, name, sizeof name);
  return name;
}

limid_t ParseId(const std::string& name) {
  static const std::regex kEthernet(R"(eth(\d{1,3})/(\d{1,5}))");
  static const std::regex kLag(R"(lag(\d{1,5}))");
  static const std::regex kBridgeDomain(R"(vlan(\d{1,5}))");
  std::smatch m;
  if (std::regex_match(name, m, kEthernet)) {
    return EthernetPort(ParseBounded(m[1], 0xff, name), ParseBounded(m[2], 0xffff, name));
  }
  if (std::regex_match(name, m, kLag))
    return Lag(ParseBounded(m[1], 0xffff, name));
  if (std::regex_match(name, m, kBridgeDomain)) {
    return BridgeDomain(ParseBounded(m[1], 0xffff, name));
  }
  throw std::invalid_argument("not an interface name: " + name);
}

int LocalGport(int port) {
  return (BCM_GPORT_TYPE_LOCAL << BCM_GPORT_TYPE_SHIFT) | port;
}

int ModuleGport(int module, int port) {
  return (BCM_GPORT_TYPE_MODPORT << BCM_GPORT_TYPE_SHIFT) |
         ((module & BCM_GPORT_MODPORT_MODULE_MASK) << BCM_GPORT_MODPORT_MODULE_SHIFT) |
         (port & BCM_GPORT_LOCAL_PORT_MASK);
}

int TrunkGport(int trunkId) {
  return (BCM_GPORT_TYPE_TRUNK << BCM_GPORT_TYPE_SHIFT) | (trunkId & BCM_GPORT_TRUNK_ID_MASK);
}

}  // namespace sim

extern "C" {

const limid_type_t limid_type_lag = static_cast<limid_type_t>(sim::IdKind::Lag);

int limid_is_from_type(limid_t id, limid_type_t type) {
  return id.bytes[0] == type;
}

int limid_to_type(limid_t id, limid_type_t* type) {
  *type = id.bytes[0];
  return 0;
}

int limid_type_compare(limid_type_t a, limid_type_t b) {
  return a == b;
}

int limid_is_from_type_ethernet(limid_t id) {
  return id.bytes[0] == static_cast<unsigned char>(sim::IdKind::Ethernet);
}

int limid_to_intfname(limid_t id, char* buffer, size_t size) {
  const unsigned number = sim::Number(id);
  switch (static_cast<sim::IdKind>(id.bytes[0])) {
    case sim::IdKind::Ethernet:
      return std::snprintf(buffer, size, "eth%u/%u", id.bytes[1], number) < 0 ? -1 : 0;
    case sim::IdKind::Lag:
      return std::snprintf(buffer, size, "lag%u", number) < 0 ? -1 : 0;
    case sim::IdKind::BridgeDomain:
      return std::snprintf(buffer, size, "vlan%u", number) < 0 ? -1 : 0;
  }
  std::snprintf(buffer, size, "limid-%02x%02x%02x%02x", id.bytes[0], id.bytes[1], id.bytes[2],
                id.bytes[3]);
  return -1;
}

int limid_to_bridgedomain_components(limid_t id, uint32_t* domainKind, uint32_t* vlan) {
  if (id.bytes[0] != static_cast<unsigned char>(sim::IdKind::BridgeDomain))
    return -1;
  *domainKind = 0;
  *vlan = sim::Number(id);
  return 0;
}

}  // extern "C"
