#!/usr/bin/env python3
"""pimsnmpd fed by pimsnmp-frr on a real FRR router, end to end: a four-router PIM-SM lab in
network namespaces with multicast traffic and a BSR; pimsnmpd, pimsnmp-frr and snmptrapd run
in r4's namespace and everything is checked through SNMP:

- r4's PIM neighbors (r2 and r3 on the LAN) with r4-lan's ifIndex;
- the RP set: the static RP and the BSR-learnt RPs;
- ipMRouteTable and ipMcastRouteTable rows of the two (S,G) flows, with packet counters that
  grow between two reads;
- the receiver behind r4 leaving removes those rows;
- r2's pimd stopping raises pimNeighborLoss for 10.99.50.2 at snmptrapd;
- r4's own pimd restarting is survived: the feeder reconnects and serves the new adjacency
  (r3's uptime starts again);
- FRR answered every command the feeder sent.

Needs root or unprivileged user namespaces (skipped loudly otherwise).
"""

import os
import signal
import time

import labharness as h
from labharness import check, e

PIM_NEIGHBOR_ENTRY = "1.3.6.1.3.61.1.1.3.1"
PIM_RPSET_ENTRY = "1.3.6.1.3.61.1.1.6.1"
IPMROUTE_ENTRY = "1.3.6.1.2.1.83.1.1.2.1"
IPMCAST_ROUTE_ENTRY = "1.3.6.1.2.1.168.1.5.1"
GROUP = "239.1.1.1"
SOURCES = ("10.99.1.10", "10.99.1.11")


def mroute_index(source, group=GROUP):
    return f"{group}.{source}.255.255.255.255"


def mcast_index(source, group=GROUP):
    return f"1.4.{group}.32.1.4.{source}.32"


def rp_rows(agent):
    """{(group, mask, rp)} of pimRPSetTable (any component)."""
    rows = set()
    for index in agent.table(PIM_RPSET_ENTRY).get(4, {}):
        p = index.split(".")
        if len(p) == 13:
            rows.add((".".join(p[1:5]), ".".join(p[5:9]), ".".join(p[9:13])))
    return rows


def loss_lines(trapd):
    return [l for l in trapd.output().splitlines()
            if l.startswith("TRAP ") and e.PIM_NEIGHBOR_LOSS in l]


