#!/usr/bin/env python3
"""Per-table request cost against the table size (run through bench/run_table_bench.sh).

For each size, starts pimsnmp-testagent with that many generated rows in each of the thirteen
tables of the default VRF (--bare --table-rows N) and measures, table by table:

- walk: GETBULK walks (50 repetitions) of the whole table, repeated until a sample holds at
  least MIN_WALK_VARBINDS varbinds;
- get: GET requests of 20 varbinds each, every varbind a random row and served column of the
  table (the rows found by walking the table first), GET_REQUESTS requests per sample; every
  answer must name the varbinds asked for, with a value.

Cost is agent CPU (its run time from /proc/<pid>/task/*/schedstat) per varbind;
medians over the runs, tables and kinds rotated between runs. With --callgrind the agent runs
under callgrind instead (instrumentation on once the rows are in place) and the figure is
instructions per varbind, from a shorter sample: walks of the first CALLGRIND_COLUMN_VARBINDS
rows of every served column, and CALLGRIND_GETS GETs.

The requests come from bench/snmpclient.py (one socket, no process per request).
"""

import argparse
import os
import random
import re
import shutil
import signal
import statistics
import subprocess
import sys
import tempfile
import time

from benchlib import cpu_seconds, free_port, write_section
from snmpclient import END_OF_MIB_VIEW, NO_SUCH_INSTANCE, NO_SUCH_OBJECT, Client, parse_oid

PIM = "1.3.6.1.3.61.1.1"
IPMROUTE = "1.3.6.1.2.1.83.1.1"
IPMCAST = "1.3.6.1.2.1.168.1"
TABLES = [
    ("pimInterfaceTable", f"{PIM}.2"),
    ("pimNeighborTable", f"{PIM}.3"),
    ("pimIpMRouteTable", f"{PIM}.4"),
    ("pimRPSetTable", f"{PIM}.6"),
    ("pimIpMRouteNextHopTable", f"{PIM}.7"),
    ("pimCandidateRPTable", f"{PIM}.11"),
    ("pimComponentTable", f"{PIM}.12"),
    ("ipMRouteTable", f"{IPMROUTE}.2"),
    ("ipMRouteNextHopTable", f"{IPMROUTE}.3"),
    ("ipMRouteInterfaceTable", f"{IPMROUTE}.4"),
    ("ipMcastInterfaceTable", f"{IPMCAST}.3"),
    ("ipMcastRouteTable", f"{IPMCAST}.5"),
    ("ipMcastRouteNextHopTable", f"{IPMCAST}.6"),
]
KINDS = ("walk", "get")
MIN_WALK_VARBINDS = 100_000
GET_VARBINDS = 20
GET_REQUESTS = 4000
CALLGRIND_COLUMN_VARBINDS = 1000
CALLGRIND_GETS = 100
WALK_TARGET, GET_TARGET = 1.2, 1.5
# pimsnmpd's allocator. With glibc's, the test agent's small heap is grown and trimmed again
# (brk) by every GET of some tables at 1,000 rows, which costs more system time than the
# request itself and has nothing to do with the table.
JEMALLOC = next((p for p in ("/usr/lib/x86_64-linux-gnu/libjemalloc.so.2",
                             "/usr/lib/aarch64-linux-gnu/libjemalloc.so.2") if os.path.exists(p)),
                None)


