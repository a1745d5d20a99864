#!/usr/bin/env python3
"""The library's instructions per operation, from the dumps of a counting run.

Reads from DUMP_DIR the callgrind dumps of `halbd-bench --instructions` (callgrind.out.*, one per
run of a scenario, named after it), the runs' JSON results (counting-*.json: SDK calls per
operation, operations per run) and those of the allocation count (allocations-*.json, from
`halbd-bench-allocations --instructions`), and prints one row per run:

  library instructions = the inclusive cost of every call that enters the library from outside it
                         (the scenario's harness, the LAG orchestrator's fan-out)
                         - the inclusive cost of every SDK call that the library makes (the null
                           chip's answer)

Callgrind collects only while an operation under test runs, so set-up and undoing cost nothing.
The companion libraries that the library asks (identifier tables, LAG member lists, the shared
VLAN member table) stay in the figure, as do the C and C++ libraries' code it runs (allocation,
tree balancing): they run on the switch's CPU for the library.

usage: instruction_table.py DUMP_DIR
"""
import glob
import json
import re
import sys

# Functions through which the harness enters the library (the services' operations and the LAG
# handlers the services register, whose lambdas are named after the constructors).
ENTRY = re.compile(r"^(HalBcmBridgeDomain::|HalBcmBridgePort::|halswitchbd::VlanOrchestratorImpl::"
                   r"|BlockPort\(|GetTpid\()")
# The chip SDK as the null chip (or the canned member list in front of it) answers it. bcm_errmsg
# is the library's own.
SDK = re.compile(r"^(bcm_(?!errmsg\b)|soc_|_sal_assert)")
# Debug information names a source file by its absolute path or relative to the build; both end so.
LIBRARY_FILE = re.compile(r"(^|/)src/[^/]+$")


def in_library(function, file):
    """Whether a calling function is the library's. Callgrind names a function's file after the
    line of its first instruction, which for a flattened request can be a standard header that the
    compiler put there (a rule deletion's lies in unique_ptr.h): the service classes' members are
    the library's whatever their file."""
    return bool(LIBRARY_FILE.search(file) or ENTRY.match(function))

NS_PER_SDK_CALL = 1000  # a chip-table write is a bus transaction of about a microsecond
INSTRUCTIONS_PER_NS = 1  # a 1 GHz CPU retiring one instruction per cycle


def parse_dump(path):
    """Returns (run name, instructions entering the library, instructions of its SDK calls)."""
    names = {"fl": {}, "fn": {}}
    run = None
    caller = caller_file = None
    current_file = callee = None
    entering = sdk = 0
    pending_call = False

    def resolve(kind, text):
        match = re.match(r"\((\d+)\)(?: (.*))?$", text)
        if not match:
            return text
        ident, name = match.groups()
        if name is not None:
            names[kind][ident] = name
        return names[kind].get(ident, "")

    with open(path, encoding="utf-8", errors="replace") as dump:
        for line in dump:
            line = line.rstrip("\n")
            if pending_call:
                pending_call = False
                cost = int(line.split()[1])
                from_library = in_library(caller, caller_file)
                if ENTRY.match(callee) and not from_library:
                    entering += cost
                if SDK.match(callee) and from_library:
                    sdk += cost
                continue
            if line.startswith("desc: Trigger: Client Request: "):
                run = line[len("desc: Trigger: Client Request: "):]
            elif line.startswith("fl="):
                current_file = resolve("fl", line[3:])
            elif line.startswith("fn="):
                caller = resolve("fn", line[3:])
                caller_file = current_file
            elif line.startswith(("cfl=", "cfi=")):
                resolve("fl", line[4:])
            elif line.startswith("cfn="):
                callee = resolve("fn", line[4:])
            elif line.startswith("calls="):
                pending_call = True
            elif line.startswith(("fi=", "fe=")):
                resolve("fl", line[3:])
    return run, entering, sdk


def runs_of(pattern):
    """Run name -> its results, from the Google Benchmark JSON files matching pattern."""
    runs = {}
    for results_path in glob.glob(pattern):
        with open(results_path, encoding="utf-8") as results:
            benchmarks = json.load(results)["benchmarks"]
        for b in benchmarks:
            # "rule/add-ingress/null/rules:16/iterations:64/manual_time" -> "rule/add-ingress/null/rules:16"
            name = re.sub(r"/iterations:\d+.*$", "", b["name"])
            runs[name] = b
    return runs


def grouped(value):
    return f"{value:,.0f}"


def main():
    if len(sys.argv) != 2:
        sys.exit(__doc__.strip().splitlines()[-1])
    dump_dir = sys.argv[1]
    timing = runs_of(f"{dump_dir}/counting-*.json")
    allocations = runs_of(f"{dump_dir}/allocations-*.json")
    rows = []
    failed = []
    for path in sorted(glob.glob(f"{dump_dir}/callgrind.out.*")):
        run, entering, sdk = parse_dump(path)
        if run is None or run not in timing:
            continue
        result = timing[run]
        if result.get("error_occurred"):
            failed.append(f"{run}: {result.get('error_message', 'failed')}")
            continue
        ops = int(result["iterations"])
        calls = result.get("calls/op", 0.0)
        library = (entering - sdk) / ops
        allocs = allocations.get(run, {}).get("allocs/op")
        rows.append((run, calls, library, allocs))

    header = ("Scenario (null chip)", "SDK calls/op", "Library instr/op", "per SDK call",
              "share at 1 us/call", "allocations/op")
    table = [header]
    for run, calls, library, allocs in sorted(rows, key=lambda row: natural_key(row[0])):
        per_call = grouped(library / calls) if calls else "-"
        library_ns = library / INSTRUCTIONS_PER_NS
        share = f"{100 * library_ns / (library_ns + calls * NS_PER_SDK_CALL):.1f} %" if calls else "-"
        allocs_text = "-" if allocs is None else f"{allocs:.2f}".rstrip("0").rstrip(".")
        table.append((run, f"{calls:g}", grouped(library), per_call, share, allocs_text))
    widths = [max(len(row[i]) for row in table) for i in range(len(header))]
    for k, row in enumerate(table):
        cells = [row[0].ljust(widths[0])] + [cell.rjust(w) for cell, w in zip(row[1:], widths[1:])]
        print("  ".join(cells).rstrip())
        if k == 0:
            print("  ".join("-" * w for w in widths))
    for failure in failed:
        print(f"error: {failure}", file=sys.stderr)
    if failed or not rows:
        sys.exit(1)


def natural_key(name):
    return [int(part) if part.isdigit() else part for part in re.split(r"(\d+)", name)]


if __name__ == "__main__":
    main()
