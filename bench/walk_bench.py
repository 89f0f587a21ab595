#!/usr/bin/env python3
"""Table-walk benchmark (run through bench/run_walk_bench.sh).

For each table size, starts pimsnmp-testagent with that many generated IPv4 routes in the
default VRF's ipMcastRouteTable and the two stock yardstick tables (tools/testagent/
ReferenceTable.h: same rows, index and served columns, values computed once): the iterator
floor (a stock table_iterator table) and the reference (net-snmp's own container table). It
bulk-walks the three in turn with `snmpbulkwalk -v2c -Cr50 -Oqn`, which must return the same
suffixes and values. Per walk it records the varbinds returned, the wall time and the agent's
CPU time (its run time from /proc/<pid>/task/*/schedstat). Small tables are walked several
times per sample so that each sample holds enough CPU time to average out the machine's noise. Reports
medians over the runs, the ratios between the tables and the two targets.
"""

import argparse
import os
import platform
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

from benchlib import cpu_seconds, free_port, write_section

OURS = "1.3.6.1.2.1.168.1.5"  # ipMcastRouteTable
FLOOR = "1.3.6.1.4.1.99999.2"
REFERENCE = "1.3.6.1.4.1.99999.1"
TABLES = (OURS, FLOOR, REFERENCE)
NAMES = {OURS: "ipMcastRouteTable", FLOOR: "iterator floor (stock table_iterator)",
         REFERENCE: "reference (stock container table)"}
SERVED_COLUMNS = 6
# Varbinds per sample: below this a sample repeats the walk.
MIN_SAMPLE_VARBINDS = 300_000


class Agent:
    def __init__(self, binary, rows, workdir):
        self.dir = tempfile.mkdtemp(prefix="walkbench-", dir=workdir)
        conf = os.path.join(self.dir, "agent.conf")
        with open(conf, "w") as f:
            f.write("rocommunity public 127.0.0.1\n")
        self.env = dict(os.environ, MIBS="", SNMP_PERSISTENT_DIR=os.path.join(self.dir, "p"),
                        SNMPCONFPATH=self.dir)
        for _ in range(5):
            self.port = free_port()
            self.proc = subprocess.Popen(
                [binary, "--port", str(self.port), "--config", conf, "--bare", "--routes",
                 str(rows), "--reference", "--persistent-dir", os.path.join(self.dir, "ap")],
                env=self.env, stdout=subprocess.PIPE, stderr=open(os.path.join(self.dir, "log"), "w"),
                text=True)
            line = self.proc.stdout.readline()
            if line.startswith("ready"):
                return
            self.proc.wait(timeout=10)
        sys.exit(f"the agent did not start (see {self.dir}/log)")

    def walk(self, root, out_path):
        """One snmpbulkwalk of `root` into `out_path`; returns (varbinds, wall seconds)."""
        start = time.monotonic()
        with open(out_path, "w") as out:
            r = subprocess.run(["snmpbulkwalk", "-v2c", "-c", "public", "-Cr50", "-Oqn", "-t",
                                "10", "-r", "0", f"udp:127.0.0.1:{self.port}", root],
                               env=self.env, stdout=out, stderr=subprocess.PIPE, text=True)
        wall = time.monotonic() - start
        if r.returncode != 0:
            sys.exit(f"snmpbulkwalk {root} failed: {r.stderr}")
        # Only the table's own varbinds count (a walk of the last registered subtree ends
        # with an endOfMibView line).
        prefix = f".{root}."
        with open(out_path) as f:
            lines = sum(1 for line in f
                        if line.startswith(prefix) and "No more variables" not in line)
        return lines, wall

    def stop(self):
        self.proc.send_signal(signal.SIGTERM)
        try:
            self.proc.wait(timeout=30)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()
        shutil.rmtree(self.dir, ignore_errors=True)


def same_rows(ours_path, other_path, other):
    """The two walks return the same index suffixes, columns and values."""
    def rows(path, prefix):
        with open(path) as f:
            for line in f:
                if not line.startswith(f".{prefix}.") or "No more variables" in line:
                    continue
                oid, _, value = line.rstrip("\n").partition(" ")
                yield oid[len(prefix) + 2:], value  # ".<prefix>." stripped
    for i, (a, b) in enumerate(zip(rows(ours_path, OURS), rows(other_path, other))):
        if a != b:
            return f"line {i + 1}: ours {a}, {NAMES[other]} {b}"
    return None