class Agent:
    def __init__(self, binary, rows, callgrind, cache_sim=False):
        self.dir = tempfile.mkdtemp(prefix="tablebench-")
        conf = os.path.join(self.dir, "agent.conf")
        with open(conf, "w") as f:
            f.write("rocommunity public 127.0.0.1\n")
        env = dict(os.environ, MIBS="", SNMP_PERSISTENT_DIR=os.path.join(self.dir, "p"),
                   SNMPCONFPATH=self.dir)
        if JEMALLOC and not callgrind:
            env["LD_PRELOAD"] = JEMALLOC
            # and its options as pimsnmpd sets them (daemon/MallocConf.cpp): huge pages.
            env.setdefault("MALLOC_CONF", "thp:always,metadata_thp:auto")
        self.port = free_port()
        cmd = [binary, "--port", str(self.port), "--config", conf, "--bare", "--table-rows",
               str(rows), "--persistent-dir", os.path.join(self.dir, "ap")]
        self.cg_out = os.path.join(self.dir, "cg.out")
        if callgrind:
            cmd = ["valgrind", "--tool=callgrind", "--instr-atstart=no",
                   f"--cache-sim={'yes' if cache_sim else 'no'}",
                   f"--callgrind-out-file={self.cg_out}"] + cmd
        self.proc = subprocess.Popen(cmd, env=env, stdout=subprocess.PIPE,
                                     stderr=open(os.path.join(self.dir, "log"), "w"), text=True)
        line = self.proc.stdout.readline()
        if not line.startswith("ready"):
            sys.exit(f"the agent did not start (see {self.dir}/log)")
        self.client = Client(self.port, timeout=120 if callgrind else 10)
        self.dumps = 0

    def control(self, *args):
        subprocess.run(["callgrind_control", *args, str(self.proc.pid)], check=True,
                       stdout=subprocess.DEVNULL)

    def events_since_zero(self):
        """Dumps the counts since the last zeroing; returns the dump's totals by event name
        (Ir, and with the cache simulation D1mr, DLmr, ...)."""
        self.control("-d")
        self.dumps += 1
        path = f"{self.cg_out}.{self.dumps}"
        for _ in range(100):
            if os.path.exists(path):
                break
            time.sleep(0.1)
        names = []
        with open(path) as f:
            for line in f:
                if line.startswith("events:"):
                    names = line.split()[1:]
                m = re.match(r"(?:summary|totals):\s+([\d ]+)", line)
                if m and names:
                    return dict(zip(names, (int(x) for x in m.group(1).split())))
        sys.exit(f"no totals in {path}")

    def stop(self):
        self.client.close()
        self.proc.send_signal(signal.SIGTERM)
        try:
            self.proc.wait(timeout=60)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()
        shutil.rmtree(self.dir, ignore_errors=True)


def discover(client, root, rows):
    """The table's served columns and its rows' index suffixes (from a walk of the first
    served column), checked against the expected row count."""
    root_t = parse_oid(root) + (1,)
    n = len(root_t)
    columns = []
    while True:
        start = root_t + (columns[-1] + 1,) if columns else root_t
        first = next(client.walk(root_t, limit=1, start=start), None)
        if first is None:
            break
        columns.append(first[0][n])
    if not columns:
        sys.exit(f"{root}: no rows")
    suffixes = [o[n + 1:] for o, _, _ in client.walk(root_t + (columns[0],))]
    if len(suffixes) != rows:
        sys.exit(f"{root}: {len(suffixes)} rows, expected {rows}")
    return columns, suffixes


def check_get(asked, answer):
    if [o for o, _, _ in answer] != asked:
        sys.exit(f"GET answered other OIDs than {asked[0]}...")
    for o, tag, _ in answer:
        if tag in (NO_SUCH_OBJECT, NO_SUCH_INSTANCE, END_OF_MIB_VIEW):
            sys.exit(f"GET of {o}: no value (tag {tag:#x})")


class Table:
    def __init__(self, name, root, columns, suffixes, rng):
        self.name, self.root, self.columns, self.suffixes = name, root, columns, suffixes
        self.root_t = parse_oid(root) + (1,)
        self.rng = rng

    def random_oids(self):
        return [self.root_t + (self.rng.choice(self.columns),) + self.rng.choice(self.suffixes)
                for _ in range(GET_VARBINDS)]

    def walk_once(self, client, callgrind):
        if not callgrind:
            return sum(1 for _ in client.walk(self.root_t))
        n = 0
        for col in self.columns:
            n += sum(1 for _ in client.walk(self.root_t + (col,), limit=CALLGRIND_COLUMN_VARBINDS))
        return n

    def gets(self, client, requests):
        for _ in range(requests):
            oids = self.random_oids()
            check_get(oids, client.get(oids))
        return requests * GET_VARBINDS


