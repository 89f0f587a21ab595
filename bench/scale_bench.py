#!/usr/bin/env python3
"""Many-VRF benchmark of pimsnmpd: a grid of VRF counts x routes per VRF.

For each grid point the daemon loads a state file (load time and RSS, always measured without
valgrind), then one VRF's ipMRouteTable is bulk-walked and read with 20-varbind GETs of random
rows, in that VRF's context, through each access path: v2c with --community-prefix
communities, v2c with hand-written com2sec lines (the form pimsnmpctl communities prints),
v2c with rocommunity lines, and v3 (-n VRF). The figure is the daemon's cost per varbind: its
/proc CPU time, or with --callgrind the instructions callgrind counts (instrumentation on once
the state is loaded). Ratios are against the one-VRF point of the same routes per VRF (else
the grid's first point). Then VRFs come and go under fresh names through the feed and RSS is
read after the first hundred and at the end.

usage: scale_bench.py --pimsnmpd BIN [--grid 1x100,1000x100] [--callgrind] [--churn 1000]
                      [--benchmarks BENCHMARKS.md --command CMD]
"""

import argparse
import json
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

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from benchlib import cpu_seconds, free_port, write_section  # noqa: E402
from e2elib import FeedClient, vrf_inputs  # noqa: E402

IPMROUTE_ENTRY = "1.3.6.1.2.1.83.1.1.2.1"
USER = "bench"
GETS = 20
MODES = ("prefix", "com2sec", "rocommunity", "v3")


def vrf_name(i):
    return f"vrf{i:04d}"


def vrf_doc(v, routes):
    """IPv4 family of VRF number v with `routes` (S,G) routes, all in the FIB."""
    rts, fib = {}, {}
    for r in range(routes):
        key = f"10.{v % 250}.{r // 250}.{r % 250 + 1},239.{v // 250}.{v % 250}.{r % 250 + 1}"
        rts[key] = {"upstream": {"interface": "Up", "rpfNeighbor": "10.0.0.2"},
                    "interfaces": {"Down": {}}}
        fib[key] = {"oifs": ["Down"], "packets": r, "bytes": 100 * r}
    return {"ipv4": vrf_inputs(
        interfaces={"Up": {"address": "10.0.0.1/24", "dr": "10.0.0.1"},
                    "Down": {"address": "10.1.0.1/24", "dr": "10.1.0.1"}},
        routes=rts, fib={"oifIndexes": {"Up": 1, "Down": 2}, "routes": fib})}


def document(vrfs, routes):
    return {"interfaces": {"Up": {"ifIndex": 1}, "Down": {"ifIndex": 2}},
            "vrfs": {vrf_name(v): vrf_doc(v, routes) for v in range(vrfs)}}


