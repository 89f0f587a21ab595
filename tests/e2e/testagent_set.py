#!/usr/bin/env python3
"""snmpset on every column of every table and on every scalar answers notWritable, changes
nothing, and leaves the agent serving."""

from testagent_lib import (Env, check, check_eq, expected_walk, IPMCAST_MIB, IPMROUTE_MIB,
                           PIM_MIB, mcast_route_index, run)

R1 = "239.1.1.1.10.1.1.1.255.255.255.255"
M1 = mcast_route_index("239.1.1.1", "10.1.1.1", 32)

# (object, OID without instance or column, instance, {column: snmpset type}). A value of the
# column's own type is sent where snmpset can write one; counters go as Unsigned32.
A, I, T, U, X = ("a", "10.1.1.1"), ("i", "1"), ("t", "100"), ("u", "1"), ("x", "00000001")
SCALARS = [
    ("pimJoinPruneInterval", "1.3.6.1.3.61.1.1.1.0", ("i", "30")),
    ("ipMRouteEnable", "1.3.6.1.2.1.83.1.1.1.0", ("i", "2")),
    ("ipMRouteEntryCount", "1.3.6.1.2.1.83.1.1.7.0", U),
    ("ipMcastEnabled", "1.3.6.1.2.1.168.1.1.0", ("i", "2")),
    ("ipMcastRouteEntryCount", "1.3.6.1.2.1.168.1.2.0", U),
    ("ipMcastDeviceConfigStorageType", "1.3.6.1.2.1.168.1.11.0", ("i", "3")),
]
TABLES = [
    ("pimInterfaceTable", "1.3.6.1.3.61.1.1.2.1", "3",
     {2: A, 3: A, 4: I, 5: A, 6: I, 7: I, 8: I, 9: I}),
    ("pimNeighborTable", "1.3.6.1.3.61.1.1.3.1", "10.0.3.2", {2: I, 3: T, 4: T, 5: I}),
    ("pimIpMRouteTable", "1.3.6.1.3.61.1.1.4.1", R1, {1: T, 2: I, 3: I, 4: I, 5: X}),
    ("pimRPSetTable", "1.3.6.1.3.61.1.1.6.1", "1.224.0.0.0.240.0.0.0.10.9.9.9", {4: I, 5: T}),
    ("pimIpMRouteNextHopTable", "1.3.6.1.3.61.1.1.7.1", f"{R1}.4.239.1.1.1", {2: I}),
    ("pimCandidateRPTable", "1.3.6.1.3.61.1.1.11.1", "224.0.0.0.240.0.0.0", {3: A, 4: I}),
    ("pimComponentTable", "1.3.6.1.3.61.1.1.12.1", "1", {2: A, 3: T, 4: I, 5: I}),
    ("ipMRouteTable", "1.3.6.1.2.1.83.1.1.2.1", R1,
     {4: A, 5: I, 6: T, 7: T, 8: U, 9: U, 10: U, 11: I, 12: I, 13: A, 14: A, 15: I, 16: U}),
    ("ipMRouteNextHopTable", "1.3.6.1.2.1.83.1.1.3.1", f"{R1}.4.239.1.1.1",
     {6: I, 7: T, 8: T, 9: I, 10: U, 11: I}),
    ("ipMRouteInterfaceTable", "1.3.6.1.2.1.83.1.1.4.1", "3",
     {2: I, 3: I, 4: I, 5: U, 6: U, 7: U, 8: U}),
    ("ipMcastInterfaceTable", "1.3.6.1.2.1.168.1.3.1", "1.3", {3: U, 4: U, 5: I}),
    ("ipMcastRouteTable", "1.3.6.1.2.1.168.1.5.1", M1,
     {7: I, 8: X, 9: I, 10: T, 11: T, 12: I, 13: I, 14: I, 15: X, 16: U, 17: I, 18: U, 19: U,
      20: U, 21: U, 22: U, 23: U, 24: U}),
    ("ipMcastRouteNextHopTable", "1.3.6.1.2.1.168.1.6.1", f"{M1}.4.1.4.239.1.1.1",
     {10: I, 11: T, 12: T, 13: I, 14: X, 15: U, 16: U}),
]


def check_refused(agent, what, oid, type_, value):
    code, text = agent.set(oid, type_, value)
    check(code != 0, f"SET {what} ({oid}) succeeded: {text}")
    check("notWritable" in text, f"SET {what} ({oid}): not notWritable: {text.strip()}")
    check(f"Failed object: .{oid}" in text, f"SET {what}: wrong failed object: {text.strip()}")


def test_every_set_is_refused_and_changes_nothing():
    with Env("set") as env:
        agent = env.agent(config="rwcommunity public 127.0.0.1\n")
        before = {root: agent.walk(root, bulk=True) for root in (PIM_MIB, IPMROUTE_MIB, IPMCAST_MIB)}
        for name, oid, (type_, value) in SCALARS:
            check_refused(agent, name, oid, type_, value)
        for table, entry, index, columns in TABLES:
            for column, (type_, value) in columns.items():
                check_refused(agent, f"{table} column {column}", f"{entry}.{column}.{index}",
                              type_, value)
        # Rows that do not exist cannot be created either.
        check_refused(agent, "new pimInterfaceTable row", "1.3.6.1.3.61.1.1.2.1.7.99", "i", "4")
        check_refused(agent, "new pimCandidateRPTable row",
                      "1.3.6.1.3.61.1.1.11.1.4.232.0.0.0.255.0.0.0", "i", "4")
        check_refused(agent, "new ipMcastInterfaceTable row", "1.3.6.1.2.1.168.1.3.1.5.1.99",
                      "i", "4")

        check(agent.alive(), "the agent stopped")
        for root, vars_ in before.items():
            after = agent.walk(root, bulk=True)
            # Time-dependent columns move on their own; everything else is unchanged.
            moving = {row[0] for row in expected_walk(root)
                      if isinstance(row[2], tuple) and row[2][0] == "range"}
            check_eq([(v.oid, v.type, v.value) for v in after if v.oid not in moving],
                     [(v.oid, v.type, v.value) for v in vars_ if v.oid not in moving],
                     f"{root} after the SETs")


if __name__ == "__main__":
    run(test_every_set_is_refused_and_changes_nothing)
