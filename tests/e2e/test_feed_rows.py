#!/usr/bin/env python3
"""A state file and a sequence of feed patches give exactly the expected rows and values in
PIM-MIB, IPMROUTE-STD-MIB and IP-MCAST-MIB, in the default context and in VRF red's, over
SNMPv2c (community per context) and SNMPv3 (-n red)."""

import e2elib as e
from e2elib import check_eq

# Columns (entry OID and column number) and scalars.
PIM_INTF_ADDRESS = "1.3.6.1.3.61.1.1.2.1.2"
PIM_NBR_IFINDEX = "1.3.6.1.3.61.1.1.3.1.2"
PIM_MROUTE_FLAGS = "1.3.6.1.3.61.1.1.4.1.5"
IPMR_UPSTREAM = "1.3.6.1.2.1.83.1.1.2.1.4"
IPMR_PKTS = "1.3.6.1.2.1.83.1.1.2.1.8"
IPMR_NEXTHOP_STATE = "1.3.6.1.2.1.83.1.1.3.1.6"
IPMR_INTF_TTL = "1.3.6.1.2.1.83.1.1.4.1.2"
IPMR_COUNT = "1.3.6.1.2.1.83.1.1.7.0"
MC_INTF_STORAGE = "1.3.6.1.2.1.168.1.3.1.5"
MC_ROUTE_IFINDEX = "1.3.6.1.2.1.168.1.5.1.9"
MC_ROUTE_PKTS = "1.3.6.1.2.1.168.1.5.1.19"
MC_NEXTHOP_STATE = "1.3.6.1.2.1.168.1.6.1.10"
MC_COUNT = "1.3.6.1.2.1.168.1.2.0"


def mroute_index(source, group):
    """ipMRouteTable index: group, source, source mask (host route)."""
    return f"{group}.{source}.255.255.255.255"


def mcast_index(source, group):
    """ipMcastRouteTable index: type, group, group length, type, source, source length."""
    return f"1.{e.inet_index(group)}.32.1.{e.inet_index(source)}.32"


def snapshot(env, port, **auth):
    """The objects of the three modules in one context: {oid: (type, value)}."""
    return {oid: v for root in (e.PIM_MIB, e.IPMROUTE_MIB, e.IPMCAST_MIB)
            for oid, v in e.walk(env, port, root, **auth).items()}


def check_rows(snap, expected, what):
    """`expected` per column OID: the indexes it holds (a set) or {index: value}; per scalar
    OID its value."""
    for oid, want in expected.items():
        got = {o[len(oid) + 1:]: v for o, (_, v) in snap.items() if o.startswith(oid + ".")}
        got = set(got) if isinstance(want, set) else got if isinstance(want, dict) else \
            snap.get(oid, (None, None))[1]
        check_eq(got, want, f"{what}: {oid}")