def sample(agent, table, kind, callgrind, cache_sim):
    """One sample of `kind` on `table`: instructions (under callgrind) or agent CPU seconds per
    varbind."""
    if callgrind:
        agent.control("-z")
        n = (table.walk_once(agent.client, True) if kind == "walk"
             else table.gets(agent.client, CALLGRIND_GETS))
        events = agent.events_since_zero()
        if cache_sim:
            misses = {e: round(v / n, 1) for e, v in events.items() if "m" in e}
            print(f"   {table.name} {kind}: {events['Ir'] / n:.0f} Ir/vb, "
                  f"misses/vb {misses}", flush=True)
        return events["Ir"] / n
    cpu0 = cpu_seconds(agent.proc.pid)
    n = 0
    if kind == "walk":
        while n < MIN_WALK_VARBINDS:
            n += table.walk_once(agent.client, False)
    else:
        n = table.gets(agent.client, GET_REQUESTS)
    return (cpu_seconds(agent.proc.pid) - cpu0) / n


def measure(binary, sizes, runs, callgrind, seed, only=None, cache_sim=False):
    """Samples every table at both sizes. Both agents run at once, and each sample of one size
    is taken right beside the same sample of the other (which goes first alternates): on a
    shared machine whose load drifts over minutes, the two sides of a ratio then see the same
    load."""
    agents = {}
    try:
        for rows in sizes:
            agents[rows] = Agent(binary, rows, callgrind, cache_sim)
        tables = {}
        for rows, agent in agents.items():
            rng = random.Random(seed)
            tables[rows] = []
            for name, root in TABLES:
                if only and name not in only:
                    continue
                columns, suffixes = discover(agent.client, root, rows)
                tables[rows].append(Table(name, root, columns, suffixes, rng))
        results = {rows: {(t.name, k): [] for t in tables[rows] for k in KINDS} for rows in sizes}
        if callgrind:
            for agent in agents.values():
                agent.control("-i", "on")
        count = len(tables[sizes[0]])
        for run in range(runs):
            for step, i in enumerate(list(range(run % count, count)) + list(range(run % count))):
                kinds = KINDS if run % 2 == 0 else tuple(reversed(KINDS))
                for kind in kinds:
                    pair = sizes if (run + step) % 2 == 0 else tuple(reversed(sizes))
                    for rows in pair:
                        t = tables[rows][i]
                        results[rows][(t.name, kind)].append(
                            sample(agents[rows], t, kind, callgrind, cache_sim))
            print(f"   run {run + 1} of {runs} done", flush=True)
        return results, {t.name: len(t.columns) for t in tables[sizes[0]]}
    finally:
        for agent in agents.values():
            agent.stop()


def uptime():
    return subprocess.run(["uptime"], capture_output=True, text=True).stdout.strip()


