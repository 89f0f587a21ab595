#!/usr/bin/env python3
"""Walks of the three MIBs with snmpwalk and snmpbulkwalk: strictly increasing OIDs, the
scalars as .0 instances, the tables in OID order with every served column's value and ASN type,
and never pimRPTable. The walk benchmark's stock yardstick tables serve what ipMcastRouteTable
serves."""

from testagent_lib import (IPMCAST_MIB, IPMROUTE_MIB, PIM_MIB, Env, check, check_eq,
                           check_increasing, check_vars, expected_walk, run, under)

ROOTS = (PIM_MIB, IPMROUTE_MIB, IPMCAST_MIB)
IPMCAST_ROUTE_TABLE = "1.3.6.1.2.1.168.1.5"
# tools/testagent/ReferenceTable.h: the container reference and the iterator floor.
YARDSTICKS = ("1.3.6.1.4.1.99999.1", "1.3.6.1.4.1.99999.2")


def test_walks_return_the_fixture_rows_in_oid_order():
    with Env("walk") as env:
        agent = env.agent()
        for root in ROOTS:
            for bulk in (False, True):
                what = f"{'snmpbulkwalk' if bulk else 'snmpwalk'} {root}"
                # The expected rows are in strictly increasing OID order, stay in the subtree
                # and hold no pimRPTable row: an exact match checks all of that.
                check_vars(agent.walk(root, bulk=bulk), expected_walk(root), what)


def test_walk_of_the_whole_tree_visits_every_mib_once():
    # One walk from the top crosses from one module's subtree into the next.
    with Env("walkall") as env:
        agent = env.agent()
        got = agent.walk("1.3.6", bulk=True)
        check_increasing(got, "walk of 1.3.6")
        expected = [row for root in sorted(ROOTS, key=lambda r: tuple(map(int, r.split("."))))
                    for row in expected_walk(root)]
        ours = [v for v in got if any(under(v.oid, r) for r in ROOTS)]
        check_vars(ours, expected, "walk of 1.3.6")


def test_benchmark_yardsticks_serve_what_ipmcastroutetable_serves():
    routes = 40
    with Env("yardsticks") as env:
        agent = env.agent("--bare", "--routes", str(routes), "--reference")
        for bulk in (False, True):
            def rows(root):
                got = agent.walk(root, bulk=bulk)
                check(all(under(v.oid, root) for v in got), f"walk of {root}: left the subtree")
                return [(v.oid[len(root) + 1:], v.type, v.value) for v in got]
            ours = rows(IPMCAST_ROUTE_TABLE)
            check_eq(len(ours), routes * 6, "ipMcastRouteTable varbinds (six served columns)")
            for root in YARDSTICKS:
                check_eq(rows(root), ours, f"{'bulk ' if bulk else ''}walk of {root}")
        # Each serves a GET of a row from its own index.
        suffix = ours[routes + 3][0]
        values = [agent.get(f"{root}.{suffix}")[0] for root in (IPMCAST_ROUTE_TABLE, *YARDSTICKS)]
        check_eq({(v.type, v.value) for v in values}, {ours[routes + 3][1:]}, f"GET of .{suffix}")


if __name__ == "__main__":
    run(test_walks_return_the_fixture_rows_in_oid_order,
        test_walk_of_the_whole_tree_visits_every_mib_once,
        test_benchmark_yardsticks_serve_what_ipmcastroutetable_serves)