def main():
    with e.Env("feed-rows") as env:
        proc, port, feed = env.pimsnmpd(e.two_vrf_document(), config_lines=e.access_lines())
        # -- the state file as loaded
        e.wait_tables(env, feed, "", {"ipMRouteTable": 1, "ipMcastRouteTable": 1,
                                      "pimNeighborTable": 3})
        e.wait_tables(env, feed, "red", {"ipMcastRouteTable": 1})
        # Which rows each table holds; the values in them, column by column, are checked by
        # name against the demo document in test_mib_names.
        r1, m1 = mroute_index("10.0.1.10", "239.1.1.1"), mcast_index("10.0.1.10", "239.1.1.1")
        check_rows(snapshot(env, port, community="public"), {
            PIM_INTF_ADDRESS: {"1", "2", "3"},
            PIM_NBR_IFINDEX: {"10.0.1.2": 1, "10.0.1.3": 1, "10.0.2.2": 2},
            PIM_MROUTE_FLAGS: {r1},
            IPMR_UPSTREAM: {r1},
            # One next hop per outgoing interface (ifIndex 2, 3), forwarding.
            IPMR_NEXTHOP_STATE: {f"{r1}.2.239.1.1.1": 2, f"{r1}.3.239.1.1.1": 2},
            IPMR_INTF_TTL: {"1", "2", "3"},
            IPMR_COUNT: 1,
            MC_ROUTE_IFINDEX: {m1},
            MC_NEXTHOP_STATE: {f"{m1}.2.1.4.239.1.1.1", f"{m1}.3.1.4.239.1.1.1"},
            MC_INTF_STORAGE: {"1.1", "1.2", "1.3"},
            MC_COUNT: 1,
        }, "default context")

        # VRF red: its own rows, the same over v2c (mapped community) and v3 (-n red).
        red = snapshot(env, port, community="public-red")
        check_rows(red, {PIM_NBR_IFINDEX: {"172.16.0.2"},
                         MC_ROUTE_IFINDEX: {mcast_index("172.16.0.50", "239.9.9.9")}}, "red")
        check_eq(sorted(snapshot(env, port, user="e2e", context="red")), sorted(red),
                 "red's objects over v3 and v2c")

        # -- patches over the feed
        c = e.FeedClient(feed)
        c.patch({"vrfs": {"default": {"ipv4": {
            "routes": {"10.0.2.20,239.2.2.2": {"upstream": {"interface": "Ethernet2",
                                                            "rpfNeighbor": "10.0.2.2"},
                                               "interfaces": {"Ethernet1": {}}}},
            "fib": {"routes": {"10.0.2.20,239.2.2.2": {"oifs": ["Ethernet1"], "packets": 7,
                                                       "bytes": 700}}}}}}})
        c.patch({"vrfs": {"default": {"ipv4": {"pimStatus": {"interfaces": {
            "Ethernet1": {"neighbors": {"10.0.1.3": None}}}}}}}})
        c.patch({"vrfs": {"default": {"ipv4": {"fib": {"routes": {
            "10.0.1.10,239.1.1.1": {"packets": 250, "bytes": 300000}}}}}}})
        c.patch({"vrfs": {"red": {"ipv4": {"pimStatus": {"interfaces": {
            "Vlan101": {"neighbors": {"172.16.1.2": {}}}}}}}}})

        e.wait_tables(env, feed, "", {"ipMRouteTable": 2, "pimNeighborTable": 2})
        r2, m2 = mroute_index("10.0.2.20", "239.2.2.2"), mcast_index("10.0.2.20", "239.2.2.2")
        check_rows(snapshot(env, port, community="public"), {
            IPMR_PKTS: {r1: 250, r2: 7},  # a route added, a counter patched
            MC_ROUTE_PKTS: {m1: 250, m2: 7},
            IPMR_COUNT: 2,
            MC_COUNT: 2,
            PIM_NBR_IFINDEX: {"10.0.1.2": 1, "10.0.2.2": 2},  # 10.0.1.3 removed
        }, "default context after patches")
        check_rows(snapshot(env, port, user="e2e", context="red"),
                   {PIM_NBR_IFINDEX: {"172.16.0.2": 100, "172.16.1.2": 101}},
                   "red after adding a neighbor")

        # Removing the first route from both tables leaves only the new one.
        c.patch({"vrfs": {"default": {"ipv4": {"routes": {"10.0.1.10,239.1.1.1": None},
                                               "fib": {"routes": {"10.0.1.10,239.1.1.1": None}}}}}})
        e.wait_tables(env, feed, "", {"ipMRouteTable": 1})
        check_rows(snapshot(env, port, community="public"), {
            IPMR_UPSTREAM: {r2}, PIM_MROUTE_FLAGS: {r2}, MC_ROUTE_IFINDEX: {m2},
            # only the remaining route's next hop
            IPMR_NEXTHOP_STATE: {f"{r2}.1.239.2.2.2"},
        }, "default context after removing a route")

        # The status report counts the same rows.
        tables = env.status(feed)["contexts"][""]["tables"]
        check_eq(tables["ipMRouteStdMIB"]["ipMRouteTable"], 1, "status ipMRouteTable")
        check_eq(tables["PimMIB"]["pimNeighborTable"], 2, "status pimNeighborTable")


if __name__ == "__main__":
    e.run(main)