def measure(binary, rows, runs, workdir):
    agent = Agent(binary, rows, workdir)
    try:
        repeat = max(1, MIN_SAMPLE_VARBINDS // (rows * SERVED_COLUMNS))
        out = {root: os.path.join(agent.dir, f"walk{i}.txt") for i, root in enumerate(TABLES)}
        # A first walk of each warms the caches and checks the tables agree.
        for root in TABLES:
            n, _ = agent.walk(root, out[root])
            if n != rows * SERVED_COLUMNS:
                sys.exit(f"walk of {root}: {n} varbinds, expected {rows * SERVED_COLUMNS}")
        for other in (FLOOR, REFERENCE):
            diff = same_rows(out[OURS], out[other], other)
            if diff:
                sys.exit(f"ipMcastRouteTable and the {NAMES[other]} differ at {diff}")
        samples = {root: [] for root in TABLES}
        for run in range(runs):
            # Rotate which goes first so that drift in machine load hits all alike.
            order = TABLES[run % len(TABLES):] + TABLES[:run % len(TABLES)]
            for root in order:
                varbinds = 0
                wall = 0.0
                cpu0 = cpu_seconds(agent.proc.pid)
                for _ in range(repeat):
                    n, w = agent.walk(root, out[root])
                    varbinds += n
                    wall += w
                cpu = cpu_seconds(agent.proc.pid) - cpu0
                samples[root].append({"varbinds": varbinds, "wall": wall, "cpu": cpu,
                                      "rate": varbinds / wall, "cpu_per_vb": cpu / varbinds})
        return samples, repeat
    finally:
        agent.stop()


def median(samples, key):
    return statistics.median(s[key] for s in samples)


def uptime():
    r = subprocess.run(["uptime"], capture_output=True, text=True)
    return r.stdout.strip() or "unknown"


def machine_note(start_uptime, end_uptime):
    cpu = "unknown CPU"
    try:
        with open("/proc/cpuinfo") as f:
            m = re.search(r"model name\s*:\s*(.*)", f.read())
            if m:
                cpu = m.group(1).strip()
    except OSError:
        pass
    version = subprocess.run(["snmpget", "--version"], capture_output=True, text=True)
    netsnmp = (version.stdout + version.stderr).strip().split(":")[-1].strip()
    return (f"{os.cpu_count()} vCPU ({cpu}), Linux {platform.release()}, net-snmp {netsnmp}. "
            f"Machine load, `uptime` at the start: `{start_uptime}`; at the end: `{end_uptime}`")


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--agent", required=True)
    ap.add_argument("--runs", type=int, default=5)
    ap.add_argument("--sizes", default="1000,100000")
    ap.add_argument("--benchmarks", help="BENCHMARKS.md to write the 'Table walk' section to")
    ap.add_argument("--command", default="", help="the reproducing command, for the report")
    ap.add_argument("--build-type", default="", help="CMAKE_BUILD_TYPE of the agent, for the report")
    args = ap.parse_args()

    start_uptime = uptime()
    sizes = [int(s) for s in args.sizes.split(",")]
    results = {}
    for rows in sizes:
        print(f"-- {rows} rows, {args.runs} runs", flush=True)
        samples, repeat = measure(args.agent, rows, args.runs, None)
        results[rows] = (samples, repeat)
        for root in TABLES:
            name = NAMES[root].split(" (")[0]
            cpus = ", ".join(f"{s['cpu_per_vb'] * 1e6:.2f}" for s in samples[root])
            print(f"   {name:18} {median(samples[root], 'rate'):>9.0f} varbinds/s, agent CPU "
                  f"{median(samples[root], 'cpu_per_vb') * 1e6:.2f} us/varbind (runs: {cpus})",
                  flush=True)

    lines = []
    lines.append("| rows | table | varbinds per sample | varbinds/s (wall, median) | "
                 "agent CPU µs/varbind (median) | runs (µs/varbind) |")
    lines.append("|---:|---|---:|---:|---:|---|")
    for rows in sizes:
        samples, repeat = results[rows]
        for root in TABLES:
            s = samples[root]
            lines.append(f"| {rows} | {NAMES[root]} | {s[0]['varbinds']} ({repeat} walk{'s' if repeat > 1 else ''}) | "
                         f"{median(s, 'rate'):.0f} | {median(s, 'cpu_per_vb') * 1e6:.2f} | "
                         + ", ".join(f"{x['cpu_per_vb'] * 1e6:.2f}" for x in s) + " |")
    # Ratios of the medians of agent CPU per varbind, all from this run.
    cpu = {rows: {root: median(results[rows][0][root], "cpu_per_vb") for root in TABLES}
           for rows in sizes}
    lines += ["", "| rows | ours / reference | ours / iterator floor | iterator floor / reference |",
              "|---:|---:|---:|---:|"]
    for rows in sizes:
        c = cpu[rows]
        lines.append(f"| {rows} | {c[OURS] / c[REFERENCE]:.2f}x | {c[OURS] / c[FLOOR]:.2f}x | "
                     f"{c[FLOOR] / c[REFERENCE]:.2f}x |")
    verdicts = []
    if len(sizes) >= 2:
        small, large = min(sizes), max(sizes)
        r1 = cpu[large][OURS] / cpu[small][OURS]
        r2 = cpu[large][OURS] / cpu[large][REFERENCE]
        verdicts.append(f"- ours at {large} rows / ours at {small} rows: **{r1:.2f}x** "
                        f"(target ≤ 1.20x: {'met' if r1 <= 1.20 else 'missed'})")
        verdicts.append(f"- ours / reference at {large} rows: **{r2:.2f}x** "
                        f"(target ≤ 1.25x: {'met' if r2 <= 1.25 else 'missed'})")
        verdicts.append(f"- ours / iterator floor at {large} rows: "
                        f"**{cpu[large][OURS] / cpu[large][FLOOR]:.2f}x**; iterator floor / "
                        f"reference: **{cpu[large][FLOOR] / cpu[large][REFERENCE]:.2f}x**")
    table = "\n".join(lines + [""] + verdicts)
    note = machine_note(start_uptime, uptime())
    if args.build_type:
        note += f". Agent built {args.build_type}"
    print()
    print(table)

    if args.benchmarks:
        section = SECTION.format(table=table, note=note, runs=args.runs,
                                 command=args.command or "bench/run_walk_bench.sh")
        write_section(args.benchmarks, "Table walk", section)
        print(f"\nwrote the 'Table walk' section of {args.benchmarks}")


SECTION = """## Table walk

A full `snmpbulkwalk -v2c -Cr50 -Oqn` of ipMcastRouteTable (generated IPv4 (S,G) routes, the
six served columns: 7-10, 18, 19) against the embedded master of `pimsnmp-testagent`, and in
the same agent process, walked in turn with it, two stock net-snmp tables with the same rows,
index and served columns and every value computed once (`tools/testagent/ReferenceTable.cpp`):

- the **iterator floor** at 1.3.6.1.4.1.99999.2: a stock `netsnmp_register_table_iterator`
  table (`NETSNMP_ITERATOR_FLAG_SORTED`) whose `get_first_data_point` takes net-snmp's own hint
  (the first request's table_info) to a binary search over the rows' index OIDs and whose
  `get_next_data_point` steps through the array, allocating nothing. No table_iterator table
  does less per row, so it is the floor of the design ipMcastRouteTable is built on.
- the **reference** at 1.3.6.1.4.1.99999.1: net-snmp's own container table (`table_container`
  over its sorted binary array, the machinery under `tdata`).

The three walks must return the same suffixes and values. Agent CPU is the agent process's run
time from `/proc/<pid>/task/*/schedstat` before and after each sample; a sample of the small table
repeats the walk until it holds about 300k varbinds. Medians of {runs} runs; every ratio below
is of these medians, from this one run. Varbinds/s is wall time on the client side, client
process included.

{table}

Machine: {note}.

Reproduce: `{command}` (and `bench/profile_walk.sh <build dir> 2000` for the next table).

### Where the cost is

`bench/profile_walk.sh <build dir> 2000` runs the agent under callgrind and walks the three
tables once each (12,000 varbinds each). Instructions per varbind, inclusive (RelWithDebInfo
build):

| part of the request path | ipMcastRouteTable | iterator floor | reference |
|---|---:|---:|---:|
| everything | 37.89k | 37.24k | 22.39k |
| outside the table (PDU decode/encode, VACM, GETBULK repetition loop, freeing each request's data) | 12.03k | 11.93k | 10.87k |
| net-snmp `table` helper itself (index parse, its copy of the index list) | 7.22k | 7.11k | 7.16k |
| below the `table` helper | 18.64k | 18.19k | 4.36k |
| – `serialize` and `table_hint` (`batchHint`: picks the batch's smallest index, checks that the helper's parsed list encodes back to it, hands that list over) | 0.12k + 0.57k | – | – |
| – `table_iterator`, net-snmp's own work: two copies of the six-varbind index list per call (6.8-7.0k), `netsnmp_check_getnext_reply` per candidate row (build_oid and compare, and a copy of the index list of the row it keeps: 3.6k for one row, 4.0k for two), freeing the copies (2.5k), request data lists (1.6k), rest | 15.42k | 16.30k | – |
| – the table's callbacks: `get_first_data_point` (hint, descent, index varbinds) + `get_next_data_point` + column handler | 1.73k + 0 + 0.80k | 1.14k + 0.38k + 0.37k | – |
| – `table_container` look-up (binary search) and column handler | – | – | 4.36k |

Before the hint handler handed over the `table` helper's own index list and GETNEXT started
after the hinted row, ipMcastRouteTable took 46.0k instructions per varbind on the same walk,
6.5k of them in `table_hint` (copying the index template, parsing the index OID into it and
encoding it again to check it) and 3.7k in `get_first_data_point` and `get_next_data_point`.

Per-varbind cost does not grow with the table: a walk's step is one `lowerBound` descent from
the batch's hint, straight to the row after the one asked from (a GETNEXT never needs the hinted
row itself), and no successor step. Only the descent grows, as log n: `get_first_data_point`
takes 1.73k instructions per varbind at 2,000 rows and 1.84k at 20,000. Per-varbind CPU time
differs between the two sizes for all three tables alike (in either direction from one run to
the next); in instructions the walk of ipMcastRouteTable costs 37.9k per varbind at 2,000 rows
and 35.7k at 20,000, the difference almost all in malloc and calloc, which do less work per call
in a larger agent heap.

**Ours against the floor**: 0.65k instructions (2%). `table_hint` and `serialize` add 0.69k;
our callbacks do 0.64k more than the floor's (the hint is read into the typed index, the descent
compares typed keys, and each GET converts the row's values, where the floor compares
precomputed OIDs and copies precomputed values); the floor gives 0.88k back inside the iterator
because the stock hint cannot tell a GET from a GETNEXT, so it starts at the row asked from,
which the iterator builds, compares and rejects before taking the next one; the remaining 0.2k
are in the `table` helper and outside it (ipMcastRouteTable's OIDs are one sub-identifier
longer). Within the mandated design at most about 1.3k (3.5%) is left to take from our side, and
most of that is the hint handler, which correct multi-varbind answers need. In CPU time the gap
is larger than in instructions (see the ratios above): callgrind's cache simulation
(`PIMSNMP_PROFILE_CACHE=1 bench/profile_walk.sh <build dir> 2000`) counts 402 instruction-cache
misses per varbind for ipMcastRouteTable against 189 for the floor and 178 for the reference,
spread over net-snmp's own functions as much as ours: the longer handler chain and our
callbacks' code push net-snmp's hot code out of the L1 instruction cache.

**The floor against the reference**: 14.85k instructions (1.66x), and it is the iterator helper.
net-snmp's `table_iterator` spends 15.4-16.3k of its own per varbind, against 4.4k for the
container's look-up and handler, plus 1.1k outside the table for freeing its per-request cache.
Most of it is copying and freeing six-varbind index lists (four list copies per varbind in all,
counting the `table` helper's, against the reference's one), which no callback can avoid: the
lists come from the table's index, and the iterator copies them whatever the callbacks return.
In all, glibc's malloc, calloc and free take 16.7k instructions per varbind for
ipMcastRouteTable (44%), 16.5k for the floor and 8.6k (39%) for the reference: the allocator
alone is 8k of the 15.5k gap. The ≤ 1.25x target is therefore out of reach for any table served
through `table_iterator` with this index; it needs the tables served without the iterator helper
(a handler under the `table` helper that looks the request's index up in the ordered collection
itself, as `table_container` does on its array), which the current design rules out.
"""


if __name__ == "__main__":
    main()
