# The hosts of a live run, sourced by run.sh and by the live tests: network namespaces whose
# interfaces are halbd-sim's TAPs, halbd-sim itself fed commands on a pipe, captures, and checks
# that print "ok" or "FAIL" lines. Set before sourcing: sim (halbd-sim), hosts (the names), what
# (how messages start). Everything made is removed when the script exits.
python=/usr/bin/python3 # Debian's, which sees python3-scapy

# unable REASON: the run cannot happen here. A skip (77) for a user who is not root; a failure
# where it should have worked (root, or CI, which runs as root).
unable() {
  echo "$what: $*" >&2
  if [ "$(id -u)" -ne 0 ] && [ -z "${CI:-}" ]; then
    echo "$what: skipped: it needs root to make network namespaces and TAP interfaces" >&2
    exit 77
  fi
  exit 1
}
[ -n "$sim" ] && [ -x "$sim" ] || unable "no halbd-sim: build it, or name it: $0 PATH"
[ "$(id -u)" -eq 0 ] || unable "not root"
[ -c /dev/net/tun ] || unable "no /dev/net/tun: this kernel or container has no TAP devices"
for tool in ip ping tcpdump timeout; do
  command -v "$tool" >/dev/null || unable "$tool is missing (Debian: iproute2 iputils-ping tcpdump)"
done
"$python" -c 'import scapy.all' 2>/dev/null || unable "$python cannot import scapy (Debian: python3-scapy)"

ns=hbd$$- # the namespaces of this run: hbd<pid>-a10 ...
work=$(mktemp -d)
log=$work/halbd-sim.log
sim_pid=
capture_pids=()

cleanup() {
  exec 3>&- 2>/dev/null
  [ ${#capture_pids[@]} -eq 0 ] || kill "${capture_pids[@]}" 2>/dev/null
  if [ -n "$sim_pid" ]; then
    kill -TERM "$sim_pid" 2>/dev/null
    wait "$sim_pid" 2>/dev/null
  fi
  for host in "${hosts[@]}"; do ip netns del "$ns$host" 2>/dev/null; done
  rm -rf "$work"
}
trap cleanup EXIT
trap 'exit 1' INT TERM HUP PIPE # so that the EXIT trap cleans up

passed=0
failed=0
report() {
  if [ "$1" -eq 0 ]; then
    echo "ok   - $2"
    passed=$((passed + 1))
  else
    echo "FAIL - $2"
    sed 's/^/       /' "$work/out" | tail -n 8
    failed=$((failed + 1))
  fi
}
# check WHAT COMMAND...: COMMAND succeeds; refused WHAT COMMAND...: it fails.
check() {
  local what=$1
  shift
  "$@" >"$work/out" 2>&1
  report $? "$what"
}
refused() {
  local what=$1
  shift
  ! "$@" >"$work/out" 2>&1
  report $? "$what"
}
finish() {
  echo "$what: $passed passed, $failed failed"
  [ "$failed" -eq 0 ]
}
in_ns() {
  local host=$1
  shift
  ip netns exec "$ns$host" "$@"
}

# One namespace per host, its loopback up and without IPv6, so that the hosts send nothing of
# their own and captures hold only the checks' frames.
make_hosts() {
  for host in "${hosts[@]}"; do
    ip netns add "$ns$host" || unable "cannot make network namespace $ns$host"
    ip -n "$ns$host" link set lo up
    in_ns "$host" sh -c 'echo 1 >/proc/sys/net/ipv6/conf/default/disable_ipv6
                         echo 1 >/proc/sys/net/ipv6/conf/all/disable_ipv6'
  done
}

# halbd-sim --live, reading its commands from a pipe that stays open until the end.
start_sim() {
  mkfifo "$work/commands"
  "$sim" --live - <"$work/commands" >"$log" 2>&1 &
  sim_pid=$!
  exec 3>"$work/commands"
}

# sim_do LINE...: runs the lines in halbd-sim and returns once they ran. Each batch ends with a
# comment, which halbd-sim echoes once it has run everything before it.
batch=0
sim_do() {
  batch=$((batch + 1))
  printf '%s\n' "$@" "# done $batch" >&3
  for _ in $(seq 100); do
    grep -qx "# done $batch" "$log" && return 0
    kill -0 "$sim_pid" 2>/dev/null || break
    sleep 0.1
  done
  unable "halbd-sim did not run $*: $(grep -v '^[> ]' "$log" | tail -n 3)"
}

# capture HOST IFACE FILE [FILTER]: tcpdump on a host's interface until stop_captures; returns
# once it listens.
capture() {
  # Started as one command, not through in_ns, so that $! is the process that gets the signal.
  # Immediate mode: a frame is handed over at once, not when the kernel's buffer block fills or
  # times out, which may be after the capture was stopped.
  ip netns exec "$ns$1" timeout 30 tcpdump -i "$2" --immediate-mode -U -w "$3" ${4:+"$4"} \
    2>"$3.err" &
  capture_pids+=($!)
  for _ in $(seq 50); do
    grep -qs "listening on" "$3.err" && return 0
    sleep 0.1
  done
  unable "tcpdump did not start on $2: $(cat "$3.err")"
}
stop_captures() {
  sleep 0.5 # the last frames reach the captures
  kill -TERM "${capture_pids[@]}" 2>/dev/null # timeout hands it to tcpdump, which writes out
  wait "${capture_pids[@]}" 2>/dev/null
  capture_pids=()
}

# stop_sim: ends halbd-sim as Ctrl-C would and checks that it left no interface behind.
stop_sim() {
  exec 3>&-
  kill -TERM "$sim_pid"
  wait "$sim_pid"
  check "halbd-sim stops on SIGTERM with status 0" test $? -eq 0
  sim_pid=
  local left
  left=$(for host in "${hosts[@]}"; do ip -n "$ns$host" -o link show | grep -o 'hbd-eth[0-9-]*'; done)
  check "halbd-sim removed every interface it made" test -z "$left"
}
