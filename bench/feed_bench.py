#!/usr/bin/env python3
"""Feed benchmark (run through bench/run_feed_bench.sh).

Starts pimsnmpd with an empty state and a feed socket, creates one IPv4 VRF (three PIM
interfaces, every VRF input) with a first patch, and then sends N routes, each a sparse-mode
route with two outgoing interfaces plus its FIB route with two OIFs, as merge patches of B
routes each. It measures the time from sending the first route patch until the daemon's
status reports all N routes in the VRF's ipMcastRouteTable (every patch answered and applied,
the state machines done), and reads the daemon's resident memory (VmRSS) at that point.
Repeats for several runs (a fresh daemon each) and reports medians.
"""

import argparse
import json
import os
import platform
import re
import shutil
import signal
import socket
import statistics
import subprocess
import sys
import tempfile
import time

from benchlib import cpu_seconds, free_port, tick_cpu_seconds, write_section


class Feed:
    def __init__(self, path):
        self.sock = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.sock.settimeout(600)
        self.sock.connect(path)
        self.buf = b""

    def send(self, line):
        self.sock.sendall(line.encode() + b"\n")

    def reply(self):
        while b"\n" not in self.buf:
            chunk = self.sock.recv(65536)
            if not chunk:
                sys.exit("the daemon closed the feed connection")
            self.buf += chunk
        line, self.buf = self.buf.split(b"\n", 1)
        return json.loads(line)

    def request(self, line):
        self.send(line)
        return self.reply()


def vrf_patch():
    intfs = {f"Ethernet{i}": {"ifIndex": i} for i in (1, 2, 3)}
    pim = {f"Ethernet{i}": {"address": f"10.0.{i}.1/24", "dr": f"10.0.{i}.1"} for i in (1, 2, 3)}
    pim["Ethernet1"]["neighbors"] = {"10.0.1.2": {}}
    return {"interfaces": intfs, "vrfs": {"default": {"ipv4": {
        "pimConfig": {}, "pimStatus": {"mode": "sparse", "interfaces": pim},
        "bsrConfig": {}, "bsrStatus": {}, "candidateRpStatus": {"groups": {}},
        "staticRpStatus": {"groups": {}}, "mfibConfig": {"routing": True},
        "fib": {"oifIndexes": {"Ethernet1": 1, "Ethernet2": 2, "Ethernet3": 3}}}}}}


def route_key(n):
    # Distinct (S,G) pairs: 250 sources per group.
    s = n % 250
    g = n // 250
    return f"10.1.{s // 250}.{s % 250 + 1},239.{g // 250 % 250 + 1}.{g % 250}.1"


def route_entry(n):
    """Route n's members of routes and fib.routes: a sparse-mode route with two OIFs."""
    return ({"upstream": {"interface": "Ethernet1", "rpfNeighbor": "10.0.1.2"},
             "interfaces": {"Ethernet2": {}, "Ethernet3": {}}},
            {"oifs": ["Ethernet2", "Ethernet3"], "packets": n, "bytes": n * 1000})


def route_patches(first, count, batch, remove=False):
    lines = []
    for start in range(first, first + count, batch):
        routes, fib = {}, {}
        for n in range(start, min(start + batch, first + count)):
            key = route_key(n)
            if remove:
                routes[key] = None
                fib[key] = None
            else:
                routes[key], fib[key] = route_entry(n)
        lines.append(json.dumps({"vrfs": {"default": {"ipv4": {"routes": routes,
                                                                "fib": {"routes": fib}}}}},
                                separators=(",", ":")))
    return lines


def rss_kib(pid):
    with open(f"/proc/{pid}/status") as f:
        for line in f:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return 0


def mcast_routes(feed):
    st = feed.request("status")["status"]
    tables = st["contexts"].get("", {}).get("tables", {})
    return tables.get("ipMcastMIB", {}).get("ipMcastRouteTable", 0)


