#!/usr/bin/env python3
"""Rows deleted and inserted between the requests of a walk: the walk neither ends early nor
repeats a row, skips the rows deleted ahead of it and returns the rows inserted ahead of it."""

from testagent_lib import (Env, Failure, check, check_eq, check_increasing,
                           mcast_route_index as m, run, under)

MROUTE = "1.3.6.1.2.1.83.1.1.2.1"
PIM_NBR = "1.3.6.1.3.61.1.1.3.1"
MCAST_ROUTE = "1.3.6.1.2.1.168.1.5.1"

# (table entry, column walked, GETBULK repetitions (0: GETNEXT), control commands run after
# request n, the OIDs returned (after the entry), the first values returned)
CASES = [
    ("ipMRouteTable", MROUTE, 5, 0, {
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
    }, ["5.239.1.1.1.10.1.1.1.255.255.255.255",
        "5.239.1.1.2.10.1.1.9.255.255.255.255",
        "5.239.2.2.2.0.0.0.0.0.0.0.0",
        "5.239.3.3.3.0.0.0.0.0.0.0.0",
        "5.239.6.6.6.10.1.1.1.255.255.255.255",
        # On to the next column, which starts at the row added before the cursor.
        "6.239.1.1.0.10.1.1.0.255.255.255.255"], [3, 3, 0, 3, 3]),
    ("ipMRouteTable (GETBULK)", MROUTE, 4, 2, {
        0: ["del-row default route 239.1.1.3 10.1.1.1",
            "del-row default route 239.1.1.1 10.1.1.2",
            "add-row default route 239.1.1.4 10.1.1.4"],
        1: ["add-row default route 239.9.9.9 10.1.1.1"],
    }, ["4.239.1.1.1.10.1.1.1.255.255.255.255",
        "4.239.1.1.1.10.1.1.2.255.255.255.255",
        # The second request starts after a row that is gone.
        "4.239.1.1.4.10.1.1.4.255.255.255.255",
        "4.239.2.2.2.0.0.0.0.0.0.0.0",
        "4.239.5.5.5.10.1.1.1.255.255.255.255",
        "4.239.9.9.9.10.1.1.1.255.255.255.255",
        "5.239.1.1.1.10.1.1.1.255.255.255.255"], []),
    # Rows indexed by an IpAddress.
    ("pimNeighborTable", PIM_NBR, 2, 0, {
        0: ["del-row default neighbor 10.0.3.2",
            "add-row default neighbor 4 10.0.4.4",
            "add-row default neighbor 1 10.0.1.1"],
        1: ["del-row default neighbor 10.0.5.2",
            "add-row default neighbor 9 10.0.9.9"],
    }, ["2.10.0.3.2", "2.10.0.4.4", "2.10.0.9.9", "3.10.0.1.1"], [3, 4, 9]),
    ("ipMcastRouteTable", MCAST_ROUTE, 9, 0, {
        # At the first row: drop it and the next one, add one in between.
        0: ["del-row default route 239.1.1.1 10.1.1.1",
            "del-row default route 239.1.1.1 10.1.1.2",
            "add-row default route 239.1.1.1 10.1.1.5"],
        2: ["del-row default route 239.2.2.2",
            "del-row default route 239.5.5.5 10.1.1.1",
            "del-row default route ff0e::1",
            "add-row default route 239.8.8.8 10.1.1.8"],
    }, ["9." + m("239.1.1.1", "10.1.1.1", 32), "9." + m("239.1.1.1", "10.1.1.5", 32),
        "9." + m("239.1.1.3", "10.1.1.1", 32), "9." + m("239.8.8.8", "10.1.1.8", 32),
        "10." + m("239.1.1.1", "10.1.1.5", 32)], []),
]


def stepwise_walk(agent, column, mutations, bulk):
    """GETNEXT (or GETBULK with `bulk` repetitions) from `column` until an answer leaves it;
    after the request numbered n runs the control commands mutations[n]. Returns every varbind
    received, the first one outside the column included."""
    seen = []
    cursor = column
    for step in range(100):
        if bulk:
            got = agent.request("snmpbulkget", "-Cn0", f"-Cr{bulk}", cursor)
        else:
            got = agent.getnext(cursor)
        check(got, f"no answer after {cursor}")
        for v in got:
            seen.append(v)
            if not under(v.oid, column):
                return seen
        cursor = got[-1].oid
        for command in mutations.get(step, []):
            agent.control(command)
    raise Failure("walk did not end")


def test_rows_changing_under_a_walk():
    for table, entry, column, bulk, mutations, oids, values in CASES:
        what = f"{table} column {column} walked while rows changed"
        with Env("mutate") as env:
            seen = stepwise_walk(env.agent(), f"{entry}.{column}", mutations, bulk)
        check_increasing(seen, what)
        check_eq([v.oid[len(entry) + 1:] for v in seen], oids, what)
        check_eq([v.value for v in seen[:len(values)]], values, f"{what}: values")


if __name__ == "__main__":
    run(test_rows_changing_under_a_walk)
