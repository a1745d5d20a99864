#!/usr/bin/env bash
# The switch is reconfigured while a ping flood goes through it: each command runs between two
# frames on halbd-sim's one thread, the flood keeps flowing, and halbd-sim ends cleanly. Run on a
# ThreadSanitizer build of halbd-sim (tests/reliability/run-reliability.sh tsan), a report ends
# halbd-sim with a failure, which the checks below see.
#   configure_while_forwarding.sh HALBD_SIM TOPOLOGY.scn
set -uo pipefail
sim=$1
topology=$2
here=$(cd "$(dirname "$0")" && pwd)
what=live-configure
hosts=(a10 b10 lag)
# shellcheck source=../../examples/live/hosts.sh
. "$here/../../examples/live/hosts.sh"
rounds=20

make_hosts
start_sim
sim_do "source $topology" "tap eth1/1 ${ns}a10" "tap eth1/2 ${ns}b10" "tap eth1/8 ${ns}lag"
ip -n "${ns}a10" addr add 198.51.100.11/24 dev hbd-eth1-1
ip -n "${ns}b10" addr add 198.51.100.12/24 dev hbd-eth1-2
ip -n "${ns}lag" addr add 198.51.100.13/24 dev hbd-eth1-8

# The flood: as many echo requests as the replies allow, for a bounded time.
in_ns a10 ping -n -q -f -w 8 198.51.100.12 >"$work/flood" 2>&1 &
flood=$!
in_ns lag ping -n -q -i 0.01 -w 8 198.51.100.11 >/dev/null 2>&1 &
sleep 0.5
for round in $(seq "$rounds"); do
  sim_do "BlockPort eth1/2 true hal-stlp" "BlockPort eth1/2 false hal-stlp" \
    "memberDeleted lag1 eth1/8" "memberAdded lag1 eth1/8" \
    "delMember vlan10 eth1/2" "addMember vlan10 eth1/2 untagged" \
    "fdb flush 10" "show fdb" "show counters" "# round $round"
done
# Each change has taken effect for the frames after it: the switch is as configured again.
check "a10 pings b10 after $rounds rounds of changes" \
  in_ns a10 ping -n -q -c 2 -i 0.2 -w 4 198.51.100.12
wait "$flood"
check "the flood went through between the commands" \
  grep -Eq ' [1-9][0-9]* received' "$work/flood"
refused "ThreadSanitizer reported nothing" grep -q "ThreadSanitizer" "$log"
stop_sim
finish
