#!/usr/bin/python3
"""Saves a scenario's running configuration, replays it in a new process on a fresh platform and
compares every show document of the two runs, value by value, and the configuration the replay
saves in turn. Rows that the saved file declares apart ("# apart: TABLE KEY: why") are left out,
and must differ: a note on a row that replays the same is false.

  replay_saved.py SCENARIO WORKDIR OUTDIR [EMULATOR...] RUNNER
"""
import json
import pathlib
import subprocess
import sys

TABLES = ["ports", "port-vlans", "vlans", "ingress", "egress", "lags", "member-table"]
APART = "# apart: "


def documents(text):
    """The show documents of a run's output, by table."""
    found, decoder, at = {}, json.JSONDecoder(), 0
    while at < len(text):
        if text[at] == "{":
            document, at = decoder.raw_decode(text, at)
            for name, rows in document.items():
                if name in TABLES:
                    found[name] = rows
        at = text.find("\n", at) + 1 or len(text)
    return found


def run(command, lines, script, workdir, options=()):
    script.write_text("".join(line + "\n" for line in lines))
    done = subprocess.run(command + ["-q", *options, str(script)], cwd=workdir, capture_output=True,
                          text=True, timeout=120, check=False)
    if done.returncode != 0:
        sys.exit(f"{script} exited with {done.returncode}:\n{done.stderr}")
    return documents(done.stdout)


def apart_rows(saved):
    rows = set()
    for line in saved.read_text().splitlines():
        if line.startswith(APART):
            table, key = line[len(APART):].split(":", 1)[0].split(" ", 1)
            rows.add((table, key))
    return rows


def key(row):
    return str(next(iter(row.values())))


def kept(rows, table, apart):
    return [row for row in rows if (table, key(row)) not in apart]


def rows_of(rows, wanted):
    return [row for row in rows if key(row) == wanted]


def main():
    scenario, workdir, outdir = (pathlib.Path(arg).resolve() for arg in sys.argv[1:4])
    command = sys.argv[4:]
    outdir.mkdir(parents=True, exist_ok=True)
    saved, resaved = outdir / "saved.scn", outdir / "resaved.scn"
    shows = [f"show {table} --json" for table in TABLES]
    original = run(command, [f"source {scenario}", f"save {saved}"] + shows,
                   outdir / "original.scn", workdir)
    # The saved lines expect the failures they replay: a strict run of them passes.
    replayed = run(command, [f"source {saved}", f"save {resaved}"] + shows,
                   outdir / "replay.scn", workdir, ["--strict"])
    apart = apart_rows(saved)
    problems = []
    for table in TABLES:
        if table not in original or table not in replayed:
            problems.append(f"show {table}: no JSON document")
            continue
        want, got = kept(original[table], table, apart), kept(replayed[table], table, apart)
        for row in [r for r in want if r not in got]:
            problems.append(f"show {table}: original row {json.dumps(row)} not replayed")
        for row in [r for r in got if r not in want]:
            problems.append(f"show {table}: replay has row {json.dumps(row)}")
    for table, row_key in sorted(apart):
        # A row declared apart that replays the same would be a false note.
        if rows_of(original.get(table, []), row_key) == rows_of(replayed.get(table, []), row_key):
            problems.append(f"show {table} {row_key}: declared apart, but replays the same")
    if not apart:
        # A consistent state saves as the same lines after the replay.
        if saved.read_text() != resaved.read_text():
            problems.append(f"the replay saves other lines: diff {saved} {resaved}")
    if problems:
        print(saved.read_text())
        sys.exit("\n".join(problems))
    print(f"{scenario.name}: {len(apart)} rows apart, everything else replayed")


if __name__ == "__main__":
    main()
