#!/usr/bin/env bash
# Real hosts send real traffic through the simulated switch. Each host is a network namespace
# whose interface is a switch port's TAP (halbd-sim's tap command); topology.scn programs the
# switch through the library. The script shows, each as one "ok" or "FAIL" line:
#   - ping works inside VLAN 10 and inside VLAN 20, and not from one VLAN to the other;
#   - the trunk host, which speaks 802.1Q-tagged frames through scapy, reaches both VLANs, and
#     tcpdump on its interface decodes each VLAN's tag;
#   - the provider-edge customer's frames leave the uplink with the 802.1ad outer tag;
#   - the CPU's interface receives the DHCP that VLAN 10 hands to the CPU, and nothing else;
#   - a blocked port carries nothing, and carries again once unblocked;
#   - the LAG still carries its host's traffic after a member leaves.
# Needs root (or CAP_NET_ADMIN and /dev/net/tun), iproute2, iputils-ping, tcpdump and Debian's
# python3-scapy (the live group of packages.txt): run from the source tree without an argument,
# it installs what is missing and builds halbd-sim first. Everything it makes (namespaces,
# interfaces, files) is removed at the end.
#
#   examples/live/run.sh [HALBD_SIM]      (default: build/tools/halbd-sim, then halbd-sim on PATH)
#
# The last line is "live: N passed, M failed"; the exit status is 1 when a check failed. Without
# the rights to make interfaces it says so and exits 77 (a skip), or 1 under CI, which has them.
set -uo pipefail
here=$(cd "$(dirname "$0")" && pwd)
sim=${1:-}
tree=$here/../..
if [ -z "$sim" ] && [ -x "$tree/scripts/install-packages.sh" ]; then
  # Run from the source tree, as a newcomer does: install what is missing (as run-example.sh does)
  # and build halbd-sim, build output on standard error.
  "$tree/scripts/install-packages.sh" build live || exit 1
  if [ ! -f "$tree/build/build.ninja" ]; then
    cmake -S "$tree" -B "$tree/build" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo >&2 || exit 1
  fi
  cmake --build "$tree/build" --target halbd-sim >&2 || exit 1
  sim=$tree/build/tools/halbd-sim
elif [ -z "$sim" ]; then
  sim=$(command -v halbd-sim || true)
fi
what=live
hosts=(a10 b10 a20 b20 lag trunk pe core cpu)
# shellcheck source=hosts.sh
. "$here/hosts.sh"

reach() { in_ns "$1" ping -n -q -c 2 -i 0.2 -w 4 "$2"; }
no_reach() { in_ns "$1" ping -n -q -c 2 -i 0.2 -w 2 "$2"; }
# decoded FILE PATTERN: a frame of the capture, as tcpdump decodes it with its link-layer header,
# matches the extended regular expression.
decoded() {
  tcpdump -r "$1" -e -nn 2>/dev/null | grep -E "$2"
}

# ---- The hosts ---------------------------------------------------------------------------------
make_hosts
start_sim
sim_do "source $here/topology.scn" \
  "tap eth1/1 ${ns}a10" "tap eth1/2 ${ns}b10" "tap eth1/3 ${ns}a20" "tap eth1/4 ${ns}b20" \
  "tap eth1/7 ${ns}lag" "tap eth1/8 ${ns}lag" "tap eth1/49 ${ns}trunk" "tap eth1/5 ${ns}pe" \
  "tap eth1/50 ${ns}core" "tap cpu ${ns}cpu"

address() { ip -n "$ns$1" addr add "$2/24" dev "$3"; }
address a10 198.51.100.11 hbd-eth1-1
address b10 198.51.100.12 hbd-eth1-2
address a20 198.51.100.21 hbd-eth1-3
address b20 198.51.100.22 hbd-eth1-4
address pe 198.51.100.51 hbd-eth1-5
# The LAG host bonds its two ports by hand (this kernel may have no bonding module): a bridge
# over both, its address on the bridge, so that a frame the switch's hash sends down either port
# reaches it. The ports are isolated from each other: the bridge never sends back into the LAG
# what came out of it, which the switch would take for a station moving.
ip -n "${ns}lag" link add br0 type bridge
for member in hbd-eth1-7 hbd-eth1-8; do
  ip -n "${ns}lag" link set "$member" master br0
  in_ns lag bridge link set dev "$member" isolated on
done
ip -n "${ns}lag" link set br0 up
address lag 198.51.100.13 br0
sim_do "show ports"
# show ports names each port's interface and namespace, the CPU's last.
check "show ports: eth1/1 is hbd-eth1-1 in a10" grep -qE "^  eth1/1 .* hbd-eth1-1 +${ns}a10$" "$log"
check "show ports: the CPU is hbd-cpu in cpu" grep -qE "^  cpu .* hbd-cpu +${ns}cpu$" "$log"

# ---- VLANs -------------------------------------------------------------------------------------
check "VLAN 10: a10 pings b10" reach a10 198.51.100.12
check "VLAN 20: a20 pings b20" reach a20 198.51.100.22
refused "VLAN 10 and VLAN 20 stay apart: a10 cannot ping a20" no_reach a10 198.51.100.21
refused "VLAN 20 and VLAN 10 stay apart: b20 cannot ping b10" no_reach b20 198.51.100.12