class Daemon:
    def __init__(self, binary, workdir, state, config, args, callgrind):
        self.dir = workdir
        os.makedirs(workdir, exist_ok=True)
        self.feed = os.path.join(workdir, "feed.sock")
        self.port = free_port()
        self.env = dict(os.environ, MIBS="", SNMP_PERSISTENT_DIR=os.path.join(workdir, "p"),
                        SNMPCONFPATH=workdir, HOME=workdir)
        conf = os.path.join(workdir, "pimsnmpd.conf")
        with open(conf, "w") as f:
            f.write("\n".join(config) + "\n")
        cmd = [binary, "--feed", f"unix:{self.feed}", "--listen", f"udp:127.0.0.1:{self.port}",
               "--config", conf, "--persistent-dir", os.path.join(workdir, "ap"), *args]
        if state:
            cmd += ["--state", state]
        self.cg_out = os.path.join(workdir, "cg.out")
        if callgrind:
            cmd = ["valgrind", "--tool=callgrind", "--instr-atstart=no",
                   f"--callgrind-out-file={self.cg_out}"] + cmd
        self.callgrind = callgrind
        self.dumps = 0
        self.start = time.monotonic()
        self.proc = subprocess.Popen(cmd, env=self.env, stdout=subprocess.DEVNULL,
                                     stderr=open(os.path.join(workdir, "log"), "w"))

    def wait_loaded(self, vrfs, routes, timeout):
        """Seconds from the start until the status shows every VRF's context served with all
        its routes in ipMRouteTable (routes present at start enter the store gradually)."""
        deadline = time.monotonic() + timeout
        while time.monotonic() < deadline:
            if self.proc.poll() is not None:
                sys.exit(f"pimsnmpd exited (see {self.dir}/log)")
            try:
                c = FeedClient(self.feed, timeout=timeout)
                st = c.request("status")["status"]
                c.close()
                contexts = st.get("contexts", {})
                rows = sum(n for ctx in contexts.values() for tables in ctx["tables"].values()
                           for t, n in tables.items() if t == "ipMRouteTable")
                if len(contexts) >= vrfs and rows >= vrfs * routes:
                    return time.monotonic() - self.start
            except (OSError, KeyError, ValueError, AttributeError):
                pass
            time.sleep(0.2)
        sys.exit(f"pimsnmpd did not load in {timeout} s (see {self.dir}/log)")

    def rss_kib(self):
        with open(f"/proc/{self.proc.pid}/status") as f:
            return int(re.search(r"VmRSS:\s+(\d+)", f.read()).group(1))

    def control(self, *args):
        subprocess.run(["callgrind_control", *args, str(self.proc.pid)], check=True,
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)

    def cost_of(self, action):
        """(cost, action's result): CPU seconds or instructions the daemon spent in action()."""
        if not self.callgrind:
            before = cpu_seconds(self.proc.pid)
            result = action()
            return cpu_seconds(self.proc.pid) - before, result
        self.control("-z")
        result = action()
        self.control("-d")
        self.dumps += 1
        path = f"{self.cg_out}.{self.dumps}"
        for _ in range(200):
            if os.path.exists(path):
                break
            time.sleep(0.1)
        with open(path) as f:
            for line in f:
                m = re.match(r"(?:summary|totals):\s+(\d+)", line)
                if m:
                    return int(m.group(1)), result
        sys.exit(f"no totals in {path}")

    def stop(self):
        self.proc.send_signal(signal.SIGTERM)
        try:
            self.proc.wait(timeout=120)
        except subprocess.TimeoutExpired:
            self.proc.kill()
            self.proc.wait()


def access_config(mode, vrfs):
    """The configuration lines and arguments a daemon serving `mode` gets; each access form has
    a daemon of its own, since VACM's lists of one form slow the others down."""
    base = [f"createUser {USER}", f"rouser {USER} noauth"]
    if mode == "com2sec":
        # The hand-written form pimsnmpctl communities prints: one group, a prefix access.
        lines = [f"com2sec -Cn {vrf_name(v)} pimsnmpVrf 127.0.0.1 hand-{vrf_name(v)}"
                 for v in range(vrfs)]
        return base + lines + ["group pimsnmpVrf v2c pimsnmpVrf", "view all included .1",
                               'access pimsnmpVrf "" any noauth prefix all none none'], []
    if mode == "rocommunity":
        # One security name, group, view and access entry per VRF.
        return base + [f"rocommunity old-{vrf_name(v)} 127.0.0.1 .1 {vrf_name(v)}"
                       for v in range(vrfs)], []
    return base, ["--community-prefix", "public"]


