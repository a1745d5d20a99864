#!/usr/bin/env bash
# The switch is reconfigured while a ping flood goes through it: each command runs between two
# frames on halbd-sim's one thread, the flood keeps flowing, and halbd-sim ends cleanly; the shell
# on a terminal forwards while it waits for keys; and the interfaces go however a run ends. Run on
# a ThreadSanitizer build of halbd-sim (tests/reliability/run-reliability.sh tsan), a report ends
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

# The shell on a terminal (tmux gives it one) forwards while it waits for a key: a ping goes
# through with a command half typed, which then runs when finished; exit removes the interfaces.
tmux=(tmux -L "hbd$$")
trap 'cleanup; "${tmux[@]}" kill-server 2>/dev/null' EXIT
screen() { "${tmux[@]}" capture-pane -p -t shell; }
on_screen() {
  for _ in $(seq 50); do
    screen | grep -q "$1" && return 0
    sleep 0.1
  done
  return 1
}
"${tmux[@]}" new-session -d -s shell -x 150 -y 40 "HALBD_HISTORY=/dev/null $sim"
for line in "source $topology" "tap eth1/1 ${ns}a10" "tap eth1/2 ${ns}b10"; do
  "${tmux[@]}" send-keys -t shell "$line" Enter
done
if on_screen "interface hbd-eth1-2"; then
  ip -n "${ns}a10" addr add 198.51.100.11/24 dev hbd-eth1-1
  ip -n "${ns}b10" addr add 198.51.100.12/24 dev hbd-eth1-2
fi
"${tmux[@]}" send-keys -t shell "show fd"
check "the shell forwards a ping while a command is half typed" \
  in_ns a10 ping -n -q -c 2 -i 0.2 -w 4 198.51.100.12
"${tmux[@]}" send-keys -t shell "b" Enter
check "the command typed around the ping runs: the chip learned both hosts" \
  on_screen "10    eth1/2"
"${tmux[@]}" send-keys -t shell "exit" Enter
for _ in $(seq 50); do "${tmux[@]}" has-session -t shell 2>/dev/null || break; sleep 0.1; done
"${tmux[@]}" kill-server 2>/dev/null
check "exit removes the shell's interfaces" \
  test -z "$(ip -n "${ns}a10" -o link show | grep hbd-eth1-1)"

# However a live run ends, its interfaces go: a mistake in its scenario, or even SIGKILL.
no_interfaces() { test -z "$(ip -n "${ns}a10" -o link show | grep hbd-eth1-1)"; }
printf '%s\n' "source $topology" "tap eth1/1 ${ns}a10" "frobnicate" |
  "$sim" --live - >"$work/mistake" 2>&1
check "a mistake ends a live run with status 1" test $? -eq 1
check "and removes the interfaces it made" no_interfaces
mkfifo "$work/kill-commands"
"$sim" --live - <"$work/kill-commands" >"$work/killed" 2>&1 &
killed=$!
exec 4>"$work/kill-commands"
printf '%s\n' "source $topology" "tap eth1/1 ${ns}a10" >&4
for _ in $(seq 50); do grep -q "interface hbd-eth1-1" "$work/killed" && break; sleep 0.1; done
check "a live run to be killed has made its interface" grep -q "interface hbd-eth1-1" "$work/killed"
kill -KILL "$killed"
wait "$killed" 2>/dev/null
exec 4>&-
check "a live run killed outright leaves no interface behind" no_interfaces
finish