# ---- The 802.1Q trunk --------------------------------------------------------------------------
capture trunk hbd-eth1-49 "$work/trunk.pcap"
check "trunk host reaches a10 in VLAN 10 with 802.1Q-tagged frames" \
  in_ns trunk "$python" "$here/tagged.py" ping hbd-eth1-49 10 198.51.100.49 198.51.100.11
check "trunk host reaches a20 in VLAN 20 with 802.1Q-tagged frames" \
  in_ns trunk "$python" "$here/tagged.py" ping hbd-eth1-49 20 198.51.100.49 198.51.100.21
refused "trunk host does not reach a20 in VLAN 10" \
  in_ns trunk "$python" "$here/tagged.py" ping hbd-eth1-49 10 198.51.100.49 198.51.100.21
ip -n "${ns}a10" neigh flush all
ip -n "${ns}a20" neigh flush all
reach a10 198.51.100.12 >/dev/null
reach a20 198.51.100.22 >/dev/null
stop_captures
check "tcpdump on the trunk: a10's ARP request tagged 802.1Q VLAN 10" decoded "$work/trunk.pcap" \
  'ethertype 802\.1Q \(0x8100\).*vlan 10, p 0, ethertype ARP.*who-has 198\.51\.100\.12 tell 198\.51\.100\.11'
check "tcpdump on the trunk: a20's ARP request tagged 802.1Q VLAN 20" decoded "$work/trunk.pcap" \
  'ethertype 802\.1Q \(0x8100\).*vlan 20, p 0, ethertype ARP.*who-has 198\.51\.100\.22 tell 198\.51\.100\.21'
check "tcpdump on the trunk: a10's echo reply to the trunk host tagged 802.1Q VLAN 10" \
  decoded "$work/trunk.pcap" 'vlan 10, p 0, ethertype IPv4.*198\.51\.100\.11 > 198\.51\.100\.49: ICMP echo reply'

# ---- The provider edge -------------------------------------------------------------------------
capture core hbd-eth1-50 "$work/core.pcap"
no_reach pe 198.51.100.52 >/dev/null # nobody answers: the ARP requests are what is looked at
in_ns pe "$python" "$here/tagged.py" send hbd-eth1-5 10 198.51.100.51 198.51.100.52
stop_captures
check "provider edge: an untagged customer frame leaves the uplink with 802.1ad tag 1000" \
  decoded "$work/core.pcap" \
  'ethertype 802\.1Q-QinQ \(0x88a8\).*vlan 1000, p 0, ethertype ARP.*who-has 198\.51\.100\.52'
check "provider edge: customer VLAN 10 leaves inside 802.1ad tag 1000, priority 5" \
  decoded "$work/core.pcap" \
  'ethertype 802\.1Q-QinQ \(0x88a8\).*vlan 1000, p 5, ethertype 802\.1Q.*vlan 10, p 0, ethertype ARP'

# ---- The CPU ------------------------------------------------------------------------------------
capture cpu hbd-cpu "$work/cpu.pcap"
reach a10 198.51.100.12 >/dev/null
in_ns a10 "$python" -c 'import sys
from scapy.all import BOOTP, DHCP, IP, UDP, Ether, sendp
sendp(Ether(dst="ff:ff:ff:ff:ff:ff") / IP(src="0.0.0.0", dst="255.255.255.255") /
      UDP(sport=68, dport=67) / BOOTP() / DHCP(options=[("message-type", "discover"), "end"]),
      iface=sys.argv[1], verbose=0)' hbd-eth1-1
stop_captures
check "the CPU's interface gets a10's DHCP discover, as VLAN 10's property says" \
  decoded "$work/cpu.pcap" 'BOOTP/DHCP, Request'
refused "the CPU's interface gets nothing else: no ARP, no ICMP" \
  decoded "$work/cpu.pcap" 'ARP|ICMP'

# ---- Blocking ----------------------------------------------------------------------------------
sim_do "BlockPort eth1/2 true hal-stlp"
refused "eth1/2 blocked: a10 cannot ping b10" no_reach a10 198.51.100.12
sim_do "BlockPort eth1/2 false hal-stlp"
check "eth1/2 unblocked: a10 pings b10 again" reach a10 198.51.100.12

# ---- The LAG -----------------------------------------------------------------------------------
# Two flows, which the switch's hash may send down either member.
check "lag1: a10 pings the LAG host" reach a10 198.51.100.13
check "lag1: b10 pings the LAG host" reach b10 198.51.100.13
# eth1/7's link goes down: the host stops using it, as a bond would, and it leaves the LAG.
ip -n "${ns}lag" link set hbd-eth1-7 down
sim_do "memberDeleted lag1 eth1/7"
check "lag1 after eth1/7 left: a10 pings the LAG host through eth1/8" reach a10 198.51.100.13
check "lag1 after eth1/7 left: b10 pings the LAG host through eth1/8" reach b10 198.51.100.13
check "lag1 after eth1/7 left: the LAG host pings b10" reach lag 198.51.100.12

# ---- The end -----------------------------------------------------------------------------------
stop_sim
finish