def measure_point(binary, vrfs, routes, callgrind, runs, modes, workdir):
    state = os.path.join(workdir, "state.json")
    with open(state, "w") as f:
        json.dump(document(vrfs, routes), f)
    target = vrf_name(vrfs // 2)
    point = {"vrfs": vrfs, "routes": routes}
    rng = random.Random(vrfs * 7919 + routes)
    if callgrind:
        # Load time and memory of the daemon itself, not of valgrind.
        config, args = access_config("prefix", vrfs)
        d = Daemon(binary, os.path.join(workdir, "load"), state, config, args, False)
        try:
            point["load_s"] = d.wait_loaded(vrfs, routes, 1800)
            point["rss_mib"] = d.rss_kib() / 1024
        finally:
            d.stop()
    for mode in modes:
        config, args = access_config(mode, vrfs)
        d = Daemon(binary, os.path.join(workdir, mode), state, config, args, callgrind)
        try:
            loaded = d.wait_loaded(vrfs, routes, 3600 if callgrind else 1800)
            point.setdefault("load_s", loaded)
            if callgrind:
                d.control("-i", "on")
            else:
                point.setdefault("rss_mib", d.rss_kib() / 1024)
            walk, get = [], []
            for _ in range(runs):
                cost, lines = d.cost_of(lambda: snmp_walk(d, mode, target))
                walk.append(cost / len(lines))
                oids = [ln.split()[0] for ln in rng.sample(lines, min(GETS, len(lines)))]
                cost, got = d.cost_of(lambda: snmp_get(d, mode, target, oids))
                get.append(cost / len(got))
            point[mode] = {"walk": walk, "get": get, "varbinds": len(lines)}
        finally:
            d.stop()
    return point


def community_args(mode, context):
    if mode == "v3":
        return ["-v3", "-u", USER, "-l", "noAuthNoPriv", "-n", context]
    prefix = {"prefix": "public", "com2sec": "hand", "rocommunity": "old"}[mode]
    return ["-v2c", "-c", f"{prefix}-{context}"]


def run_tool(d, tool, mode, context, args):
    r = subprocess.run([tool, *community_args(mode, context), "-On", "-Oq", "-t", "120", "-r",
                        "0", *args], env=d.env, capture_output=True, text=True, timeout=1200)
    lines = [ln for ln in r.stdout.splitlines() if ln.startswith(".")]
    if r.returncode != 0 or not lines:
        sys.exit(f"{tool} {mode} {context}: {r.stderr.strip() or 'no varbinds'} ({d.dir}/log)")
    return lines


def snmp_walk(d, mode, context):
    return run_tool(d, "snmpbulkwalk", mode, context,
                    ["-Cr50", f"udp:127.0.0.1:{d.port}", IPMROUTE_ENTRY])


def snmp_get(d, mode, context, oids):
    return run_tool(d, "snmpget", mode, context, [f"udp:127.0.0.1:{d.port}", *oids])


def churn(binary, cycles, workdir):
    """RSS (KiB) after the first hundred add/remove cycles and after all, plus the daemon's
    communities and net-snmp's contexts before and after."""
    state = os.path.join(workdir, "state.json")
    with open(state, "w") as f:
        json.dump(document(1, 10), f)
    d = Daemon(binary, workdir, state, [f"createUser {USER}", f"rouser {USER} noauth"],
               ["--community-prefix", "public"], False)
    try:
        d.wait_loaded(1, 10, 120)
        c = FeedClient(d.feed, timeout=120)
        communities_before = len(c.request("status")["status"].get("communities", []))
        out = {}
        for i in range(cycles):
            name = f"churn{i:05d}"
            c.patch({"vrfs": {name: vrf_doc(i % 1000 + 1, 10)}})
            # Asked in its context while it is there, so net-snmp's caches see it.
            run_tool(d, "snmpget", "prefix", name, [f"udp:127.0.0.1:{d.port}",
                                                    "1.3.6.1.2.1.1.3.0"])
            c.patch({"vrfs": {name: None}})
            if i + 1 == min(100, cycles):
                out["rss_100_kib"] = d.rss_kib()
        out["rss_end_kib"] = d.rss_kib()
        out["communities"] = (communities_before,
                              len(c.request("status")["status"].get("communities", [])))
        c.close()
    finally:
        d.stop()
    return out


def ratio(samples, base):
    return f"{statistics.median(samples) / base:.2f}x" if base else "-"


def spread(samples):
    return f"{statistics.median(samples):.3g} [{min(samples):.3g}-{max(samples):.3g}]"


def base_of(points, p):
    """The one-VRF point with p's routes per VRF, else the first point."""
    return next((b for b in points if b["vrfs"] == 1 and b["routes"] == p["routes"]), points[0])


def report(points, churned, callgrind, command):
    unit = "instructions" if callgrind else "CPU µs"
    scale = 1 if callgrind else 1e6
    lines = ["## Scale", "",
             f"`{command}` (one run). Per-varbind daemon cost in {unit}, median [min-max] of "
             "the repetitions, for a bulk walk (-Cr50) of one VRF's ipMRouteTable and for "
             f"{GETS}-varbind GETs of random rows of it; the ratio is the median against the "
             "1-VRF point with as many routes per VRF. Load time (until every VRF's context is "
             "served) and RSS are the daemon's without valgrind. Access: `prefix` = --community-prefix, `com2sec` = "
             "hand-written com2sec lines with one group and a prefix access, `rocommunity` = "
             "hand-written `rocommunity C SOURCE .1 VRF` lines, `v3` = -n VRF.", "",
             "| VRFs x routes | load s | RSS MiB | access | walk | ratio | GET | ratio |",
             "|---|---|---|---|---|---|---|---|"]
    for p in points:
        base = base_of(points, p)
        for mode in (m for m in MODES if m in p and m in base):
            w = [x * scale for x in p[mode]["walk"]]
            g = [x * scale for x in p[mode]["get"]]
            bw = statistics.median(base[mode]["walk"]) * scale
            bg = statistics.median(base[mode]["get"]) * scale
            rss = f"{p['rss_mib']:.0f}" if "rss_mib" in p else "-"
            lines.append(f"| {p['vrfs']} x {p['routes']} | {p['load_s']:.1f} | {rss} | {mode} | "
                         f"{spread(w)} | {ratio(w, bw)} | {spread(g)} | {ratio(g, bg)} |")
    if churned:
        lines += ["", f"VRF churn ({churned['cycles']} VRFs added and removed under fresh names "
                  "through the feed, each read once in its context): RSS "
                  f"{churned['rss_100_kib'] / 1024:.1f} MiB after 100, "
                  f"{churned['rss_end_kib'] / 1024:.1f} MiB at the end "
                  f"({(churned['rss_end_kib'] - churned['rss_100_kib']) / 1024:+.2f} MiB); "
                  f"communities {churned['communities'][0]} before, "
                  f"{churned['communities'][1]} after."]
    return "\n".join(lines) + "\n"


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("--pimsnmpd", required=True)
    ap.add_argument("--grid", default="1x100,1000x100")
    ap.add_argument("--runs", type=int, default=3)
    ap.add_argument("--callgrind", action="store_true")
    ap.add_argument("--churn", type=int, default=0)
    ap.add_argument("--modes", default=",".join(MODES))
    ap.add_argument("--benchmarks")
    ap.add_argument("--command", default="bench/scale_bench.py")
    a = ap.parse_args()
    points = []
    for cell in a.grid.split(","):
        vrfs, routes = (int(x) for x in cell.split("x"))
        workdir = tempfile.mkdtemp(prefix="scalebench-")
        try:
            points.append(measure_point(a.pimsnmpd, vrfs, routes, a.callgrind, a.runs,
                                        a.modes.split(","), workdir))
        finally:
            shutil.rmtree(workdir, ignore_errors=True)
        print(json.dumps(points[-1]), flush=True)
    churned = None
    if a.churn:
        workdir = tempfile.mkdtemp(prefix="scalebench-")
        try:
            churned = dict(churn(a.pimsnmpd, a.churn, workdir), cycles=a.churn)
        finally:
            shutil.rmtree(workdir, ignore_errors=True)
        print(json.dumps(churned), flush=True)
    text = report(points, churned, a.callgrind, a.command)
    print(text)
    if a.benchmarks:
        write_section(a.benchmarks, "Scale", text)


if __name__ == "__main__":
    main()