def main():
    h.ensure_privileges()
    started = time.monotonic()

    def stamp(what):
        print(f"{time.monotonic() - started:6.1f} s  {what}", flush=True)

    with e.Env("frr-lab") as env, h.Lab(env, seconds=100) as lab:
        lab.up()
        stamp("lab up")
        lab.traffic()

        agent = h.Agent(lab, "r4")
        # Neighbors: r2 and r3 on r4-lan.
        lan = lab.ifindex("r4", "r4-lan")

        def neighbors():
            return agent.table(PIM_NEIGHBOR_ENTRY).get(2, {})
        e.wait_for(lambda: neighbors() == {"10.99.50.2": lan, "10.99.50.3": lan}, 20,
                   "r4's neighbors r2 and r3 on r4-lan", interval=0.5)
        stamp("neighbors served")

        # RP set: static 224/4 -> 10.99.1.1; BSR 239/8 -> 10.99.1.1 and 10.99.13.1, 238/8.
        expected_rps = {("224.0.0.0", "240.0.0.0", "10.99.1.1"),
                        ("239.0.0.0", "255.0.0.0", "10.99.1.1"),
                        ("239.0.0.0", "255.0.0.0", "10.99.13.1"),
                        ("238.0.0.0", "255.0.0.0", "10.99.1.1")}
        e.wait_for(lambda: expected_rps <= rp_rows(agent), 20,
                   "static and BSR RPs in pimRPSetTable", interval=0.5)
        stamp("RP set served")

        # Routes with counters that grow.
        def route_pkts():
            t = agent.table(IPMROUTE_ENTRY)
            m = agent.table(IPMCAST_ROUTE_ENTRY)
            got = {s: (t.get(8, {}).get(mroute_index(s)), m.get(19, {}).get(mcast_index(s)),
                       t.get(5, {}).get(mroute_index(s)))
                   for s in SOURCES}
            return got if all(None not in v for v in got.values()) else None
        first = e.wait_for(route_pkts, 20, "ipMRoute and ipMcastRoute rows of both flows",
                           interval=0.5)
        for s, (_, _, iif) in first.items():
            check(iif == lan, f"ipMRouteInIfIndex of {s}: {iif}, r4-lan is {lan}")
        stamp(f"routes served {first}")
        e.wait_for(lambda: (lambda now: now and all(
            now[s][0] > first[s][0] and now[s][1] > first[s][1] for s in SOURCES))(route_pkts()),
            15, "route packet counters to grow", interval=1)
        stamp("counters grow")

        # The receiver behind r4 leaves: r4 prunes, its rows go.
        lab.stop_app("recv-h3")

        def routes_gone():
            t = agent.table(IPMROUTE_ENTRY).get(8, {})
            m = agent.table(IPMCAST_ROUTE_ENTRY).get(19, {})
            left = [s for s in SOURCES if mroute_index(s) in t or mcast_index(s) in m]
            if left:
                ipv4 = agent.document().get("vrfs", {}).get("default", {}).get("ipv4", {})
                raise h.Failure(f"rows of {left} still served; document routes "
                                f"{sorted(ipv4.get('routes', {}))}, FIB "
                                f"{ipv4.get('fib', {}).get('routes')}")
            return True
        e.wait_for(routes_gone, 20, "route rows to go after the receiver left", interval=0.5)
        stamp("receiver left: rows gone")

        # r2's pimd stops (goodbye hello): pimNeighborLoss for 10.99.50.2 on r4-lan, the lowest
        # address there (a neighbor with a lower one left would hold the notification back).
        os.kill(lab.pid("r2", "pimd"), signal.SIGTERM)

        def loss():
            lines = loss_lines(agent.trapd)
            if not lines:
                raise h.Failure(f"no trap yet; neighbors served: {neighbors()}")
            return lines
        lines = e.wait_for(loss, 15, "pimNeighborLoss at snmptrapd", interval=0.5)
        check(f"{e.SNMP_TRAP_OID} = OID: .{e.PIM_NEIGHBOR_LOSS}" in lines[0], lines[0])
        check(f"{e.PIM_NEIGHBOR_IFINDEX}.10.99.50.2 = INTEGER: {lan}" in lines[0], lines[0])
        stamp("pimNeighborLoss received")

        # r4's pimd restarts: its adjacencies start again, so r3's neighbor uptime restarts
        # too; the feeder reconnects and serves the new uptime.
        def r3_uptime():
            return agent.table(PIM_NEIGHBOR_ENTRY).get(3, {}).get("10.99.50.3")
        before = e.wait_for(r3_uptime, 10, "r3's pimNeighborUpTime")
        check(before >= 300, f"r3 up for {before / 100} s before the restart")
        restarted = time.monotonic()
        lab.script("restart-pimd", "r4")
        stamp("r4 pimd restarted")

        def new_adjacency():
            up = r3_uptime()
            limit = (time.monotonic() - restarted + 2) * 100
            if up is None or up >= before or up > limit:
                doc = agent.document().get("vrfs", {}).get("default", {}).get("ipv4", {})
                lan_doc = doc.get("pimStatus", {}).get("interfaces", {}).get("r4-lan")
                raise h.Failure(f"pimNeighborUpTime {up} (before {before}, limit {limit:.0f}) "
                                f"at {time.time():.0f}; document: {lan_doc}; FRR: "
                                f"{lab.vtysh('r4', 'show ip pim neighbor json')}")
            return True
        e.wait_for(new_adjacency, 30, "r3's uptime to restart after r4's pimd restart",
                   interval=0.5)
        check(neighbors() == {"10.99.50.3": lan}, f"neighbors after the restart: {neighbors()}")
        check(agent.pimsnmpd.alive(), f"pimsnmpd exited:\n{agent.pimsnmpd.output()}")
        stamp("pimd restart survived")

        # Every command the feeder sends is one this FRR answers: a refused one leaves part
        # of the state unread without any visible symptom in the tables checked above.
        refused = sorted({l.split(": ", 1)[-1] for l in agent.feeder.output().splitlines()
                          if "failed (status" in l})
        check(not refused, f"FRR refused the feeder's commands: {refused}")


if __name__ == "__main__":
    e.run(main)
