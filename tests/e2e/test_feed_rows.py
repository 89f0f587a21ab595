#!/usr/bin/env python3
"""A state file and a sequence of feed patches give exactly the expected rows and values in
PIM-MIB, IPMROUTE-STD-MIB and IP-MCAST-MIB, in the default context and in VRF red's, over
SNMPv2c (community per context) and SNMPv3 (-n red)."""

import e2elib as e
from e2elib import check, check_eq, columns, walk

PIM_INTF = "1.3.6.1.3.61.1.1.2.1"
PIM_NBR = "1.3.6.1.3.61.1.1.3.1"
PIM_MROUTE = "1.3.6.1.3.61.1.1.4.1"
IPMR_ROUTE = "1.3.6.1.2.1.83.1.1.2.1"
IPMR_NEXTHOP = "1.3.6.1.2.1.83.1.1.3.1"
IPMR_INTF = "1.3.6.1.2.1.83.1.1.4.1"
IPMR_COUNT = "1.3.6.1.2.1.83.1.1.7.0"
MC_INTF = "1.3.6.1.2.1.168.1.3.1"
MC_ROUTE = "1.3.6.1.2.1.168.1.5.1"
MC_NEXTHOP = "1.3.6.1.2.1.168.1.6.1"
MC_COUNT = "1.3.6.1.2.1.168.1.2.0"


def mroute_index(source, group):
    """ipMRouteTable index: group, source, source mask (host route)."""
    return f"{group}.{source}.255.255.255.255"


def mcast_index(source, group):
    """ipMcastRouteTable index: type, group, group length, type, source, source length."""
    return f"1.{e.inet_index(group)}.32.1.{e.inet_index(source)}.32"


def snapshot(env, port, **auth):
    return {root: walk(env, port, root, **auth)
            for root in (e.PIM_MIB, e.IPMROUTE_MIB, e.IPMCAST_MIB)}


