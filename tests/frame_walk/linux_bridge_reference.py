#!/usr/bin/env python3
"""The simulated chip against Linux's own bridge, on the same untagged frames.

A network namespace of this test's own holds a bridge with four ports, each a veth pair whose far
end stands for a host. Every frame is sent from a host end through a packet socket; the frames
that come out at the other host ends are the bridge's deliveries. The same frames go through
halbd-sim on four untagged access ports of one VLAN. Both must deliver every frame to the same
ports and end with the same learned addresses: flooding of unknown and broadcast destinations,
learning, a known unicast to one port, a frame for a host on its own port, an address that moves.

No IP address is given to anything (the frames are layer 2 only), IPv6 is off in the namespace so
that the kernel sends nothing of its own, and the namespace goes away at the end, also on failure.

Usage: linux_bridge_reference.py HALBD_SIM    (as root; without root it skips, exit status 77)
"""

import json
import os
import select
import socket
import struct
import subprocess
import sys
import tempfile
import time

SKIP = 77
PORTS = 4
ETHERTYPE = 0x88B5  # local experimental: nothing else in the namespace sends it
MARKER = b"halbd-ref"
WAIT_PER_FRAME = 0.3  # seconds to collect one frame's copies
ETH_P_ALL = 0x0003
PACKET_OUTGOING = 4


def host(n):
    return "02:00:00:00:00:%02x" % n


BROADCAST = "ff:ff:ff:ff:ff:ff"
A, B, C, D = host(0x0A), host(0x0B), host(0x0C), host(0x0D)

# (ingress port 1-4, source, destination, what it shows)
FRAMES = [
    (1, A, BROADCAST, "broadcast floods; A learned on 1"),
    (2, B, A, "known unicast to 1 only; B learned on 2"),
    (1, A, C, "unknown unicast floods"),
    (3, C, BROADCAST, "C learned on 3"),
    (1, A, C, "known unicast to 3 only"),
    (4, A, B, "A moves to 4; to 2 only"),
    (2, B, A, "follows the move: to 4 only"),
    (4, D, A, "destination on the ingress port: nowhere"),
    (3, C, "01:00:5e:01:01:01", "multicast floods"),
]


def run(*args, check=True):
    return subprocess.run(args, check=check, capture_output=True, text=True)


def mac_bytes(text):
    return bytes(int(part, 16) for part in text.split(":"))


def frame_bytes(number, src, dst):
    payload = MARKER + struct.pack("!H", number)
    frame = mac_bytes(dst) + mac_bytes(src) + struct.pack("!H", ETHERTYPE) + payload
    return frame.ljust(60, b"\0")


def number_of(frame):
    if len(frame) < 14 + len(MARKER) + 2 or struct.unpack("!H", frame[12:14])[0] != ETHERTYPE:
        return None
    if frame[14:14 + len(MARKER)] != MARKER:
        return None
    return struct.unpack("!H", frame[14 + len(MARKER):16 + len(MARKER)])[0]


# ---- inside the namespace: send each frame, collect where it comes out -------------------------

def traffic():
    sockets = {}
    for port in range(1, PORTS + 1):
        s = socket.socket(socket.AF_PACKET, socket.SOCK_RAW, socket.htons(ETH_P_ALL))
        s.bind(("h%d" % port, 0))
        s.setblocking(False)
        sockets[port] = s
    seen = [set() for _ in FRAMES]

    # A copy that comes late (a loaded machine) still counts for its own frame: frames carry their
    # number, and the last wait drains what is left.
    def collect(seconds):
        deadline = time.monotonic() + seconds
        while time.monotonic() < deadline:
            ready, _, _ = select.select(list(sockets.values()), [], [], deadline - time.monotonic())
            for port, s in sockets.items():
                if s not in ready:
                    continue
                frame, address = s.recvfrom(2048)
                number = number_of(frame)
                if address[2] != PACKET_OUTGOING and number is not None and number < len(FRAMES):
                    seen[number].add(port)

    for number, (ingress, src, dst, _) in enumerate(FRAMES):
        sockets[ingress].send(frame_bytes(number, src, dst))
        collect(WAIT_PER_FRAME)
    collect(1.0)
    deliveries = [sorted(ports) for ports in seen]
    print(json.dumps(deliveries))


# ---- outside: the bridge, the model, the comparison ----------------------------------------------

