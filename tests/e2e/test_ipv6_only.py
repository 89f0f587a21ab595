#!/usr/bin/env python3
"""An IPv6-only VRF is served by IP-MCAST-MIB only: its context answers, PIM-MIB and
IPMROUTE-STD-MIB hold nothing there, and IP-MCAST-MIB holds its IPv6 rows. Removing its
IPv6 section withdraws the context."""

import e2elib as e
from e2elib import check, check_eq, columns, walk

MC_INTF = "1.3.6.1.2.1.168.1.3.1"
MC_ROUTE = "1.3.6.1.2.1.168.1.5.1"
MC_NEXTHOP = "1.3.6.1.2.1.168.1.6.1"
MC_COUNT = "1.3.6.1.2.1.168.1.2.0"


def document():
    doc = e.two_vrf_document()
    del doc["vrfs"]["red"]
    doc["interfaces"].update({"Ethernet20": {"ifIndex": 20}, "Ethernet21": {"ifIndex": 21}})
    doc["vrfs"]["blue6"] = {"ipv6": e.vrf_inputs(interfaces={
            "Ethernet20": {"address": "2001:db8:20::1/64", "dr": "2001:db8:20::1",
                           "neighbors": {"2001:db8:20::2": {}}},
            "Ethernet21": {"address": "2001:db8:21::1/64", "dr": "2001:db8:21::1"},
        },
        routes={"2001:db8:20::10,ff3e::1:1": {
            "upstream": {"interface": "Ethernet20", "rpfNeighbor": "2001:db8:20::2"},
            "interfaces": {"Ethernet21": {}}}},
        fib={"oifIndexes": {"Ethernet20": 1, "Ethernet21": 2},
             "routes": {"2001:db8:20::10,ff3e::1:1": {"oifs": ["Ethernet21"], "packets": 9,
                                                      "bytes": 900}}})}
    return doc


def main():
    with e.Env("ipv6-only") as env:
        proc, port, feed = env.pimsnmpd(document(), config_lines=e.access_lines(contexts=("blue6",)))
        e.wait_tables(env, feed, "blue6", {"ipMcastRouteTable": 1})
        status = env.status(feed)
        check_eq(status["contexts"]["blue6"]["modules"], ["ipMcastMIB"], "modules of blue6")
        check("blue6" not in status["modules"]["PimMIB"], "PIM-MIB not in blue6")

        for auth in (dict(community="public-blue6"), dict(user="e2e", context="blue6")):
            check(e.reachable(env, port, e.IPMCAST_MIB, **auth), f"blue6 answers {auth}")
            check_eq(walk(env, port, e.PIM_MIB, **auth), {}, f"PIM-MIB in blue6 {auth}")
            check_eq(walk(env, port, e.IPMROUTE_MIB, **auth), {}, f"IPMROUTE-STD-MIB {auth}")
            mc = walk(env, port, e.IPMCAST_MIB, **auth)
            route = columns(mc, MC_ROUTE)
            index = f"2.{e.inet_index('ff3e::1:1')}.128.2.{e.inet_index('2001:db8:20::10')}.128"
            # The IPv6 columns' values: test_mib_names (VRF blue) and ColumnsTest.IpMcastMib.
            check_eq(set(route[9]), {index}, "ipMcastRouteTable rows (IPv6 index)")
            nh = columns(mc, MC_NEXTHOP)[10]
            check_eq(len(nh), 1, "ipMcastRouteNextHopTable rows")
            check(list(nh)[0].startswith(index + ".21."), "next hop on ifIndex 21")
            check_eq(set(columns(mc, MC_INTF)[5]), {"2.20", "2.21"},
                     "ipMcastInterfaceTable rows (ipVersion 2)")
            check_eq(mc[MC_COUNT][1], 1, "ipMcastRouteEntryCount")

        # The default context keeps its IPv4 rows only.
        mc = walk(env, port, e.IPMCAST_MIB, community="public")
        check(all(i.startswith("1.") for i in columns(mc, MC_ROUTE)[9]), "IPv4 rows in default")

        # Without its IPv6 section the VRF is gone: the context no longer answers.
        e.FeedClient(feed).patch({"vrfs": {"blue6": {"ipv6": None}}})
        e.wait_for(lambda: "blue6" not in env.status(feed)["contexts"], 10, "blue6 withdrawn")
        check(not e.reachable(env, port, e.IPMCAST_MIB, user="e2e", context="blue6"),
              "withdrawn context serves nothing")


if __name__ == "__main__":
    e.run(main)
