#!/usr/bin/env python3
"""FRR adapter cost in the lab (run as root): the four-router lab of tests/lab with N (S,G)
flowing through r4 (K sources x N/K groups, one packet per flow every 5 s), then

1. pimd's own CPU with nobody polling it (baseline, SECONDS);
2. pimd CPU per polling command group, run through the vty socket as pimsnmp-frr runs them
   (routes: upstream + rpf + join + mroute; neighbors);
3. pimsnmpd plus pimsnmp-frr at their default cadences in r4's namespace, in steady state
   (SECONDS after the first full document): CPU of pimd (above its baseline), pimsnmp-frr and
   pimsnmpd, as a share of one core.

With --capture DIR it also writes r4's answers to the feeder's commands and a kernel MFC dump
there (the input of frr_adapter_bench).

  bench/frr_lab_bench.py BUILD_DIR [--sg 2000] [--seconds 60] [--capture DIR]
"""

import argparse
import json
import os
import socket
import subprocess
import sys
import time

HERE = os.path.dirname(os.path.abspath(__file__))
sys.path.insert(0, os.path.join(HERE, "..", "tests", "lab"))
import labharness as h  # noqa: E402
from labharness import e  # noqa: E402
from benchlib import cpu_seconds  # noqa: E402

ROUTE_COMMANDS = ["show ip pim vrf all upstream json", "show ip pim vrf all rpf json",
                  "show ip pim vrf all join json", "show ip mroute vrf all json"]
OTHER_COMMANDS = ["show ip pim vrf all neighbor json", "show ip pim vrf all interface json",
                  "show ip pim vrf all rp-info json", "show ip multicast count vrf all json",
                  "show ip pim bsr json", "show ip pim vrf all bsrp-info json"]
ZEBRA_COMMANDS = ["show interface vrf all json"]


class Vty:
    """A vty session: "cmd\\0" out, the answer up to the "\\0\\0\\0<status>" trailer back."""

    def __init__(self, path):
        self.s = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self.s.connect(path)

    def run(self, command):
        self.s.sendall(command.encode() + b"\0")
        buf = bytearray()
        while not (len(buf) >= 4 and buf[-4:-1] == b"\0\0\0"):
            chunk = self.s.recv(1 << 20)
            if not chunk:
                raise e.Failure(f"vty closed during {command!r}")
            buf += chunk
        return bytes(buf[:-4]).decode(errors="replace"), buf[-1]


def mfc_entries(lab):
    r = subprocess.run(lab.argv("r4", ["cat", "/proc/net/ip_mr_cache"]), capture_output=True,
                       text=True)
    return max(0, len(r.stdout.splitlines()) - 1)


