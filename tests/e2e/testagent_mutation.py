#!/usr/bin/env python3
"""Rows deleted and inserted between the requests of a walk: the walk neither ends early nor
repeats a row, skips the rows deleted ahead of it and returns the rows inserted ahead of it."""

import os
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
from testagent_lib import (Env, check, check_eq, check_increasing, mcast_route_index,  # noqa: E402
                           oid_key, run)

MROUTE = "1.3.6.1.2.1.83.1.1.2.1"
PIM_NBR = "1.3.6.1.3.61.1.1.3.1"
MCAST_ROUTE = "1.3.6.1.2.1.168.1.5.1"


def stepwise_walk(agent, start, stop_prefix, mutations, bulk=0):
    """GETNEXT (or GETBULK with `bulk` repetitions) from `start` until an answer leaves
    `stop_prefix`; after the request numbered n runs the control commands mutations[n]. Returns
    every varbind received, the first one outside the prefix included."""
    seen = []
    cursor = start
    for step in range(100):
        if bulk:
            got = agent.request("snmpbulkget", "-Cn0", f"-Cr{bulk}", cursor)
        else:
            got = agent.getnext(cursor)
        check(got, f"no answer after {cursor}")
        for v in got:
            seen.append(v)
            if oid_key(v.oid)[: len(oid_key(stop_prefix))] != oid_key(stop_prefix):
                return seen
        cursor = got[-1].oid
        for command in mutations.get(step, []):
            agent.control(command)
    raise AssertionError("walk did not end")


def names(vars_, prefix):
    return [v.oid[len(prefix) + 1:] for v in vars_]


def test_route_rows_changing_under_a_getnext_walk():
    with Env("mutate-next") as env:
        agent = env.agent()
        seen = stepwise_walk(agent, f"{MROUTE}.5", f"{MROUTE}.5", {
            # At the first row: drop it and the next one, add rows before and after it.
            0: ["del-row default route 239.1.1.1 10.1.1.2",
                "del-row default route 239.1.1.1 10.1.1.1",
                "add-row default route 239.1.1.2 10.1.1.9",
                "add-row default route 239.1.1.0 10.1.1.0"],
            1: ["del-row default route 239.1.1.3 10.1.1.1",
                "add-row default route 239.3.3.3"],
            # At the last-but-one row: replace the last row by a later one.
            3: ["del-row default route 239.5.5.5 10.1.1.1",
                "add-row default route 239.6.6.6 10.1.1.1"],
        })
        check_increasing(seen, "walk")
        check_eq(names(seen, MROUTE), [
            "5.239.1.1.1.10.1.1.1.255.255.255.255",
            "5.239.1.1.2.10.1.1.9.255.255.255.255",
            "5.239.2.2.2.0.0.0.0.0.0.0.0",
            "5.239.3.3.3.0.0.0.0.0.0.0.0",
            "5.239.6.6.6.10.1.1.1.255.255.255.255",
            # On to the next column, which starts at the row added before the cursor.
            "6.239.1.1.0.10.1.1.0.255.255.255.255",
        ], "ipMRouteTable column 5 walked while rows changed")
        check_eq([v.value for v in seen[:5]], [3, 3, 0, 3, 3], "ipMRouteInIfIndex values")


def test_route_rows_changing_under_a_bulk_walk():
    with Env("mutate-bulk") as env:
        agent = env.agent()
        seen = stepwise_walk(agent, f"{MROUTE}.4", f"{MROUTE}.4", {
            0: ["del-row default route 239.1.1.3 10.1.1.1",
                "del-row default route 239.1.1.1 10.1.1.2",
                "add-row default route 239.1.1.4 10.1.1.4"],
            1: ["add-row default route 239.9.9.9 10.1.1.1"],
        }, bulk=2)
        check_increasing(seen, "bulk walk")
        check_eq(names(seen, MROUTE), [
            "4.239.1.1.1.10.1.1.1.255.255.255.255",
            "4.239.1.1.1.10.1.1.2.255.255.255.255",
            # The second request starts after a row that is gone.
            "4.239.1.1.4.10.1.1.4.255.255.255.255",
            "4.239.2.2.2.0.0.0.0.0.0.0.0",
            "4.239.5.5.5.10.1.1.1.255.255.255.255",
            "4.239.9.9.9.10.1.1.1.255.255.255.255",
            "5.239.1.1.1.10.1.1.1.255.255.255.255",
        ], "ipMRouteTable column 4 bulk-walked while rows changed")


def test_ip_address_indexed_rows_changing_under_a_walk():
    with Env("mutate-nbr") as env:
        agent = env.agent()
        seen = stepwise_walk(agent, f"{PIM_NBR}.2", f"{PIM_NBR}.2", {
            0: ["del-row default neighbor 10.0.3.2",
                "add-row default neighbor 4 10.0.4.4",
                "add-row default neighbor 1 10.0.1.1"],
            1: ["del-row default neighbor 10.0.5.2",
                "add-row default neighbor 9 10.0.9.9"],
        })
        check_increasing(seen, "walk")
        check_eq(names(seen, PIM_NBR),
                 ["2.10.0.3.2", "2.10.0.4.4", "2.10.0.9.9", "3.10.0.1.1"],
                 "pimNeighborTable column 2 walked while rows changed")
        check_eq([v.value for v in seen[:3]], [3, 4, 9], "pimNeighborIfIndex values")


def test_ip_mcast_rows_changing_under_a_walk():
    with Env("mutate-mcast") as env:
        agent = env.agent()
        m = lambda g, s, slen=32: mcast_route_index(g, s, slen)
        seen = stepwise_walk(agent, f"{MCAST_ROUTE}.9", f"{MCAST_ROUTE}.9", {
            # At the first row: drop it and the next one, add one in between.
            0: ["del-row default route 239.1.1.1 10.1.1.1",
                "del-row default route 239.1.1.1 10.1.1.2",
                "add-row default route 239.1.1.1 10.1.1.5"],
            2: ["del-row default route 239.2.2.2",
                "del-row default route 239.5.5.5 10.1.1.1",
                "del-row default route ff0e::1",
                "add-row default route 239.8.8.8 10.1.1.8"],
        })
        check_increasing(seen, "walk")
        check_eq(names(seen, MCAST_ROUTE), [
            "9." + m("239.1.1.1", "10.1.1.1"),
            "9." + m("239.1.1.1", "10.1.1.5"),
            "9." + m("239.1.1.3", "10.1.1.1"),
            "9." + m("239.8.8.8", "10.1.1.8"),
            "10." + m("239.1.1.1", "10.1.1.5"),
        ], "ipMcastRouteTable column 9 walked while rows changed")


if __name__ == "__main__":
    run(test_route_rows_changing_under_a_getnext_walk,
        test_route_rows_changing_under_a_bulk_walk,
        test_ip_address_indexed_rows_changing_under_a_walk,
        test_ip_mcast_rows_changing_under_a_walk)