def wait_routes(feed, n, timeout):
    deadline = time.monotonic() + timeout
    while True:
        have = mcast_routes(feed)
        if have == n:
            return
        if time.monotonic() > deadline:
            sys.exit(f"timed out waiting for {n} routes (have {have})")
        time.sleep(0.01)


def connect_when_listening(proc, sock, timeout, what):
    """A Feed on `sock` once the server `proc` listens there."""
    deadline = time.monotonic() + timeout
    while True:
        # The socket file exists from bind(); connect succeeds from listen().
        try:
            return Feed(sock)
        except (FileNotFoundError, ConnectionRefusedError):
            if proc.poll() is not None or time.monotonic() > deadline:
                sys.exit(f"{what} did not start")
            time.sleep(0.01)


def one_run(daemon, routes, batch, pipeline, callgrind_out=None):
    """One daemon, one route phase. With `callgrind_out` the daemon runs under callgrind,
    counting the instructions of feed handling only, and the removal phase is skipped."""
    tmp = tempfile.mkdtemp(prefix="pimsnmp-feed-bench-")
    sock = os.path.join(tmp, "feed.sock")
    env = dict(os.environ, MIBS="")
    slow = 30 if callgrind_out else 1
    prefix = []
    if callgrind_out:
        prefix = ["valgrind", "--tool=callgrind", f"--callgrind-out-file={callgrind_out}",
                  "--toggle-collect=PimSnmpd::FeedServer::processInput*"]
    proc = subprocess.Popen(prefix + [daemon, "--feed", f"unix:{sock}",
                             "--listen", f"udp:127.0.0.1:{free_port()}",
                             "--persistent-dir", os.path.join(tmp, "persist")],
                            env=env, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    try:
        feed = connect_when_listening(proc, sock, 20 * slow, "pimsnmpd")
        check(feed.request(json.dumps(vrf_patch())), "VRF patch")
        # The VRF's route machine reviews the routes present when it starts, in rate-limited
        # slices; a probe route tells when that review is over and routes flow as events.
        for line in route_patches(routes, 1, 1):
            check(feed.request(line), "probe route")
        wait_routes(feed, 1, 30 * slow)
        for line in route_patches(routes, 1, 1, remove=True):
            check(feed.request(line), "probe removal")
        wait_routes(feed, 0, 30 * slow)
        rss_before = rss_kib(proc.pid)

        lines = route_patches(0, routes, batch)
        cpu_started = cpu_seconds(proc.pid)
        ticks_started, kernel_started = tick_cpu_seconds(proc.pid)
        started = time.monotonic()
        if pipeline:
            # All patches in flight at once; replies are read as they come.
            sender = [line for line in lines]
            for line in sender:
                feed.send(line)
            for _ in sender:
                check(feed.reply(), "route patch")
        else:
            for line in lines:
                check(feed.request(line), "route patch")
        answered = time.monotonic() - started
        wait_routes(feed, routes, 120 * slow)
        elapsed = time.monotonic() - started
        cpu = cpu_seconds(proc.pid) - cpu_started
        ticks, kernel = tick_cpu_seconds(proc.pid)
        ticks, kernel = ticks - ticks_started, kernel - kernel_started
        kernel_share = kernel / ticks if ticks > 0 else 0.0
        rss = rss_kib(proc.pid)
        if callgrind_out:
            return {"elapsed": elapsed}

        removal_lines = route_patches(0, routes, batch, remove=True)
        started = time.monotonic()
        for line in removal_lines:
            check(feed.request(line), "route removal")
        wait_routes(feed, 0, 120)
        removal = time.monotonic() - started
        return {"elapsed": elapsed, "answered": answered, "cpu": cpu,
                "kernel_share": kernel_share, "rss_kib": rss,
                "rss_before_kib": rss_before, "removal": removal}
    finally:
        proc.send_signal(signal.SIGTERM)
        try:
            proc.wait(30 * slow)
        except subprocess.TimeoutExpired:
            proc.kill()
        shutil.rmtree(tmp, ignore_errors=True)


def floor_run(server, mode, lines):
    """CPU time per line of bench/feed_floor (a server that answers each line without work)
    in `mode`, fed `lines` as the one-route runs are: each line waits for its reply."""
    tmp = tempfile.mkdtemp(prefix="pimsnmp-feed-floor-")
    sock = os.path.join(tmp, "floor.sock")
    proc = subprocess.Popen([server, sock, mode])
    try:
        feed = connect_when_listening(proc, sock, 10, "feed_floor")
        started = cpu_seconds(proc.pid)
        for line in lines:
            feed.send(line)
            feed.reply()
        return (cpu_seconds(proc.pid) - started) / len(lines)
    finally:
        proc.kill()
        proc.wait()
        shutil.rmtree(tmp, ignore_errors=True)


def check(reply, what):
    if not reply.get("ok"):
        sys.exit(f"{what} refused: {reply}")


def cpu_model():
    try:
        with open("/proc/cpuinfo") as f:
            for line in f:
                if line.startswith("model name"):
                    return line.split(":", 1)[1].strip()
    except OSError:
        pass
    return platform.processor() or "unknown"


SECTION = """## Feed

pimsnmpd's feed (`--feed unix:PATH`, one RFC 7396 merge patch per line): {routes:,} IPv4
routes, each a sparse-mode route with two outgoing interfaces and its FIB route with two OIFs,
sent over one connection as patches of {batches} routes (the producer waits for each reply
before it sends the next patch), into one VRF created beforehand. Time from the first route
patch until `status` reports all {routes:,} rows in ipMcastRouteTable (validated, applied to the
platform records, mirrored into the store by the agent's state machines: 9 rows per route
across the three MIBs), and the daemon's CPU time in that span. Resident memory (VmRSS) of the
daemon with all routes in place. Median of {runs} runs per batch size, a fresh daemon each.

| routes per patch | routes/s, patch to rows in the store (runs) | routes per daemon CPU second | target | last reply after | removal (same batches) |
|---:|---|---:|---|---:|---:|
{rows}

| measure | value |
|---|---|
| resident memory at {routes:,} routes | {rss_mib:.0f} MiB ({per_route:,.0f} bytes per route above the {before_mib:.0f} MiB empty daemon; patches of {rss_batch:,}) |
{document_row}{instructions_row}{floor_row}
Machine: {machine}, {cores} cores; {build} build; the machine's load average was {load} when
the runs started. Reproduce:

```sh
{command}
```

### Where the cost is

The daemon is CPU-bound during the run, and the timings move with the machine's load (the
runs' spread above; on this shared 2-core VM the same binary has measured up to 1.5x apart
within an hour). The instruction count does not. A `perf record --call-graph dwarf` profile of
the route phase (100k routes, RelWithDebInfo, 17.4 µs of CPU per route in that run) splits it
as follows (inclusive shares):

| part | share |
|---|---:|
| feed socket, line framing, replies, status polls | 1% |
| parsing the patch text (RapidJSON's reader building the JSON tree) | 12% |
| `Document::mergePatchTaking`: merge with undo record 9%, validation of the touched subtrees 7%, interface reference index 3% | 19% |
| applying: platform route and FIB records built and inserted, the route table's reader mirroring them into the VRF's sparse-mode status | 27% |
| the agent's route state machine: `MrouteSm::handleMroute` on the route (nine rows and their next hops, 36%) and on its FIB entry, which arrives first and finds no route (3%) | 39% |

What brought it from the first measurement (11,642 routes/s, about 63 µs of CPU per route) to
this one (each step measured on its own, most recently by instructions per route under
callgrind, 124k before this round and 67k after it):

- A patch's routes are applied after its FIB entries (and removed routes before them): the
  agent reconciles a new route once, with its FIB entry in place.
- The parsed patch is moved into the document instead of copied (whole new subtrees at once);
  the emptied patch still serves as the hint of what changed.
- The text is scanned by RapidJSON's SAX reader (in place, SSE2) instead of nlohmann's lexer,
  which kept every character for error messages; ASCII text skips the UTF-8 check.
- The merge records where each member of a large map landed, so validation, the reference
  index and the applier no longer search the 100k-route maps by name (six searches per route);
  member names compare eight bytes at a time; validation builds a member's path only for an
  error; references are tallied by name view.
- Route keys of IPv4 skip the canonical-form round trip (the parser only admits the canonical
  dotted quad), and addresses format without `fmt`.
- Records: a new route is inserted without a look-up first; the route event shares one status
  look-up with its reconciliation; look-ups the store's invariants make pointless are skipped
  (a FIB entry ahead of its route now costs one look-up instead of three)
  (docs/decisions.md, "Route mirroring"); the reviewed mark lives in the route's reactor.
- Address comparisons are inlined into the index comparisons of every table descent.
- pimsnmpd links jemalloc, which allocates the many small nodes in about half the time and
  leaves the resident size about 13% smaller.

Memory: where a route's bytes go is counted by `bench/mroute_bench` (store rows, the route
machine, platform records; see "Route mirroring") and `bench/feed_document_bench` (the packed
document); the RSS above is what the daemon holds of them under jemalloc.
"""


# Routes per second the feed must sustain, by routes per patch.
TARGETS = {1000: 50_000, 100: 60_000, 1: 40_000}


def row(batch, routes, results):
    med = {k: statistics.median(r[k] for r in results) for k in results[0]}
    rates = sorted(routes / r["elapsed"] for r in results)
    rate = routes / med["elapsed"]
    cpu_rate = routes / med["cpu"] if med["cpu"] > 0 else float("inf")
    target = TARGETS.get(batch)
    verdict = "" if target is None else \
        f">= {target:,}: {'met' if rate >= target else 'NOT met'} (wall)"
    spread = ", ".join(f"{r:,.0f}" for r in rates)
    return (f"| {batch:,} | **{rate:,.0f}** ({spread}) | {cpu_rate:,.0f} | {verdict} | "
            f"{med['answered']:.2f} s | {med['removal']:.2f} s |")


def main():
    ap = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    ap.add_argument("--daemon", required=True, help="the pimsnmpd binary")
    ap.add_argument("--routes", type=int, default=100_000)
    ap.add_argument("--batch", type=lambda t: [int(b) for b in t.split(",")],
                    default=[1000, 100, 1], help="routes per patch, comma-separated")
    ap.add_argument("--runs", type=int, default=3)
    ap.add_argument("--pipeline", action="store_true",
                    help="send every patch before reading replies")
    ap.add_argument("--build", default="Release", help="build type, for the report")
    ap.add_argument("--benchmarks", help="BENCHMARKS.md to write the 'Feed' section to")
    ap.add_argument("--command", default="bench/run_feed_bench.sh", help="for the report")
    ap.add_argument("--document", default="",
                    help="feed_document_bench's report line, for the memory table")
    ap.add_argument("--floor", metavar="FEED_FLOOR",
                    help="bench/feed_floor: also measure what a line costs a server that does "
                         "no work, the floor under the one-route-per-line figure")
    ap.add_argument("--callgrind", type=int, default=0, metavar="ROUTES",
                    help="also count the daemon's instructions per route under callgrind "
                         "(that many routes; independent of the machine's load)")
    args = ap.parse_args()

    load = os.getloadavg()[0]
    by_batch = {}
    for batch in args.batch:
        results = []
        for i in range(args.runs):
            r = one_run(args.daemon, args.routes, batch, args.pipeline)
            rate = args.routes / r["elapsed"]
            print(f"batch {batch} run {i + 1}: {args.routes} routes in {r['elapsed']:.2f} s = "
                  f"{rate:,.0f} routes/s (daemon CPU {r['cpu']:.2f} s = "
                  f"{args.routes / r['cpu']:,.0f} routes per CPU second, "
                  f"{100 * r['kernel_share']:.0f}% of it in the kernel), "
                  f"RSS {r['rss_kib'] / 1024:.0f} MiB (empty {r['rss_before_kib'] / 1024:.0f} MiB), "
                  f"removal {r['removal']:.2f} s", flush=True)
            results.append(r)
        by_batch[batch] = results

    instructions_row = ""
    if args.callgrind:
        out = os.path.join(tempfile.mkdtemp(prefix="pimsnmp-feed-cg-"), "callgrind.out")
        one_run(args.daemon, args.callgrind, args.batch[0], False, callgrind_out=out)
        with open(out) as f:
            total = next(int(line.split()[1]) for line in f if line.startswith("totals:"))
        shutil.rmtree(os.path.dirname(out), ignore_errors=True)
        per_route = total / args.callgrind
        print(f"callgrind: {total:,} instructions for {args.callgrind} routes = "
              f"{per_route:,.0f} per route", flush=True)
        instructions_row = (f"| instructions per route (callgrind, {args.callgrind:,} routes in "
                            f"patches of {args.batch[0]:,}; the load-independent figure) | "
                            f"{per_route:,.0f} |\n")

    floor_row = ""
    if args.floor:
        lines = route_patches(0, args.routes, 1)
        per_line = {}
        for mode in ("plain", "daemon"):
            samples = sorted(floor_run(args.floor, mode, lines) for _ in range(args.runs))
            per_line[mode] = samples
            print(f"floor, {mode}: " + ", ".join(f"{1e6 * x:.1f}" for x in samples) +
                  " µs of CPU per line", flush=True)

        def cell(samples):
            med = statistics.median(samples)
            return (f"{1e6 * med:.1f} µs ({', '.join(f'{1e6 * x:.1f}' for x in samples)}), at "
                    f"most {1 / med:,.0f} lines per CPU second")
        floor_row = (f"| the floor: CPU per line of bench/feed_floor, a server that answers "
                     f"each of the {args.routes:,} one-route lines without any work (median, "
                     f"runs) | read and send only: {cell(per_line['plain'])}; with pimsnmpd's "
                     f"waits (select, epoll_wait, read, send): {cell(per_line['daemon'])} |\n")

    rss_batch = args.batch[0]
    rss = {k: statistics.median(r[k] for r in by_batch[rss_batch])
           for k in ("rss_kib", "rss_before_kib")}
    document_row = ""
    m = re.search(r"= ([0-9]+) bytes per route", args.document)
    if m:
        document_row = (f"| the document's own heap (bench/feed_document_bench: allocations of "
                        f"Document::parse for the same routes) | {int(m.group(1)):,} bytes per "
                        f"route (target <= 200: {'met' if int(m.group(1)) <= 200 else 'NOT met'}) |\n")
    values = dict(
        document_row=document_row,
        routes=args.routes, batches=", ".join(f"{b:,}" for b in args.batch), runs=args.runs,
        rows="\n".join(row(b, args.routes, by_batch[b]) for b in args.batch),
        instructions_row=instructions_row, floor_row=floor_row, rss_batch=rss_batch,
        rss_mib=rss["rss_kib"] / 1024, before_mib=rss["rss_before_kib"] / 1024,
        per_route=(rss["rss_kib"] - rss["rss_before_kib"]) * 1024 / args.routes,
        machine=cpu_model(), cores=os.cpu_count(), build=args.build, command=args.command,
        load=f"{load:.1f}")
    text = SECTION.format(**values)
    print(text)
    if args.benchmarks:
        write_section(args.benchmarks, "Feed", text)
        print(f"written to {args.benchmarks}")


if __name__ == "__main__":
    main()
