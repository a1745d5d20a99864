#!/usr/bin/env bash
# Frames that ping cannot make, sent with scapy into a port's interface, leave the other ports'
# interfaces exactly as "frame PORT --pcap" writes them for the same input: a double-tagged frame,
# a priority-tagged frame and a frame behind an unknown TPID, each in a capture of its own.
#   frames_match_walk.sh HALBD_SIM TOPOLOGY.scn
set -uo pipefail
sim=$1
topology=$2
here=$(cd "$(dirname "$0")" && pwd)
live=$here/../../examples/live
what=live-frames
ports=(eth1/1 eth1/2 eth1/3 eth1/4 eth1/5 eth1/7 eth1/8 eth1/49 eth1/50)
hosts=()
for port in "${ports[@]}"; do hosts+=("p${port//\//-}"); done
# shellcheck source=../../examples/live/hosts.sh
. "$live/hosts.sh"

# The cases: name, ingress port, and the frame as scapy builds it. The source address marks the
# test's frames among whatever else the ports carry.
cases=(
  "double-tagged-trunk eth1/49 Dot1Q(vlan=10,prio=3)/Dot1Q(vlan=99,type=0x88b5)"
  "double-tagged-uplink eth1/50 Dot1AD(vlan=1000,prio=2)/Dot1Q(vlan=10,type=0x88b5)"
  "priority-tagged eth1/1 Dot1Q(vlan=0,prio=5,type=0x88b5)"
  "unknown-tpid eth1/3 Dot1Q(vlan=20,type=0x88b5)"
)
source_mac=02:00:00:00:00:77

# make_input FILE LAYERS: one broadcast frame of the case, padded to carry a recognisable payload.
make_input() {
  "$python" - "$1" "$2" <<'PY'
import sys
from scapy.all import Dot1AD, Dot1Q, Ether, Raw, wrpcap
path, layers = sys.argv[1], sys.argv[2]
tags = eval(layers, {"Dot1Q": Dot1Q, "Dot1AD": Dot1AD})
frame = Ether(dst="ff:ff:ff:ff:ff:ff", src="02:00:00:00:00:77") / tags / Raw(b"halbd-sim " * 6)
if "unknown" in path:  # the tag's TPID becomes one no port knows: 0x9999
    raw = bytearray(bytes(frame)); raw[12:14] = b"\x99\x99"; frame = Ether(bytes(raw))
wrpcap(path, [frame])
PY
}

# same_frames EXPECTED_DIR LIVE_DIR: per port, the frames captured live are the frames the walk
# wrote, byte for byte and in order; and some port carried them.
same_frames() {
  "$python" - "$1" "$2" "${ports[@]}" <<'PY'
import os, sys
from scapy.all import rdpcap
expected_dir, live_dir, ports = sys.argv[1], sys.argv[2], sys.argv[3:]
def frames(path):
    return [bytes(p) for p in rdpcap(path)] if os.path.exists(path) and os.path.getsize(path) > 24 else []
bad = 0
carried = 0
for port in ports:
    name = port.replace("/", "_") + ".pcap"
    want, got = frames(os.path.join(expected_dir, name)), frames(os.path.join(live_dir, name))
    if want != got:
        bad += 1
        print(f"{port}: the walk writes {[w.hex() for w in want]}, live: {[g.hex() for g in got]}")
    elif want:
        carried += 1
        print(f"{port}: {len(want)} frame(s) as the walk writes them")
if not carried:
    print("no port carried the frame: the comparison would prove nothing")
sys.exit(1 if bad or not carried else 0)
PY
}

make_hosts
start_sim
taps=("source $topology")
for port in "${ports[@]}"; do taps+=("tap $port ${ns}p${port//\//-}"); done
sim_do "${taps[@]}"

for case in "${cases[@]}"; do
  read -r name ingress layers <<<"$case"
  dir=$work/$name
  mkdir -p "$dir/expected" "$dir/live"
  make_input "$dir/in.pcap" "$layers"
  printf '%s\n' "source $topology" "frame $ingress --pcap $dir/in.pcap --out $dir/expected" |
    "$sim" -q >"$dir/walk.log" 2>&1 || unable "the frame walk failed: $(cat "$dir/walk.log")"
  for port in "${ports[@]}"; do
    [ "$port" = "$ingress" ] && continue
    capture "p${port//\//-}" "hbd-${port//\//-}" "$dir/live/${port//\//_}.pcap" "ether src $source_mac"
  done
  in_ns "p${ingress//\//-}" "$python" -c \
    "import sys; from scapy.all import rdpcap, sendp; sendp(rdpcap(sys.argv[1]), iface=sys.argv[2], verbose=0)" \
    "$dir/in.pcap" "hbd-${ingress//\//-}"
  stop_captures
  check "$name into $ingress: the frames leave as frame --pcap writes them" \
    same_frames "$dir/expected" "$dir/live"
done

stop_sim
finish