def build_bridge(ns):
    run("ip", "netns", "add", ns)
    for key in ("all", "default"):
        run("ip", "netns", "exec", ns, "sysctl", "-qw", "net.ipv6.conf.%s.disable_ipv6=1" % key)
    run("ip", "-n", ns, "link", "add", "br0", "type", "bridge", "stp_state", "0",
        "forward_delay", "0", "mcast_snooping", "0")
    for port in range(1, PORTS + 1):
        run("ip", "-n", ns, "link", "add", "p%d" % port, "type", "veth", "peer", "name",
            "h%d" % port)
        run("ip", "-n", ns, "link", "set", "p%d" % port, "master", "br0", "up")
        run("ip", "-n", ns, "link", "set", "h%d" % port, "up")
    run("ip", "-n", ns, "link", "set", "br0", "up")


def bridge_fdb(ns):
    """Dynamic entries: (address, port)."""
    entries = set()
    for line in run("bridge", "-n", ns, "fdb", "show", "br", "br0").stdout.splitlines():
        words = line.split()
        if "permanent" in words or "dev" not in words:
            continue
        device = words[words.index("dev") + 1]
        if device.startswith("p"):
            entries.add((words[0], int(device[1:])))
    return entries


def model(halbd_sim, directory):
    lines = ["port eth1/%d local %d" % (p, p) for p in range(1, PORTS + 1)] + ["vlan 10"]
    for p in range(1, PORTS + 1):
        lines += ["addMember vlan10 eth1/%d untagged" % p, "SetNativeVlan eth1/%d 10" % p]
    for ingress, src, dst, _ in FRAMES:
        lines.append("frame eth1/%d src %s dst %s" % (ingress, src, dst))
    lines.append("show fdb --json")
    scenario = os.path.join(directory, "reference.scn")
    with open(scenario, "w") as out:
        out.write("\n".join(lines) + "\n")
    output = run(halbd_sim, scenario, check=False)
    if output.returncode != 0:
        sys.exit("halbd-sim failed: " + output.stderr)
    deliveries, fdb_json = [], []
    for line in output.stdout.splitlines():
        if line.startswith("> frame"):
            deliveries.append([])
        elif line.startswith("  to eth1/") and deliveries:
            deliveries[-1].append(int(line.split("/")[1].split(":")[0]))
        elif fdb_json or line.startswith("{"):
            fdb_json.append(line)
    fdb = {(e["mac"], int(e["interface"].split("/")[1]))
           for e in json.loads("\n".join(fdb_json))["fdb"]}
    return [sorted(d) for d in deliveries], fdb


def compare(halbd_sim):
    ns = "halbd-ref-%d" % os.getpid()
    try:
        try:
            build_bridge(ns)
        except subprocess.CalledProcessError as error:
            print("FAIL: cannot build the bridge in namespace %s: %s%s" %
                  (ns, " ".join(error.cmd), error.stderr))
            return 1
        inner = run("ip", "netns", "exec", ns, sys.executable, os.path.abspath(__file__),
                    "--traffic")
        kernel = json.loads(inner.stdout)
        kernel_fdb = bridge_fdb(ns)
    finally:
        run("ip", "netns", "del", ns, check=False)
    with tempfile.TemporaryDirectory() as directory:
        simulated, simulated_fdb = model(halbd_sim, directory)
    failed = len(kernel) != len(simulated) or kernel_fdb != simulated_fdb
    print("%-48s %-12s %-12s" % ("frame", "Linux bridge", "halbd-sim"))
    for number, (ingress, src, dst, what) in enumerate(FRAMES):
        bridge_ports = kernel[number] if number < len(kernel) else None
        model_ports = simulated[number] if number < len(simulated) else None
        mark = "" if bridge_ports == model_ports else "  <- differs"
        failed = failed or bool(mark)
        print("%d from %s: %-38s %-12s %-12s%s" % (number + 1, ingress, what, bridge_ports, model_ports,
                                                mark))
    print("learned: Linux bridge %s" % sorted(kernel_fdb))
    print("learned: halbd-sim    %s" % sorted(simulated_fdb))
    print("FAIL: the deliveries or the learned addresses differ" if failed else
          "the same deliveries and learned addresses")
    return 1 if failed else 0


def main():
    if sys.argv[1:] == ["--traffic"]:
        traffic()
        return 0
    if len(sys.argv) != 2:
        sys.exit(__doc__)
    if os.geteuid() != 0:
        print("skipped: creating a network namespace with a bridge and veth pairs needs root")
        return SKIP
    return compare(sys.argv[1])


if __name__ == "__main__":
    sys.exit(main())
