#!/usr/bin/env python3
"""pimsnmpd as AgentX subagent of a stock snmpd: the default and a named VRF's context walk
correctly through the master over v2c (mapped community) and v3 (-n red); when snmpd
restarts, the subagent reconnects and serves again; when pimsnmpd stops, its contexts are
withdrawn from the master."""

import e2elib as e
from e2elib import check, check_eq, columns, walk

MC_ROUTE = "1.3.6.1.2.1.168.1.5.1"
PIM_NBR = "1.3.6.1.3.61.1.1.3.1"


def check_contexts(env, port):
    d = walk(env, port, e.IPMCAST_MIB, community="public")
    check_eq(len(columns(d, MC_ROUTE)[9]), 1, "default ipMcastRouteTable rows via snmpd")
    check_eq(set(columns(walk(env, port, e.PIM_MIB, community="public"), PIM_NBR)[2]),
             {"10.0.1.2", "10.0.1.3", "10.0.2.2"}, "default neighbors via snmpd")
    for auth in (dict(community="public-red"), dict(user="e2e", context="red")):
        r = walk(env, port, e.IPMCAST_MIB, **auth)
        check_eq(set(columns(r, MC_ROUTE)[9]),
                 {f"1.{e.inet_index('239.9.9.9')}.32.1.{e.inet_index('172.16.0.50')}.32"},
                 f"red ipMcastRouteTable via snmpd {auth}")
        check_eq(columns(walk(env, port, e.PIM_MIB, **auth), PIM_NBR)[2], {"172.16.0.2": 100},
                 f"red neighbors via snmpd {auth}")
        check_eq(walk(env, port, e.IPMROUTE_MIB, **auth)[e.IPMROUTE_MIB + ".1.1.7.0"][1], 1,
                 f"red ipMRouteEntryCount via snmpd {auth}")


def main():
    with e.Env("agentx") as env:
        access = e.access_lines()
        snmpd, port, agentx = env.snmpd(access)
        proc, _, feed = env.pimsnmpd(e.two_vrf_document(), master=False,
                                     args=["--agentx", agentx, "--agentx-ping", "1"])
        e.wait_tables(env, feed, "red", {"ipMcastRouteTable": 1})
        e.wait_for(lambda: env.status(feed)["agent"]["connected"], 10, "AgentX connection")
        e.wait_for(lambda: e.reachable(env, port, e.IPMCAST_MIB, community="public-red"), 10,
                   "red through snmpd")
        check_contexts(env, port)

        # The master restarts: the subagent reconnects and registers every context again.
        check_eq(snmpd.stop(), 0, "snmpd exit code")
        e.wait_for(lambda: not env.status(feed)["agent"]["connected"], 10,
                   "the subagent to notice the master is gone")
        snmpd2, _, _ = env.snmpd(access, port=port, name="snmpd")
        e.wait_for(lambda: e.reachable(env, port, e.IPMCAST_MIB, user="e2e", context="red"), 30,
                   "red served again after the master restarted")
        e.wait_for(lambda: e.reachable(env, port, e.IPMCAST_MIB, community="public"), 10,
                   "default served again after the master restarted")
        check_contexts(env, port)
        check(env.status(feed)["agent"]["connected"], "reconnected")

        # The subagent stops: the master no longer serves its contexts.
        check_eq(proc.stop(), 0, "pimsnmpd exit code")
        e.wait_for(lambda: not e.reachable(env, port, e.IPMCAST_MIB, community="public-red"), 10,
                   "red withdrawn from snmpd")
        check(not e.reachable(env, port, e.IPMCAST_MIB, community="public"),
              "default withdrawn from snmpd")
        check(snmpd2.alive(), "snmpd still running")


if __name__ == "__main__":
    e.run(main)
