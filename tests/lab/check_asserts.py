#!/usr/bin/env python3
"""Opt-in, longer lab check (about 1.5 minutes): PIM asserts reach SNMP.

r2 and r3 both forward 239.1.1.1 onto the LAN (r3 for h2, r2 for r4's join), so they assert
and r4 ends up LOSER on its upstream interface r4-lan, with r2 the winner (FRR needs about 50 s
of traffic before the first assert). Checks that pimsnmpd in r4's namespace then serves the
winner's metric preference in pimIpMRouteAssertMetricPref of that (S,G), and that it matches
FRR's own `show ip pim assert-winner-metric`.

  sudo tests/lab/check_asserts.py      (binaries from build/, or PIMSNMPD and PIMSNMP_FRR)
"""

import re
import time

import labharness as h
from labharness import check, e

PIM_IPMROUTE_ENTRY = "1.3.6.1.3.61.1.1.4.1"
ASSERT_METRIC, ASSERT_METRIC_PREF = 2, 3


def frr_loser(lab):
    """{(source, group): (pref, metric)} of r4-lan's asserts that r4 lost, by FRR's account."""
    out = {}
    state = lab.vtysh("r4", "show ip pim assert")
    metrics = lab.vtysh("r4", "show ip pim assert-winner-metric")
    losers = {(m[1], m[2]) for m in re.findall(r"^(r4-lan)\s+\S+\s+(\S+)\s+(\S+)\s+LOSER", state, re.M)}
    for src, grp, pref, metric in re.findall(
            r"^r4-lan\s+\S+\s+(\S+)\s+(\S+)\s+no\s+(\d+)\s+(\d+)\s", metrics, re.M):
        if (src, grp) in losers:
            out[(src, grp)] = (int(pref), int(metric))
    return out


def main():
    h.ensure_privileges()
    started = time.monotonic()
    with e.Env("frr-asserts") as env, h.Lab(env, seconds=200) as lab:
        lab.up()
        lab.traffic()
        agent = h.Agent(lab, "r4")
        losers = e.wait_for(lambda: frr_loser(lab), 150, "an assert r4 loses on r4-lan",
                            interval=2)
        print(f"{time.monotonic() - started:6.1f} s  FRR: r4 lost {losers}", flush=True)

        def served():
            t = agent.table(PIM_IPMROUTE_ENTRY)
            got = {k: (t.get(ASSERT_METRIC_PREF, {}).get(f"{k[1]}.{k[0]}.255.255.255.255"),
                       t.get(ASSERT_METRIC, {}).get(f"{k[1]}.{k[0]}.255.255.255.255"))
                   for k in losers}
            if got != losers:
                raise h.Failure(f"served {got}, FRR has {losers}")
            return got
        e.wait_for(served, 30, "the assert winner's metric in pimIpMRouteTable", interval=1)
        check(agent.pimsnmpd.alive(), "pimsnmpd running")
        print(f"{time.monotonic() - started:6.1f} s  served", flush=True)


if __name__ == "__main__":
    e.run(main)