def scaled_traffic(lab, sg, sources=10):
    groups = sg // sources
    addrs = [f"10.99.1.{20 + i}" for i in range(sources)]
    for a in addrs:
        subprocess.run(["ip", "-n", lab.ns("h1"), "addr", "add", f"{a}/24", "dev", "h1-r1"],
                       check=True)
    py = sys.executable
    mcast = os.path.join(lab.dir, "mcast.py")
    lab.start("h3", "scale-recv", [py, mcast, "recv", "10.99.4.10", "239.2.0.0", str(groups),
                                   "6000", "900"])
    time.sleep(2)
    lab.start("h1", "scale-send", [py, mcast, "send", ",".join(addrs), "239.2.0.0",
                                   str(groups), "6000", str(max(50, sg // 5)), "900"])


def pimd_rate(lab, seconds):
    pid = lab.pid("r4", "pimd")
    c0, t0 = cpu_seconds(pid), time.monotonic()
    time.sleep(seconds)
    return (cpu_seconds(pid) - c0) / (time.monotonic() - t0)


def per_group(lab, commands, rounds):
    """pimd CPU ms and client wall ms per run of `commands`, and the answers' bytes."""
    vty = Vty(os.path.join(lab.vty_dir("r4"), "pimd.vty"))
    pid = lab.pid("r4", "pimd")
    size = sum(len(vty.run(c)[0]) for c in commands)
    c0, t0 = cpu_seconds(pid), time.monotonic()
    for _ in range(rounds):
        for c in commands:
            vty.run(c)
    return ((cpu_seconds(pid) - c0) * 1000 / rounds, (time.monotonic() - t0) * 1000 / rounds,
            size)


def capture(lab, out):
    os.makedirs(out, exist_ok=True)
    pimd = Vty(os.path.join(lab.vty_dir("r4"), "pimd.vty"))
    zebra = Vty(os.path.join(lab.vty_dir("r4"), "zebra.vty"))
    for vty, commands in ((pimd, ROUTE_COMMANDS + OTHER_COMMANDS), (zebra, ZEBRA_COMMANDS)):
        for c in commands:
            text, status = vty.run(c)
            with open(os.path.join(out, c.replace(" ", "_") + ".txt"), "w") as f:
                f.write(text)
    subprocess.run(lab.argv("r4", [sys.executable, os.path.join(HERE, "..", "tests", "lab",
                                                                  "record_kernel.py"), out, "r4"]),
                   check=True, capture_output=True)


def main():
    ap = argparse.ArgumentParser()
    ap.add_argument("build")
    ap.add_argument("--sg", type=int, default=2000)
    ap.add_argument("--seconds", type=float, default=60)
    ap.add_argument("--capture")
    a = ap.parse_args()
    os.environ.setdefault("PIMSNMPD", os.path.join(a.build, "daemon", "pimsnmpd"))
    os.environ.setdefault("PIMSNMP_FRR", os.path.join(a.build, "pimsnmp-frr", "pimsnmp-frr"))
    h.PIMSNMPD, h.PIMSNMP_FRR = os.environ["PIMSNMPD"], os.environ["PIMSNMP_FRR"]
    if os.geteuid() != 0:
        sys.exit("frr_lab_bench.py: run as root")
    result = {"sg": a.sg}
    with e.Env("frr-bench") as env, h.Lab(env, seconds=900) as lab:
        lab.up()
        lab.traffic()  # the lab's own flows, neighbors and RPs
        scaled_traffic(lab, a.sg)
        e.wait_for(lambda: mfc_entries(lab) >= a.sg, 180, f"{a.sg} MFC entries on r4",
                   interval=2)
        time.sleep(10)
        result["mfc_entries"] = mfc_entries(lab)
        if a.capture:
            capture(lab, a.capture)
        result["pimd_idle_pct"] = 100 * pimd_rate(lab, a.seconds / 2)
        ms, wall, size = per_group(lab, ROUTE_COMMANDS, 5)
        result["routes_poll"] = {"pimd_cpu_ms": ms, "wall_ms": wall, "bytes": size}
        ms, wall, size = per_group(lab, ["show ip pim vrf all neighbor json"], 20)
        result["neighbor_poll"] = {"pimd_cpu_ms": ms, "wall_ms": wall, "bytes": size}

        agent = h.Agent(lab, "r4", feeder_args=[])
        e.wait_for(lambda: e.table_counts(env, agent.feed, "").get("ipMRouteTable", 0)
                   >= a.sg, 120, "the routes served", interval=2)
        time.sleep(15)
        procs = {"pimd": lab.pid("r4", "pimd"), "pimsnmp-frr": agent.feeder.pid,
                 "pimsnmpd": agent.pimsnmpd.pid}
        c0 = {n: cpu_seconds(p) for n, p in procs.items()}
        t0 = time.monotonic()
        time.sleep(a.seconds)
        dt = time.monotonic() - t0
        steady = {n: 100 * (cpu_seconds(p) - c0[n]) / dt for n, p in procs.items()}
        steady["pimd_polling"] = steady["pimd"] - result["pimd_idle_pct"]
        steady["adapter_plus_polling"] = steady["pimsnmp-frr"] + max(0, steady["pimd_polling"])
        result["steady_pct"] = steady
        result["served_routes"] = e.table_counts(env, agent.feed, "").get("ipMRouteTable")
    print(json.dumps(result, indent=1))


if __name__ == "__main__":
    e.run(main)
