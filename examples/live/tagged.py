#!/usr/bin/python3
"""A host that speaks in VLAN-tagged frames through a packet socket: this kernel has no 802.1Q
module, so a host cannot have VLAN subinterfaces.

  tagged.py ping IFACE VLAN OWN-IP TARGET-IP   ARP, then an ICMP echo, both in 802.1Q frames of
                                               VLAN; exit 0 when the target answered both, in
                                               frames tagged with that VLAN
  tagged.py send IFACE VLAN OWN-IP TARGET-IP   one ARP request in an 802.1Q frame of VLAN
"""
import sys

from scapy.all import ARP, ICMP, IP, Dot1Q, Ether, conf, get_if_hwaddr, sendp, srp1

conf.verb = 0
TRIES = 3
WAIT_SECONDS = 1


def arp_request(mac, vlan, own, target):
    return Ether(dst="ff:ff:ff:ff:ff:ff", src=mac) / Dot1Q(vlan=vlan) / ARP(
        hwsrc=mac, psrc=own, pdst=target)


def answered_in_vlan(answer, vlan, what):
    if answer is None:
        print(f"no {what} answer")
        return False
    if Dot1Q not in answer or answer[Dot1Q].vlan != vlan:
        print(f"{what} answer not tagged with VLAN {vlan}: {answer.summary()}")
        return False
    return True


def ping(iface, vlan, own, target):
    mac = get_if_hwaddr(iface)
    arp = srp1(arp_request(mac, vlan, own, target), iface=iface, timeout=WAIT_SECONDS,
               retry=TRIES)
    if not answered_in_vlan(arp, vlan, f"ARP (who has {target}, VLAN {vlan})"):
        return 1
    echo = Ether(dst=arp[ARP].hwsrc, src=mac) / Dot1Q(vlan=vlan) / IP(src=own, dst=target) / ICMP()
    reply = srp1(echo, iface=iface, timeout=WAIT_SECONDS, retry=TRIES)
    if not answered_in_vlan(reply, vlan, f"ICMP echo ({target}, VLAN {vlan})"):
        return 1
    print(f"{target} answered ARP and ICMP echo in frames tagged 802.1Q VLAN {vlan}")
    return 0


def main(argv):
    if len(argv) != 6 or argv[1] not in ("ping", "send"):
        print(__doc__, file=sys.stderr)
        return 2
    _, mode, iface, vlan, own, target = argv
    if mode == "send":
        sendp(arp_request(get_if_hwaddr(iface), int(vlan), own, target), iface=iface)
        return 0
    return ping(iface, int(vlan), own, target)


if __name__ == "__main__":
    sys.exit(main(sys.argv))