def report(results, sizes, columns, callgrind):
    small, large = sizes
    unit = "instructions" if callgrind else "µs"
    scale = 1.0 if callgrind else 1e6
    fmt = (lambda v: f"{v * scale / 1000:.1f}k") if callgrind else (lambda v: f"{v * scale:.2f}")
    lines = [f"| table | cols | walk {unit}/vb, {small} rows | {large} rows | ratio (run range) | "
             f"GET {unit}/vb, {small} rows | {large} rows | ratio (run range) |",
             "|---|---:|---:|---:|---:|---:|---:|---:|"]
    worst = {k: (0.0, "") for k in KINDS}
    for name, _ in TABLES:
        if name not in columns:
            continue
        cells = [name, str(columns[name])]
        for kind in KINDS:
            a = results[small][(name, kind)]
            b = results[large][(name, kind)]
            # Each pair of samples was taken side by side: the median of their ratios is the
            # one a drifting machine load moves least.
            runs = [y / x for x, y in zip(a, b)]
            ratio = statistics.median(runs)
            cells += [fmt(statistics.median(a)), fmt(statistics.median(b)),
                      f"**{ratio:.2f}x** ({min(runs):.2f}-{max(runs):.2f})"]
            if ratio > worst[kind][0]:
                worst[kind] = (ratio, name)
        lines.append("| " + " | ".join(cells) + " |")
    verdict = [
        f"- walk: worst {worst['walk'][1]} **{worst['walk'][0]:.2f}x** (target ≤ {WALK_TARGET}x: "
        f"{'met' if worst['walk'][0] <= WALK_TARGET else 'missed'})",
        f"- 20-varbind random GET: worst {worst['get'][1]} **{worst['get'][0]:.2f}x** (target ≤ "
        f"{GET_TARGET}x: {'met' if worst['get'][0] <= GET_TARGET else 'missed'})"]
    return "\n".join(lines + [""] + verdict)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--agent", required=True)
    ap.add_argument("--runs", type=int, default=3)
    ap.add_argument("--sizes", default="1000,100000")
    ap.add_argument("--callgrind", action="store_true")
    ap.add_argument("--seed", type=int, default=1)
    ap.add_argument("--tables", help="comma-separated table names (default: all)")
    ap.add_argument("--cache-sim", action="store_true",
                    help="with --callgrind: simulate the caches and print misses per varbind")
    ap.add_argument("--benchmarks", help="BENCHMARKS.md to write the section to")
    ap.add_argument("--command", default="bench/run_table_bench.sh")
    args = ap.parse_args()
    sizes = sorted(int(s) for s in args.sizes.split(","))
    if len(sizes) != 2:
        sys.exit("--sizes takes two sizes")
    start = uptime()
    results = {}
    columns = {}
    print(f"-- {' and '.join(str(r) for r in sizes)} rows per table side by side, {args.runs} runs"
          f"{' under callgrind' if args.callgrind else ''}", flush=True)
    only = set(args.tables.split(",")) if args.tables else None
    results, columns = measure(args.agent, sizes, args.runs, args.callgrind, args.seed, only,
                               args.cache_sim)
    table = report(results, sizes, columns, args.callgrind)
    print()
    print(table)
    if args.benchmarks:
        title = "Table size: instructions" if args.callgrind else "Table size: CPU time"
        intro = (CALLGRIND_INTRO if args.callgrind else CPU_INTRO).format(
            runs=args.runs, walk=MIN_WALK_VARBINDS, gets=GET_REQUESTS,
            cg_col=CALLGRIND_COLUMN_VARBINDS, cg_gets=CALLGRIND_GETS)
        note = (f"Machine: {os.cpu_count()} vCPU, shared; `uptime` at the start: `{start}`; at the "
                f"end: `{uptime()}`. Reproduce: `{args.command}`.")
        write_section(args.benchmarks, title, f"## {title}\n\n{intro}\n{table}\n\n{note}\n")
        print(f"\nwrote the '{title}' section of {args.benchmarks}")


CPU_INTRO = """Every one of the thirteen tables with 1,000 and with 100,000 generated rows (the default VRF
of `pimsnmp-testagent --bare --table-rows N`, embedded master, v2c, with pimsnmpd's allocator
jemalloc preloaded when installed), measured by
`bench/table_bench.py`: agent CPU time (the scheduler's run time) per varbind of GETBULK walks (50
repetitions; whole-table walks repeated to at least {walk} varbinds per sample) and of GETs of
20 varbinds, each a random row and served column of the table ({gets} GETs per sample). Both
sizes' agents run at once and each sample at one size is taken right beside the same sample at
the other, which goes first alternating. Medians of {runs} runs, tables rotated between runs;
the ratio is the median of the side-by-side pairs' ratios, with their range. Targets: walk
≤ 1.2x, GET ≤ 1.5x at 100,000 rows against 1,000.
"""

CALLGRIND_INTRO = """The same requests under callgrind (`bench/table_bench.py --callgrind`), instructions per
varbind, which the machine's load does not move: walks of the first {cg_col} rows of every
served column and {cg_gets} random 20-varbind GETs per table and size ({runs} run(s); the agent is
instrumented only once its rows are in place). Instruction counts do not show cache misses,
which is where most of the remaining growth of the CPU time at 100,000 rows is (see "Table
size: CPU time").
"""


if __name__ == "__main__":
    main()