def main():
    with e.Env("feed-rows") as env:
        proc, port, feed = env.pimsnmpd(e.two_vrf_document(), config_lines=e.access_lines())
        default = dict(community="public")
        red_v2 = dict(community="public-red")
        red_v3 = dict(user="e2e", context="red")

        # -- the state file as loaded
        e.wait_tables(env, feed, "", {"ipMRouteTable": 1, "ipMcastRouteTable": 1,
                                      "pimNeighborTable": 3})
        e.wait_tables(env, feed, "red", {"ipMcastRouteTable": 1})
        # Which rows each table holds; the values in them, column by column, are checked by
        # name against the demo document in test_mib_names.
        w = snapshot(env, port, **default)
        pim = w[e.PIM_MIB]
        r1 = mroute_index("10.0.1.10", "239.1.1.1")
        m1 = mcast_index("10.0.1.10", "239.1.1.1")
        check_eq(set(columns(pim, PIM_INTF)[2]), {"1", "2", "3"}, "default pimInterfaceTable rows")
        check_eq(columns(pim, PIM_NBR)[2], {"10.0.1.2": 1, "10.0.1.3": 1, "10.0.2.2": 2},
                 "pimNeighborIfIndex")
        check_eq(set(columns(pim, PIM_MROUTE)[5]), {r1}, "pimIpMRouteTable rows")

        ipmr = w[e.IPMROUTE_MIB]
        check_eq(set(columns(ipmr, IPMR_ROUTE)[4]), {r1}, "ipMRouteTable rows")
        nh = columns(ipmr, IPMR_NEXTHOP)
        check_eq({i.split(".")[12] for i in nh[6]}, {"2", "3"}, "ipMRouteNextHopIfIndex values")
        check_eq(set(nh[6].values()), {2}, "ipMRouteNextHopState (forwarding)")
        check_eq(set(columns(ipmr, IPMR_INTF)[2]), {"1", "2", "3"}, "ipMRouteInterfaceTable rows")
        check_eq(ipmr[IPMR_COUNT][1], 1, "ipMRouteEntryCount")

        mc = w[e.IPMCAST_MIB]
        check_eq(set(columns(mc, MC_ROUTE)[9]), {m1}, "ipMcastRouteTable rows")
        check_eq(len(columns(mc, MC_NEXTHOP)[10]), 2, "ipMcastRouteNextHopTable rows")
        check_eq(set(columns(mc, MC_INTF)[5]), {"1.1", "1.2", "1.3"}, "ipMcastInterfaceTable rows")
        check_eq(mc[MC_COUNT][1], 1, "ipMcastRouteEntryCount")

        # VRF red: its own rows, the same over v2c (mapped community) and v3 (-n red).
        red = snapshot(env, port, **red_v2)
        check_eq(set(columns(red[e.PIM_MIB], PIM_NBR)[2]), {"172.16.0.2"}, "red neighbors")
        check_eq(set(columns(red[e.IPMCAST_MIB], MC_ROUTE)[9]),
                 {mcast_index("172.16.0.50", "239.9.9.9")}, "red ipMcastRouteTable rows")
        v3 = snapshot(env, port, **red_v3)
        for root in red:
            check_eq(sorted(v3[root]), sorted(red[root]), f"red {root} objects over v3 and v2c")

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
        w = snapshot(env, port, **default)
        r2 = mroute_index("10.0.2.20", "239.2.2.2")
        route = columns(w[e.IPMROUTE_MIB], IPMR_ROUTE)
        check_eq(set(route[4]), {r1, r2}, "ipMRouteTable rows after adding a route")
        check_eq(route[8], {r1: 250, r2: 7}, "ipMRoutePkts after a counter patch")
        mroute = columns(w[e.IPMCAST_MIB], MC_ROUTE)
        check_eq(set(mroute[9]), {m1, mcast_index("10.0.2.20", "239.2.2.2")},
                 "ipMcastRouteTable rows after adding a route")
        check_eq(mroute[19][m1], 250, "ipMcastRoutePkts after a counter patch")
        check_eq(w[e.IPMCAST_MIB][MC_COUNT][1], 2, "ipMcastRouteEntryCount")
        check_eq(w[e.IPMROUTE_MIB][IPMR_COUNT][1], 2, "ipMRouteEntryCount")
        check_eq(columns(w[e.PIM_MIB], PIM_NBR)[2], {"10.0.1.2": 1, "10.0.2.2": 2},
                 "pimNeighborIfIndex after removing 10.0.1.3")
        red = snapshot(env, port, **red_v3)
        check_eq(columns(red[e.PIM_MIB], PIM_NBR)[2], {"172.16.0.2": 100, "172.16.1.2": 101},
                 "red neighbors after adding one")

        # Removing the first route from both tables leaves only the new one.
        c.patch({"vrfs": {"default": {"ipv4": {"routes": {"10.0.1.10,239.1.1.1": None},
                                               "fib": {"routes": {"10.0.1.10,239.1.1.1": None}}}}}})
        e.wait_tables(env, feed, "", {"ipMRouteTable": 1})
        w = snapshot(env, port, **default)
        check_eq(set(columns(w[e.IPMROUTE_MIB], IPMR_ROUTE)[4]), {r2}, "ipMRouteTable rows")
        check_eq(set(columns(w[e.PIM_MIB], PIM_MROUTE)[5]), {r2}, "pimIpMRouteTable rows")
        check_eq(len(columns(w[e.IPMCAST_MIB], MC_ROUTE)[9]), 1, "ipMcastRouteTable rows")
        check(all(r2.split(".")[:4] == i.split(".")[:4]
                  for i in columns(w[e.IPMROUTE_MIB], IPMR_NEXTHOP)[6]),
              "only the remaining route's next hops")

        # The status report counts the same rows.
        tables = env.status(feed)["contexts"][""]["tables"]
        check_eq(tables["ipMRouteStdMIB"]["ipMRouteTable"], 1, "status ipMRouteTable")
        check_eq(tables["PimMIB"]["pimNeighborTable"], 2, "status pimNeighborTable")
        c.close()
        check_eq(proc.stop(), 0, "pimsnmpd exit code")


if __name__ == "__main__":
    e.run(main)
