#!/usr/bin/env bash
# The provider edge's customer capture through the frame walk, checked three ways:
#   1. the walk's lines and the written captures match the committed ones byte for byte;
#   2. tcpdump, knowing nothing of halbd-sim, decodes the tags each frame leaves with;
#   3. every frame's bytes after its tags leave exactly as they arrived.
#   check-captures.sh HALBD_SIM EXAMPLES_DIR WORK_DIR
# After a deliberate change of the walk, copy WORK_DIR/walk.out and WORK_DIR/out/*.pcap into
# examples/expected/provider-edge/, check them with tcpdump, and fix the lists below to match.
set -euo pipefail
sim=$1 examples=$2 work=$3
expected=$examples/expected/provider-edge
input=$examples/captures/provider-edge-in.pcap
command -v tcpdump >/dev/null || { echo "tcpdump is needed (Debian package tcpdump)" >&2; exit 1; }

rm -rf "$work" && mkdir -p "$work" && cd "$work"
{ cat "$examples/provider-edge.scn"; echo "frame eth1/1 --pcap $input --out out"; } |
  "$sim" - >run.out
sed -n '/^> frame eth1\/1 --pcap/,$p' run.out | tail -n +2 >walk.out
failures=0
fail() { echo "FAIL: $*" >&2; failures=$((failures + 1)); }

# 1. The committed outcome.
diff -u "$expected/walk.out" walk.out || fail "the walk's lines differ from $expected/walk.out"
[ "$(cd out && ls)" = "$(cd "$expected" && ls ./*.pcap | sed 's|^\./||')" ] ||
  fail "written captures: $(cd out && ls | tr '\n' ' ')"
for golden in "$expected"/*.pcap; do
  cmp "$golden" "out/$(basename "$golden")" || fail "$(basename "$golden") differs"
done

# 2. The tags as tcpdump reads them, frame by frame; frame 6 of the input is too short for its
# tag and leaves nowhere. Customer A's tag (VLAN, PCP, DEI) stays behind the service tag.
qinq='ethertype 802.1Q-QinQ (0x88a8), length'
decoded=(
  "$qinq 68: vlan 1000, p 5, ethertype 802.1Q (0x8100), vlan 10, p 3, DEI, ethertype IPv4"
  "$qinq 68: vlan 1000, p 0, ethertype 802.1Q (0x8100), vlan 20, p 0, ethertype ARP"
  "$qinq 64: vlan 1000, p 0, ethertype ARP"
  "$qinq 68: vlan 1000, p 5, ethertype 802.1Q (0x8100), vlan 10, p 3, ethertype IPv4"
  "$qinq 68: vlan 1000, p 0, ethertype 802.1Q (0x8100), vlan 0, p 6, ethertype IPv4"
  "$qinq 68: vlan 1000, p 0, ethertype 802.1Q-QinQ (0x88a8), vlan 300, p 2, ethertype IPv4"
)
mapfile -t lines < <(tcpdump -r out/eth1_49.pcap -e -nn 2>/dev/null)
[ ${#lines[@]} -eq ${#decoded[@]} ] || fail "eth1_49.pcap holds ${#lines[@]} frames"
for i in "${!decoded[@]}"; do
  [[ ${lines[$i]:-} == *"${decoded[$i]}"* ]] || fail "frame $((i + 1)) decodes as: ${lines[$i]:-nothing}"
done

# 3. Addresses and everything behind the tags are untouched: the frames' bytes without their
# tags (4 bytes each after the addresses) are the same on both sides.
frames_hex() {
  tcpdump -r "$1" -xx -nn 2>/dev/null |
    awk '/^[0-9]/ { if (f != "") print f; f = ""; next }
         { for (i = 2; i <= NF; i++) f = f $i } END { if (f != "") print f }'
}
untagged() { echo "${1:0:24}${1:$((24 + 8 * $2))}"; }
mapfile -t arrived < <(frames_hex "$input")
mapfile -t left < <(frames_hex out/eth1_49.pcap)
arrived_tags=(1 1 0 1 1 1)  # frame 6 is refused: the list skips it
left_tags=(2 2 1 2 2 2)
arrived=("${arrived[@]:0:5}" "${arrived[6]}")
for i in "${!left[@]}"; do
  [ "$(untagged "${arrived[$i]}" "${arrived_tags[$i]}")" = "$(untagged "${left[$i]}" "${left_tags[$i]}")" ] ||
    fail "frame $((i + 1)): bytes behind the tags changed"
done

[ $failures -eq 0 ] && echo "captures: ${#left[@]} frames checked"
exit $((failures > 0))
